#include "threading/exceptions/CException.h"
#include "threading/threads/CBasicThread.h"

#include "BvTestSupport.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QSignalSpy>

#include <atomic>
#include <cstdio>
#include <functional>
#include <stdexcept>

namespace {
// Runs `body`, by default polling its state until asked to finish.
class Runner : public CBasicThread
{
public:
    explicit Runner(const char *name, std::function<void(Runner &)> body = &Runner::poll)
        : CBasicThread(std::string(name))
        , m_Body(std::move(body))
    {
        connect(
            this, &CBasicThread::threadSuspended, this, [this] { ++suspensions; },
            Qt::DirectConnection);
    }
    // A failed check must not leave a running thread behind.
    ~Runner() override
    {
        stop = true;
        while (getSuspensionRequests() > 0)
            resumeThread();
        wait();
    }
    static void poll(Runner &self)
    {
        while (!self.stop && !self.isFinished() && !self.isTerminated()) {
            self.checkSuspended();
            QThread::msleep(2);
        }
    }
    // Ignores every request: only its flag, the time limit or a hard termination end it.
    static void stubborn(Runner &self)
    {
        const QDeadlineTimer limit(30000);
        while (!self.stop && !limit.hasExpired())
            QThread::msleep(2);
    }
    // Spins on its flag alone: no call at all, so it never reaches a cancellation point.
    static void spin(Runner &self)
    {
        while (!self.stop.load(std::memory_order_relaxed)) { }
    }
    std::atomic<bool> entered {false};
    std::atomic<bool> stop {false};
    std::atomic<int> suspensions {0};

protected:
    void runMethod() override
    {
        // Sleeping in a cancellation point, a hard termination takes effect at once.
        setTerminationEnabled(true);
        entered = true;
        m_Body(*this);
    }

private:
    std::function<void(Runner &)> m_Body;
};

// The captured messages of one type, without the two bracketed prefix groups.
QStringList logged(const BvTest::MessageCapture &capture, QtMsgType type)
{
    static const QRegularExpression prefix(QStringLiteral("^\\[ [^\\]]*\\] \\[ [^\\]]*\\] "));
    QStringList texts;
    for (int i = 0; i < capture.messages().size(); ++i)
        if (capture.types().at(i) == type)
            texts << QString(capture.messages().at(i)).remove(prefix);
    return texts;
}
} // namespace

class tst_CBasicThread : public QObject
{
    Q_OBJECT

private slots:
    void lifeCycle_data()
    {
        QTest::addColumn<bool>("eventLoop");
        QTest::newRow("runMethod") << false;
        QTest::newRow("event loop") << true;
    }

    void lifeCycle()
    {
        QFETCH(bool, eventLoop);
        BvTest::MessageCapture capture;
        CBasicThread thread(eventLoop, nullptr, "Life");
        // Asked from the main thread, which is no CBasicThread: told so, and not held.
        thread.suspendThread(5000);
        QElapsedTimer clock;
        clock.start();
        thread.checkSuspended();
        QVERIFY(clock.elapsed() < 2000);
        QCOMPARE(thread.getState(), int(CBasicThread::StateNotStarted));
        QVERIFY(thread.startThread());
        if (eventLoop) {
            QTRY_VERIFY(capture.contains("running ..."));
            QVERIFY(thread.exitThread());
        }
        QVERIFY(thread.wait(10000));
        QCOMPARE(thread.getState(), int(CBasicThread::StateFinished));
        QCOMPARE(logged(capture, QtWarningMsg) + logged(capture, QtCriticalMsg),
            QStringList {"CBasicThread::checkSuspended() called from a non suspendable Thread!"});
    }

    void exitThread_data()
    {
        QTest::addColumn<bool>("busy");
        QTest::addColumn<bool>("kill");
        QTest::addColumn<int>("state");
        QTest::newRow("quick thread") << false << true << int(CBasicThread::StateFinished);
        QTest::newRow("busy thread, kill") << true << true << int(CBasicThread::StateTerminated);
        QTest::newRow("busy thread, no kill") << true << false << int(CBasicThread::StateRunning);
    }

