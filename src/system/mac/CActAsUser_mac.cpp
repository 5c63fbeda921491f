// Implementation notes
// macOS gives a thread credentials of its own with pthread_setugid_np(), and takes them
// back with KAUTH_UID_NONE / KAUTH_GID_NONE. The thread's credential holds the user and
// the primary group only, no supplementary groups: what a user reaches only through a
// secondary group is refused, which errs on the side of doing less.
#ifndef __APPLE__
#error "CActAsUser_mac.cpp is the macOS implementation"
#endif

#include "system/CActAsUser.h"

#include <cerrno>
#include <cstring>

#include <pthread.h>
#include <sys/kauth.h>
#include <unistd.h>

struct CActAsUser::Saved
{ };

CActAsUser::CActAsUser(qint64 uid, qint64 gid, const QString &)
{
    if (uid < 0 || (uid_t(uid) == ::geteuid() && gid_t(gid) == ::getegid()))
        return;
    if (::geteuid() != 0) {
        m_Error = QStringLiteral("only root can act for user %1").arg(uid);
        return;
    }
    if (::pthread_setugid_np(uid_t(uid), gid_t(gid)) != 0) {
        const int savedErrno = errno;
        m_Error = QStringLiteral("could not take the rights of user %1: %2")
                      .arg(uid)
                      .arg(QString::fromLocal8Bit(std::strerror(savedErrno)));
        return;
    }
    m_Active = true;
}

CActAsUser::~CActAsUser()
{
    restore();
}

void CActAsUser::restore()
{
    if (!m_Active)
        return;
    m_Active = false;
    ::pthread_setugid_np(KAUTH_UID_NONE, KAUTH_GID_NONE);
}
