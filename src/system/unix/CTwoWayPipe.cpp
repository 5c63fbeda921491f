// Implementation notes
//
// A socket pair would be the obvious two-way channel, but on Linux a program cannot open
// /dev/stdin when its standard input is a socket (ENXIO), and "/bin/sh /dev/stdin" is
// exactly what we run. So the program reads from a pipe, and a small relay process, its
// parent, copies what arrives on the socket into that pipe:
//
//   caller fd <-> socket <-> relay -> pipe -> program stdin
//                        <----------------- program stdout
//
// The relay ends when the program has closed its input (poll reports POLLERR on the
// pipe's write end) or when the caller closes its end; it closes its copy of the socket
// first, so the caller sees the end of output as soon as the program is done writing.
// Between fork and exec only async-signal-safe calls are made.

#include "CTwoWayPipe.h"

#include <cerrno>
#include <csignal>
#include <initializer_list>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

bool writeAll(int fd, const char *data, ssize_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size_t(size));
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        data += written;
        size -= written;
    }
    return true;
}

[[noreturn]] void runRelay(int socketFd, int pipeRead, int pipeWrite, const char *const argv[])
{
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &ignore, nullptr);

    const pid_t program = ::fork();
    if (program < 0)
        ::_exit(127);
    if (program == 0) {
        if (::dup2(pipeRead, STDIN_FILENO) < 0 || ::dup2(socketFd, STDOUT_FILENO) < 0)
            ::_exit(127);
        struct sigaction standard = {};
        standard.sa_handler = SIG_DFL;
        ::sigaction(SIGPIPE, &standard, nullptr);
        ::execv(argv[0], const_cast<char *const *>(argv));
        ::_exit(127);
    }
    ::close(pipeRead);

    char buffer[4096];
    pollfd fds[2] = {{socketFd, POLLIN, 0}, {pipeWrite, 0, 0}};
    for (;;) {
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        if (fds[1].revents & (POLLERR | POLLHUP))
            break;
        if (fds[0].revents) {
            const ssize_t got = ::read(socketFd, buffer, sizeof buffer);
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0 || !writeAll(pipeWrite, buffer, got))
                break;
        }
    }
    ::close(pipeWrite);
    ::close(socketFd);

    int status = 0;
    while (::waitpid(program, &status, 0) < 0 && errno == EINTR) { }
    ::_exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

} // namespace

int spawnOverTwoWayPipe(const char *const argv[], pid_t *childPid)
{
    int sockets[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) < 0)
        return -1;
    int input[2];
    if (::pipe(input) < 0) {
        const int savedErrno = errno;
        ::close(sockets[0]);
        ::close(sockets[1]);
        errno = savedErrno;
        return -1;
    }

    // Keep the descriptors out of programs started meanwhile by other threads (as far as
    // the platform lets us without pipe2).
    for (const int fd : {sockets[0], sockets[1], input[0], input[1]})
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);

    const pid_t relay = ::fork();
    if (relay == 0) {
        ::close(sockets[0]);
        runRelay(sockets[1], input[0], input[1], argv);
    }
    const int savedErrno = errno;
    ::close(sockets[1]);
    ::close(input[0]);
    ::close(input[1]);
    if (relay < 0) {
        ::close(sockets[0]);
        errno = savedErrno;
        return -1;
    }
    *childPid = relay;
    return sockets[0];
}
