// Stands in for the Brisvane product in the staged installation: it only has to be
// found by name and to end when it is asked to, as the product does on SIGTERM.
#include <csignal>
#include <cstdio>

int main()
{
    sigset_t terminate;
    sigemptyset(&terminate);
    sigaddset(&terminate, SIGTERM);
    sigaddset(&terminate, SIGINT);
    // Block first so that a signal arriving before sigwait is not lost.
    if (sigprocmask(SIG_BLOCK, &terminate, nullptr) != 0) {
        std::perror("sigprocmask");
        return 1;
    }
    int received = 0;
    if (sigwait(&terminate, &received) != 0) {
        std::perror("sigwait");
        return 1;
    }
    return 0;
}
