// A process for tests to find, probe, stop and wait for.
//
//   bv_processhelper [--ignore-term] [--lifetime MS]
//       Prints its pid once its signal handling is in place, then runs until SIGTERM (SIGKILL
//       with --ignore-term), at most MS ms (default 60000). Start it through a link named as
//       it should be found: that is the command name the system reports.
//   bv_processhelper --supervise PATH [ARGS...]
//       Runs PATH as a child and reaps it the moment it ends, so a test sees
//       it vanish rather than linger as a zombie. Exits with its status; both die with
//       their parent.

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
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

    bool ignoreTerm = false;
    long lifetimeMs = 60000;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--ignore-term") == 0)
            ignoreTerm = true;
        else if (std::strcmp(argv[i], "--lifetime") == 0 && i + 1 < argc)
            lifetimeMs = std::strtol(argv[++i], nullptr, 10);
        else
            return 2;
    }
    ::signal(SIGTERM, ignoreTerm ? SIG_IGN : SIG_DFL);
    std::printf("%ld\n", long(::getpid()));
    std::fflush(stdout);
    for (long waited = 0; waited < lifetimeMs; waited += 50)
        ::usleep(50000);
    return 0;
}
