#pragma once

// Test-only stand-in for the Authorization Services calls our Apple sources use. The
// answers are scripted through AuthorizationStandIn.h. Never shipped.

#include <cstddef>
#include <cstdint>
#include <cstdio>

typedef int32_t OSStatus;
typedef uint32_t UInt32;

typedef const struct AuthorizationOpaqueRef *AuthorizationRef;
typedef const char *AuthorizationString;
typedef UInt32 AuthorizationFlags;

struct AuthorizationItem
{
    AuthorizationString name;
    size_t valueLength;
    void *value;
    UInt32 flags;
};

struct AuthorizationItemSet
{
    UInt32 count;
    AuthorizationItem *items;
};
typedef AuthorizationItemSet AuthorizationRights;
typedef AuthorizationItemSet AuthorizationEnvironment;

enum {
    errAuthorizationSuccess = 0,
    errAuthorizationInvalidRef = -60002,
    errAuthorizationDenied = -60005,
    errAuthorizationCanceled = -60006,
    errAuthorizationInternal = -60008,
    errAuthorizationToolExecuteFailure = -60031,
};

enum {
    kAuthorizationFlagDefaults = 0,
    kAuthorizationFlagInteractionAllowed = (1 << 0),
    kAuthorizationFlagExtendRights = (1 << 1),
    kAuthorizationFlagPartialRights = (1 << 2),
    kAuthorizationFlagDestroyRights = (1 << 3),
    kAuthorizationFlagPreAuthorize = (1 << 4),
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
