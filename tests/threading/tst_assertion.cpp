#include "threading/assertions/assertion.h"
#include "threading/exceptions/CException.h"
#include "threading/threads/CBasicThread.h"

#include "BvTestSupport.h"

#include <QThread>

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
        QTest::newRow("main thread") << QByteArray("../src/main.cpp") << ""
                                     << "[ -1 : MainThread ] [ main.cpp : 66 : load ]";
        QTest::newRow("trailing separator") << QByteArray("/a/b/") << ""
                                            << "[ -1 : MainThread ] [ b : 66 : load ]";
        QTest::newRow("plain QThread") << QByteArray("w.cpp") << "QThread"
                                       << "[ -1 : MainThread ] [ w.cpp : 66 : load ]";
        QTest::newRow("basic thread") << QByteArray("src/w.cpp") << "Scanner"
                                      << "[ %1 : Scanner ] [ w.cpp : 66 : load ]";
        // The name is substituted before the file name, so its "%3" receives the file.
        QTest::newRow("substituted successively") << QByteArray("f.cpp") << "t%3"
                                                  << "[ %1 : tf.cpp ] [ f.cpp : 66 : load ]";
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
        } else {
            // Run in the thread's event loop, through an object living there.
            QObject impl;
            CBasicThread basic(true, nullptr, qPrintable(thread));
            QVERIFY(basic.startThread(&impl));
            QMetaObject::invokeMethod(&impl, log, Qt::BlockingQueuedConnection);
            QVERIFY(basic.exitThread());
            number = basic.getThreadNumber();
        }
        // The caller's items follow on the same line; QString items are quoted.
        const QString line = expected.replace("%1", QString::number(number))
            + " unable to open sylesheet \"/x.css\"";
        QCOMPARE(capture.messages().filter("sylesheet"), QStringList {line});
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
        QTest::addColumn<bool>("withMessage");
        QTest::addColumn<QString>("expected");

        // clang-format off
        QTest::newRow("plain") << false
            << "bvThrowAssert|ASSERT: \"x\" in file a, line 7|-1|-1";
        QTest::newRow("with message") << true
            << "bvThrowAssertMsg|ASSERT: \"x\" in file a, line 7, msg boom|-1|-1";
        // clang-format on
    }

    void throwAssert()
    {
        QFETCH(bool, withMessage);
        QFETCH(QString, expected);

        BvTest::MessageCapture capture;
        QScopedPointer<CException> e;
        try {
            if (withMessage)
                bvThrowAssertMsg("x", "a", 7, "boom");
            else
                bvThrowAssert("x", "a", 7);
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
        QVERIFY(e->getLine() > 0 && e->getCallStack().frameCount() > 0);
        QVERIFY(!e->getSubException() && !e->getCause());
        // Nothing is printed before the throw: the text travels in the exception only.
        QVERIFY(capture.messages().isEmpty());
    }

    // Both end the process, so they run in a child copy of this test.
    void fatalPaths_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("printFatalMessage")
            << "fatal" << QByteArray("[ -1 : MainThread ] [ file.cpp : 42 : stop ] out\n");
        QTest::newRow("bvCoreDump")
            << "core" << QByteArray("ASSERT: \"ok\" in file ../f.cpp, line 5\n");
    }

    void fatalPaths()
    {
        QFETCH(QString, mode);
        QFETCH(QByteArray, line);
        const BvTest::ChildResult result = BvTest::runChild(mode);
        QCOMPARE(result.status, QProcess::CrashExit);
        QVERIFY2(result.standardError.endsWith(line), result.standardError.constData());
    }
};

static int childMain(const QByteArray &mode)
{
    if (mode == "fatal")
        printFatalMessage("../src/file.cpp", "stop", 42, "out");
    bvCoreDump("ok", "../f.cpp", 5);
}

BV_TEST_MAIN_WITH_CHILD(tst_Assertion, QCoreApplication)
#include "tst_assertion.moc"
