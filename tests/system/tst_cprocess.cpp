#include "system/CProcess.h"

#include "BvTestSupport.h"

#include <QElapsedTimer>
#include <QScopeGuard>

#include <csignal>

#include <pwd.h>
#include <unistd.h>

namespace {
// A `sleep` whose shell reaps it the moment it ends, so that it never lingers as a zombie.
class Sleeper
{
public:
    explicit Sleeper(bool ignoreTerm)
    {
        const QString trap = ignoreTerm ? QStringLiteral("trap '' TERM; ") : QString();
        m_Shell.start(QStringLiteral("/bin/bash"), {"-c", trap + "sleep 30 & echo $!; wait"});
        if (m_Shell.waitForReadyRead(10000))
            pid = m_Shell.readLine().trimmed().toLongLong();
    }
    ~Sleeper()
    {
        if (pid > 0)
            ::kill(pid_t(pid), SIGKILL);
        m_Shell.waitForFinished();
    }
    qint64 pid = 0;

private:
    QProcess m_Shell;
};
} // namespace

class tst_CProcess : public QObject
{
    Q_OBJECT

private slots:
    // What findProcess() makes of the listing of a stand-in `ps`.
    void findEveryInstanceOfTheUser()
    {
        const QByteArray path = qgetenv("PATH");
        const auto restorePath = qScopeGuard([&path] { qputenv("PATH", path); });
        qputenv("PATH", QFile::encodeName(QFINDTESTDATA("fakeps")) + ':' + path);
        qputenv("BV_PS_OUTPUT",
            "  300 bob      Brisvane Agent\n   12 bob      Other\n    5 root     Brisvane Agent\n"
            "    7 bob      Brisvane  Agent\n");
        QList<qint64> found {-1};
        QVERIFY(CProcess::findProcess(QStringLiteral("Brisvane Agent"), found, "bob"));
        QCOMPARE(found, QList<qint64>({-1, 300, 7}));
    }

    // stopProcess() asks, it does not force: a process that ignores the request is still
    // there when a wait of half a second, polled every 100 ms, gives up.
    void stopIsARequest()
    {
        Sleeper target(true);
        QVERIFY(target.pid > 0);
        QVERIFY(CProcess::stopProcess(target.pid));
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!CProcess::waitForProcessFinished(target.pid, 500));
        QVERIFY(timer.elapsed() >= 400);
    }

    // In a child. "nobody": somebody else's process answers the probe with EPERM, it is
    // alive all the same. "group 0": id 0 is no process; signalled all the same, it would
    // end the child's own process group.
    void inChild_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::newRow("probe as nobody") << "nobody";
        QTest::newRow("stop id 0") << "group 0";
    }

    void inChild()
    {
        QFETCH(QString, mode);
        if (mode == "nobody" && ::geteuid() != 0)
            QSKIP("needs root to become nobody");
        const BvTest::ChildResult child = BvTest::runChild(mode);
        QVERIFY2(child.status == QProcess::NormalExit && child.exitCode == 0,
            child.standardError.constData());
    }
};

static int childMain(const QByteArray &mode)
{
    if (mode == "group 0") {
        ::setpgid(0, 0);
        return CProcess::stopProcess(0) ? 1 : 0;
    }
    const pid_t parent = ::getppid(); // runs as root
    const passwd *nobody = ::getpwnam("nobody");
    if (!nobody || ::setgid(nobody->pw_gid) != 0 || ::setuid(nobody->pw_uid) != 0)
        return 2;
    return CProcess::isProcessRunning(parent) ? 0 : 1;
}

BV_TEST_MAIN_WITH_CHILD(tst_CProcess, QCoreApplication)
#include "tst_cprocess.moc"
