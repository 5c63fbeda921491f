// Implementation notes
// Linux keeps a file-system uid and gid per thread (setfsuid, setfsgid), and the kernel
// keeps the supplementary groups per thread too; only the C library makes setgroups()
// apply to every thread, so the system call is made directly. A thread whose file-system
// uid leaves 0 also loses the capabilities that override file permissions (reading,
// writing, changing owners), and gets them back when it returns to 0.
#ifndef __linux__
#error "CActAsUser_linux.cpp is the Linux implementation"
#endif

#include "system/CActAsUser.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <vector>

#include <grp.h>
#include <sys/fsuid.h>
#include <sys/syscall.h>
#include <unistd.h>

struct CActAsUser::Saved
{
    uid_t fsuid = 0;
    gid_t fsgid = 0;
    std::vector<gid_t> groups;
};

namespace {

QString systemText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

bool setThreadGroups(const std::vector<gid_t> &groups)
{
    return ::syscall(SYS_setgroups, groups.size(), groups.data()) == 0;
}

// The user's groups from the group database, the primary one first.
std::vector<gid_t> groupsOf(const QString &userName, gid_t gid)
{
    if (userName.isEmpty())
        return {gid};
    const QByteArray name = QFile::encodeName(userName);
    int count = 32;
    std::vector<gid_t> groups(static_cast<size_t>(count));
    while (::getgrouplist(name.constData(), gid, groups.data(), &count) < 0) {
        if (count <= int(groups.size()))
            count = int(groups.size()) * 2; // older libraries do not report the size
        groups.resize(size_t(count));
    }
    groups.resize(size_t(count));
    return groups;
}

} // namespace

CActAsUser::CActAsUser(qint64 uid, qint64 gid, const QString &userName)
{
    if (uid < 0 || (uid_t(uid) == ::geteuid() && gid_t(gid) == ::getegid()))
        return;
    if (::geteuid() != 0) {
        m_Error = QStringLiteral("only root can act for user %1").arg(uid);
        return;
    }
    m_Saved = new Saved;
    m_Saved->fsuid = uid_t(::setfsuid(uid_t(-1)));
    m_Saved->fsgid = gid_t(::setfsgid(gid_t(-1)));
    const int count = ::getgroups(0, nullptr);
    m_Saved->groups.resize(size_t(qMax(count, 0)));
    if (count > 0 && ::getgroups(count, m_Saved->groups.data()) != count)
        m_Saved->groups.clear();
    m_Active = true;

    // Groups first: once the uid is the user's, the thread may no longer change them.
    if (!setThreadGroups(groupsOf(userName, gid_t(gid)))) {
        const int savedErrno = errno;
        m_Error = QStringLiteral("could not take the groups of user %1: %2")
                      .arg(uid)
                      .arg(systemText(savedErrno));
    } else {
        // The calls answer the previous id whatever happens; asking again tells.
        ::setfsgid(gid_t(gid));
        ::setfsuid(uid_t(uid));
        if (gid_t(::setfsgid(gid_t(-1))) != gid_t(gid) || uid_t(::setfsuid(uid_t(-1))) != uid_t(uid))
            m_Error = QStringLiteral("could not take the rights of user %1").arg(uid);
    }
    if (!m_Error.isEmpty())
        restore();
}

CActAsUser::~CActAsUser()
{
    restore();
    delete m_Saved;
}

void CActAsUser::restore()
{
    if (!m_Active)
        return;
    m_Active = false;
    ::setfsuid(m_Saved->fsuid);
    ::setfsgid(m_Saved->fsgid);
    setThreadGroups(m_Saved->groups);
}
