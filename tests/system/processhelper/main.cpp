// A stand-in process for tests: something to find, probe, stop and wait for.
//
//   bv_processhelper [--ignore-term] [--lifetime MS]
//       Runs until SIGTERM (or SIGKILL with --ignore-term), at most MS milliseconds
//       (default 60000). Once its signal handling is in place it prints its pid and a line
//       feed. Start it through a link with the name it should be found under: that is the
//       command name the system reports.
//
//   bv_processhelper --supervise [--as-user NAME] PATH [ARGS...]
//       Runs PATH with ARGS as a child (as user NAME when given), reaps it the moment it
//       ends and exits with its status, so a test sees the target vanish instead of
//       lingering as an unreaped zombie. Both die with their parent.

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

int runTarget(int argc, char *argv[])
{
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

int runSupervisor(int argc, char *argv[])
{
    int first = 2;
    const passwd *user = nullptr;
    if (argc > 3 && std::strcmp(argv[2], "--as-user") == 0) {
        if (!(user = ::getpwnam(argv[3])))
            return 2;
        first = 4;
    }
    if (first >= argc)
        return 2;

    const pid_t self = ::getpid();
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const pid_t child = ::fork();
    if (child < 0)
        return 1;
    if (child == 0) {
        if (user
            && (::setgroups(0, nullptr) != 0 || ::setgid(user->pw_gid) != 0
                || ::setuid(user->pw_uid) != 0))
            ::_exit(126);
        // Set after the change of user, which clears it.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != self)
            ::_exit(1);
        ::execv(argv[first], argv + first);
        std::perror(argv[first]);
        ::_exit(127);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) { }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc > 1 && std::strcmp(argv[1], "--supervise") == 0)
        return runSupervisor(argc, argv);
    return runTarget(argc, argv);
}
