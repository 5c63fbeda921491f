// Implementation notes
//
// Linux has no policy database we could add a right to; polkit decides instead, when the
// script is started through pkexec, and pkexec's own policy asks for an administrator's
// password. So here:
//   - the session exists when we are root already or pkexec is installed;
//   - every right counts as defined, and acquiring one succeeds: the question is asked
//     when the shell starts;
//   - the shell is "pkexec /bin/sh /dev/stdin", or "/bin/sh /dev/stdin" when we are root.
// A cancelled dialog makes pkexec end without running the shell: no output at all.

#ifdef __APPLE__
#error "Authorization Services serve CAuthorization on macOS"
#endif

#include "CPolkitEnvironment.h"
#include "system/mac/CAuthorizationBackend.h"
#include "system/unix/CTwoWayPipe.h"

#include <QList>

#include <cerrno>

#include <sys/wait.h>
#include <unistd.h>

struct AuthorizationOpaqueRef
{
    bool isRoot = false;
    QByteArray pkexec;
    // The shells started in this session, reaped when it is freed.
    mutable QList<pid_t> children;
};

namespace {

// Codes from the same family the Mac reports, so callers see familiar numbers.
const AuthorizationBackend::Status C_STATUS_INTERNAL = -60008;
const AuthorizationBackend::Status C_STATUS_INVALID_REF = -60002;
const AuthorizationBackend::Status C_STATUS_EXECUTE_FAILED = -60031;

std::optional<CPolkitEnvironment> &environmentOverride()
{
    static std::optional<CPolkitEnvironment> value;
    return value;
}

} // namespace

CPolkitEnvironment CPolkitEnvironment::system()
{
    CPolkitEnvironment environment;
    environment.isRoot = ::geteuid() == 0;
    environment.pkexecLocations = {"/usr/bin/pkexec", "/bin/pkexec"};
    return environment;
}

void overridePolkitEnvironment(const std::optional<CPolkitEnvironment> &environment)
{
    environmentOverride() = environment;
}

namespace AuthorizationBackend {

Status createSession(AuthorizationRef *session)
{
    const CPolkitEnvironment environment
        = environmentOverride().value_or(CPolkitEnvironment::system());
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
    for (const pid_t child : session->children) {
        while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) { }
    }
    delete session;
    return C_STATUS_SUCCESS;
}

Status copyRight(AuthorizationRef session, const char *)
{
    return session ? C_STATUS_SUCCESS : C_STATUS_INVALID_REF;
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

    const char *const direct[] = {"/bin/sh", "/dev/stdin", nullptr};
    const char *const throughPolkit[]
        = {session->pkexec.constData(), "/bin/sh", "/dev/stdin", nullptr};
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
    return C_STATUS_SUCCESS;
}

} // namespace AuthorizationBackend
