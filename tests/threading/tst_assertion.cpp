// Diagnostic prefixes, assertions and the library's exception reports.

#include "threading/assertions/assertion.h"
#include "threading/exceptions/CException.h"
#include "threading/threads/CBasicThread.h"

#include "BvTestSupport.h"

#include <QThread>

#include <functional>

using Shared = QSharedPointer<CException>;
using Thrower = std::function<void()>;
Q_DECLARE_METATYPE(Shared)
Q_DECLARE_METATYPE(Thrower)

namespace {
CException *make(const char *message, qint32 primary = -1, qint32 secondary = -1,
    const char *sub = nullptr, CException *cause = nullptr)
{
    return new CException(
        "load", "src/io.cpp", 12, message, CCallStack(), cause, primary, secondary, sub);
}

// One real frame per level in every build: not inlined, and the store after the call
// keeps the optimiser from turning the recursion into a loop or a tail call.
volatile int g_Depth = 0;
Q_NEVER_INLINE int recurse(int depth)
{
    if (depth == 0)
        return CCallStack().frameCount();
    const int frames = recurse(depth - 1);
    g_Depth = depth;
    return frames;
}
} // namespace

class tst_Assertion : public QObject
{
    Q_OBJECT

private slots:
    void prefix_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("thread"); // none, "QThread" or a CBasicThread's name
        QTest::addColumn<QString>("expected"); // %1: the thread's number
        // clang-format off
        QTest::newRow("main thread")        << QByteArray("../src/main.cpp") << "" << "[ -1 : MainThread ] [ main.cpp : 66 : load ]";
        QTest::newRow("trailing separator") << QByteArray("/a/b/") << "" << "[ -1 : MainThread ] [ b : 66 : load ]";
        QTest::newRow("plain QThread")      << QByteArray("w.cpp") << "QThread" << "[ -1 : MainThread ] [ w.cpp : 66 : load ]";
        QTest::newRow("basic thread")       << QByteArray("src/w.cpp") << "Scanner" << "[ %1 : Scanner ] [ w.cpp : 66 : load ]";
        // The name is substituted before the file name, so its "%3" receives the file.
        QTest::newRow("substituted successively") << QByteArray("f.cpp") << "t%3" << "[ %1 : tf.cpp ] [ f.cpp : 66 : load ]";
        // clang-format on
    }

    void prefix()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, thread);
        QFETCH(QString, expected);
        const auto log = [file] {
            getLogMessageTemplate(file.constData(), "load", 66, QtWarningMsg)
                << "unable to open sylesheet" << QStringLiteral("/x.css");
        };
        BvTest::MessageCapture capture;
        int number = -1;
        if (thread.isEmpty()) {
            log();
        } else if (thread == "QThread") {
            QScopedPointer<QThread> plain(QThread::create(log));
            plain->start();
            QVERIFY(plain->wait(10000));
        } else { // in the thread's event loop, through an object living there
            QObject impl;
            CBasicThread basic(true, nullptr, qPrintable(thread));
            QVERIFY(basic.startThread(&impl));
            QMetaObject::invokeMethod(&impl, log, Qt::BlockingQueuedConnection);
            QVERIFY(basic.exitThread());
            number = basic.getThreadNumber();
        }
        // The caller's items follow on the same line; QString items are quoted.
        QCOMPARE(capture.messages().filter("sylesheet"),
            QStringList {expected.replace("%1", QString::number(number))
                + " unable to open sylesheet \"/x.css\""});
    }

    void printAndReturnAssert()
    {
        QTest::ignoreMessage(QtCriticalMsg, "ASSERT: \"x\" in file a, line 7");
        bvPrintAssert("x", "a", 7);
        QTest::ignoreMessage(
            QtCriticalMsg, "ASSERT: \"p\" in file f, line 3. will return \"false\"");
        bvReturnAssertMsg("p", "f", 3, "false");
    }

    void throwAssert_data()
    {
        QTest::addColumn<Thrower>("thrower");
        QTest::addColumn<QString>("expected"); // function|message|codes
        // clang-format off
        QTest::newRow("bvThrowAssert")    << Thrower([] { bvThrowAssert("x", "a", 7); }) << "bvThrowAssert|ASSERT: \"x\" in file a, line 7|-1|-1";
        QTest::newRow("bvThrowAssertMsg") << Thrower([] { bvThrowAssertMsg("x", "a", 7, "boom"); }) << "bvThrowAssertMsg|ASSERT: \"x\" in file a, line 7, msg boom|-1|-1";
        QTest::newRow("BV_ASSERT_THROW")  << Thrower([] { BV_ASSERT_THROW(g_Depth < 0); }) << QStringLiteral("bvThrowAssert|ASSERT: \"g_Depth < 0\" in file %1, line %2|-1|-1").arg(__FILE__).arg(__LINE__);
        QTest::newRow("BV_ASSERT_THROW_MSG") << Thrower([] { BV_ASSERT_THROW_MSG(g_Depth < 0, "boom"); }) << QStringLiteral("bvThrowAssertMsg|ASSERT: \"g_Depth < 0\" in file %1, line %2, msg boom|-1|-1").arg(__FILE__).arg(__LINE__);
        // clang-format on
    }

    // The text travels in the exception only: nothing is printed before the throw.
    void throwAssert()
    {
        QFETCH(Thrower, thrower);
        QFETCH(QString, expected);
        BvTest::MessageCapture capture;
        QScopedPointer<CException> e;
        try {
            thrower();
        } catch (CException *caught) {
            e.reset(caught);
        }
        QVERIFY(e);
        QCOMPARE(QString::fromLatin1(e->getTypeName()), "CException");
        QCOMPARE(QString::fromLatin1(e->getFile()), "src/threading/assertions/assertion");
        QCOMPARE(QStringLiteral("%1|%2|%3|%4")
                     .arg(e->getFunction(), e->getMessage().c_str())
                     .arg(e->getPrimaryErrorCode())
                     .arg(e->getSecondaryErrorCode()),
            expected);
        QVERIFY(e->getLine() > 0 && e->getCallStack().frameCount() > 0 && !e->getSubException()
            && !e->getCause());
        QVERIFY(capture.messages().isEmpty());
    }

    void report_data()
    {
        QTest::addColumn<Shared>("exception");
        QTest::addColumn<QString>("expected"); // without the "[bt]" lines
        const QString head
            = "CException:\tThis is a CxException\n\tthrown at [src/io.cpp:12]\tload\n";
        const QString stack = "Callstack for \"MainThread\"(-1):\n";
        const QString withCause = head + stack + "caused by\t" + head
            + "Details:\ninner\nPrimaryErrorCode:\t7\n" + stack + "\n";
        const Shared causeSetLater(make(""));
        causeSetLater->what(); // the report is built once and must be built again
        causeSetLater->setCause(*Shared(make("inner", 7)));
        // clang-format off
        QTest::newRow("bare")           << Shared(make("")) << head + stack;
        QTest::newRow("message")        << Shared(make("cannot open")) << head + "Details:\ncannot open\n" + stack;
        QTest::newRow("codes")          << Shared(make("", 2, 0)) << head + "PrimaryErrorCode:\t2\nSecondaryErrorCode:\t0\n" + stack;
        QTest::newRow("secondary only") << Shared(make("", -1, 5)) << head + "SecondaryErrorCode:\t5\n" + stack;
        QTest::newRow("everything")     << Shared(make("m", 1, 2, "IOError")) << head + "subException: IOError\nDetails:\nm\nPrimaryErrorCode:\t1\nSecondaryErrorCode:\t2\n" + stack;
        QTest::newRow("cause given")    << Shared(make("", -1, -1, nullptr, make("inner", 7))) << withCause;
        QTest::newRow("cause set later") << causeSetLater << withCause;
        // A copy reports the placeholder of a message-less original as its details.
        QTest::newRow("copy without message") << Shared(new CException(*Shared(make("")))) << head + "Details:\nNo Additional Exception Information Available !\n" + stack;
        // clang-format on
    }

    void report()
    {
        QFETCH(Shared, exception);
        QFETCH(QString, expected);
        static const QRegularExpression frame(
            "^\\[bt\\] .*\\n", QRegularExpression::MultilineOption);
        QCOMPARE(QString::fromLocal8Bit(exception->what()).remove(frame), expected);
    }

    void callStack()
    {
        QCOMPARE(CCallStack::formatFrame(0, "sym"), "[bt]   0 sym");
        QCOMPARE(CCallStack::formatFrame(99, "sym"), "[bt]  99 sym");
        QCOMPARE(CCallStack::formatFrame(100, "sym"), "[bt] 100 sym");
        QCOMPARE(recurse(100), 63); // the innermost frames
    }

    // They end the process, so they run in a child copy of this test.
    void fatalPaths_data()
    {
        QTest::addColumn<QByteArray>("line"); // the last of standard error
        QTest::newRow("printFatalMessage")
            << QByteArray("[ -1 : MainThread ] [ file.cpp : 42 : stop ] out\n");
        QTest::newRow("bvCoreDump") << QByteArray("ASSERT: \"ok\" in file ../f.cpp, line 5\n");
        QTest::newRow("unset TypeInfo compared")
            << QByteArray("src/threading/exceptions/TypeInfo.h:40: failed assertion `pInfo_'\n");
    }

    void fatalPaths()
    {
        QFETCH(QByteArray, line);
        const BvTest::ChildResult result = BvTest::runChild(QTest::currentDataTag());
        QCOMPARE(result.status, QProcess::CrashExit);
        QVERIFY2(result.standardError.endsWith(line), result.standardError.constData());
    }
};

static int childMain(const QByteArray &mode)
{
    if (mode == "printFatalMessage")
        printFatalMessage("../src/file.cpp", "stop", 42, "out");
    if (mode == "bvCoreDump")
        bvCoreDump("ok", "../f.cpp", 5);
    const TypeInfo unset, set(typeid(int));
    return set < unset ? 1 : 2;
}

BV_TEST_MAIN_WITH_CHILD(tst_Assertion, QCoreApplication)
#include "tst_assertion.moc"
