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

#include <csignal>
#include <unistd.h>

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

bool writeFile(const QString &path, const QByteArray &data)
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly)
        && file.write(data) == data.size();
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(unreadable)");
}

// Every file below `dir` by relative path, with its contents.
QMap<QString, QByteArray> snapshot(const QString &dir)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(dir, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        files.insert(path.mid(dir.size()), readAll(path));
    }
    return files;
}

} // namespace

void tst_UninstallE2e::initTestCase()
{
    for (const char *tool : {"Xvfb", "xdotool"})
        if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
            QSKIP("Xvfb or xdotool is not installed (tools/install-deps installs them)");
    if (::geteuid() != 0)
        QSKIP("The privileged step asks polkit for a password when not run as root");

    // -displayfd picks a free display and writes its number once the server is ready.
    m_Xvfb.start(QStringLiteral("Xvfb"),
        QProcess::splitCommand(QStringLiteral("-displayfd 1 -screen 0 640x480x24 -nolisten tcp")));
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
    QTest::addColumn<QString>("variant");

    // clang-format off
    QTest::newRow("plain installation") << "Applications" << "";
    QTest::newRow("product folder holds more than the bundle") << "Applications" << "extra entry";
    QTest::newRow("hostile folder name") << "Apps \"x\" 'y' $(touch PWNED) `touch PWNED` ; touch PWNED \\\n$HOME ${IFS}&& touch PWNED|" << "";
    QTest::newRow("key file cannot be read") << "Applications" << "unreadable key";
    QTest::newRow("product ignores SIGTERM") << "Applications" << "stubborn product";
    // clang-format on
}

