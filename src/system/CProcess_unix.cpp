// Implementation notes
//
// Everything we know about a process comes from kill(), getsid() and the `ps` tool, so
// the same code serves every unix we ship on. `ps` prints user names and command names
// (never full paths, thanks to -c); a command name may hold blanks, which is why it is
// always taken as "everything after the fields before it".
//
// Ids arrive as qint64 but the kernel takes pid_t: an id that does not fit is treated as
// no process at all, so a truncated value can never signal an unrelated process.

#include "CProcess_p.h"

#include "threading/assertions/assertion.h"

#include <QByteArray>
#include <QProcess>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <limits>

#include <sys/types.h>
#include <unistd.h>

#undef BV_SOURCE_FILE
#define BV_SOURCE_FILE "src/system/CProcess_unix"

// A print-and-continue assertion whose failure also ends the calling function.
#define BV_PRINT_ASSERT_OR_RETURN(cond, ret)                                                       \
    do {                                                                                           \
        if (!(cond)) {                                                                             \
            bvPrintAssert(#cond, BV_SOURCE_FILE, __LINE__);                                        \
            return ret;                                                                            \
        }                                                                                          \
    } while (false)

namespace {

const int C_PS_TIMEOUT_MS = 30000;

bool fitsPid(qint64 pid)
{
    return pid > 0 && pid <= std::numeric_limits<pid_t>::max();
}

// Runs `ps` with `arguments` and hands back its standard output; false when it did not
// finish in time (or could not be started at all).
bool runPs(const QStringList &arguments, QByteArray &output)
{
    QProcess ps;
    ps.setReadChannel(QProcess::StandardOutput);
    ps.start(QStringLiteral("ps"), arguments, QIODevice::ReadWrite);
    if (!ps.waitForFinished(C_PS_TIMEOUT_MS))
        return false;
    output = ps.readAllStandardOutput();
    ps.closeReadChannel(QProcess::StandardOutput);
    return true;
}

// Names are compared the way they reach the system: through the local 8-bit encoding.
bool sameName(const QString &wanted, const QString &found)
{
    return QString::fromLocal8Bit(wanted.toLocal8Bit()) == found;
}

} // namespace

bool CProcessPrivate::startProcess(const QString &program, const QStringList &arguments,
    const QString &workingDirectory, qint64 *pid)
{
    if (program.isEmpty())
        return false;

    QProcess process;
    if (!workingDirectory.isEmpty())
        process.setWorkingDirectory(workingDirectory);
    process.start(program, arguments, QIODevice::ReadWrite);
    const bool started = process.waitForStarted(C_PS_TIMEOUT_MS);
    if (started)
        *pid = process.processId();
    return started;
}

bool CProcessPrivate::startProcessDetached(const QString &program, const QStringList &arguments,
    const QString &workingDirectory, qint64 *pid)
{
    if (program.isEmpty())
        return false;
    return QProcess::startDetached(program, arguments, workingDirectory, pid);
}

bool CProcessPrivate::stopProcess(qint64 pid)
{
    if (!fitsPid(pid))
        return false;

    const int signal = SIGTERM;
    errno = 0;
    const int result = ::kill(pid_t(pid), signal);
    const int savedErrno = errno;
    BV_DEBUG().noquote() << QStringLiteral("kill pid:%1 signal:%2 returned %3 err: %4")
                                .arg(pid)
                                .arg(signal)
                                .arg(result)
                                .arg(savedErrno);
    return result == 0;
}

bool CProcessPrivate::isProcessRunning(
    qint64 pid, const QString &processName, const QString &userName)
{
    if (!fitsPid(pid))
        return false;

    errno = 0;
    const int result = ::kill(pid_t(pid), 0);
    const int savedErrno = errno;
    BV_DEBUG().noquote() << QStringLiteral("kill pid:%1 signal:%2 returned %3 err: %4")
                                .arg(pid)
                                .arg(0)
                                .arg(result)
                                .arg(QString::fromLocal8Bit(::strerror(savedErrno)));
    if (result == -1) {
        if (savedErrno != EPERM)
            return false;
        // The process exists but belongs to somebody else: make sure it is more than a
        // leftover id by asking for its session. The line carries errno as the calls leave
        // it: getsid's own on failure, the probe's EPERM when getsid succeeds.
        errno = savedErrno;
        const pid_t session = ::getsid(pid_t(pid));
        const int sessionErrno = errno;
        BV_DEBUG().noquote() << QStringLiteral("getsid pid:%1 returned %2 err: %3")
                                    .arg(pid)
                                    .arg(session)
                                    .arg(sessionErrno);
        if (session == -1)
            return false;
    } else if (result != 0) {
        return false;
    }

    if (processName.isEmpty() && userName.isEmpty())
        return true;

    QByteArray raw;
    if (!runPs({QStringLiteral("-o"), QStringLiteral("user="), QStringLiteral("-o"),
                   QStringLiteral("comm="), QStringLiteral("-p"), QString::number(pid),
                   QStringLiteral("-c")},
            raw))
        return false;

    const QString output = QString::fromLocal8Bit(raw.simplified());
    if (output.isEmpty())
        return false;
    BV_PRINT_ASSERT_OR_RETURN(output.split(' ').size() >= 2, false);

    const QStringList res = {output.section(' ', 0, 0), output.section(' ', 1)};
    BV_PRINT_ASSERT_OR_RETURN(2 == res.size(), false);
    const QString &user = res.at(0);
    const QString &command = res.at(1);

    if (!processName.isEmpty() && !sameName(processName, command))
        return false;
    if (!userName.isEmpty() && !sameName(userName, user))
        return false;
    return true;
}

bool CProcessPrivate::findProcess(
    const QString &processName, QList<qint64> &pids, const QString &userName, const QString &)
{
    if (processName.isEmpty())
        return false;

    QByteArray raw;
    if (!runPs({QStringLiteral("-axc"), QStringLiteral("-o"), QStringLiteral("pid="),
                   QStringLiteral("-o"), QStringLiteral("user="), QStringLiteral("-o"),
                   QStringLiteral("comm=")},
            raw))
        return false;

    raw = raw.trimmed();
    if (raw.isEmpty())
        return false;

    bool found = false;
    const QList<QByteArray> lines = raw.split('\n');
    for (const QByteArray &line : lines) {
        const QString tmp = QString::fromLocal8Bit(line.simplified());
        // Output we cannot read ends the search: a half-understood listing is no basis
        // for stopping processes.
        BV_PRINT_ASSERT_OR_RETURN(tmp.split(' ').size() >= 3, false);

        const QStringList res
            = {tmp.section(' ', 0, 0), tmp.section(' ', 1, 1), tmp.section(' ', 2)};
        BV_PRINT_ASSERT_OR_RETURN(3 == res.size(), false);

        if (!sameName(processName, res.at(2)))
            continue;
        if (!userName.isEmpty() && !sameName(userName, res.at(1)))
            continue;

        found = true;
        bool ok = false;
        const qint64 id = res.at(0).toLongLong(&ok, 10);
        BV_ASSERT(ok);
        if (ok)
            pids.append(id);
    }
    return found;
}
