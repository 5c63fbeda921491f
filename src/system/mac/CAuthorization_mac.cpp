// Authorization Services behind CAuthorization: each call passes the fixed arguments the
// policy database and the privileged start expect, nothing more.

#if !defined(__APPLE__) && !__has_include(<Security/Authorization.h>)
#error "needs the Security framework (Authorization Services)"
#endif

#include "CAuthorizationBackend.h"

#include <Security/Authorization.h>
#include <Security/AuthorizationDB.h>

namespace AuthorizationBackend {

Status createSession(AuthorizationRef *session)
{
    return AuthorizationCreate(nullptr, nullptr, kAuthorizationFlagDefaults, session);
}

Status freeSession(AuthorizationRef session)
{
    return AuthorizationFree(session, kAuthorizationFlagDestroyRights);
}

Status copyRight(AuthorizationRef session, const char *rightName)
{
    AuthorizationItem item = {rightName, 0, nullptr, 0};
    const AuthorizationRights rights = {1, &item};
    const AuthorizationFlags flags = kAuthorizationFlagInteractionAllowed
        | kAuthorizationFlagExtendRights | kAuthorizationFlagPreAuthorize;
    return AuthorizationCopyRights(session, &rights, nullptr, flags, nullptr);
}

Status getRight(const char *rightName)
{
    return AuthorizationRightGet(rightName, nullptr);
}

Status setAdminRight(AuthorizationRef session, const char *rightName)
{
    return AuthorizationRightSet(session, rightName, CFSTR(kAuthorizationRuleAuthenticateAsAdmin),
        nullptr, nullptr, nullptr);
}

Status executeShell(AuthorizationRef session, FILE **pipe)
{
    static char tool[] = "/bin/sh";
    static char input[] = "/dev/stdin";
    char *const arguments[] = {input, nullptr};
    // Still the only way to start a tool as root without installing a helper.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    return AuthorizationExecuteWithPrivileges(
        session, tool, kAuthorizationFlagDefaults, arguments, pipe);
#pragma GCC diagnostic pop
}

} // namespace AuthorizationBackend
