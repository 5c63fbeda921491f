#include "AuthorizationStandIn.h"

#include <Security/AuthorizationDB.h>

#include "system/unix/CTwoWayPipe.h"

#include <QList>
#include <QSet>

#include <cerrno>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

struct AuthorizationOpaqueRef
{
    QList<pid_t> tools;
};

namespace {

AuthorizationStandIn::Answers s_Answers;
QStringList s_Calls;
QSet<AuthorizationRef> s_Sessions;

QString text(const char *value)
{
    return value ? QString::fromLatin1(value) : QStringLiteral("null");
}

QString pointer(const void *value)
{
    return value ? QStringLiteral("set") : QStringLiteral("null");
}

// Calls made with anything but a live session say so, so a test comparing lines sees it.
QString session(AuthorizationRef authorization)
{
    return s_Sessions.contains(authorization) ? QString() : QStringLiteral(" [no session]");
}

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

OSStatus AuthorizationCreate(const AuthorizationRights *rights,
    const AuthorizationEnvironment *environment, AuthorizationFlags flags,
    AuthorizationRef *authorization)
{
    s_Calls << QStringLiteral("AuthorizationCreate rights=%1 environment=%2 flags=%3")
                   .arg(pointer(rights), pointer(environment))
                   .arg(flags);
    if (s_Answers.create != errAuthorizationSuccess)
        return s_Answers.create;
    *authorization = new AuthorizationOpaqueRef;
    s_Sessions.insert(*authorization);
    return errAuthorizationSuccess;
}

OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags flags)
{
    s_Calls
        << QStringLiteral("AuthorizationFree flags=%1%2").arg(flags).arg(session(authorization));
    if (s_Sessions.remove(authorization)) {
        for (const pid_t tool : authorization->tools) {
            int status = 0;
            while (::waitpid(tool, &status, 0) < 0 && errno == EINTR) { }
            s_Calls << QStringLiteral("tool exited %1").arg(WEXITSTATUS(status));
        }
        delete authorization;
    }
    return s_Answers.free;
}

OSStatus AuthorizationCopyRights(AuthorizationRef authorization, const AuthorizationRights *rights,
    const AuthorizationEnvironment *environment, AuthorizationFlags flags,
    AuthorizationRights **authorizedRights)
{
    QStringList items;
    for (UInt32 i = 0; rights && i < rights->count; ++i) {
        const AuthorizationItem &item = rights->items[i];
        items << QStringLiteral("%1 valueLength=%2 value=%3 flags=%4")
                     .arg(text(item.name))
                     .arg(item.valueLength)
                     .arg(pointer(item.value))
                     .arg(item.flags);
    }
    s_Calls << QStringLiteral(
        "AuthorizationCopyRights [%1] environment=%2 flags=0x%3 authorizedRights=%4%5")
                   .arg(items.join(QStringLiteral(", ")), pointer(environment))
                   .arg(flags, 0, 16)
                   .arg(pointer(authorizedRights), session(authorization));
    return s_Answers.copyRights;
}

OSStatus AuthorizationRightGet(const char *rightName, CFDictionaryRef *rightDefinition)
{
    s_Calls << QStringLiteral("AuthorizationRightGet %1 definition=%2")
                   .arg(text(rightName), pointer(rightDefinition));
    return s_Answers.rightGet;
}

OSStatus AuthorizationRightSet(AuthorizationRef authRef, const char *rightName,
    CFTypeRef rightDefinition, CFStringRef descriptionKey, CFBundleRef bundle,
    CFStringRef localeTableName)
{
    s_Calls << QStringLiteral("AuthorizationRightSet %1 rule=%2 descriptionKey=%3 bundle=%4 "
                              "localeTable=%5%6")
                   .arg(text(rightName), text(static_cast<const char *>(rightDefinition)),
                       pointer(descriptionKey), pointer(bundle), pointer(localeTableName),
                       session(authRef));
    return s_Answers.rightSet;
}

OSStatus AuthorizationExecuteWithPrivileges(AuthorizationRef authorization, const char *pathToTool,
    AuthorizationFlags options, char *const *arguments, FILE **communicationsPipe)
{
    std::vector<const char *> argv {pathToTool};
    QStringList shown;
    for (char *const *argument = arguments; argument && *argument; ++argument) {
        argv.push_back(*argument);
        shown << text(*argument);
    }
    argv.push_back(nullptr);
    s_Calls << QStringLiteral("AuthorizationExecuteWithPrivileges %1 options=%2 arguments=[%3] "
                              "pipe=%4%5")
                   .arg(text(pathToTool))
                   .arg(options)
                   .arg(shown.join(QStringLiteral(", ")), pointer(communicationsPipe),
                       session(authorization));
    if (s_Answers.execute != errAuthorizationSuccess || !s_Sessions.contains(authorization))
        return s_Answers.execute != errAuthorizationSuccess ? s_Answers.execute
                                                            : errAuthorizationInvalidRef;

    pid_t tool = -1;
    const int fd = spawnOverTwoWayPipe(argv.data(), &tool);
    if (fd < 0)
        return errAuthorizationToolExecuteFailure;
    const_cast<AuthorizationOpaqueRef *>(authorization)->tools.append(tool);
    *communicationsPipe = ::fdopen(fd, "r+");
    return *communicationsPipe ? errAuthorizationSuccess : errAuthorizationToolExecuteFailure;
}
