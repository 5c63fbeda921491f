// Implementation notes
//
// Linux has no policy database we could add a right to; polkit decides instead, when the
// script is started through pkexec, and pkexec's own policy asks for an administrator's
// password. So here:
//   - the session exists when we are root already or pkexec is installed;
//   - every right counts as defined, and acquiring one succeeds: the question is asked
//     when the shell starts;
//   - the shell is "pkexec /bin/bash /dev/stdin", or "/bin/bash /dev/stdin" when we are
//     root. The removal script is a bash script; /bin/sh is dash on Debian and would read
//     its redirections differently;
//   - acquiring the execute right ("system.privilege.admin") starts that shell at once,
//     so polkit asks before anything else happens, and keeps it waiting for the script.
//     The shell proves that it runs by answering a first command; a cancelled dialog
//     makes pkexec end without running it: no answer at all.

#ifdef __APPLE__
#error "Authorization Services serve CAuthorization on macOS"
#endif

#include "CPolkitEnvironment.h"
#include "system/mac/CAuthorizationBackend.h"
#include "system/unix/CTwoWayPipe.h"

#include <QList>

#include <cerrno>
#include <cstring>

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

struct AuthorizationOpaqueRef
{
    bool isRoot = false;
    QByteArray pkexec;
    // The shells started in this session, reaped when it is freed.
    mutable QList<pid_t> children;
    // A shell started when the execute right was acquired, waiting for its script.
    mutable FILE *waitingShell = nullptr;
};

namespace {

// Codes from the same family the Mac reports, so callers see familiar numbers.
const AuthorizationBackend::Status C_STATUS_INTERNAL = -60008;
const AuthorizationBackend::Status C_STATUS_INVALID_REF = -60002;
const AuthorizationBackend::Status C_STATUS_EXECUTE_FAILED = -60031;

const AuthorizationBackend::Status C_STATUS_CANCELED = -60006;

const char C_EXECUTE_RIGHT[] = "system.privilege.admin";
const char C_READY_COMMAND[] = "echo bv-shell-ready\n";
const char C_READY_ANSWER[] = "bv-shell-ready\n";

// Starts the privileged shell; `*pipe` is joined to its input and output.
AuthorizationBackend::Status startShell(const AuthorizationOpaqueRef *session, FILE **pipe)
{
    const char *const direct[] = {"/bin/bash", "/dev/stdin", nullptr};
    const char *const throughPolkit[]
        = {session->pkexec.constData(), "/bin/bash", "/dev/stdin", nullptr};
    pid_t child = -1;
    const int fd = spawnOverTwoWayPipe(session->isRoot ? direct : throughPolkit, &child);
    if (fd < 0)
        return C_STATUS_EXECUTE_FAILED;
    session->children.append(child);

    *pipe = ::fdopen(fd, "r+");
    if (!*pipe) {
        ::close(fd);
        return C_STATUS_EXECUTE_FAILED;
    }
    return AuthorizationBackend::C_STATUS_SUCCESS;
}

// Asks the shell for a sign of life, reading the answer byte by byte so that nothing of
// the script's own output is taken away. Blocks while polkit waits for the user.
bool shellAnswers(FILE *pipe)
{
    const int fd = ::fileno(pipe);
    const QByteArray command(C_READY_COMMAND);
    qsizetype written = 0;
    while (written < command.size()) {
        const ssize_t done = ::send(
            fd, command.constData() + written, size_t(command.size() - written), MSG_NOSIGNAL);
        if (done < 0 && errno == EINTR)
            continue;
        if (done <= 0)
            return false;
        written += done;
    }
    QByteArray answer;
    char byte = 0;
    while (answer.size() < qsizetype(sizeof C_READY_ANSWER) - 1) {
        const ssize_t got = ::read(fd, &byte, 1);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        answer.append(byte);
    }
    return answer == C_READY_ANSWER;
}

} // namespace

namespace AuthorizationBackend {

Status createSession(AuthorizationRef *session)
{
    const CPolkitEnvironment environment = CPolkitEnvironment::system();
    QByteArray pkexec;
    for (const QByteArray &location : environment.pkexecLocations) {
        if (::access(location.constData(), X_OK) == 0) {
            pkexec = location;
            break;
        }
    }
    if (!environment.isRoot && pkexec.isEmpty()) {
        *session = nullptr;
        return C_STATUS_INTERNAL;
    }
    auto *created = new AuthorizationOpaqueRef;
    created->isRoot = environment.isRoot;
    created->pkexec = pkexec;
    *session = created;
    return C_STATUS_SUCCESS;
}

Status freeSession(AuthorizationRef session)
{
    if (!session)
        return C_STATUS_INVALID_REF;
    // A shell that never got its script ends on the end of its input.
    if (session->waitingShell)
        ::fclose(session->waitingShell);
    for (const pid_t child : session->children) {
        while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) { }
    }
    delete session;
    return C_STATUS_SUCCESS;
}

Status copyRight(AuthorizationRef session, const char *rightName)
{
    if (!session)
        return C_STATUS_INVALID_REF;
    if (std::strcmp(rightName, C_EXECUTE_RIGHT) != 0 || session->waitingShell)
        return C_STATUS_SUCCESS;

    FILE *pipe = nullptr;
    const Status status = startShell(session, &pipe);
    if (status != C_STATUS_SUCCESS)
        return status;
    if (!shellAnswers(pipe)) {
        ::fclose(pipe);
        return C_STATUS_CANCELED;
    }
    session->waitingShell = pipe;
    return C_STATUS_SUCCESS;
}

Status getRight(const char *)
{
    return C_STATUS_SUCCESS;
}

Status setAdminRight(AuthorizationRef session, const char *)
{
    return session ? C_STATUS_SUCCESS : C_STATUS_INVALID_REF;
}

Status executeShell(AuthorizationRef session, FILE **pipe)
{
    if (!session)
        return C_STATUS_INVALID_REF;
    if (session->waitingShell) {
        *pipe = session->waitingShell;
        session->waitingShell = nullptr;
        return C_STATUS_SUCCESS;
    }
    return startShell(session, pipe);
}

} // namespace AuthorizationBackend
