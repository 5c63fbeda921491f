#pragma once

#include "CUninstallRun.h"

#include "threading/threads/CBasicThread.h"

// Runs one CUninstallRun off the GUI thread. The signals are raised on the worker and
// reach receivers in other threads queued; the run's outcome is read once
// threadFinished() has been received.
class CUninstallThread : public CBasicThread
{
    Q_OBJECT

public:
    explicit CUninstallThread(const CUninstallRun::Options &options, QObject *parent = nullptr);

    // Valid after the thread has finished.
    const CUninstallRun &result() const { return m_Run; }

signals:
    void stepStarting(int step);

protected:
    void runMethod() override;

private:
    CUninstallRun m_Run;
};
