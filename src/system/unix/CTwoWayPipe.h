#pragma once

#include <sys/types.h>

// Starts the program `argv[0]` (an absolute path; `argv` ends with a null pointer) with
// its standard input and output joined to one read-write descriptor, which is returned
// (close-on-exec). The program may open /dev/stdin by name: its input is a real pipe.
// On failure returns -1 with errno set.
//
// `*childPid` receives the id of the direct child; the caller reaps it with waitpid()
// after closing the descriptor. It ends once the program has closed its input.
int spawnOverTwoWayPipe(const char *const argv[], pid_t *childPid);
