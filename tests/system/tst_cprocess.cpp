#include "system/CProcess.h"

#include "BvTestSupport.h"
#include "LogLines.h"
#include "TargetProcess.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTimer>

#include <csignal>

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

class tst_CProcess : public QObject
{
    Q_OBJECT

private slots:
    void stopNonPositive();
    void stopAndWait_data();
    void stopAndWait();
    void isProcessRunning_data();
    void isProcessRunning();
    void probeOtherUsersProcess();
    void idOutOfRange();
    void findProcess();
    void parseFindOutput_data();
    void parseFindOutput();
    void parseProbeOutput_data();
    void parseProbeOutput();
    void waitModes_data();
    void waitModes();
    void eventsRunDuringWait();
    void startProcess();
    void startProcessDetached();
};

namespace {

QString currentUser()
{
    const passwd *entry = ::getpwuid(::geteuid());
    return entry ? QString::fromLocal8Bit(entry->pw_name) : QString::number(::geteuid());
}

// Lines logged by the probe of `pid`: one per liveness check.
int probeCount(const BvTest::MessageCapture &capture, qint64 pid)
{
    const QString probe = QStringLiteral("] kill pid:%1 signal:0 returned").arg(pid);
    int count = 0;
    for (const QString &message : capture.messages())
        count += message.contains(probe) ? 1 : 0;
    return count;
}

QStringList lines(const BvTest::MessageCapture &capture, QtMsgType type)
{
    return logLines(capture, type, QStringLiteral("CProcess_unix"));
}

QString psAssert(const char *condition)
{
    return QStringLiteral("ASSERT: \"%1\" in file src/system/CProcess_unix, line N")
        .arg(QLatin1String(condition));
}

// Puts a `ps` that prints canned output first on the PATH while it lives, and keeps
// the arguments it was called with.
class FakePs
{
public:
    explicit FakePs(const QByteArray &output)
        : m_OldPath(qgetenv("PATH"))
    {
        QVERIFY2(m_Dir.isValid(), qPrintable(m_Dir.errorString()));
        QFile canned(m_Dir.filePath(QStringLiteral("output")));
        QVERIFY(canned.open(QIODevice::WriteOnly));
        canned.write(output);
        canned.close();
        QFile script(m_Dir.filePath(QStringLiteral("ps")));
        QVERIFY(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\nprintf '%s\\n' \"$*\" > '" + m_Dir.filePath("args").toLocal8Bit()
            + "'\ncat '" + canned.fileName().toLocal8Bit() + "'\n");
        script.close();
        QVERIFY(script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        qputenv("PATH", m_Dir.path().toLocal8Bit() + ':' + m_OldPath);
    }
    ~FakePs() { qputenv("PATH", m_OldPath); }

    QByteArray arguments() const
    {
        QFile file(m_Dir.filePath(QStringLiteral("args")));
        return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray("<not run>");
    }

private:
    QTemporaryDir m_Dir;
    QByteArray m_OldPath;
};

// A pid that belonged to a target which has ended and been reaped.
qint64 vanishedPid()
{
    TargetProcess target;
    if (!target.start(QStringLiteral("Brisvane")))
        return 0;
    const qint64 pid = target.pid();
    target.stop();
    return pid;
}

} // namespace

// Runs in a child of its own process group: if a signal went out for id 0 or -5 despite
// everything, it would land here and not in the test runner.
static int childMain(const QByteArray &mode)
{
    if (mode == "stop-nonpositive") {
        ::setpgid(0, 0);
        static volatile sig_atomic_t received = 0;
        struct sigaction action = {};
        action.sa_handler = [](int) {
            received = received + 1;
        };
        ::sigaction(SIGTERM, &action, nullptr);
        BvTest::MessageCapture capture;
        const bool zero = CProcess::stopProcess(0);
        const bool negative = CProcess::stopProcess(-5);
        ::usleep(100000);
        if (zero || negative || received != 0 || !capture.messages().isEmpty()) {
            fprintf(stderr, "results %d %d, signals %d, lines %d\n", zero, negative, int(received),
                int(capture.messages().size()));
            return 1;
        }
        return 0;
    }
    if (mode == "probe-as-nobody") {
        const pid_t parent = ::getppid();
        const passwd *nobody = ::getpwnam("nobody");
        if (!nobody || ::setgroups(0, nullptr) != 0 || ::setgid(nobody->pw_gid) != 0
            || ::setuid(nobody->pw_uid) != 0)
            return 2;
        BvTest::MessageCapture capture;
        const bool running = CProcess::isProcessRunning(parent, QString(), QString());
        const QRegularExpression expected(
            QStringLiteral("^isProcessRunning: kill pid:%1 signal:0 returned -1 err: "
                           "Operation not permitted\n"
                           "isProcessRunning: getsid pid:%1 returned \\d+ err: 0$")
                .arg(parent));
        const QString text = lines(capture, QtDebugMsg).join('\n');
        if (!running || !expected.match(text).hasMatch()) {
            fprintf(stderr, "running %d, lines:\n%s\n", running, qPrintable(text));
            return 1;
        }
        return 0;
    }
    return 3;
}

void tst_CProcess::stopNonPositive()
{
    const BvTest::ChildResult child = BvTest::runChild(QStringLiteral("stop-nonpositive"));
    QCOMPARE(child.status, QProcess::NormalExit);
    QVERIFY2(child.exitCode == 0, child.standardError.constData());
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
    QTest::addColumn<QString>("targetUser");
    QTest::addColumn<QString>("processName");
    QTest::addColumn<QString>("userName");
    QTest::addColumn<bool>("expected");

    const QString me = currentUser();
    QTest::newRow("no filters") << "Brisvane" << QString() << QString() << QString() << true;
    QTest::newRow("name") << "Brisvane" << QString() << "Brisvane" << QString() << true;
    QTest::newRow("name is a prefix") << "Brisvane" << QString() << "Brisvan" << QString() << false;
    QTest::newRow("name in other case")
        << "Brisvane" << QString() << "brisvane" << QString() << false;
    QTest::newRow("user") << "Brisvane" << QString() << QString() << me << true;
    QTest::newRow("other user") << "Brisvane" << QString() << QString() << "nobody" << false;
    QTest::newRow("name and user") << "Brisvane" << QString() << "Brisvane" << me << true;
    QTest::newRow("right name, other user") << "Brisvane" << QString() << "Brisvane"
                                            << "nobody" << false;
    QTest::newRow("name with blanks")
        << "Brisvane Agent" << QString() << "Brisvane Agent" << QString() << true;
    QTest::newRow("first word of a name with blanks")
        << "Brisvane Agent" << QString() << "Brisvane" << QString() << false;
    QTest::newRow("target of another user") << "Brisvane"
                                            << "nobody"
                                            << "Brisvane"
                                            << "nobody" << true;
}

void tst_CProcess::isProcessRunning()
{
    QFETCH(QString, targetName);
    QFETCH(QString, targetUser);
    QFETCH(QString, processName);
    QFETCH(QString, userName);
    QFETCH(bool, expected);

    if (!targetUser.isEmpty() && ::geteuid() != 0)
        QSKIP("starting a process as another user needs root");
    TargetProcess target;
    QVERIFY2(target.start(targetName, {}, targetUser), qPrintable(target.error()));

    BvTest::MessageCapture capture;
    QCOMPARE(CProcess::isProcessRunning(target.pid(), processName, userName), expected);
    QCOMPARE(lines(capture, QtCriticalMsg), QStringList());
}

void tst_CProcess::probeOtherUsersProcess()
{
    if (::geteuid() != 0)
        QSKIP("the probe runs as nobody against this root process");
    const BvTest::ChildResult child = BvTest::runChild(QStringLiteral("probe-as-nobody"));
    QCOMPARE(child.status, QProcess::NormalExit);
    QVERIFY2(child.exitCode == 0, child.standardError.constData());
}

void tst_CProcess::idOutOfRange()
{
    // Cut down to 32 bits this would be our own id, which is alive.
    const qint64 wrapped = (qint64(1) << 32) + QCoreApplication::applicationPid();
    BvTest::MessageCapture capture;
    QVERIFY(!CProcess::isProcessRunning(wrapped));
    QVERIFY(capture.messages().isEmpty());
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

    QList<qint64> pids {-42};
    QVERIFY(CProcess::findProcess(name, pids, QString(), QString()));
    QCOMPARE(pids.size(), 3);
    QCOMPARE(pids.first(), qint64(-42));
    QCOMPARE((QSet<qint64> {pids.at(1), pids.at(2)}), (QSet<qint64> {mine.pid(), nobodys.pid()}));

    pids.clear();
    QVERIFY(CProcess::findProcess(name, pids, QStringLiteral("nobody"), QString()));
    QCOMPARE(pids, QList<qint64> {nobodys.pid()});

    pids.clear();
    QVERIFY(CProcess::findProcess(blankName, pids, QString(), QString()));
    QCOMPARE(pids, QList<qint64> {blank.pid()});

    pids = {7};
    QVERIFY(!CProcess::findProcess(name + QStringLiteral("x"), pids, QString(), QString()));
    QVERIFY(!CProcess::findProcess(QString(), pids, QString(), QString()));
    QCOMPARE(pids, QList<qint64> {7});
}

void tst_CProcess::parseFindOutput_data()
{
    QTest::addColumn<QByteArray>("psOutput");
    QTest::addColumn<QString>("userName");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<QList<qint64>>("pids");
    QTest::addColumn<QStringList>("assertions");

    const QByteArray listing = "  300 root     Brisvane\n   12 bob      Other\n"
                               "    7 bob      Brisvane\n   44 bob      Brisvane Agent\n";
    QTest::newRow("order of the listing")
        << listing << QString() << true << QList<qint64> {-1, 300, 7} << QStringList();
    QTest::newRow("one user") << listing << "bob" << true << QList<qint64> {-1, 7} << QStringList();
    QTest::newRow("user nobody has")
        << listing << "alice" << false << QList<qint64> {-1} << QStringList();
    QTest::newRow("too few fields ends the search")
        << QByteArray("5 root Brisvane\n6 root\n7 root Brisvane\n") << QString() << false
        << QList<qint64> {-1, 5} << QStringList {psAssert("tmp.split(' ').size() >= 3")};
    QTest::newRow("unparsable pid still counts as found")
        << QByteArray("x5 root Brisvane\n6 root Brisvane\n") << QString() << true
        << QList<qint64> {-1, 6} << QStringList {psAssert("ok")};
    QTest::newRow("only an unparsable pid") << QByteArray("5x root Brisvane\n") << QString() << true
                                            << QList<qint64> {-1} << QStringList {psAssert("ok")};
    QTest::newRow("empty") << QByteArray() << QString() << false << QList<qint64> {-1}
                           << QStringList();
    QTest::newRow("blanks only") << QByteArray(" \n\t\n") << QString() << false
                                 << QList<qint64> {-1} << QStringList();
}

void tst_CProcess::parseFindOutput()
{
    QFETCH(QByteArray, psOutput);
    QFETCH(QString, userName);
    QFETCH(bool, expected);
    QFETCH(QList<qint64>, pids);
    QFETCH(QStringList, assertions);

    FakePs ps(psOutput);
    BvTest::MessageCapture capture;
    QList<qint64> found {-1};
    QCOMPARE(
        CProcess::findProcess(QStringLiteral("Brisvane"), found, userName, QString()), expected);
    QCOMPARE(found, pids);
    QCOMPARE(lines(capture, QtCriticalMsg), assertions);
    QCOMPARE(ps.arguments(), QByteArray("-axc -o pid= -o user= -o comm="));
}

void tst_CProcess::parseProbeOutput_data()
{
    QTest::addColumn<QByteArray>("psOutput");
    QTest::addColumn<QString>("processName");
    QTest::addColumn<QString>("userName");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<QStringList>("assertions");

    QTest::newRow("name and user") << QByteArray("root     Brisvane\n") << "Brisvane"
                                   << "root" << true << QStringList();
    QTest::newRow("blanks collapsed") << QByteArray("  root \t Brisvane   Agent \n")
                                      << "Brisvane Agent" << QString() << true << QStringList();
    QTest::newRow("user differs") << QByteArray("root Brisvane\n") << "Brisvane"
                                  << "bob" << false << QStringList();
    QTest::newRow("no such process")
        << QByteArray("\n") << "Brisvane" << QString() << false << QStringList();
    QTest::newRow("too few fields") << QByteArray("root\n") << "Brisvane" << QString() << false
                                    << QStringList {psAssert("output.split(' ').size() >= 2")};
}

void tst_CProcess::parseProbeOutput()
{
    QFETCH(QByteArray, psOutput);
    QFETCH(QString, processName);
    QFETCH(QString, userName);
    QFETCH(bool, expected);
    QFETCH(QStringList, assertions);

    FakePs ps(psOutput);
    const qint64 self = QCoreApplication::applicationPid();
    BvTest::MessageCapture capture;
    QCOMPARE(CProcess::isProcessRunning(self, processName, userName), expected);
    QCOMPARE(lines(capture, QtCriticalMsg), assertions);
    QCOMPARE(ps.arguments(), QStringLiteral("-o user= -o comm= -p %1 -c").arg(self).toLatin1());
}

void tst_CProcess::waitModes_data()
{
    QTest::addColumn<bool>("waitForStart");
    QTest::addColumn<bool>("running");
    QTest::addColumn<int>("timeoutMs");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<int>("checks");
    QTest::addColumn<int>("minSleptMs");

    // The zero and endless modes answer "reached?", the polling mode "running?".
    QTest::newRow("finished, polling, running") << false << true << 250 << false << 2 << 200;
    QTest::newRow("finished, polling, gone") << false << false << 250 << true << 1 << 0;
    QTest::newRow("finished, zero, running") << false << true << 0 << true << 1 << 0;
    QTest::newRow("finished, zero, gone") << false << false << 0 << false << 1 << 0;
    QTest::newRow("finished, endless, gone") << false << false << -1 << false << 2 << 100;
    QTest::newRow("finished, below 100 ms") << false << true << 99 << false << 1 << 100;
    QTest::newRow("finished, negative") << false << true << -250 << false << 1 << 100;
    QTest::newRow("started, polling, running") << true << true << 250 << true << 1 << 0;
    QTest::newRow("started, polling, gone") << true << false << 350 << false << 3 << 300;
    QTest::newRow("started, zero, gone") << true << false << 0 << false << 1 << 0;
    QTest::newRow("started, endless, running") << true << true << -1 << true << 2 << 100;
}

void tst_CProcess::waitModes()
{
    QFETCH(bool, waitForStart);
    QFETCH(bool, running);
    QFETCH(int, timeoutMs);
    QFETCH(bool, expected);
    QFETCH(int, checks);
    QFETCH(int, minSleptMs);

    TargetProcess target;
    qint64 pid = 0;
    if (running) {
        QVERIFY2(target.start(QStringLiteral("Brisvane")), qPrintable(target.error()));
        pid = target.pid();
    } else {
        pid = vanishedPid();
        QVERIFY(pid > 0);
    }

    BvTest::MessageCapture capture;
    QElapsedTimer timer;
    timer.start();
    const bool result = waitForStart ? CProcess::waitForProcessStarted(pid, timeoutMs)
                                     : CProcess::waitForProcessFinished(pid, timeoutMs);
    const qint64 elapsed = timer.elapsed();
    QCOMPARE(result, expected);
    QCOMPARE(probeCount(capture, pid), checks);
    QVERIFY2(elapsed >= minSleptMs, qPrintable(QString::number(elapsed)));
    QVERIFY2(elapsed < minSleptMs + 100 + 1000, qPrintable(QString::number(elapsed)));
}

void tst_CProcess::eventsRunDuringWait()
{
    TargetProcess target;
    QVERIFY2(target.start(QStringLiteral("Brisvane")), qPrintable(target.error()));
    bool ran = false;
    QTimer::singleShot(0, this, [&ran] { ran = true; });
    BvTest::MessageCapture capture;
    QVERIFY(!CProcess::waitForProcessFinished(target.pid(), 150));
    QVERIFY(ran);
}

void tst_CProcess::startProcess()
{
    qint64 pid = 77;
    QVERIFY(!CProcess::startProcess(QString(), &pid));
    QCOMPARE(pid, qint64(0));
    pid = 77;
    QVERIFY(!CProcess::startProcess(QStringLiteral("/nonexistent/program"), &pid));
    QCOMPARE(pid, qint64(0));
    QVERIFY(!CProcess::startProcess(QStringLiteral("/nonexistent/program"), nullptr));

    // The child is ended again when the call returns; the toolkit may say so.
    BvTest::MessageCapture capture;
    QVERIFY(CProcess::startProcess(QStringLiteral(BV_PROCESSHELPER),
        {QStringLiteral("--lifetime"), QStringLiteral("0")}, &pid));
    QVERIFY(pid > 0);
    QVERIFY(pid != QCoreApplication::applicationPid());
    QVERIFY(CProcess::startProcess(QStringLiteral(BV_PROCESSHELPER),
        {QStringLiteral("--lifetime"), QStringLiteral("0")}, nullptr));
}

void tst_CProcess::startProcessDetached()
{
    qint64 pid = 77;
    QVERIFY(!CProcess::startProcessDetached(QString(), &pid));
    QCOMPARE(pid, qint64(0));

    QTemporaryDir dir;
    QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
    const QString marker = dir.filePath(QStringLiteral("pwd"));
    QVERIFY(CProcess::startProcessDetached(QStringLiteral("/bin/sh"),
        {QStringLiteral("-c"), QStringLiteral("pwd > '%1'").arg(marker)}, dir.path(), &pid));
    QVERIFY(pid > 0);
    QTRY_VERIFY(QFileInfo(marker).size() > 0);
    QFile file(marker);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromLocal8Bit(file.readAll().trimmed()), dir.path());
}

BV_TEST_MAIN_WITH_CHILD(tst_CProcess, QCoreApplication)
#include "tst_cprocess.moc"
