// The real UnInstallerMac, run from a copy of the staged installation inside a
// throw-away sandbox, in its own X server, with its buttons pressed through xdotool.
//
// The sandbox has its own HOME and puts tools/sandbox-bin first on PATH: the removal
// script runs as root, and those stand-ins let it delete only inside the sandbox (the
// machine-wide paths it names are logged as refused), and record the page the browser
// is asked to open. The program keeps its support log in the sandbox HOME too
// (~/.local/state/Brisvane/Uninstaller.log), which tells the test how far it got.

#include "BvTestSupport.h"

#include <QDirIterator>
#include <QElapsedTimer>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <csignal>
#include <cstddef>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// What a row does beyond installing, starting the product and pressing the buttons.
enum Twist {
    Plain,
    UnreadableKey, // the fault injector keeps deep.key from being read
    Unprivileged, // run by nobody: pkexec cannot ask anybody, which is a declined prompt
    CloseRequest, // the window is asked to close while the product takes its time to stop
};

#ifndef BV_WMDELETE
#define BV_WMDELETE "" // no X11 client library to build it with
#endif

// The unprivileged user, nobody on Debian.
const char C_NOBODY[] = "65534";

} // namespace

class tst_UninstallE2e : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase()
    {
        m_Xvfb.kill();
        m_Xvfb.waitForFinished();
    }
    void run_data();
    void run();

private:
    QProcess m_Xvfb;
    QString m_Display;
};

namespace {

// Runs `script` with -e in the sandbox `root` ("$1" names the folder the product is
// installed in, "$2" the product's pid); answers the trace when it fails, so that it
// names the failing command.
QByteArray sh(const QString &root, const QString &script, const QStringList &arguments)
{
    QProcess shell;
    shell.setWorkingDirectory(root);
    shell.start(QStringLiteral("/bin/sh"), QStringList {"-exc", script, "sh"} + arguments);
    if (shell.waitForFinished(30000) && shell.exitCode() == 0)
        return QByteArray();
    return "failed:\n" + shell.readAllStandardError();
}

// A lock for the whole machine that needs no file: a name in the abstract socket
// namespace, taken by binding it and given back when the socket is closed (also when the
// process dies). ctest's resource locks reach only the tests of one ctest run.
class MachineLock
{
public:
    MachineLock() = default;
    MachineLock(const MachineLock &) = delete;
    MachineLock &operator=(const MachineLock &) = delete;
    ~MachineLock()
    {
        if (m_Fd >= 0)
            ::close(m_Fd);
    }
    bool tryLock()
    {
        if (m_Fd >= 0)
            return true;
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0)
            return false;
        sockaddr_un address {};
        address.sun_family = AF_UNIX;
        static const char name[] = "\0brisvane-uninstaller-e2e-product";
        std::memcpy(address.sun_path, name, sizeof name - 1);
        if (::bind(fd, reinterpret_cast<const sockaddr *>(&address),
                socklen_t(offsetof(sockaddr_un, sun_path) + sizeof name - 1))
            != 0) {
            ::close(fd);
            return false;
        }
        m_Fd = fd;
        return true;
    }

private:
    int m_Fd = -1;
};

// Whether the program's support log holds `fragment` yet.
bool logShows(const QString &log, const QString &fragment)
{
    QFile file(log);
    return file.open(QIODevice::ReadOnly) && file.readAll().contains(fragment.toUtf8());
}

} // namespace

void tst_UninstallE2e::initTestCase()
{
    for (const char *tool : {"Xvfb", "xdotool"})
        if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
            QSKIP("Xvfb or xdotool is not installed (tools/install-deps installs them)");
    if (::geteuid() != 0)
        QSKIP("The privileged step asks polkit for a password when not run as root");

    // -displayfd picks a free display and writes its number once the server is ready. Any
    // local user may connect (-ac): one row runs the program as nobody.
    m_Xvfb.start(QStringLiteral("Xvfb"),
        QProcess::splitCommand(
            QStringLiteral("-displayfd 1 -screen 0 640x480x24 -nolisten tcp -ac")));
    QByteArray number;
    QElapsedTimer timer;
    timer.start();
    while (!number.endsWith('\n') && timer.elapsed() < 15000 && m_Xvfb.waitForReadyRead(500))
        number += m_Xvfb.readAllStandardOutput();
    QVERIFY2(!number.trimmed().isEmpty(), "Xvfb did not start");
    m_Display = QStringLiteral(":") + QString::fromLatin1(number.trimmed());
    qputenv("DISPLAY", m_Display.toLatin1()); // for xdotool
}

