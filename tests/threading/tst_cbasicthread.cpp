#include "threading/exceptions/CException.h"
#include "threading/threads/CBasicThread.h"

#include "BvTestSupport.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QMetaMethod>
#include <QSignalSpy>

#include <atomic>
#include <exception>
#include <functional>
#include <stdexcept>

class tst_CBasicThread : public QObject
{
    Q_OBJECT

private slots:
    void metaObject();
    void lifeCycle_data();
    void lifeCycle();
    void exitThread_data();
    void exitThread();
    void secondStartRefused();
    void stoppedBeforeRun();
    void suspension();
    void checkSuspendedFromMainThread();
    void coreDeamonLeftAlone();
    void escapingException_data();
    void escapingException();
    void terminateHandlers_data();
    void terminateHandlers();
};

namespace {
// Tells when runMethod() has been entered: onStart() reports "running" before run()
// has even looked at the state.
class TestThread : public CBasicThread
{
public:
    explicit TestThread(const std::string &name)
        : CBasicThread(name)
    {
        connect(
            this, &CBasicThread::threadSuspended, this, [this] { ++suspensions; },
            Qt::DirectConnection);
    }
    // A failed check must not leave a running thread behind.
    ~TestThread() override
    {
        stop = true;
        while (getSuspensionRequests() > 0)
            resumeThread();
        wait();
    }
    std::atomic<bool> entered {false};
    std::atomic<bool> stop {false};
    std::atomic<int> suspensions {0};
};

// Polls its state: leaves as soon as it is asked to finish or terminate.
class Worker : public TestThread
{
public:
    using TestThread::TestThread;

protected:
    void runMethod() override
    {
        entered = true;
        while (!stop && !isFinished() && !isTerminated()) {
            checkSuspended();
            QThread::msleep(2);
        }
    }
};

// Ignores every request; only its flag, its time limit or a hard termination end it.
// It sleeps in a cancellation point so that a hard termination takes effect at once.
class Busy : public TestThread
{
public:
    explicit Busy(const std::string &name, int limitMs = 30000)
        : TestThread(name)
        , m_Limit(limitMs)
    { }

protected:
    void runMethod() override
    {
        setTerminationEnabled(true);
        entered = true;
        while (!stop && !m_Limit.hasExpired())
            QThread::msleep(5);
    }

private:
    QDeadlineTimer m_Limit;
};

class Thrower : public CBasicThread
{
public:
    explicit Thrower(std::function<void()> body)
        : CBasicThread(std::string("Thrower"))
        , m_Body(std::move(body))
    { }

protected:
    void runMethod() override { m_Body(); }

private:
    std::function<void()> m_Body;
};

// The closing texts of one thread's lines, in order: ") starting ...", ...
QStringList closingTexts(const QStringList &messages, int number, const QString &name)
{
    const QRegularExpression pattern(
        QStringLiteral("Thread \\( %1 \"%2\" (\\) [^\\[]*\\.\\.\\.)").arg(number).arg(name));
    QStringList texts;
    for (const QString &message : messages) {
        const QRegularExpressionMatch match = pattern.match(message);
        if (match.hasMatch())
            texts << match.captured(1);
    }
    return texts;
}

// The text behind the two bracketed prefix groups.
QString withoutPrefix(const QString &message)
{
    static const QRegularExpression prefix(QStringLiteral("^\\[ [^\\]]*\\] \\[ [^\\]]*\\] "));
    return QString(message).remove(prefix);
}

QStringList criticalTexts(const BvTest::MessageCapture &capture)
{
    QStringList texts;
    const QStringList messages = capture.messages();
    const QList<QtMsgType> types = capture.types();
    for (int i = 0; i < messages.size(); ++i)
        if (types.at(i) == QtCriticalMsg)
            texts << withoutPrefix(messages.at(i));
    return texts;
}
} // namespace

void tst_CBasicThread::metaObject()
{
    const QMetaObject &meta = CBasicThread::staticMetaObject;
    QCOMPARE(meta.classInfoCount(), 1);
    QCOMPARE(meta.classInfo(0).name(), "Description");
    QCOMPARE(meta.classInfo(0).value(), "Basic Thread Implementation");

    QStringList signatures;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        signatures << QString::fromLatin1(meta.method(i).methodSignature());
    const QStringList expected {"threadStarted()", "threadResumed()", "threadSuspended()",
        "threadFinished()", "threadTerminated()", "startThread(QObject*,TThreadPriority)",
        "startThread(QObject*)", "startThread()", "exitThread(int,ulong,bool)",
        "exitThread(int,ulong)", "exitThread(int)", "exitThread()", "terminateThread(int,bool)",
        "terminateThread(int)", "terminateThread()", "resumeThread(TThreadPriority)",
        "resumeThread()", "suspendThread(ulong)", "suspendThread()", "onTermination()",
        "onFinish()", "onStart()"};
    QCOMPARE(signatures, expected);

    const QMetaMethod exitThread = meta.method(meta.indexOfSlot("exitThread(int,ulong,bool)"));
    QCOMPARE(exitThread.parameterNames(), (QList<QByteArray> {"exitCode", "waitTime", "kill"}));
    QCOMPARE(exitThread.typeName(), "bool");
}

