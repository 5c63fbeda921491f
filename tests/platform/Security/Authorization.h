#pragma once

// Test-only stand-in for the Authorization Services calls our Apple sources use, with the
// scripting the tests need (AuthorizationStandIn.cpp). Never shipped.

#include <QStringList>

#include <cstddef>
#include <cstdint>
#include <cstdio>

typedef int32_t OSStatus;
typedef uint32_t AuthorizationFlags;
typedef const struct AuthorizationOpaqueRef *AuthorizationRef;

struct AuthorizationItem
{
    const char *name;
    size_t valueLength;
    void *value;
    uint32_t flags;
};

struct AuthorizationItemSet
{
    uint32_t count;
    AuthorizationItem *items;
};
typedef AuthorizationItemSet AuthorizationRights;
typedef AuthorizationItemSet AuthorizationEnvironment;

enum {
    kAuthorizationFlagDefaults = 0,
    kAuthorizationFlagInteractionAllowed = 1 << 0,
    kAuthorizationFlagExtendRights = 1 << 1,
    kAuthorizationFlagDestroyRights = 1 << 3,
    kAuthorizationFlagPreAuthorize = 1 << 4
};

OSStatus AuthorizationCreate(const AuthorizationRights *rights,
    const AuthorizationEnvironment *environment, AuthorizationFlags flags,
    AuthorizationRef *authorization);
OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags flags);
OSStatus AuthorizationCopyRights(AuthorizationRef authorization, const AuthorizationRights *rights,
    const AuthorizationEnvironment *environment, AuthorizationFlags flags,
    AuthorizationRights **authorizedRights);
// Deprecated on the real system too: the caller has to say it means it.
[[deprecated]] OSStatus AuthorizationExecuteWithPrivileges(AuthorizationRef authorization,
    const char *pathToTool, AuthorizationFlags options, char *const *arguments,
    FILE **communicationsPipe);

namespace AuthorizationStandIn {

// What each call answers. A successful AuthorizationExecuteWithPrivileges really runs the
// tool, joined to the returned pipe.
struct Answers
{
    OSStatus create = 0, rightGet = 0, rightSet = 0, copyRights = 0, execute = 0, free = 0;
};

// Sets the answers and forgets the calls made so far.
void reset(const Answers &answers);
// One line per call with the arguments that matter, in order.
QStringList calls();

} // namespace AuthorizationStandIn