void tst_UninstallE2e::run()
{
    QFETCH(QString, applications);
    QFETCH(QString, variant);
    const bool succeeds = variant != QLatin1String("unreadable key")
        && variant != QLatin1String("stubborn product");

    QTemporaryDir sandbox(QDir::homePath() + QStringLiteral("/../run-XXXXXX"));
    QVERIFY2(sandbox.isValid(), qPrintable(sandbox.errorString()));
    const QString root = QFileInfo(sandbox.path()).canonicalFilePath();
    const QString home = root + QStringLiteral("/home");
    const QString apps = root + '/' + applications;
    const QString product = apps + QStringLiteral("/Brisvane");
    const QString macOS = product + QStringLiteral("/Brisvane.app/Contents/MacOS");

    // The installation: the staged tree, hard-linked (the copy is removed, the staged
    // files stay), and the user's files, plus canaries that must survive whatever happens.
    QVERIFY(QDir().mkpath(apps) && QDir().mkpath(home + "/Documents"));
    QCOMPARE(QProcess::execute(QStringLiteral("cp"), {"-al", BV_STAGE_PRODUCT_DIR, apps}), 0);
    if (variant == QLatin1String("extra entry"))
        QVERIFY(writeFile(product + "/Notes.txt", "the user's own notes"));
    QVERIFY(writeFile(apps + "/Other/keep.txt", "canary")
        && writeFile(home + "/.config/other/keep.conf", "canary")
        && writeFile(home + "/.bv2/pss/id.key", "first key")
        && writeFile(home + "/.bv2/pss/nested/deep.key", QByteArray(70000, 'd'))
        && writeFile(home + "/.bv2/server_access_keys/server.key", "second key")
        && writeFile(home + "/.bv2/cache/index.db", "cache")
        && writeFile(home + "/.config/Brisvane/Brisvane.conf", "[General]\n"));
    const QMap<QString, QByteArray> keys1 = snapshot(home + "/.bv2/pss");
    const QMap<QString, QByteArray> keys2 = snapshot(home + "/.bv2/server_access_keys");

    // The uninstaller stops the first process called Brisvane it finds: it must be ours.
    QTRY_VERIFY2_WITH_TIMEOUT(QProcess::execute("pgrep", {"-x", "Brisvane"}) == 1,
        "another process called Brisvane is running; the uninstaller would stop it", 60000);
    // A shell starts the product and waits for it, so that it is reaped as soon as it
    // ends (as the system does for a real product); a zombie would still answer signal 0.
    QString productProgram = macOS + QStringLiteral("/Brisvane");
    QString trap;
    if (variant == QLatin1String("stubborn product")) {
        productProgram = root + QStringLiteral("/Brisvane");
        QVERIFY(QFile::copy(QStandardPaths::findExecutable("sleep"), productProgram));
        trap = QStringLiteral("trap '' TERM; ");
    }
    QProcess productShell;
    productShell.start("/bin/sh", {"-c", trap + "\"$0\" 300 & echo $!; wait", productProgram});
    QVERIFY(productShell.waitForReadyRead(5000));
    const pid_t productPid = productShell.readLine().trimmed().toInt();
    QTRY_COMPARE(readAll(QStringLiteral("/proc/%1/comm").arg(productPid)), "Brisvane\n");
    auto stopProduct = qScopeGuard([&productShell, productPid] {
        ::kill(productPid, SIGKILL);
        productShell.waitForFinished();
    });

    QProcess uninstaller;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("HOME", home);
    env.insert("XDG_CONFIG_HOME", home + "/.config");
    env.insert("XDG_CACHE_HOME", home + "/.cache");
    env.insert("BV_SANDBOX", root);
    env.insert("PATH", BV_SOURCE_DIR "/tools/sandbox-bin:" + env.value("PATH"));
    env.insert("DISPLAY", m_Display);
    env.insert("QT_QPA_PLATFORM", "xcb");
    env.insert("LC_ALL", "C");
    if (variant == QLatin1String("unreadable key")) {
        // Root reads everything: the read error comes from the fault injector. In the
        // sanitized build the sanitizer runtime is not preloaded ahead of it (it would be
        // inherited by ps and the other plain tools); it is told to accept that instead.
        env.insert("LD_PRELOAD", BV_FAULTINJECT);
        env.insert("ASAN_OPTIONS", env.value("ASAN_OPTIONS") + ":verify_asan_link_order=0");
        env.insert("BV_FAULT_READ", "deep.key");
    }
    uninstaller.setProcessEnvironment(env);
    uninstaller.setWorkingDirectory(root);
    uninstaller.start(macOS + QStringLiteral("/UnInstallerMac"), {});
    QVERIFY(uninstaller.waitForStarted());
    auto stopUninstaller = qScopeGuard([&uninstaller] {
        uninstaller.kill();
        uninstaller.waitForFinished();
    });

    // Clicks at places in the fixed-size window: Uninstall, then Cancel (after a failure)
    // or Close (after success), which share a place, until one takes; clicks on a
    // disabled button are lost.
    QProcess xdotool;
    const QString click = QStringLiteral(
        "search --sync --onlyvisible --name \"^Brisvane Uninstaller$\" mousemove --window %1 ");
    xdotool.start("xdotool", QProcess::splitCommand(click + "250 312 click 1"));
    QVERIFY2(xdotool.waitForFinished(20000), uninstaller.readAllStandardError().constData());
    QElapsedTimer timer;
    timer.start();
    while (uninstaller.state() != QProcess::NotRunning && timer.elapsed() < 60000) {
        xdotool.start("xdotool", QProcess::splitCommand(click + "352 312 click 1"));
        xdotool.waitForFinished(10000);
        uninstaller.waitForFinished(500);
    }
    const QByteArray log = uninstaller.readAllStandardError();
    QVERIFY2(uninstaller.state() == QProcess::NotRunning, log.right(3000).constData());
    QCOMPARE(uninstaller.exitStatus(), QProcess::NormalExit);
    QCOMPARE(uninstaller.exitCode(), 0);

    // Nothing ran that the folder name smuggled in, and the canaries are untouched.
    QVERIFY(!QDirIterator(root, {"PWNED"}, QDir::AllEntries | QDir::Hidden | QDir::System,
        QDirIterator::Subdirectories)
                 .hasNext());
    QCOMPARE(readAll(apps + "/Other/keep.txt") + readAll(home + "/.config/other/keep.conf"),
        "canarycanary");
    const QByteArray privileged = readAll(root + "/privileged.log");
    const bool productRunning = ::kill(productPid, 0) == 0;
    if (!succeeds) {
        QCOMPARE(productRunning, variant == QLatin1String("stubborn product"));
        QCOMPARE(snapshot(home + "/.bv2/pss"), keys1);
        QCOMPARE(snapshot(home + "/.bv2/server_access_keys"), keys2);
        QVERIFY(QFileInfo::exists(home + "/.bv2/cache/index.db")
            && QFileInfo::exists(home + "/.config/Brisvane/Brisvane.conf")
            && QFileInfo::exists(macOS + "/UnInstallerMac"));
        QCOMPARE(privileged + readAll(root + "/browser.log"), "(unreadable)(unreadable)");
        return;
    }

    QVERIFY2(!productRunning, "the product was not stopped");
    // The browser is started detached: give it a moment to write down its address.
    QTRY_COMPARE_WITH_TIMEOUT(readAll(root + "/browser.log"),
        "https://www.brisvane.com/redirector.php?lang=en&page=uninstall\n", 5000);
    QVERIFY(!QFileInfo::exists(home + "/.bv2") && !QFileInfo::exists(home + "/.config/Brisvane"));
    if (variant == QLatin1String("extra entry")) {
        QVERIFY(!QFileInfo::exists(product + "/Brisvane.app"));
        QCOMPARE(readAll(product + "/Notes.txt"), "the user's own notes");
    } else {
        QVERIFY(!QFileInfo::exists(product));
    }
    const QDir documents(home + "/Documents");
    const QStringList backups = documents.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    QCOMPARE(backups.size(), 2);
    QVERIFY(backups.at(0).startsWith("pss_") && backups.at(1).startsWith("server_access_keys_"));
    QCOMPARE(snapshot(documents.filePath(backups.at(0))), keys1);
    QCOMPARE(snapshot(documents.filePath(backups.at(1))), keys2);
    // The script named the machine-wide folder too; the stand-in refused it, and only it.
    QVERIFY2(privileged.contains("refused: rm -rf /Library/Application\\ Support/Brisvane "
                                 "(outside the sandbox)"),
        privileged.constData());
    QCOMPARE(privileged.count("refused:"), 1);
}

QTEST_GUILESS_MAIN(tst_UninstallE2e)
#include "tst_uninstall_e2e.moc"
