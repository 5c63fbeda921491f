#pragma once

// Scripting and inspection of the Authorization Services stand-in.

#include <Security/Authorization.h>

#include <QStringList>

namespace AuthorizationStandIn {

// What each call answers. A successful AuthorizationExecuteWithPrivileges really runs the
// tool with its arguments, joined to the returned pipe.
struct Answers
{
    OSStatus create = errAuthorizationSuccess;
    OSStatus free = errAuthorizationSuccess;
    OSStatus copyRights = errAuthorizationSuccess;
    OSStatus rightGet = errAuthorizationSuccess;
    OSStatus rightSet = errAuthorizationSuccess;
    OSStatus execute = errAuthorizationSuccess;
};

// Sets the answers and forgets the calls made so far.
void reset(const Answers &answers);

// One line per call with the arguments it got, in order. Freeing a session that ran a
// tool adds "tool exited <status>" once the tool has ended.
QStringList calls();

} // namespace AuthorizationStandIn
