#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QtGlobal>

// The platform side of CProcess; see CProcess.h for the contract of each call.
class CProcessPrivate
{
public:
    static bool startProcess(const QString &program, const QStringList &arguments,
        const QString &workingDirectory, qint64 *pid);
    static bool startProcessDetached(const QString &program, const QStringList &arguments,
        const QString &workingDirectory, qint64 *pid);
    static bool stopProcess(qint64 pid);
    static bool isProcessRunning(qint64 pid, const QString &processName, const QString &userName);
    static bool findProcess(const QString &processName, QList<qint64> &pids,
        const QString &userName, const QString &commandLine);

private:
    CProcessPrivate() = delete;
};