void tst_CBasicThread::lifeCycle_data()
{
    QTest::addColumn<bool>("eventLoop");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("runMethod") << false
                               << QStringList {") registering ...", ") starting ...",
                                      ") starting up ...", ") setting running flag ...",
                                      ") setting running flag ...",
                                      ") default runMethod called ...",
                                      ") setting finished flag ...", ") unregistering ..."};
    QTest::newRow("event loop with impl")
        << true
        << QStringList {") registering ...", ") starting ...", ") starting up ...",
               ") moving impl ...", ") setting running flag ...", ") setting running flag ...",
               ") running ...", ") setting finished flag ...", ") moving back impl ...",
               ") setting finished flag ...", ") unregistering ..."};
}

void tst_CBasicThread::lifeCycle()
{
    QFETCH(bool, eventLoop);
    QFETCH(QStringList, expected);

    BvTest::MessageCapture capture;
    QObject impl;
    int number = 0;
    {
        CBasicThread thread(eventLoop, nullptr, "Life");
        number = thread.getThreadNumber();
        QSignalSpy started(&thread, &CBasicThread::threadStarted);
        QSignalSpy finished(&thread, &CBasicThread::threadFinished);
        QCOMPARE(thread.getState(), int(CBasicThread::StateNotStarted));

        QVERIFY(thread.startThread(eventLoop ? &impl : nullptr));
        QCOMPARE(started.count(), 1);
        if (eventLoop) {
            // Only a running event loop can answer this call.
            QThread *ranIn = nullptr;
            QMetaObject::invokeMethod(
                &impl, [&] { ranIn = QThread::currentThread(); }, Qt::BlockingQueuedConnection);
            QCOMPARE(ranIn, &thread);
            QCOMPARE(thread.getState(), int(CBasicThread::StateRunning));
            QVERIFY(thread.exitThread(3));
            QCOMPARE(thread.getExitCode(), 3);
            QCOMPARE(impl.thread(), QThread::currentThread());
        } else {
            QVERIFY(thread.wait(10000));
        }
        QCOMPARE(thread.getState(), int(CBasicThread::StateFinished));
        QCOMPARE(finished.count(), 1);
    }
    QCOMPARE(closingTexts(capture.messages(), number, QStringLiteral("Life")), expected);
}

void tst_CBasicThread::exitThread_data()
{
    QTest::addColumn<bool>("busy");
    QTest::addColumn<int>("waitTime");
    QTest::addColumn<bool>("kill");
    QTest::addColumn<bool>("result");
    QTest::addColumn<int>("state");
    QTest::addColumn<int>("terminatedSignals");

    QTest::newRow("quick thread") << false << 1000 << true << true
                                  << int(CBasicThread::StateFinished) << 0;
    QTest::newRow("busy thread, kill")
        << true << 200 << true << true << int(CBasicThread::StateTerminated) << 1;
    QTest::newRow("busy thread, no kill")
        << true << 10 << false << false << int(CBasicThread::StateRunning) << 0;
}

void tst_CBasicThread::exitThread()
{
    QFETCH(bool, busy);
    QFETCH(int, waitTime);
    QFETCH(bool, kill);
    QFETCH(bool, result);
    QFETCH(int, state);
    QFETCH(int, terminatedSignals);

    QScopedPointer<TestThread> thread(
        busy ? static_cast<TestThread *>(new Busy("Stubborn")) : new Worker(std::string("Quick")));
    QSignalSpy terminated(thread.data(), &CBasicThread::threadTerminated);
    QVERIFY(thread->startThread());
    QTRY_VERIFY(thread->entered);

    BvTest::MessageCapture capture;
    QCOMPARE(thread->exitThread(0, waitTime, kill), result);
    QCOMPARE(thread->getState(), state);
    QCOMPARE(terminated.count(), terminatedSignals);
    QCOMPARE(thread->QThread::isRunning(), !result);

    const QString warning = QStringLiteral("Thread ( %1 \"Stubborn\" ) thread not finished after "
                                           "10 msecs , caller has to terminate thread !!!")
                                .arg(thread->getThreadNumber());
    QStringList warnings;
    for (const QString &message : capture.messages())
        if (message.contains(QLatin1String("not finished")))
            warnings << withoutPrefix(message);
    QCOMPARE(warnings, (busy && !kill) ? QStringList {warning} : QStringList {});

    if (Busy *b = dynamic_cast<Busy *>(thread.data())) {
        b->stop = true;
        QVERIFY(b->wait(10000));
    }
}

