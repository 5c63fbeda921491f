#pragma once

#include <QByteArray>
#include <QList>

// Scripted answers of the proc_listpidspath stand-in, and a record of its calls.
namespace LibprocStandin {

struct Answer
{
    int result;
    int error; // errno set with a negative result
};

struct Call
{
    uint32_t type;
    uint32_t typeinfo;
    QByteArray path;
    uint32_t pathflags;
    bool hasBuffer;
    int buffersize;
};

void script(const QList<Answer> &answers);
QList<Call> calls();

} // namespace LibprocStandin
