#include "system/CProcess.h"

#include "LogLines.h"
#include "TargetProcess.h"

#include <QElapsedTimer>
#include <QScopeGuard>

#include <pwd.h>
#include <unistd.h>

class tst_CProcess : public QObject
{
    Q_OBJECT

private slots:
    void stopNonPositive();
    void probeOtherUsersProcess();
    void stopAndWait_data();
    void stopAndWait();
    void isProcessRunning_data();
    void isProcessRunning();
    void findProcess();
    void parsePs_data();
    void parsePs();
    void waitForProcessFinished_data();
    void waitForProcessFinished();
};

namespace {

QStringList lines(const BvTest::MessageCapture &capture, QtMsgType type)
{
    return logLines(capture, type, QStringLiteral("CProcess_unix"));
}

QString psAssert(const char *condition)
{
    return QStringLiteral("ASSERT: \"%1\" in file src/system/CProcess_unix, line N")
        .arg(QLatin1String(condition));
}

} // namespace

static int childMain(const QByteArray &mode)
{
    if (mode == "probe-as-nobody") {
        // Our parent runs as root: kill() says EPERM, which still means "alive".
        const pid_t parent = ::getppid();
        const passwd *nobody = ::getpwnam("nobody");
        if (!nobody || ::setgid(nobody->pw_gid) != 0 || ::setuid(nobody->pw_uid) != 0)
            return 2;
        return CProcess::isProcessRunning(parent) ? 0 : 1;
    }
    // In a process group of its own, a signal sent for id 0 or -5 despite everything ends
    // this child and not the test runner.
    ::setpgid(0, 0);
    BvTest::MessageCapture capture;
    const bool sent = CProcess::stopProcess(0) || CProcess::stopProcess(-5);
    ::usleep(100000);
    return sent || !capture.messages().isEmpty() ? 1 : 0;
}

void tst_CProcess::stopNonPositive()
{
    const BvTest::ChildResult child = BvTest::runChild(QStringLiteral("stop-nonpositive"));
    QCOMPARE(child.status, QProcess::NormalExit);
    QCOMPARE(child.exitCode, 0);
}

void tst_CProcess::probeOtherUsersProcess()
{
    if (::geteuid() != 0)
        QSKIP("the probe runs as nobody against this root process");
    const BvTest::ChildResult child = BvTest::runChild(QStringLiteral("probe-as-nobody"));
    QCOMPARE(child.status, QProcess::NormalExit);
    QCOMPARE(child.exitCode, 0);
}

void tst_CProcess::stopAndWait_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("timeoutMs");
    QTest::addColumn<bool>("finished");

    QTest::newRow("ends on SIGTERM") << QStringList() << 5000 << true;
    QTest::newRow("ignores SIGTERM") << QStringList {"--ignore-term"} << 500 << false;
}

void tst_CProcess::stopAndWait()
{
    QFETCH(QStringList, options);
    QFETCH(int, timeoutMs);
    QFETCH(bool, finished);

    TargetProcess target;
    QVERIFY2(target.start(QStringLiteral("Brisvane"), options), qPrintable(target.error()));
    BvTest::MessageCapture capture;
    QVERIFY(CProcess::stopProcess(target.pid()));
    QCOMPARE(lines(capture, QtDebugMsg),
        QStringList {QStringLiteral("stopProcess: kill pid:%1 signal:15 returned 0 err: 0")
                         .arg(target.pid())});
    QCOMPARE(CProcess::waitForProcessFinished(target.pid(), timeoutMs), finished);
    QCOMPARE(CProcess::isProcessRunning(target.pid()), !finished);
}