    void exitThread()
    {
        QFETCH(bool, busy);
        QFETCH(bool, kill);
        QFETCH(int, state);
        BvTest::MessageCapture capture;
        Runner thread(busy ? "Stubborn" : "Quick", busy ? &Runner::stubborn : &Runner::poll);
        QSignalSpy terminated(&thread, &CBasicThread::threadTerminated);
        QVERIFY(thread.startThread());
        QTRY_VERIFY(thread.entered);
        QVERIFY(!thread.startThread());
        const bool stopped = state != CBasicThread::StateRunning;
        QCOMPARE(thread.exitThread(0, busy ? 10 : 1000, kill), stopped);
        QCOMPARE(thread.getState(), state);
        QCOMPARE(terminated.count(), state == CBasicThread::StateTerminated ? 1 : 0);
        QCOMPARE(thread.QThread::isRunning(), !stopped);
        const QString opening = QStringLiteral("Thread ( %1 \"%2\" ) ")
                                    .arg(thread.getThreadNumber())
                                    .arg(thread.getThreadName());
        QStringList expected {opening
            + QStringLiteral(
                "Attempt to start a starting up or already running thread ... [ QThread(0x%1) ]")
                  .arg(quintptr(QThread::currentThread()), 0, 16)};
        if (!stopped)
            expected << opening
                    + "thread not finished after 10 msecs , caller has to terminate thread !!!";
        QCOMPARE(logged(capture, QtWarningMsg) + logged(capture, QtCriticalMsg), expected);
    }

    void suspension()
    {
        Runner thread("Sleeper");
        QVERIFY(thread.startThread());
        QTRY_VERIFY(thread.entered);
        thread.suspendThread();
        thread.suspendThread();
        QTRY_VERIFY(thread.isSuspended());
        QCOMPARE(thread.suspensions.load(), 1);
        thread.resumeThread();
        QTest::qWait(50);
        QVERIFY2(thread.isSuspended(), "one of two requests taken back must not resume");
        thread.resumeThread();
        QTRY_VERIFY(thread.isRunning());
        // A resume with nothing pending must not count below zero, or the next
        // suspension would not happen.
        thread.resumeThread();
        // A suspension with a time-out ends by itself.
        QElapsedTimer clock;
        clock.start();
        thread.suspendThread(150);
        QTRY_COMPARE(thread.suspensions.load(), 2);
        QTRY_VERIFY_WITH_TIMEOUT(thread.isRunning(), 10000);
        QVERIFY(clock.elapsed() >= 140);
        QCOMPARE(thread.getSuspensionRequests(), 0);
    }

    void coreDeamonLeftAlone()
    {
        Runner core("Core", &Runner::stubborn);
        Runner worker("Plain");
        CBasicThread::s_CoreDeamon = &core;
        QVERIFY(core.startThread() && worker.startThread());
        QTRY_VERIFY(worker.entered && core.entered);
        CBasicThread::killAllThreads(7, true);
        QVERIFY(worker.QThread::isFinished());
        QCOMPARE(worker.getExitCode(), 7);
        QCOMPARE(core.getState(), int(CBasicThread::StateRunning));
        QCOMPARE(core.getExitCode(), 0);
        // Waiting for the core would not return before its time limit.
        QElapsedTimer clock;
        clock.start();
        CBasicThread::waitForAllThreads();
        QVERIFY(clock.elapsed() < 2500);
        QVERIFY(core.QThread::isRunning());
        CBasicThread::s_CoreDeamon = nullptr;
    }

