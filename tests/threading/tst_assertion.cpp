#include "threading/assertions/assertion.h"
#include "threading/exceptions/CException.h"
#include "threading/threads/CBasicThread.h"

#include "BvTestSupport.h"

#include <QThread>

class tst_Assertion : public QObject
{
    Q_OBJECT

private slots:
    void prefix_data();
    void prefix();
    void prefixFromPlainQThread();
    void prefixFromBasicThread();
    void prefixSubstitutesSuccessively();
    void printAssert();
    void returnAssert();
    void throwAssert_data();
    void throwAssert();
    void fatalPaths_data();
    void fatalPaths();
};

namespace {
int returnsOnFailure(int value)
{
    BV_ASSERT_RETURN(value > 0, -7);
    return value;
}

class LoggingThread : public CBasicThread
{
public:
    using CBasicThread::CBasicThread;

protected:
    void runMethod() override
    {
        getLogMessageTemplate("src/x/worker.cpp", "work", 12, QtWarningMsg) << "busy";
    }
};
} // namespace

void tst_Assertion::prefix_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("expected");

    QTest::newRow("relative path") << QByteArray("../../src/uninstaller/mac/main.cpp")
                                   << "[ -1 : MainThread ] [ main.cpp : 66 : loadStylesheet ]";
    QTest::newRow("bare name") << QByteArray("main.cpp")
                               << "[ -1 : MainThread ] [ main.cpp : 66 : loadStylesheet ]";
    QTest::newRow("trailing separator")
        << QByteArray("/a/b/") << "[ -1 : MainThread ] [ b : 66 : loadStylesheet ]";
    QTest::newRow("empty") << QByteArray("") << "[ -1 : MainThread ] [  : 66 : loadStylesheet ]";
}

void tst_Assertion::prefix()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, expected);

    // The caller's items follow on the same line; QString items are quoted.
    QTest::ignoreMessage(
        QtCriticalMsg, qPrintable(expected + " unable to open sylesheet \"/x/mac_BSVN.css\""));
    getLogMessageTemplate(file.constData(), "loadStylesheet", 66, QtCriticalMsg)
        << "unable to open sylesheet" << QStringLiteral("/x/mac_BSVN.css");
}

void tst_Assertion::prefixFromPlainQThread()
{
    BvTest::MessageCapture capture;
    QThread *thread = QThread::create(
        [] { getLogMessageTemplate("w.cpp", "work", 3, QtWarningMsg) << "hello"; });
    thread->start();
    QVERIFY(thread->wait(10000));
    delete thread;
    QCOMPARE(capture.messages(), QStringList {"[ -1 : MainThread ] [ w.cpp : 3 : work ] hello"});
}

void tst_Assertion::prefixFromBasicThread()
{
    LoggingThread thread(std::string("Scanner"));
    BvTest::MessageCapture capture;
    thread.start();
    QVERIFY(thread.wait(10000));
    QVERIFY(thread.getThreadNumber() > 0);
    const QString expected = QStringLiteral("[ %1 : Scanner ] [ worker.cpp : 12 : work ] busy")
                                 .arg(thread.getThreadNumber());
    QVERIFY2(capture.messages().contains(expected), qPrintable(capture.messages().join('\n')));
}

void tst_Assertion::prefixSubstitutesSuccessively()
{
    // The thread name is substituted before the file name, so its "%3" receives the file.
    struct Named : CBasicThread
    {
        using CBasicThread::CBasicThread;
        void runMethod() override { getLogMessageTemplate("f.cpp", "fn", 9, QtWarningMsg); }
    } thread(std::string("t%3"));
    BvTest::MessageCapture capture;
    thread.start();
    QVERIFY(thread.wait(10000));
    const QString expected
        = QStringLiteral("[ %1 : tf.cpp ] [ f.cpp : 9 : fn ]").arg(thread.getThreadNumber());
    QVERIFY2(capture.messages().contains(expected), qPrintable(capture.messages().join('\n')));
}

void tst_Assertion::printAssert()
{
    QTest::ignoreMessage(QtCriticalMsg, "ASSERT: \"x\" in file a, line 7");
    bvPrintAssert("x", "a", 7);

    // The macro carries on after logging, with the condition's own text.
    const int value = 0;
    QTest::ignoreMessage(QtCriticalMsg,
        QRegularExpression("^ASSERT: \"value == 1\" in file .*tst_assertion.cpp, "
                           "line \\d+$"));
    BV_ASSERT(value == 1);
}

