#pragma once

#include <QString>
#include <QtGlobal>

// While an object of this class lives, the calling thread reaches the file system with
// the rights of one user: that user's uid, primary group and supplementary groups. Every
// other thread, and everything but file access on this one (signals, the privileged
// script), keeps the process's rights. The destructor gives the thread its own rights back.
//
// Root works in homes that their users control: any entry may be a link to a file only
// root may read, or into a folder only root may write. Acting with the user's rights
// lets the kernel refuse exactly what the user could not do, instead of a check of ours
// that a renamed entry could slip past between looking and acting.
//
// Why per-thread credentials rather than a child process per user: the steps, their
// records, progress and log lines stay in the one process that reports them (the window's
// worker thread or the command line), no second copy of the program runs as root with
// its arguments and environment to be trusted, and the scope shows in the code exactly
// which calls run with whose rights. Only the thread that made the object may use it.
//
// Nothing to do when `uid` is negative (nobody named), or when the process already runs
// as that user. Otherwise the process must run as root.
class CActAsUser
{
public:
    CActAsUser(qint64 uid, qint64 gid, const QString &userName);
    ~CActAsUser();

    // True when the thread now acts as the user, or nothing had to change.
    bool isValid() const { return m_Error.isEmpty(); }
    // Why the user's rights could not be taken (English), empty when valid.
    QString errorString() const { return m_Error; }

private:
    Q_DISABLE_COPY(CActAsUser)

    void restore();

    bool m_Active = false;
    QString m_Error;
    struct Saved;
    Saved *m_Saved = nullptr;
};
