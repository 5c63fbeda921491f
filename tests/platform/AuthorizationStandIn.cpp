#include <Security/AuthorizationDB.h>

#include "system/unix/CTwoWayPipe.h"

#include <cerrno>

#include <sys/wait.h>

struct AuthorizationOpaqueRef
{
    pid_t tool = -1;
};

namespace {

AuthorizationStandIn::Answers s_Answers;
QStringList s_Calls;

} // namespace

void AuthorizationStandIn::reset(const Answers &answers)
{
    s_Answers = answers;
    s_Calls.clear();
}

QStringList AuthorizationStandIn::calls()
{
    return s_Calls;
}

OSStatus AuthorizationCreate(const AuthorizationRights *, const AuthorizationEnvironment *,
    AuthorizationFlags, AuthorizationRef *authorization)
{
    s_Calls << QStringLiteral("Create");
    if (s_Answers.create == 0)
        *authorization = new AuthorizationOpaqueRef;
    return s_Answers.create;
}

OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags)
{
    s_Calls << QStringLiteral("Free");
    if (authorization && authorization->tool > 0) {
        while (::waitpid(authorization->tool, nullptr, 0) < 0 && errno == EINTR) { }
    }
    delete authorization;
    return s_Answers.free;
}

OSStatus AuthorizationCopyRights(AuthorizationRef, const AuthorizationRights *rights,
    const AuthorizationEnvironment *, AuthorizationFlags, AuthorizationRights **)
{
    s_Calls << QStringLiteral("CopyRights ") + QLatin1String(rights->items[0].name);
    return s_Answers.copyRights;
}

OSStatus AuthorizationRightGet(const char *rightName, CFDictionaryRef *)
{
    s_Calls << QStringLiteral("RightGet ") + QLatin1String(rightName);
    return s_Answers.rightGet;
}

OSStatus AuthorizationRightSet(
    AuthorizationRef, const char *rightName, CFTypeRef, CFStringRef, CFBundleRef, CFStringRef)
{
    s_Calls << QStringLiteral("RightSet ") + QLatin1String(rightName);
    return s_Answers.rightSet;
}

OSStatus AuthorizationExecuteWithPrivileges(AuthorizationRef authorization, const char *pathToTool,
    AuthorizationFlags, char *const *arguments, FILE **communicationsPipe)
{
    if (s_Answers.execute != 0)
        return s_Answers.execute;
    const char *const argv[] = {pathToTool, arguments[0], arguments[1], nullptr};
    auto *session = const_cast<AuthorizationOpaqueRef *>(authorization);
    const int fd = spawnOverTwoWayPipe(argv, &session->tool);
    *communicationsPipe = fd < 0 ? nullptr : ::fdopen(fd, "r+");
    return *communicationsPipe ? 0 : -60031;
}