void tst_UninstallE2e::run_data()
{
    QTest::addColumn<QString>("applications"); // the folder the product is installed in
    QTest::addColumn<QString>("product"); // starts the running product, in the background
    QTest::addColumn<Twist>("twist");
    QTest::addColumn<QString>("expected"); // checks run in the sandbox once the window is closed

    // clang-format off
    const QString bundled = QStringLiteral("\"$1/Brisvane/Brisvane.app/Contents/MacOS/Brisvane\" 300");
    // Nothing is gone, and the browser was not asked for anything.
    const QString untouched = QStringLiteral(
        "diff -r keys home/.bv2; diff -r config home/.config/Brisvane; [ ! -e privileged.log ];"
        " [ ! -e browser.log ]; [ -x \"$1/Brisvane/Brisvane.app/Contents/MacOS/UnInstallerMac\" ]");
    // Stopped, backed up and removed; the browser is started detached: give it a moment.
    // The script names the machine-wide folder too; the stand-in refuses it, and only it.
    const QString removed = QStringLiteral(
        "[ ! -e /proc/$2 ]; [ ! -e home/.bv2 ]; [ ! -e home/.config/Brisvane ]; [ $(ls home/Documents | wc -l) = 2 ];"
        " diff -r keys/pss home/Documents/pss_*;"
        " diff -r keys/server_access_keys home/Documents/server_access_keys_*;"
        " [ $(grep -c refused: privileged.log) = 1 ];"
        " grep -qxF 'refused: rm -rf /Library/Application\\ Support/Brisvane (outside the sandbox)' privileged.log;"
        " timeout 5 sh -c 'until [ -s browser.log ]; do sleep 0.1; done';"
        " grep -qxF 'https://www.brisvane.com/redirector.php?lang=en&page=uninstall' browser.log; ");
    // A copy of the shell called Brisvane that ends 3 s after it is asked to.
    const QString slowToStop = QStringLiteral(
        "cp /bin/sh Brisvane; ./Brisvane -c 'trap \"sleep 3; exit 0\" TERM; while :; do sleep 0.1; done'");
    QTest::newRow("plain installation") << "Applications" << bundled << Plain << removed + "[ ! -e \"$1/Brisvane\" ]";
    QTest::newRow("product folder holds more than the bundle") << "Applications" << "touch \"$1/Brisvane/Notes.txt\"; " + bundled << Plain
        << removed + "[ ! -e \"$1/Brisvane/Brisvane.app\" ]; [ -f \"$1/Brisvane/Notes.txt\" ]";
    QTest::newRow("hostile folder name") << "Apps \"x\" 'y' $(touch PWNED) `touch PWNED` ; touch PWNED \\\n$HOME ${IFS}&& touch PWNED|"
        << bundled << Plain << removed + "[ ! -e \"$1/Brisvane\" ]";
    QTest::newRow("key file cannot be read") << "Applications" << bundled << UnreadableKey << "[ ! -e /proc/$2 ]; " + untouched;
    QTest::newRow("product ignores SIGTERM") << "Applications" << "trap '' TERM; cp /bin/sleep Brisvane; ./Brisvane 300" << Plain
        << "[ -e /proc/$2 ]; " + untouched;
    // Rights come first: the product was not even asked to stop, and no backup was made.
    QTest::newRow("administrator prompt declined") << "Applications" << bundled << Unprivileged
        << "[ -e /proc/$2 ]; " + untouched + "; [ -z \"$(ls -A home/Documents)\" ];"
           " grep -qF 'acquireRight ] failed to aquire right system.privilege.admin. Err: -60006' home/.local/state/Brisvane/Uninstaller.log";
    // The request is refused; the run goes on to its end as if nothing had been asked.
    QTest::newRow("close request while the product stops") << "Applications" << slowToStop << CloseRequest
        << removed + "[ ! -e \"$1/Brisvane\" ]";
    // clang-format on
}

