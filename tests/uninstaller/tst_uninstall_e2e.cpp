// The real UnInstallerMac, run from a copy of the staged installation inside a
// throw-away sandbox, in its own X server, with its buttons pressed through xdotool.
//
// The sandbox has its own HOME and puts tools/sandbox-bin first on PATH: the removal
// script runs as root, and those stand-ins let it delete only inside the sandbox (the
// machine-wide paths it names are logged as refused), and record the page the browser
// is asked to open.

#include "BvTestSupport.h"

#include <QDirIterator>
#include <QElapsedTimer>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>

#include <csignal>
#include <unistd.h>

class tst_UninstallE2e : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void run_data();
    void run();

private:
    QByteArray xdotool(const QStringList &arguments, int timeoutMs = 10000) const;

    QProcess m_Xvfb;
    QString m_Display;
};

namespace {

// Places of the buttons in the fixed-size window, from its top left corner: the button
// box sits at the right end of the bottom strip, Uninstall left of Cancel; after
// success Close alone takes Cancel's place.
const QStringList uninstallButton {QStringLiteral("250"), QStringLiteral("312")};
const QStringList cancelOrCloseButton {QStringLiteral("352"), QStringLiteral("312")};

const QString uninstallPage
    = QStringLiteral("https://www.brisvane.com/redirector.php?lang=en&page=uninstall");

void writeFile(const QString &path, const QByteArray &data)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(path));
    file.write(data);
}

// Every file below `dir` by relative path, with its contents.
QMap<QString, QByteArray> snapshot(const QString &dir)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(
        dir, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        QFile file(it.next());
        file.open(QIODevice::ReadOnly);
        files.insert(file.fileName().mid(dir.size()), file.readAll());
    }
    return files;
}

QStringList findNamed(const QString &dir, const QString &name)
{
    QStringList found;
    QDirIterator it(dir, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
        QDirIterator::Subdirectories);
    while (it.hasNext())
        if (QFileInfo(it.next()).fileName() == name)
            found << it.filePath();
    return found;
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool waitForComm(qint64 pid, const QByteArray &comm)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 5000) {
        if (readAll(QStringLiteral("/proc/%1/comm").arg(pid)).trimmed() == comm)
            return true;
        QThread::msleep(20);
    }
    return false;
}

// Ids of the processes called Brisvane. The uninstaller stops the first one it finds,
// so a product left running elsewhere on the machine would be stopped instead of ours.
QList<qint64> brisvaneProcesses()
{
    QProcess ps;
    ps.start(QStringLiteral("ps"),
        {QStringLiteral("-axc"), QStringLiteral("-o"), QStringLiteral("pid=,comm=")});
    ps.waitForFinished();
    QList<qint64> pids;
    for (const QByteArray &line : ps.readAllStandardOutput().split('\n')) {
        const QList<QByteArray> fields = line.simplified().split(' ');
        if (fields.size() == 2 && fields.at(1) == "Brisvane")
            pids << fields.at(0).toLongLong();
    }
    return pids;
}

} // namespace

void tst_UninstallE2e::initTestCase()
{
    for (const char *tool : {"Xvfb", "xdotool"})
        if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
            QSKIP(qPrintable(QStringLiteral("%1 is not installed (tools/install-deps installs it)")
                                 .arg(QString::fromLatin1(tool))));
    if (::geteuid() != 0)
        QSKIP("The privileged step asks polkit for a password when not run as root");
    QVERIFY2(QFileInfo(QStringLiteral(BV_STAGE_PRODUCT_DIR "/Brisvane.app/Contents/MacOS/"
                                                           "UnInstallerMac"))
                 .isExecutable(),
        "build the `stage` target first");

    // -displayfd picks a free display and writes its number once the server is ready.
    m_Xvfb.start(QStringLiteral("Xvfb"),
        {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-screen"),
            QStringLiteral("0"), QStringLiteral("640x480x24"), QStringLiteral("-nolisten"),
            QStringLiteral("tcp")});
    QVERIFY(m_Xvfb.waitForStarted());
    QElapsedTimer timer;
    timer.start();
    QByteArray number;
    while (!number.endsWith('\n') && timer.elapsed() < 15000) {
        m_Xvfb.waitForReadyRead(500);
        number += m_Xvfb.readAllStandardOutput();
    }
    QVERIFY2(!number.trimmed().isEmpty(), "Xvfb did not start");
    m_Display = QStringLiteral(":") + QString::fromLatin1(number.trimmed());
}

