#pragma once

#include "threading/threads/CBasicThread.h"

#include <QStringList>

#include <atomic>

// Finds what a run for the user of `home` would remove and counts the bytes of each
// item, off the GUI thread: the receipts come from pkgutil, and a cache folder may hold
// more files than a window can wait for. Everything is reported through signals, which
// reach receivers in other threads queued: first the list, then one size per path in
// the list's order.
class CUninstallDetails : public CBasicThread
{
    Q_OBJECT

public:
    explicit CUninstallDetails(const QString &home, QObject *parent = nullptr);
    // Stops the counting and waits for the thread.
    ~CUninstallDetails() override;

    // Asks the thread to end soon: a count under way gives up where it is, and no
    // further signal is raised.
    void stop() { m_Stop = true; }

signals:
    // The paths in the order of the run's steps (the home's, the installation, the
    // machine's), and the package receipts it would forget.
    void listed(const QStringList &paths, const QStringList &receipts);
    // The bytes of listed path number `index`.
    void sized(int index, qint64 bytes);

protected:
    void runMethod() override;

private:
    const QString m_Home;
    std::atomic_bool m_Stop {false};
};
