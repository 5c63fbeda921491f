// Implementation notes
//
// Linux has no call that lists the processes holding a path open. We walk /proc
// instead: a process holds the path when one of its open descriptors, its working
// directory or its executable resolves to it. Processes we may not inspect (other
// users' when not root) are skipped: the answer is a snapshot at best, as on macOS.

#if !defined(__linux__)
#error "CMacFSLock_procfs.cpp reads /proc and is for Linux only."
#endif

#include "fsapi/mac/CMacFSLock.h"

#include "threading/assertions/assertion.h"

#include <QFile>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <unistd.h>

namespace {
bool isNumber(const char *name)
{
    if (!*name)
        return false;
    for (const char *c = name; *c; ++c)
        if (*c < '0' || *c > '9')
            return false;
    return true;
}

bool linkNames(const QByteArray &link, const QByteArray &target)
{
    char buffer[PATH_MAX];
    const ssize_t length = ::readlink(link.constData(), buffer, sizeof(buffer));
    return length == target.size() && std::memcmp(buffer, target.constData(), size_t(length)) == 0;
}

bool holdsOpen(const QByteArray &processDir, const QByteArray &target)
{
    if (linkNames(processDir + "/cwd", target) || linkNames(processDir + "/exe", target))
        return true;
    const QByteArray fdDir = processDir + "/fd";
    DIR *fds = ::opendir(fdDir.constData());
    if (!fds)
        return false;
    bool found = false;
    while (const dirent *entry = ::readdir(fds)) {
        if (isNumber(entry->d_name) && linkNames(fdDir + '/' + entry->d_name, target)) {
            found = true;
            break;
        }
    }
    ::closedir(fds);
    return found;
}
} // namespace

QList<unsigned int> CMacFSLock::getPidsByPath(QString const &path)
{
    QList<unsigned int> pids;
    // The kernel reports resolved paths; a path that does not exist is held by nobody.
    char resolved[PATH_MAX];
    if (!::realpath(QFile::encodeName(path).constData(), resolved))
        return pids;
    const QByteArray target(resolved);

    DIR *proc = ::opendir("/proc");
    if (!proc) {
        const int savedErrno = errno;
        BV_CRITICAL() << "opendir /proc" << savedErrno << std::strerror(savedErrno);
        return pids;
    }
    while (const dirent *entry = ::readdir(proc)) {
        if (isNumber(entry->d_name) && holdsOpen(QByteArray("/proc/") + entry->d_name, target))
            pids.append(unsigned(std::strtoul(entry->d_name, nullptr, 10)));
    }
    ::closedir(proc);
    return pids;
}
