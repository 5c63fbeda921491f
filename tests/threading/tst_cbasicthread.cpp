#include "threading/threads/CBasicThread.h"

#include "BvTestSupport.h"

#include <QDeadlineTimer>
#include <QScopeGuard>

#include <atomic>

namespace {
class Runner : public CBasicThread
{
public:
    enum Body {
        Poll, // suspends when asked, ends when its state says so
        Stubborn, // ignores every request: only its flag or a hard termination ends it
        Spin, // no call at all, so it never reaches a cancellation point
    };
    explicit Runner(const char *name, Body body = Poll)
        : CBasicThread(std::string(name))
        , m_Body(body)
    { }
    // A failed check must not leave a running thread behind.
    ~Runner() override
    {
        stop = true;
        while (getSuspensionRequests() > 0)
            resumeThread();
        wait();
    }
    std::atomic<bool> entered {false};
    std::atomic<bool> stop {false};

protected:
    void runMethod() override
    {
        // Sleeping in a cancellation point, a hard termination takes effect at once.
        setTerminationEnabled(true);
        entered = true;
        while (m_Body == Spin && !stop.load(std::memory_order_relaxed)) { }
        const QDeadlineTimer limit(30000);
        while (
            !stop && !limit.hasExpired() && (m_Body == Stubborn || isRunning() || isSuspended())) {
            if (m_Body == Poll)
                checkSuspended();
            QThread::msleep(2);
        }
    }

private:
    const Body m_Body;
};
} // namespace

class tst_CBasicThread : public QObject
{
    Q_OBJECT

private slots:
    void exitBusyThread_data()
    {
        QTest::addColumn<bool>("kill");
        QTest::addColumn<int>("state");
        QTest::newRow("kill") << true << int(CBasicThread::StateTerminated);
        QTest::newRow("spare") << false << int(CBasicThread::StateRunning);
    }

    void exitBusyThread()
    {
        QFETCH(bool, kill);
        QFETCH(int, state);
        Runner thread("Stubborn", Runner::Stubborn);
        QVERIFY(thread.startThread());
        QTRY_VERIFY(thread.entered);
        if (!kill)
            QTest::ignoreMessage(QtCriticalMsg,
                QRegularExpression("\"Stubborn\" \\) thread not finished after 10 msecs"));
        QCOMPARE(thread.exitThread(0, 10, kill), kill);
        QCOMPARE(thread.getState(), state);
        QCOMPARE(thread.QThread::isRunning(), !kill);
    }

    // Two requests take two resumes.
    void suspensionsAreCounted()
    {
        Runner thread("Sleeper");
        QVERIFY(thread.startThread());
        QTRY_VERIFY(thread.entered);
        thread.suspendThread();
        thread.suspendThread();
        QTRY_VERIFY(thread.isSuspended());
        thread.resumeThread();
        QVERIFY(thread.isSuspended());
        thread.resumeThread();
        QTRY_VERIFY(thread.isRunning());
    }

    void killAllSparesCoreDaemon()
    {
        Runner core("Core", Runner::Stubborn);
        Runner worker("Plain");
        CBasicThread::s_CoreDeamon = &core;
        const auto reset = qScopeGuard([] { CBasicThread::s_CoreDeamon = nullptr; });
        QVERIFY(core.startThread() && worker.startThread());
        QTRY_VERIFY(worker.entered && core.entered);
        CBasicThread::killAllThreads(7, true);
        QVERIFY(worker.QThread::isFinished());
        QCOMPARE(core.getState(), int(CBasicThread::StateRunning));
    }

    // A hard termination ends a thread spinning without a call, or one suspended. In a
    // child, which a termination that does not work leaves hanging until it is killed.
    void hardTermination_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::newRow("spinning, exitThread()") << "spin";
        QTest::newRow("suspended, terminateThread()") << "suspended";
    }

    void hardTermination()
    {
        QFETCH(QString, mode);
        const BvTest::ChildResult child = BvTest::runChild(mode, 20000);
        QVERIFY2(child.status == QProcess::NormalExit && child.exitCode == 0,
            child.standardError.right(3000).constData());
    }
};

static int childMain(const QByteArray &mode)
{
    const bool spinning = mode == "spin";
    Runner thread("Victim", spinning ? Runner::Spin : Runner::Poll);
    thread.startThread();
    while (!thread.entered)
        QThread::msleep(1);
    if (!spinning) {
        thread.suspendThread();
        while (!thread.isSuspended())
            QThread::msleep(1);
    }
    const bool returned = spinning ? thread.exitThread() : thread.terminateThread();
    return returned && thread.QThread::wait(5000) && thread.isTerminated() ? 0 : 1;
}

BV_TEST_MAIN_WITH_CHILD(tst_CBasicThread, QCoreApplication)
#include "tst_cbasicthread.moc"