void tst_Assertion::returnAssert()
{
    QTest::ignoreMessage(QtCriticalMsg, "ASSERT: \"p\" in file f, line 3. will return \"false\"");
    bvReturnAssertMsg("p", "f", 3, "false");

    QTest::ignoreMessage(QtCriticalMsg,
        QRegularExpression("^ASSERT: \"value > 0\" in file .*, line \\d+\\. will "
                           "return \"-7\"$"));
    QCOMPARE(returnsOnFailure(0), -7);
    QCOMPARE(returnsOnFailure(4), 4);
}

void tst_Assertion::throwAssert_data()
{
    QTest::addColumn<bool>("withMessage");
    QTest::addColumn<QByteArray>("function");
    QTest::addColumn<QByteArray>("message");

    QTest::newRow("plain") << false << QByteArray("bvThrowAssert")
                           << QByteArray("ASSERT: \"x\" in file a, line 7");
    QTest::newRow("with message") << true << QByteArray("bvThrowAssertMsg")
                                  << QByteArray("ASSERT: \"x\" in file a, line 7, msg boom");
}

void tst_Assertion::throwAssert()
{
    QFETCH(bool, withMessage);
    QFETCH(QByteArray, function);
    QFETCH(QByteArray, message);

    BvTest::MessageCapture capture;
    CException *caught = nullptr;
    try {
        if (withMessage)
            bvThrowAssertMsg("x", "a", 7, "boom");
        else
            bvThrowAssert("x", "a", 7);
    } catch (CException *e) {
        caught = e;
    }
    QVERIFY(caught);
    QScopedPointer<CException> owner(caught);
    QCOMPARE(QByteArray(caught->getTypeName()), QByteArray("CException"));
    QCOMPARE(QByteArray(caught->getFunction()), function);
    QCOMPARE(QByteArray(caught->getFile()), QByteArray("src/threading/assertions/assertion"));
    QVERIFY(caught->getLine() > 0);
    QCOMPARE(QByteArray(caught->getMessage().c_str()), message);
    QCOMPARE(caught->getPrimaryErrorCode(), -1);
    QCOMPARE(caught->getSecondaryErrorCode(), -1);
    QVERIFY(!caught->getSubException());
    QVERIFY(!caught->getCause());
    QVERIFY(caught->getCallStack().frameCount() > 0);
    // Nothing is printed before the throw: the text travels in the exception only.
    QVERIFY(capture.messages().isEmpty());
}

void tst_Assertion::fatalPaths_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<QByteArray>("expectedLine");

    QTest::newRow("printFatalMessage")
        << "fatal" << QByteArray("[ -1 : MainThread ] [ file.cpp : 42 : shutdown ] out of luck");
    QTest::newRow("bvCoreDump") << "coredump"
                                << QByteArray("ASSERT: \"ok\" in file ../x/f.cpp, line 5");
    QTest::newRow("coredump macro")
        << "coredump-macro" << QByteArray("ASSERT: \"1 == 2\" in file core.cpp, line");
}

void tst_Assertion::fatalPaths()
{
    QFETCH(QString, mode);
    QFETCH(QByteArray, expectedLine);

    const BvTest::ChildResult result = BvTest::runChild(mode);
    QCOMPARE(result.status, QProcess::CrashExit);
    QVERIFY2(result.standardError.contains(expectedLine), result.standardError.constData());
    QVERIFY(!result.standardError.contains("not reached"));
}

static int childMain(const QByteArray &mode)
{
    if (mode == "fatal")
        printFatalMessage("../src/file.cpp", "shutdown", 42, "out of luck");
    if (mode == "coredump")
        bvCoreDump("ok", "../x/f.cpp", 5);
    if (mode == "coredump-macro") {
#undef BV_SOURCE_FILE
#define BV_SOURCE_FILE "core.cpp"
        BV_ASSERT_COREDUMP(1 == 2);
    }
    fputs("not reached\n", stderr);
    return 0;
}

BV_TEST_MAIN_WITH_CHILD(tst_Assertion, QCoreApplication)
#include "tst_assertion.moc"
