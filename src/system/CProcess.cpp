#include "CProcess.h"

#include "CProcess_p.h"

#include <QCoreApplication>
#include <QEventLoop>

#include <unistd.h>

namespace {

bool isRunning(qint64 pid)
{
    return CProcess::isProcessRunning(pid, QString(), QString());
}

// Waits keep a window responsive: slots of the caller may run in here.
void pause()
{
    ::usleep(100000);
    QCoreApplication::processEvents(QEventLoop::AllEvents);
}

// The zero and endless modes answer "was the wanted state reached", the polling mode
// answers "is it running". Callers depend on both, so the difference stays.
bool checkProcessRunning(qint64 pid, bool wantRunning, int timeoutMs)
{
    if (timeoutMs == 0)
        return isRunning(pid) == wantRunning;

    if (timeoutMs == -1) {
        for (;;) {
            const bool reached = isRunning(pid) == wantRunning;
            pause();
            // Confirm once more, so a state seen in passing is not taken for the outcome.
            if (reached)
                return isRunning(pid) == wantRunning;
        }
    }

    const int checks = qMax(1, timeoutMs / 100);
    bool running = false;
    for (int i = 0; i < checks; ++i) {
        if (i > 0)
            pause();
        running = isRunning(pid);
        if (running == wantRunning)
            return running;
    }
    pause();
    return running;
}

} // namespace

bool CProcess::startProcess(const QString &program, const QStringList &arguments,
    const QString &workingDirectory, qint64 *pid)
{
    qint64 local = 0;
    if (pid)
        *pid = 0;
    return CProcessPrivate::startProcess(program, arguments, workingDirectory, pid ? pid : &local);
}

bool CProcess::startProcess(const QString &program, const QStringList &arguments, qint64 *pid)
{
    return startProcess(program, arguments, QString(), pid);
}

bool CProcess::startProcess(const QString &program, qint64 *pid)
{
    return startProcess(program, QStringList(), QString(), pid);
}

bool CProcess::startProcessDetached(const QString &program, const QStringList &arguments,
    const QString &workingDirectory, qint64 *pid)
{
    if (pid)
        *pid = 0;
    return CProcessPrivate::startProcessDetached(program, arguments, workingDirectory, pid);
}

bool CProcess::startProcessDetached(
    const QString &program, const QStringList &arguments, qint64 *pid)
{
    return startProcessDetached(program, arguments, QString(), pid);
}

bool CProcess::startProcessDetached(const QString &program, qint64 *pid)
{
    return startProcessDetached(program, QStringList(), QString(), pid);
}

bool CProcess::stopProcess(qint64 pid)
{
    return CProcessPrivate::stopProcess(pid);
}

bool CProcess::isProcessRunning(qint64 pid, const QString &processName, const QString &userName)
{
    return CProcessPrivate::isProcessRunning(pid, processName, userName);
}

bool CProcess::findProcess(const QString &processName, QList<qint64> &pids, const QString &userName,
    const QString &commandLine)
{
    return CProcessPrivate::findProcess(processName, pids, userName, commandLine);
}

bool CProcess::waitForProcessStarted(qint64 pid, int timeoutMs)
{
    return checkProcessRunning(pid, true, timeoutMs);
}

bool CProcess::waitForProcessFinished(qint64 pid, int timeoutMs)
{
    return !checkProcessRunning(pid, false, timeoutMs);
}
