#pragma once

// Stand-in for the few libproc declarations the lock code uses, so that the macOS
// source compiles and runs on Linux. Each test scripts the answers (see
// libproc_standin.h). Never shipped.

#include <stdint.h>
#include <sys/types.h>

#define PROC_ALL_PIDS 1
#define PROC_LISTPIDSPATH_EXCLUDE_EVTONLY 0x00000002

int proc_listpidspath(uint32_t type, uint32_t typeinfo, const char *path, uint32_t pathflags,
    void *buffer, int buffersize);
