#pragma once

// Stand-in for the few libproc declarations the lock code uses, so that the macOS source
// compiles and runs on Linux, with scripted answers. Never shipped.

#include <QByteArray>
#include <QList>

#include <stdint.h>
#include <sys/types.h>

#define PROC_ALL_PIDS 1
#define PROC_LISTPIDSPATH_EXCLUDE_EVTONLY 0x00000002

int proc_listpidspath(uint32_t type, uint32_t typeinfo, const char *path, uint32_t pathflags,
    void *buffer, int buffersize);

// The answers proc_listpidspath gives, one per call, and a record of its calls.
namespace LibprocStandin {

struct Answer
{
    int result;
    int error; // errno set with a negative result
};

struct Call
{
    QByteArray path;
    int buffersize; // -1: no buffer given
};

void script(const QList<Answer> &answers);
QList<Call> calls();

} // namespace LibprocStandin