void tst_UninstallE2e::cleanupTestCase()
{
    if (m_Xvfb.state() != QProcess::NotRunning) {
        m_Xvfb.terminate();
        m_Xvfb.waitForFinished(5000);
    }
}

QByteArray tst_UninstallE2e::xdotool(const QStringList &arguments, int timeoutMs) const
{
    QProcess tool;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DISPLAY"), m_Display);
    tool.setProcessEnvironment(env);
    tool.start(QStringLiteral("xdotool"), arguments);
    if (!tool.waitForFinished(timeoutMs)) {
        tool.kill();
        tool.waitForFinished();
        return QByteArray();
    }
    return tool.readAllStandardOutput().trimmed();
}

void tst_UninstallE2e::run_data()
{
    QTest::addColumn<QString>("applications");
    QTest::addColumn<bool>("extraEntry");
    QTest::addColumn<bool>("stubbornProduct");
    QTest::addColumn<QString>("unreadable");
    QTest::addColumn<bool>("succeeds");

    QTest::newRow("plain installation") << "Applications" << false << false << "" << true;
    QTest::newRow("product folder holds more than the bundle")
        << "Applications" << true << false << "" << true;
    QTest::newRow("folder name with quotes and substitutions")
        << "Apps \"x\" 'y' $(touch PWNED) `touch PWNED` ; touch PWNED \\" << false << false << ""
        << true;
    QTest::newRow("folder name with a line feed and variables")
        << "Apps\n$HOME ${IFS}&& touch PWNED|" << false << false << "" << true;
    QTest::newRow("key file cannot be read")
        << "Applications" << false << false << "deep.key" << false;
    QTest::newRow("product ignores SIGTERM") << "Applications" << false << true << "" << false;
}

