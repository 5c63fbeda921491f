#pragma once

// Starts bv_processhelper as a target process under a chosen command name, supervised so
// that it is reaped (gone from the process table) the moment it ends.

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <csignal>

class TargetProcess
{
public:
    TargetProcess() = default;
    ~TargetProcess() { stop(); }
    Q_DISABLE_COPY(TargetProcess)

    // Runs the helper as `name` with `options`. Returns false, with the reason in error(),
    // when it did not come up.
    bool start(const QString &name, const QStringList &options = {})
    {
        const QString link = m_Dir.filePath(name);
        if (!m_Dir.isValid() || !QFile::link(QStringLiteral(BV_PROCESSHELPER), link))
            return fail(QStringLiteral("cannot link ") + link);
        m_Supervisor.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_Supervisor.start(QStringLiteral(BV_PROCESSHELPER),
            QStringList {QStringLiteral("--supervise"), link} + options);
        while (!m_Supervisor.canReadLine()) {
            if (!m_Supervisor.waitForReadyRead(10000))
                return fail(QStringLiteral("no pid from the target ") + m_Supervisor.errorString());
        }
        m_Pid = m_Supervisor.readLine().trimmed().toLongLong();
        return m_Pid > 0 || fail(QStringLiteral("bad pid line"));
    }

    qint64 pid() const { return m_Pid; }
    QString error() const { return m_Error; }

    void stop()
    {
        if (m_Pid > 0 && m_Supervisor.state() != QProcess::NotRunning)
            ::kill(pid_t(m_Pid), SIGKILL);
        if (m_Supervisor.state() != QProcess::NotRunning && !m_Supervisor.waitForFinished(10000)) {
            m_Supervisor.kill();
            m_Supervisor.waitForFinished();
        }
        m_Pid = 0;
    }

private:
    bool fail(const QString &why)
    {
        m_Error = why;
        return false;
    }

    QTemporaryDir m_Dir;
    QProcess m_Supervisor;
    qint64 m_Pid = 0;
    QString m_Error;
};