void tst_CProcess::isProcessRunning_data()
{
    QTest::addColumn<QString>("targetName");
    QTest::addColumn<QString>("processName");
    QTest::addColumn<QString>("userName");
    QTest::addColumn<bool>("expected");

    const passwd *entry = ::getpwuid(::geteuid());
    const QString me = QString::fromLocal8Bit(entry ? entry->pw_name : "?");
    // clang-format off
    QTest::newRow("name") << "Brisvane" << "Brisvane" << QString() << true;
    QTest::newRow("name is a prefix") << "Brisvane" << "Brisvan" << QString() << false;
    QTest::newRow("name in other case") << "Brisvane" << "brisvane" << QString() << false;
    QTest::newRow("user") << "Brisvane" << QString() << me << true;
    QTest::newRow("other user") << "Brisvane" << QString() << "nobody" << false;
    QTest::newRow("right name, other user") << "Brisvane" << "Brisvane" << "nobody" << false;
    QTest::newRow("name with blanks") << "Brisvane Agent" << "Brisvane Agent" << QString() << true;
    QTest::newRow("first word of a name with blanks") << "Brisvane Agent" << "Brisvane" << QString() << false;
    // clang-format on
}

void tst_CProcess::isProcessRunning()
{
    QFETCH(QString, targetName);
    QFETCH(QString, processName);
    QFETCH(QString, userName);
    QFETCH(bool, expected);

    TargetProcess target;
    QVERIFY2(target.start(targetName), qPrintable(target.error()));
    QCOMPARE(CProcess::isProcessRunning(target.pid(), processName, userName), expected);
}

void tst_CProcess::findProcess()
{
    if (::geteuid() != 0)
        QSKIP("starting a process as another user needs root");
    // Names of our own, so processes of tests running in parallel cannot match.
    const QString name = QStringLiteral("Bv%1").arg(QCoreApplication::applicationPid());
    const QString blankName = QStringLiteral("Bv %1").arg(QCoreApplication::applicationPid());
    TargetProcess mine, nobodys, blank;
    QVERIFY2(mine.start(name), qPrintable(mine.error()));
    QVERIFY2(nobodys.start(name, {}, QStringLiteral("nobody")), qPrintable(nobodys.error()));
    QVERIFY2(blank.start(blankName), qPrintable(blank.error()));

    QList<qint64> pids;
    QVERIFY(CProcess::findProcess(name, pids));
    std::sort(pids.begin(), pids.end());
    QCOMPARE(
        pids, (QList<qint64> {qMin(mine.pid(), nobodys.pid()), qMax(mine.pid(), nobodys.pid())}));
    pids.clear();
    QVERIFY(CProcess::findProcess(name, pids, QStringLiteral("nobody")));
    QCOMPARE(pids, QList<qint64> {nobodys.pid()});
    pids.clear();
    QVERIFY(CProcess::findProcess(blankName, pids));
    QCOMPARE(pids, QList<qint64> {blank.pid()});
}

// What findProcess() (or, for probe rows, isProcessRunning() of this process) makes of
// the output of a stand-in `ps`.
void tst_CProcess::parsePs_data()
{
    QTest::addColumn<QByteArray>("psOutput");
    QTest::addColumn<bool>("probe");
    QTest::addColumn<QString>("userName");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<QList<qint64>>("pids");
    QTest::addColumn<QStringList>("assertions");

    const QByteArray listing = "  300 root     Brisvane\n   12 bob      Other\n"
                               "    7 bob      Brisvane\n   44 bob      Brisvane Agent\n";
    // clang-format off
    QTest::newRow("appended in the order of the listing") << listing << false << QString() << true << QList<qint64> {-1, 300, 7} << QStringList();
    QTest::newRow("one user") << listing << false << "bob" << true << QList<qint64> {-1, 7} << QStringList();
    QTest::newRow("user nobody has") << listing << false << "alice" << false << QList<qint64> {-1} << QStringList();
    QTest::newRow("blanks only") << QByteArray(" \n\t\n") << false << QString() << false << QList<qint64> {-1} << QStringList();
    QTest::newRow("too few fields end the search") << QByteArray("5 root Brisvane\n6 root\n7 root Brisvane\n") << false << QString() << false << QList<qint64> {-1, 5} << QStringList {psAssert("tmp.split(' ').size() >= 3")};
    QTest::newRow("unparsable pid skipped") << QByteArray("x5 root Brisvane\n6 root Brisvane\n") << false << QString() << true << QList<qint64> {-1, 6} << QStringList {psAssert("ok")};
    QTest::newRow("unparsable pid still found") << QByteArray("5x root Brisvane\n") << false << QString() << true << QList<qint64> {-1} << QStringList {psAssert("ok")};
    QTest::newRow("probe: too few fields") << QByteArray("root\n") << true << QString() << false << QList<qint64> {-1} << QStringList {psAssert("output.split(' ').size() >= 2")};
    QTest::newRow("probe: other user") << QByteArray("root Brisvane\n") << true << "bob" << false << QList<qint64> {-1} << QStringList();
    // clang-format on
}

