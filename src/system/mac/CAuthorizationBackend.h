#pragma once

// The six operating-system calls behind CAuthorization. Each platform provides them in
// its own file; CAuthorization owns the sequence and the messages.

#include "CAuthorization.h"

#include <QtGlobal>

#include <cstdio>

namespace AuthorizationBackend {

// The status codes of Authorization Services: 0 is success.
using Status = qint32;
const Status C_STATUS_SUCCESS = 0;
const Status C_STATUS_RIGHT_NOT_DEFINED = -60005;

Status createSession(AuthorizationRef *session);
// Frees `session` and destroys the rights it holds.
Status freeSession(AuthorizationRef session);
// Obtains `rightName` in `session`, asking the user when needed.
Status copyRight(AuthorizationRef session, const char *rightName);
// 0 when `rightName` is defined in the policy database.
Status getRight(const char *rightName);
// Defines `rightName` with the rule "authenticate-admin".
Status setAdminRight(AuthorizationRef session, const char *rightName);
// Starts "/bin/sh /dev/stdin" as root; `*pipe` is joined to its input and output.
Status executeShell(AuthorizationRef session, FILE **pipe);

} // namespace AuthorizationBackend
