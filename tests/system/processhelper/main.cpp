// A process for tests to find, probe, stop and wait for.
//
//   bv_processhelper [--ignore-term]
//       Prints its pid once its signal handling is in place, then runs until SIGTERM (SIGKILL
//       with --ignore-term), at most a minute. Start it through a link named as it should be
//       found: that is the command name the system reports.
//   bv_processhelper --supervise PATH [ARGS...]
//       Runs PATH as a child and reaps it the moment it ends, so a test sees
//       it vanish rather than linger as a zombie. Exits with its status; both die with
//       their parent.

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char *argv[])
{
    if (argc > 2 && std::strcmp(argv[1], "--supervise") == 0) {
        const pid_t self = ::getpid();
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        const pid_t child = ::fork();
        if (child == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (::getppid() != self)
                ::_exit(1);
            ::execv(argv[2], argv + 2);
            std::perror(argv[2]);
            ::_exit(127);
        }
        int status = 0;
        while (child > 0 && ::waitpid(child, &status, 0) < 0 && errno == EINTR) { }
        return child < 0 ? 1 : WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    ::signal(SIGTERM, argc > 1 && std::strcmp(argv[1], "--ignore-term") == 0 ? SIG_IGN : SIG_DFL);
    std::printf("%ld\n", long(::getpid()));
    std::fflush(stdout);
    ::sleep(60);
    return 0;
}