void tst_UninstallE2e::run()
{
    QFETCH(QString, applications);
    QFETCH(QString, product);
    QFETCH(Twist, twist);
    QFETCH(QString, expected);

    QTemporaryDir sandbox(QDir::homePath() + QStringLiteral("/../run-XXXXXX"));
    QVERIFY2(sandbox.isValid(), qPrintable(sandbox.errorString()));
    const QString root = QFileInfo(sandbox.path()).canonicalFilePath();

    // The installation: the staged tree, hard-linked (the copy is removed, the staged
    // files stay), the user's files and a copy of them to compare with, plus canaries
    // that must survive whatever happens. Everybody may pass through the sandbox (not
    // write in it): an unprivileged run needs to reach its HOME and the program.
    QByteArray failure = sh(root,
        "chmod 755 .; mkdir -m 700 runtime; mkdir -p \"$1/Other\" home/Documents"
        " home/.bv2/pss/nested home/.bv2/server_access_keys home/.config/Brisvane"
        " home/.config/other; cp -al " BV_STAGE_PRODUCT_DIR " \"$1\";"
        " echo canary >\"$1/Other/keep.txt\"; echo canary >home/.config/other/keep.conf;"
        " echo first key >home/.bv2/pss/id.key; head -c 70000 /dev/urandom"
        " >home/.bv2/pss/nested/deep.key; echo second key >home/.bv2/server_access_keys/s.key;"
        " echo cache >home/.bv2/cache.db; echo language=de >home/.config/Brisvane/Brisvane.conf;"
        " cp -a home/.bv2 keys; cp -a home/.config/Brisvane config",
        {applications});
    QVERIFY2(failure.isEmpty(), failure.constData());
    const QString program
        = root + '/' + applications + "/Brisvane/Brisvane.app/Contents/MacOS/UnInstallerMac";
    const QString log = root + "/home/.local/state/Brisvane/Uninstaller.log";

    // Run by nobody, the program owns its HOME; root stays the owner of the rest.
    QStringList command {program};
    if (twist == CloseRequest && QString::fromLatin1(BV_WMDELETE).isEmpty())
        QSKIP("bv_wmdelete was not built (no X11 client library)");
    if (twist == Unprivileged) {
        if (!QFileInfo(QStringLiteral("/usr/bin/pkexec")).isExecutable()
            && !QFileInfo(QStringLiteral("/bin/pkexec")).isExecutable())
            QSKIP("pkexec is not installed: the program cannot ask for administrator rights");
        command = QStringList {"setpriv", QStringLiteral("--reuid=") + C_NOBODY,
                      QStringLiteral("--regid=") + C_NOBODY, "--clear-groups"}
            + command;
        QCOMPARE(sh(root, "chown -R \"$2:$2\" home runtime", {applications, C_NOBODY}), "");
        if (QProcess::execute(
                command.first(), command.mid(1, 3) + QStringList {"test", "-x", program}))
            QSKIP("nobody cannot run the program in the sandbox (a folder above it is closed)");
    }

    // The uninstaller stops the first process called Brisvane it finds: it must be ours.
    // Runs of this test in other build trees on the machine wait for each other's rows.
    MachineLock productLock;
    QTRY_VERIFY2_WITH_TIMEOUT(productLock.tryLock(), "another run holds the product", 180000);
    QTRY_VERIFY2_WITH_TIMEOUT(QProcess::execute("pgrep", {"-x", "Brisvane"}) == 1,
        "another process called Brisvane is running; the uninstaller would stop it", 60000);
    // A shell starts the product and waits for it, so that it is reaped as soon as it
    // ends (as the system does for a real product); a zombie would still answer signal 0.
    QProcess productShell;
    productShell.setWorkingDirectory(root);
    productShell.start("/bin/sh", {"-c", product + " & echo $!; wait", "sh", applications});
    QVERIFY(productShell.waitForReadyRead(5000));
    const QString productPid = QString::fromLatin1(productShell.readLine().trimmed());
    QTRY_COMPARE(sh(root, "grep -qx Brisvane /proc/$2/comm", {applications, productPid}), "");
    auto stopProduct = qScopeGuard([&productShell, productPid] {
        ::kill(productPid.toInt(), SIGKILL);
        productShell.waitForFinished();
    });

    QProcess uninstaller;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("HOME", root + "/home");
    env.insert("XDG_CONFIG_HOME", root + "/home/.config");
    env.insert("XDG_CACHE_HOME", root + "/home/.cache");
    env.insert("XDG_RUNTIME_DIR", root + "/runtime");
    // The support log goes where the program puts it by default: into the HOME.
    env.remove("XDG_STATE_HOME");
    env.insert("BV_SANDBOX", root);
    env.insert("PATH", BV_SOURCE_DIR "/tools/sandbox-bin:" + env.value("PATH"));
    env.insert("QT_QPA_PLATFORM", "xcb");
    env.insert("LC_ALL", "C");
    if (twist == UnreadableKey) {
        // Root reads everything: the read error comes from the fault injector. In the
        // sanitized build the sanitizer runtime is not preloaded ahead of it (it would be
        // inherited by ps and the other plain tools); it is told to accept that instead.
        env.insert("LD_PRELOAD", BV_FAULTINJECT);
        env.insert("ASAN_OPTIONS", env.value("ASAN_OPTIONS") + ":verify_asan_link_order=0");
        env.insert("BV_FAULT_READ", "deep.key");
    }
    uninstaller.setProcessEnvironment(env);
    uninstaller.setWorkingDirectory(root);
    uninstaller.start(command.first(), command.mid(1));
    QVERIFY(uninstaller.waitForStarted());
    auto stopUninstaller = qScopeGuard([&uninstaller] {
        uninstaller.kill();
        uninstaller.waitForFinished();
    });

    // Clicks at places in the fixed-size window: Uninstall, then Cancel (after a failure)
    // or Close (after success), which share a place, until one takes; clicks on a
    // disabled button are lost.
    QProcess xdotool;
    const QString window
        = QStringLiteral("search --onlyvisible --name \"^Brisvane Uninstaller$\" ");
    const QString click = QStringLiteral(
        "search --sync --onlyvisible --name \"^Brisvane Uninstaller$\" mousemove --window %1 ");
    xdotool.start("xdotool", QProcess::splitCommand(click + "250 312 click 1"));
    QVERIFY2(xdotool.waitForFinished(20000), uninstaller.readAllStandardError().constData());
    const auto windowShown = [&xdotool, window] {
        xdotool.start("xdotool", QProcess::splitCommand(window));
        return xdotool.waitForFinished(10000) && xdotool.exitCode() == 0;
    };

    if (twist == CloseRequest) {
        // The product has been asked to stop and takes its time: ask the window to close.
        QTRY_VERIFY2_WITH_TIMEOUT(
            logShows(log, "kill pid:" + productPid + " signal:15 "), qPrintable(log), 20000);
        QVERIFY(windowShown());
        const QString id = QString::fromLatin1(xdotool.readAllStandardOutput().trimmed());
        QCOMPARE(QProcess::execute(BV_WMDELETE, {id}), 0);
        QTest::qWait(500);
        QCOMPARE(sh(root, "[ -e /proc/$2 ]", {applications, productPid}), "");
        QCOMPARE(uninstaller.state(), QProcess::Running);
        QVERIFY(windowShown());
    }

    // The window has dealt with the end of the run: it stays up until told to close.
    QTRY_VERIFY2_WITH_TIMEOUT(
        logShows(log, "Thread ( 1 \"Uninstall\" ) unregistering"), qPrintable(log), 60000);
    QCOMPARE(uninstaller.state(), QProcess::Running);
    QVERIFY(windowShown());

    QElapsedTimer timer;
    timer.start();
    while (uninstaller.state() != QProcess::NotRunning && timer.elapsed() < 60000) {
        xdotool.start("xdotool", QProcess::splitCommand(click + "352 312 click 1"));
        xdotool.waitForFinished(10000);
        uninstaller.waitForFinished(500);
    }
    QVERIFY2(uninstaller.state() == QProcess::NotRunning,
        uninstaller.readAllStandardError().right(3000).constData());
    QCOMPARE(uninstaller.exitStatus(), QProcess::NormalExit);
    QCOMPARE(uninstaller.exitCode(), 0);

    // Nothing ran that the folder name smuggled in, and the canaries are untouched.
    failure = sh(root,
        "[ -z \"$(find . -name PWNED)\" ]; cat \"$1/Other/keep.txt\" home/.config/other/keep.conf"
        " | grep -c canary | grep -qx 2; "
            + expected,
        {applications, productPid});
    QVERIFY2(failure.isEmpty(), failure.constData());
}

QTEST_GUILESS_MAIN(tst_UninstallE2e)
#include "tst_uninstall_e2e.moc"
