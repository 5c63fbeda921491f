#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QtGlobal>

// Starting, probing, finding and stopping processes. Process facts come from kill(),
// getsid() and the system's `ps` tool; every call is self-contained and blocking.
class CProcess
{
public:
    // Start `program` and wait up to 30 s until it runs. `pid`, when given, is set to 0
    // first and to the new id on success.
    static bool startProcess(const QString &program, const QStringList &arguments,
        const QString &workingDirectory, qint64 *pid);
    static bool startProcess(const QString &program, const QStringList &arguments, qint64 *pid);
    static bool startProcess(const QString &program, qint64 *pid);

    static bool startProcessDetached(const QString &program, const QStringList &arguments,
        const QString &workingDirectory, qint64 *pid);
    static bool startProcessDetached(
        const QString &program, const QStringList &arguments, qint64 *pid);
    static bool startProcessDetached(const QString &program, qint64 *pid);

    // Sends SIGTERM once; true when the signal was delivered. Callers wait themselves.
    static bool stopProcess(qint64 pid);

    // Whether `pid` is alive and, for each non-empty filter, runs the command named
    // `processName` as `userName`.
    static bool isProcessRunning(
        qint64 pid, const QString &processName = QString(), const QString &userName = QString());

    // Appends the ids of all processes whose command is `processName` (and whose user is
    // `userName`, when given) to `pids`, in the order `ps` lists them. The last argument
    // is accepted for other platforms and ignored here.
    static bool findProcess(const QString &processName, QList<qint64> &pids,
        const QString &userName = QString(), const QString &commandLine = QString());

    // Poll the state of `pid` every 100 ms, processing events in between.
    // A timeout of 0 checks once and -1 waits without limit; then the result tells whether
    // the wanted state was reached. Any other timeout polls timeoutMs / 100 times (at
    // least once) and the result is the last observed running state - so only a positive
    // timeout makes waitForProcessFinished() mean "the process is gone".
    static bool waitForProcessStarted(qint64 pid, int timeoutMs);
    static bool waitForProcessFinished(qint64 pid, int timeoutMs);

private:
    CProcess() = delete;
};
