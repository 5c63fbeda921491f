#include "system/CProcess.h"

#include "LogLines.h"
#include "TargetProcess.h"

#include <QElapsedTimer>
#include <QScopeGuard>

#include <cerrno>

#include <pwd.h>
#include <unistd.h>

namespace {
const QString C_FILE = QStringLiteral("CProcess_unix");

QString psAssert(const char *condition)
{
    return QStringLiteral("ASSERT: \"%1\" in file src/system/CProcess_unix, line N")
        .arg(QLatin1String(condition));
}

QString me()
{
    return QString::fromLocal8Bit(::getpwuid(::geteuid())->pw_name);
}
} // namespace

class tst_CProcess : public QObject
{
    Q_OBJECT

private slots:
    // "probe as nobody" needs root: the child becomes nobody and probes its parent.
    void inChild_data()
    {
        QTest::addColumn<bool>("needsRoot");
        QTest::newRow("stop 0 and -5 send nothing") << false;
        QTest::newRow("probe as nobody") << true;
    }

    void inChild()
    {
        QFETCH(bool, needsRoot);
        if (needsRoot && ::geteuid() != 0)
            QSKIP("needs root");
        const BvTest::ChildResult child
            = BvTest::runChild(QString::fromLatin1(QTest::currentDataTag()));
        QVERIFY2(child.status == QProcess::NormalExit && child.exitCode == 0,
            child.standardError.constData());
    }

    // The real ps, with a name of our own so processes of tests running in parallel cannot
    // match; the stand-in ps below covers the parsing.
    void findProcess()
    {
        const QString name = QStringLiteral("Bv %1").arg(QCoreApplication::applicationPid());
        TargetProcess target;
        QVERIFY2(target.start(name), qPrintable(target.error()));
        QList<qint64> pids;
        QVERIFY(CProcess::findProcess(name, pids, me()));
        QCOMPARE(pids, QList<qint64> {target.pid()});
        QVERIFY(!CProcess::findProcess(name, pids, QStringLiteral("nobody")));
        QVERIFY(CProcess::isProcessRunning(target.pid(), name, me()));
        QVERIFY(!CProcess::isProcessRunning(target.pid(), name, QStringLiteral("nobody")));
    }

    // What findProcess() (or, for probe rows, isProcessRunning() of this process) makes of
    // the listing of a stand-in `ps`.
    void parsePs_data()
    {
        QTest::addColumn<QByteArray>("psOutput");
        QTest::addColumn<bool>("probe");
        QTest::addColumn<QString>("userName");
        QTest::addColumn<bool>("expected");
        QTest::addColumn<QList<qint64>>("pids");
        QTest::addColumn<QStringList>("assertions");
        const QByteArray listing = "  300 root     Brisvane Agent\n   12 bob      Other\n    7 bob "
                                   "     Brisvane  Agent\n   44 bob      Brisvane\n";
        // clang-format off
    QTest::newRow("appended in the order of the listing") << listing << false << QString() << true << QList<qint64> {-1, 300, 7} << QStringList();
    QTest::newRow("one user") << listing << false << "bob" << true << QList<qint64> {-1, 7} << QStringList();
    QTest::newRow("user nobody has") << listing << false << "alice" << false << QList<qint64> {-1} << QStringList();
    QTest::newRow("blanks only") << QByteArray(" \n\t\n") << false << QString() << false << QList<qint64> {-1} << QStringList();
    QTest::newRow("too few fields end the search") << QByteArray("5 root Brisvane Agent\n6 root\n7 root Brisvane Agent\n") << false << QString() << false << QList<qint64> {-1, 5} << QStringList {psAssert("tmp.split(' ').size() >= 3")};
    QTest::newRow("unparsable pid skipped") << QByteArray("x5 root Brisvane Agent\n6 root Brisvane Agent\n") << false << QString() << true << QList<qint64> {-1, 6} << QStringList {psAssert("ok")};
    QTest::newRow("unparsable pid still found") << QByteArray("5x root Brisvane Agent\n") << false << QString() << true << QList<qint64> {-1} << QStringList {psAssert("ok")};
    QTest::newRow("probe: name and user") << QByteArray("  root \t Brisvane   Agent \n") << true << "root" << true << QList<qint64> {-1} << QStringList();
    QTest::newRow("probe: first word of the name") << QByteArray("root Brisvane\n") << true << QString() << false << QList<qint64> {-1} << QStringList();
    QTest::newRow("probe: longer name") << QByteArray("root Brisvane Agents\n") << true << QString() << false << QList<qint64> {-1} << QStringList();
    QTest::newRow("probe: name in other case") << QByteArray("root brisvane agent\n") << true << QString() << false << QList<qint64> {-1} << QStringList();
    QTest::newRow("probe: other user") << QByteArray("root Brisvane Agent\n") << true << "bob" << false << QList<qint64> {-1} << QStringList();
    QTest::newRow("probe: too few fields") << QByteArray("root\n") << true << QString() << false << QList<qint64> {-1} << QStringList {psAssert("output.split(' ').size() >= 2")};
        // clang-format on
    }

