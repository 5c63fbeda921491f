// A stand-in process for tests: something to find, probe, stop and wait for.
//
//   bv_processhelper [--ignore-term] [--lifetime MS]
//       Runs until SIGTERM (or SIGKILL with --ignore-term), at most MS milliseconds
//       (default 60000). Once its signal handling is in place it prints its pid and a
//       line feed on standard output. Start it through a link or copy with the name it
//       should be found under: that is the command name the system reports.
//
//   bv_processhelper --supervise [--as-user NAME] PATH [ARGS...]
//       Runs PATH with ARGS as a child (as user NAME when given) and reaps it the moment
//       it ends, then exits with its status. A test that starts the helper through a
//       supervisor sees the target vanish when it ends, instead of lingering as its own
//       unreaped zombie. Both die with their parent.

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

int usage()
{
    std::fprintf(stderr,
        "usage: bv_processhelper [--ignore-term] [--lifetime MS]\n"
        "       bv_processhelper --supervise [--as-user NAME] PATH [ARGS...]\n");
    return 2;
}

void dieWithParent(pid_t parent)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent)
        ::_exit(1);
}

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
            return usage();
    }

    struct sigaction action = {};
    action.sa_handler = ignoreTerm ? SIG_IGN : SIG_DFL;
    ::sigaction(SIGTERM, &action, nullptr);

    std::printf("%ld\n", long(::getpid()));
    std::fflush(stdout);

    timespec step = {0, 50 * 1000 * 1000};
    for (long waited = 0; waited < lifetimeMs; waited += 50)
        ::nanosleep(&step, nullptr);
    return 0;
}

int runSupervisor(int argc, char *argv[])
{
    int first = 2;
    const char *user = nullptr;
    if (first + 1 < argc && std::strcmp(argv[first], "--as-user") == 0) {
        user = argv[first + 1];
        first += 2;
    }
    if (first >= argc)
        return usage();

    uid_t uid = 0;
    gid_t gid = 0;
    if (user) {
        const passwd *entry = ::getpwnam(user);
        if (!entry) {
            std::fprintf(stderr, "bv_processhelper: no user %s\n", user);
            return 2;
        }
        uid = entry->pw_uid;
        gid = entry->pw_gid;
    }

    const pid_t self = ::getpid();
    dieWithParent(::getppid());
    std::vector<char *> arguments(argv + first, argv + argc);
    arguments.push_back(nullptr);

    const pid_t child = ::fork();
    if (child < 0)
        return 1;
    if (child == 0) {
        if (user && (::setgroups(0, nullptr) != 0 || ::setgid(gid) != 0 || ::setuid(uid) != 0))
            ::_exit(126);
        dieWithParent(self);
        ::execv(arguments[0], arguments.data());
        std::fprintf(
            stderr, "bv_processhelper: cannot run %s: %s\n", arguments[0], std::strerror(errno));
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