    void escapingException_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QStringList>("expected");
        const QString failed = QStringLiteral("Failed to  runMethod failed.");
        // clang-format off
        QTest::newRow("int")      << 0 << QStringList {failed, "catched int: 42"};
        QTest::newRow("standard") << 1 << QStringList {failed + " disk gone"};
        QTest::newRow("unknown")  << 2 << QStringList {failed + " Unkown exception."};
        QTest::newRow("library")  << 3 << QStringList {failed + " CException:\tThis is a CxException\n\tthrown at [src/w.cpp:12]\twork\nDetails:\ndisk gone\nPrimaryErrorCode:\t5"};
        // clang-format on
    }

    void escapingException()
    {
        QFETCH(int, kind);
        QFETCH(QStringList, expected);
        Runner thread("Thrower", [kind](Runner &) {
            if (kind == 0)
                throw 42;
            if (kind == 1)
                throw std::runtime_error("disk gone");
            if (kind == 2)
                throw 3.5;
            // Deleted by the thread once reported (LSan).
            throw new CException(
                "work", "src/w.cpp", 12, "disk gone", CCallStack(), nullptr, 5, -1, nullptr);
        });
        BvTest::MessageCapture capture;
        QVERIFY(thread.startThread() && thread.wait(10000));
        QCOMPARE(thread.getState(), int(CBasicThread::StateFinished));
        QCOMPARE(logged(capture, QtCriticalMsg)
                     .replaceInStrings(QRegularExpression("\nCallstack for .*",
                                           QRegularExpression::DotMatchesEverythingOption),
                         ""),
            expected);
    }

    // A hard termination must end the thread and leave the process running, and an
    // exception nobody catches reaches the terminate handler: run in a child, which a
    // termination that does not work leaves hanging until it is killed.
    void inChild_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("output"); // a pattern for standard output and error
        const auto report = [](int code) {
            return "^"
                + QRegularExpression::escape(
                    QStringLiteral("returned 1, in time 1, ended 1, state 4, exit code %1, "
                                   "terminated 1, next thread 1\n")
                        .arg(code))
                + "$";
        };
        // clang-format off
        QTest::newRow("spinning, exitThread() with its defaults") << "spin exitThread" << 0 << report(0);
        QTest::newRow("spinning, terminateThread(code, false)")   << "spin terminateThread" << 0 << report(5);
        QTest::newRow("spinning, killAllThreads(code, true)")     << "spin killAllThreads" << 0 << report(7);
        QTest::newRow("suspended, terminateThread()")             << "suspended terminateThread" << 0 << report(-1);
        // The call stack follows, frame by frame.
        QTest::newRow("terminate handler") << "terminate" << 255 << "\\[ \\d+ : Doomed \\] \\[ CBasicThread : \\d+ : terminateHandler \\] Thread \\( \\d+ \"Doomed\" \\) terminate called \\.\\.\\. \\[ CBasicThread\\(0x\\w+\\) \\] \"Callstack for \\\\\"Doomed\\\\\"\\(\\d+\\):\\\\n\\[bt\\]   0 ";
        // clang-format on
    }

    void inChild()
    {
        QFETCH(QString, mode);
        QFETCH(int, exitCode);
        QFETCH(QString, output);
        const BvTest::ChildResult result = BvTest::runChild(mode, 20000);
        const QString err = QString::fromLocal8Bit(result.standardError);
        QVERIFY2(result.status == QProcess::NormalExit && result.exitCode == exitCode,
            qPrintable(err.right(3000)));
        const QString out
            = QString::fromLocal8Bit(exitCode ? result.standardError : result.standardOutput);
        QVERIFY2(QRegularExpression(output).match(out).hasMatch(), qPrintable(out.right(3000)));
    }
};

// "<body> <call>": ends a spinning or a suspended thread with one of the calls that
// terminate hard, then checks that the class still works.
static int hardTerminationChild(const QByteArray &body, const QByteArray &call)
{
    Runner thread("Victim", body == "spin" ? &Runner::spin : &Runner::poll);
    QAtomicInt terminated;
    QObject::connect(&thread, &CBasicThread::threadTerminated, [&terminated] { terminated.ref(); });

    thread.startThread();
    while (!thread.entered)
        QThread::msleep(1);
    if (body == "suspended") {
        thread.suspendThread();
        while (!thread.isSuspended())
            QThread::msleep(1);
    }

    QElapsedTimer clock;
    clock.start();
    bool returned = true;
    qint64 limit = 4000;
    if (call == "exitThread") {
        returned = thread.exitThread();
    } else if (call == "terminateThread" && body == "spin") {
        returned = thread.terminateThread(5, false);
        limit = 1000; // "at once": not after the thread has ended
    } else if (call == "terminateThread") {
        returned = thread.terminateThread();
    } else {
        CBasicThread::killAllThreads(7, true);
    }
    const bool inTime = clock.elapsed() < limit;
    const bool ended = thread.QThread::wait(5000);

    // Nothing the victim held is left taken: its suspension, the registry, a new thread.
    while (thread.getSuspensionRequests() > 0)
        thread.resumeThread();
    Runner next("Next");
    const bool nextWorks = next.startThread() && next.exitThread(0, 5000)
        && next.getState() == CBasicThread::StateFinished;

    std::printf("returned %d, in time %d, ended %d, state %d, exit code %d, terminated %d, "
                "next thread %d\n",
        returned, inTime, ended, thread.getState(), thread.getExitCode(), terminated.loadAcquire(),
        nextWorks);
    return 0;
}

static int childMain(const QByteArray &mode)
{
    const QList<QByteArray> words = mode.split(' ');
    if (words.size() == 2)
        return hardTerminationChild(words.at(0), words.at(1));
    Runner thread("Doomed", [](Runner &) { std::terminate(); });
    thread.startThread();
    thread.wait();
    return 0;
}

BV_TEST_MAIN_WITH_CHILD(tst_CBasicThread, QCoreApplication)
#include "tst_cbasicthread.moc"