    void parsePs()
    {
        QFETCH(QByteArray, psOutput);
        QFETCH(bool, probe);
        QFETCH(QString, userName);
        QFETCH(bool, expected);
        QFETCH(QList<qint64>, pids);
        QFETCH(QStringList, assertions);
        const QByteArray path = qgetenv("PATH");
        const auto restorePath = qScopeGuard([&path] { qputenv("PATH", path); });
        qputenv("PATH", QFile::encodeName(QFINDTESTDATA("fakeps")) + ':' + path);
        qputenv("BV_PS_OUTPUT", psOutput);
        BvTest::MessageCapture capture;
        QList<qint64> found {-1};
        const QString name = QStringLiteral("Brisvane Agent");
        QCOMPARE(probe
                ? CProcess::isProcessRunning(QCoreApplication::applicationPid(), name, userName)
                : CProcess::findProcess(name, found, userName),
            expected);
        QCOMPARE(found, pids);
        QCOMPARE(logLines(capture, QtCriticalMsg, C_FILE), assertions);
    }

    void waitForProcessFinished_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("before");
        QTest::addColumn<int>("timeoutMs");
        QTest::addColumn<bool>("expected");
        QTest::addColumn<int>("checks");
        QTest::addColumn<int>("minSleptMs");
        // Timeouts 0 and -1 answer "reached?", a positive one "gone?". -1 checks: any number.
        // clang-format off
    QTest::newRow("ends on SIGTERM") << QStringList() << "stop" << 5000 << true << -1 << 0;
    QTest::newRow("ignores SIGTERM") << QStringList {"--ignore-term"} << "stop" << 500 << false << 5 << 500;
    QTest::newRow("250 ms, running") << QStringList() << "" << 250 << false << 2 << 200;
    QTest::newRow("250 ms, gone") << QStringList() << "kill" << 250 << true << 1 << 0;
    QTest::newRow("below 100 ms, running") << QStringList() << "" << 99 << false << 1 << 100;
    QTest::newRow("zero, running") << QStringList() << "" << 0 << true << 1 << 0;
    QTest::newRow("zero, gone") << QStringList() << "kill" << 0 << false << 1 << 0;
    QTest::newRow("endless, gone") << QStringList() << "kill" << -1 << false << 2 << 100;
        // clang-format on
    }

    void waitForProcessFinished()
    {
        QFETCH(QStringList, options);
        QFETCH(QString, before);
        QFETCH(int, timeoutMs);
        QFETCH(bool, expected);
        QFETCH(int, checks);
        QFETCH(int, minSleptMs);
        TargetProcess target;
        QVERIFY2(target.start(QStringLiteral("Brisvane"), options), qPrintable(target.error()));
        const qint64 pid = target.pid();
        BvTest::MessageCapture capture;
        if (before == "kill")
            target.stop();
        else if (before == "stop")
            QVERIFY(CProcess::stopProcess(pid));
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(CProcess::waitForProcessFinished(pid, timeoutMs), expected);
        QVERIFY(timer.elapsed() >= minSleptMs);
        QStringList log = logLines(capture, QtDebugMsg, C_FILE);
        if (before == "stop")
            QCOMPARE(log.takeFirst(),
                QStringLiteral("stopProcess: kill pid:%1 signal:15 returned 0 err: 0").arg(pid));
        const QString probe = QStringLiteral("isProcessRunning: kill pid:%1 signal:0 ").arg(pid);
        QCOMPARE(log.filter(probe).size(), checks < 0 ? log.size() : checks);
    }
};

static int childMain(const QByteArray &mode)
{
    if (mode == "probe as nobody") {
        // Our parent runs as root: kill() fails with EPERM, which still means "alive".
        const pid_t parent = ::getppid();
        const passwd *nobody = ::getpwnam("nobody");
        if (!nobody || ::setgid(nobody->pw_gid) != 0 || ::setuid(nobody->pw_uid) != 0)
            return 2;
        BvTest::MessageCapture capture;
        if (!CProcess::isProcessRunning(parent))
            return 1;
        // getsid() succeeds and leaves errno alone: the line carries the probe's EPERM.
        const QString expected
            = QStringLiteral("isProcessRunning: getsid pid:%1 returned %2 err: %3")
                  .arg(parent)
                  .arg(::getsid(parent))
                  .arg(EPERM);
        return logLines(capture, QtDebugMsg, C_FILE).contains(expected) ? 0 : 3;
    }
    // In a process group of its own, a signal sent for id 0 or -5 despite everything ends
    // this child and not the test runner.
    ::setpgid(0, 0);
    BvTest::MessageCapture capture;
    const bool sent = CProcess::stopProcess(0) || CProcess::stopProcess(-5);
    ::usleep(100000);
    return sent || !capture.messages().isEmpty() ? 1 : 0;
}

BV_TEST_MAIN_WITH_CHILD(tst_CProcess, QCoreApplication)
#include "tst_cprocess.moc"