void tst_UninstallE2e::run()
{
    QFETCH(QString, applications);
    QFETCH(bool, extraEntry);
    QFETCH(bool, stubbornProduct);
    QFETCH(QString, unreadable);
    QFETCH(bool, succeeds);

    QTemporaryDir sandbox(QDir::homePath() + QStringLiteral("/../run-XXXXXX"));
    QVERIFY2(sandbox.isValid(), qPrintable(sandbox.errorString()));
    const QString root = QFileInfo(sandbox.path()).canonicalFilePath();
    const QString home = root + QStringLiteral("/home");
    const QString apps = root + '/' + applications;
    const QString product = apps + QStringLiteral("/Brisvane");
    const QString macOS = product + QStringLiteral("/Brisvane.app/Contents/MacOS");

    // The installation: the staged tree, hard-linked (the copy is removed, the staged
    // files stay), plus canaries that must survive whatever happens.
    QVERIFY(QDir().mkpath(apps));
    QProcess copy;
    copy.start(QStringLiteral("cp"),
        {QStringLiteral("-al"), QStringLiteral(BV_STAGE_PRODUCT_DIR), apps + '/'});
    QVERIFY(copy.waitForFinished() && copy.exitCode() == 0);
    if (extraEntry)
        writeFile(product + QStringLiteral("/Notes.txt"), "the user's own notes");
    writeFile(apps + QStringLiteral("/Other/keep.txt"), "canary");
    writeFile(root + QStringLiteral("/canary.txt"), "canary");
    QVERIFY(QDir().mkpath(root + QStringLiteral("/cwd")));

    writeFile(home + QStringLiteral("/.bv2/pss/id.key"), "first key");
    writeFile(home + QStringLiteral("/.bv2/pss/nested/deep.key"), QByteArray(70000, 'd'));
    writeFile(home + QStringLiteral("/.bv2/server_access_keys/server.key"), "second key");
    writeFile(home + QStringLiteral("/.bv2/cache/index.db"), "cache");
    writeFile(home + QStringLiteral("/.config/Brisvane/Brisvane.conf"), "[General]\n");
    writeFile(home + QStringLiteral("/.config/other/keep.conf"), "canary");
    QVERIFY(QDir().mkpath(home + QStringLiteral("/Documents")));
    const QMap<QString, QByteArray> keys1 = snapshot(home + QStringLiteral("/.bv2/pss"));
    const QMap<QString, QByteArray> keys2
        = snapshot(home + QStringLiteral("/.bv2/server_access_keys"));

    QTRY_VERIFY2_WITH_TIMEOUT(brisvaneProcesses().isEmpty(),
        "another process called Brisvane is running; the uninstaller would stop it", 15000);

    // The running product. A shell starts it and waits for it, so that it is reaped as
    // soon as it ends (as the system does for a real product); a zombie would still
    // answer signal 0, and the uninstaller would wait for it in vain.
    QString productProgram = macOS + QStringLiteral("/Brisvane");
    QString trap;
    if (stubbornProduct) {
        QVERIFY(QDir().mkpath(root + QStringLiteral("/bin")));
        productProgram = root + QStringLiteral("/bin/Brisvane");
        QVERIFY(
            QFile::copy(QStandardPaths::findExecutable(QStringLiteral("sleep")), productProgram));
        trap = QStringLiteral("trap '' TERM; ");
    }
    QProcess productShell;
    productShell.start(QStringLiteral("/bin/sh"),
        {QStringLiteral("-c"), trap + QStringLiteral("\"$0\" 300 & echo $!; wait"),
            productProgram});
    QVERIFY(productShell.waitForReadyRead(5000));
    const qint64 productPid = productShell.readLine().trimmed().toLongLong();
    QVERIFY(productPid > 0);
    QVERIFY(waitForComm(productPid, "Brisvane"));
    auto stopProduct = qScopeGuard([&productShell, productPid] {
        ::kill(pid_t(productPid), SIGKILL);
        productShell.waitForFinished();
    });
    const auto productRunning = [productPid] {
        return ::kill(pid_t(productPid), 0) == 0;
    };

    QProcess uninstaller;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home);
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/.config"));
    env.insert(QStringLiteral("XDG_CACHE_HOME"), home + QStringLiteral("/.cache"));
    env.insert(QStringLiteral("BV_SANDBOX"), root);
    env.insert(QStringLiteral("PATH"),
        QStringLiteral(BV_SOURCE_DIR "/tools/sandbox-bin:") + env.value(QStringLiteral("PATH")));
    env.insert(QStringLiteral("DISPLAY"), m_Display);
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    env.insert(QStringLiteral("LC_ALL"), QStringLiteral("C"));
    if (!unreadable.isEmpty()) {
        // Root reads everything: the read error comes from the fault injector. In the
        // sanitized build the sanitizer runtime is not preloaded ahead of it (it would be
        // inherited by ps and the other plain tools); it is told to accept that instead.
        env.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(BV_FAULTINJECT));
        env.insert(QStringLiteral("ASAN_OPTIONS"),
            env.value(QStringLiteral("ASAN_OPTIONS"))
                + QStringLiteral(":verify_asan_link_order=0"));
        env.insert(QStringLiteral("BV_FAULT_READ"), unreadable);
    }
    uninstaller.setProcessEnvironment(env);
    uninstaller.setWorkingDirectory(root + QStringLiteral("/cwd"));
    uninstaller.start(macOS + QStringLiteral("/UnInstallerMac"), {});
    QVERIFY(uninstaller.waitForStarted());
    auto stopUninstaller = qScopeGuard([&uninstaller] {
        uninstaller.kill();
        uninstaller.waitForFinished();
    });

    const QByteArray window = xdotool(
        {QStringLiteral("search"), QStringLiteral("--sync"), QStringLiteral("--onlyvisible"),
            QStringLiteral("--name"), QStringLiteral("^Brisvane Uninstaller$")},
        20000)
                                  .split('\n')
                                  .value(0);
    QVERIFY2(!window.isEmpty(), uninstaller.readAllStandardError().constData());
    const QString id = QString::fromLatin1(window);
    xdotool(QStringList {QStringLiteral("mousemove"), QStringLiteral("--window"), id}
        + uninstallButton + QStringList {QStringLiteral("click"), QStringLiteral("1")});

    // Clicks on a disabled button are lost; the run ends when Cancel (after a failure) or
    // Close (after success), which share a place, finally takes a click.
    QElapsedTimer timer;
    timer.start();
    while (uninstaller.state() != QProcess::NotRunning && timer.elapsed() < 60000) {
        xdotool(QStringList {QStringLiteral("mousemove"), QStringLiteral("--window"), id}
            + cancelOrCloseButton + QStringList {QStringLiteral("click"), QStringLiteral("1")});
        uninstaller.waitForFinished(500);
    }
    const QByteArray log = uninstaller.readAllStandardError();
    // Kept for a look after a failure; the sandbox itself goes away.
    writeFile(QDir::homePath() + QStringLiteral("/../last-run.log"), log);
    QVERIFY2(uninstaller.state() == QProcess::NotRunning, log.right(3000).constData());
    QCOMPARE(uninstaller.exitStatus(), QProcess::NormalExit);
    QCOMPARE(uninstaller.exitCode(), 0);

    // Nothing ran that the folder names smuggled in, and the canaries are untouched.
    QCOMPARE(findNamed(root, QStringLiteral("PWNED")), QStringList());
    QCOMPARE(readAll(apps + QStringLiteral("/Other/keep.txt")), QByteArray("canary"));
    QCOMPARE(readAll(root + QStringLiteral("/canary.txt")), QByteArray("canary"));
    QCOMPARE(readAll(home + QStringLiteral("/.config/other/keep.conf")), QByteArray("canary"));
    const QString privileged = QString::fromUtf8(readAll(root + QStringLiteral("/privileged.log")));

    if (!succeeds) {
        QCOMPARE(snapshot(home + QStringLiteral("/.bv2/pss")), keys1);
        QCOMPARE(snapshot(home + QStringLiteral("/.bv2/server_access_keys")), keys2);
        QVERIFY(QFileInfo::exists(home + QStringLiteral("/.bv2/cache/index.db")));
        QVERIFY(QFileInfo::exists(home + QStringLiteral("/.config/Brisvane/Brisvane.conf")));
        QVERIFY(QFileInfo::exists(macOS + QStringLiteral("/UnInstallerMac")));
        QVERIFY(!QFileInfo::exists(root + QStringLiteral("/browser.log")));
        QCOMPARE(privileged, QString());
        QCOMPARE(productRunning(), stubbornProduct);
        return;
    }

    QVERIFY2(!productRunning(), "the product was not stopped");
    // The browser is started detached: give it a moment to write down its address.
    QTRY_COMPARE_WITH_TIMEOUT(
        readAll(root + QStringLiteral("/browser.log")), uninstallPage.toUtf8() + '\n', 5000);
    QVERIFY(!QFileInfo::exists(home + QStringLiteral("/.bv2")));
    QVERIFY(!QFileInfo::exists(home + QStringLiteral("/.config/Brisvane")));
    if (extraEntry) {
        QVERIFY(!QFileInfo::exists(product + QStringLiteral("/Brisvane.app")));
        QCOMPARE(
            readAll(product + QStringLiteral("/Notes.txt")), QByteArray("the user's own notes"));
    } else {
        QVERIFY(!QFileInfo::exists(product));
    }

    const QDir documents(home + QStringLiteral("/Documents"));
    const QStringList backups = documents.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    QCOMPARE(backups.size(), 2);
    QVERIFY(backups.at(0).startsWith(QLatin1String("pss_")));
    QVERIFY(backups.at(1).startsWith(QLatin1String("server_access_keys_")));
    QCOMPARE(snapshot(documents.filePath(backups.at(0))), keys1);
    QCOMPARE(snapshot(documents.filePath(backups.at(1))), keys2);

    // The script named the machine-wide folder too; the stand-in refused it.
    QVERIFY2(privileged.contains(QStringLiteral(
                 "refused: rm -rf /Library/Application\\ Support/Brisvane (outside the sandbox)")),
        qPrintable(privileged));
    QCOMPARE(privileged.count(QStringLiteral("refused:")), 1);
}

QTEST_GUILESS_MAIN(tst_UninstallE2e)
#include "tst_uninstall_e2e.moc"