void tst_CBasicThread::secondStartRefused()
{
    // The capture outlives the thread: it must not go away while the thread logs.
    BvTest::MessageCapture capture;
    Worker thread(std::string("Twice"));
    QVERIFY(thread.startThread());
    QVERIFY(!thread.startThread());
    QVERIFY(thread.exitThread());
    QCOMPARE(thread.getState(), int(CBasicThread::StateFinished));
    QCOMPARE(criticalTexts(capture),
        QStringList {QStringLiteral("Thread ( %1 \"Twice\" ) Attempt to start a starting up or "
                                    "already running thread ... [ QThread(0x%2) ]")
                         .arg(thread.getThreadNumber())
                         .arg(quintptr(QThread::currentThread()), 0, 16)});
}

void tst_CBasicThread::stoppedBeforeRun()
{
    Worker thread(std::string("Late"));
    QVERIFY(thread.exitThread());
    QTest::ignoreMessage(QtWarningMsg,
        QRegularExpression(QStringLiteral("^\\[ \\d+ : Late \\] \\[ CBasicThread : \\d+ : run \\] "
                                          "Thread was requested to finish or terminate before "
                                          "started to run \\.\\.\\.$")));
    thread.start();
    QVERIFY(thread.wait(10000));
    QVERIFY(!thread.entered);
    QCOMPARE(thread.getState(), int(CBasicThread::StateFinished));
}

void tst_CBasicThread::suspension()
{
    Worker thread(std::string("Sleeper"));
    QSignalSpy resumed(&thread, &CBasicThread::threadResumed);
    QVERIFY(thread.startThread());
    QTRY_VERIFY(thread.entered);

    thread.suspendThread();
    thread.suspendThread();
    QCOMPARE(thread.getSuspensionRequests(), 2);
    QTRY_VERIFY(thread.isSuspended());
    QCOMPARE(thread.suspensions.load(), 1);

    thread.resumeThread();
    QCOMPARE(thread.getSuspensionRequests(), 1);
    QTest::qWait(50);
    QVERIFY2(thread.isSuspended(), "one of two requests taken back must not resume");
    QCOMPARE(resumed.count(), 0);

    thread.resumeThread();
    QCOMPARE(resumed.count(), 1);
    QTRY_VERIFY(thread.isRunning());

    // A resume with nothing pending changes nothing, and the next request still counts.
    thread.resumeThread();
    QCOMPARE(thread.getSuspensionRequests(), 0);
    QCOMPARE(resumed.count(), 1);

    // A suspension with a time-out ends by itself.
    QElapsedTimer clock;
    clock.start();
    thread.suspendThread(150);
    QTRY_COMPARE(thread.suspensions.load(), 2);
    QTRY_VERIFY_WITH_TIMEOUT(thread.isRunning(), 10000);
    QVERIFY(clock.elapsed() >= 140);
    QCOMPARE(thread.getSuspensionRequests(), 0);

    QVERIFY(thread.exitThread());
}

void tst_CBasicThread::checkSuspendedFromMainThread()
{
    CBasicThread thread(std::string("Idle"));
    thread.suspendThread(5000);
    QTest::ignoreMessage(QtWarningMsg,
        QRegularExpression(QStringLiteral("^\\[ -1 : MainThread \\] \\[ CBasicThread : \\d+ : "
                                          "checkSuspended \\] CBasicThread::checkSuspended\\(\\) "
                                          "called from a non suspendable Thread!$")));
    QElapsedTimer clock;
    clock.start();
    thread.checkSuspended();
    QVERIFY(clock.elapsed() < 2000);
    QCOMPARE(thread.getState(), int(CBasicThread::StateNotStarted));
    QCOMPARE(thread.getSuspensionRequests(), 1);
}

void tst_CBasicThread::coreDeamonLeftAlone()
{
    Busy core("Core", 5000);
    Worker worker(std::string("Plain"));
    CBasicThread loop(true, nullptr, "Loop");
    CBasicThread::s_CoreDeamon = &core;
    QVERIFY(core.startThread());
    QVERIFY(worker.startThread());
    QObject impl;
    QVERIFY(loop.startThread(&impl));
    QTRY_VERIFY(worker.entered && core.entered);
    QMetaObject::invokeMethod(
        &impl, [] {}, Qt::BlockingQueuedConnection);

    CBasicThread::killAllThreads(7, true);
    QVERIFY(worker.QThread::isFinished());
    QVERIFY(loop.QThread::isFinished());
    QCOMPARE(worker.getExitCode(), 7);
    QCOMPARE(loop.getExitCode(), 7);
    QCOMPARE(worker.getState(), int(CBasicThread::StateTerminated));
    QVERIFY(core.QThread::isRunning());
    QCOMPARE(core.getState(), int(CBasicThread::StateRunning));
    QCOMPARE(core.getExitCode(), 0);

    // Waiting for the core would take its whole time limit.
    QElapsedTimer clock;
    clock.start();
    CBasicThread::waitForAllThreads();
    QVERIFY(clock.elapsed() < 2500);
    QVERIFY(core.QThread::isRunning());

    core.stop = true;
    QVERIFY(core.wait(10000));
    CBasicThread::s_CoreDeamon = nullptr;
}