void tst_CProcess::parsePs()
{
    QFETCH(QByteArray, psOutput);
    QFETCH(bool, probe);
    QFETCH(QString, userName);
    QFETCH(bool, expected);
    QFETCH(QList<qint64>, pids);
    QFETCH(QStringList, assertions);

    QTemporaryDir dir;
    QFile ps(dir.filePath(QStringLiteral("ps")));
    QVERIFY(ps.open(QIODevice::WriteOnly));
    QVERIFY(ps.write("#!/bin/sh\nprintf '%s' '" + psOutput + "'\n") > 0);
    ps.close();
    QVERIFY(ps.setPermissions(QFile::ReadOwner | QFile::ExeOwner));
    const QByteArray path = qgetenv("PATH");
    const auto restorePath = qScopeGuard([&path] { qputenv("PATH", path); });
    qputenv("PATH", dir.path().toLocal8Bit() + ':' + path);

    BvTest::MessageCapture capture;
    QList<qint64> found {-1};
    const QString name = QStringLiteral("Brisvane");
    QCOMPARE(probe ? CProcess::isProcessRunning(QCoreApplication::applicationPid(), name, userName)
                   : CProcess::findProcess(name, found, userName),
        expected);
    QCOMPARE(found, pids);
    QCOMPARE(lines(capture, QtCriticalMsg), assertions);
}

void tst_CProcess::waitForProcessFinished_data()
{
    QTest::addColumn<bool>("running");
    QTest::addColumn<int>("timeoutMs");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<int>("checks");
    QTest::addColumn<int>("minSleptMs");

    // A timeout of 0 answers "reached?", a positive one "gone?".
    QTest::newRow("250 ms, running") << true << 250 << false << 2 << 200;
    QTest::newRow("250 ms, gone") << false << 250 << true << 1 << 0;
    QTest::newRow("below 100 ms, running") << true << 99 << false << 1 << 100;
    QTest::newRow("zero, running") << true << 0 << true << 1 << 0;
    QTest::newRow("zero, gone") << false << 0 << false << 1 << 0;
}

void tst_CProcess::waitForProcessFinished()
{
    QFETCH(bool, running);
    QFETCH(int, timeoutMs);
    QFETCH(bool, expected);
    QFETCH(int, checks);
    QFETCH(int, minSleptMs);

    TargetProcess target;
    QVERIFY2(target.start(QStringLiteral("Brisvane")), qPrintable(target.error()));
    const qint64 pid = target.pid();
    if (!running)
        target.stop();

    BvTest::MessageCapture capture;
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(CProcess::waitForProcessFinished(pid, timeoutMs), expected);
    QVERIFY(timer.elapsed() >= minSleptMs);
    const QString probe = QStringLiteral("isProcessRunning: kill pid:%1 signal:0 ").arg(pid);
    QCOMPARE(lines(capture, QtDebugMsg).filter(probe).size(), checks);
}

BV_TEST_MAIN_WITH_CHILD(tst_CProcess, QCoreApplication)
#include "tst_cprocess.moc"