void tst_CBasicThread::escapingException_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QStringList>("expected");

    const QString failed = QStringLiteral("Failed to  runMethod failed.");
    QTest::newRow("int") << 0 << QStringList {failed, QStringLiteral("catched int: 42")};
    QTest::newRow("standard") << 1 << QStringList {failed + QStringLiteral(" disk gone")};
    QTest::newRow("unknown") << 2 << QStringList {failed + QStringLiteral(" Unkown exception.")};
    QTest::newRow("library") << 3 << QStringList {};
}

void tst_CBasicThread::escapingException()
{
    QFETCH(int, kind);
    QFETCH(QStringList, expected);

    Thrower thread([kind] {
        switch (kind) {
        case 0:
            throw 42;
        case 1:
            throw std::runtime_error("disk gone");
        case 2:
            throw 3.5;
        default:
            throw new CException(
                "work", "src/w.cpp", 12, "disk gone", CCallStack(), nullptr, 5, -1, nullptr);
        }
    });
    QSignalSpy finished(&thread, &CBasicThread::threadFinished);
    BvTest::MessageCapture capture;
    QVERIFY(thread.startThread());
    QVERIFY(thread.wait(10000));
    QCOMPARE(thread.getState(), int(CBasicThread::StateFinished));
    QCOMPARE(finished.count(), 1);

    const QStringList texts = criticalTexts(capture);
    if (kind == 3) {
        // The report of what(): type, place and message; the object is deleted (LSan).
        QCOMPARE(texts.size(), 1);
        QVERIFY2(texts.first().startsWith(QLatin1String("Failed to  runMethod failed. CException")),
            qPrintable(texts.first()));
        QVERIFY(texts.first().contains(QLatin1String("disk gone")));
        QVERIFY(texts.first().contains(QLatin1String("src/w.cpp")));
    } else {
        QCOMPARE(texts, expected);
    }
}

void tst_CBasicThread::terminateHandlers_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<QString>("line");

    QTest::newRow("main thread") << "terminate-main"
                                 << "\\[ -1 : MainThread \\] \\[ CBasicThread : \\d+ : "
                                    "globalTerminateHandler \\] terminate called in thread";
    QTest::newRow("basic thread") << "terminate-thread"
                                  << "\\[ \\d+ : Doomed \\] \\[ CBasicThread : \\d+ : "
                                     "terminateHandler \\] Thread \\( \\d+ \"Doomed\" \\) "
                                     "terminate called \\.\\.\\.";
    QTest::newRow("unexpected in basic thread")
        << "unexpected-thread"
        << "\\[ \\d+ : Doomed \\] \\[ CBasicThread : \\d+ : unexpectedHandler \\] Thread "
           "\\( \\d+ \"Doomed\" \\) unexpected exception \\.\\.\\.";
}

void tst_CBasicThread::terminateHandlers()
{
    QFETCH(QString, mode);
    QFETCH(QString, line);

    const BvTest::ChildResult result = BvTest::runChild(mode);
    const QString output = QString::fromLocal8Bit(result.standardError);
    QCOMPARE(result.status, QProcess::NormalExit);
    QCOMPARE(result.exitCode, 255);
    QVERIFY2(QRegularExpression(line).match(output).hasMatch(), qPrintable(output));
    // The call stack follows, frame by frame.
    QVERIFY2(output.contains(QLatin1String("[bt]   0 ")), qPrintable(output));
}

static int childMain(const QByteArray &mode)
{
    class Doomed : public CBasicThread
    {
    public:
        explicit Doomed(bool unexpected)
            : CBasicThread(std::string("Doomed"))
            , m_Unexpected(unexpected)
        { }

    protected:
        void runMethod() override
        {
            if (m_Unexpected)
                CBasicThread::globalUnexpectedHandler();
            std::terminate();
        }

    private:
        bool m_Unexpected;
    };

    if (mode == "terminate-main") {
        CBasicThread::setGlobalExceptionHandlers();
        std::terminate();
    }
    Doomed thread(mode == "unexpected-thread");
    thread.startThread();
    thread.wait();
    return 0;
}

BV_TEST_MAIN_WITH_CHILD(tst_CBasicThread, QCoreApplication)
#include "tst_cbasicthread.moc"
