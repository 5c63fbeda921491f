// The embedded removal script, run by bash in a sandbox: its absolute paths are moved
// under a temporary root, and launchctl, sudo, sleep and rm are stand-ins on the PATH
// that write down how they were called.

#include "BvTestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace {
const QString C_LOAD = QStringLiteral("/Library/LaunchDaemons/com.brisvane.fseventsdaemon.plist");
const QString C_LOAD_OLD = QStringLiteral("/Library/LaunchDaemons/FSEventsDeamon.plist");
const QString C_APPSUPPORT = QStringLiteral("/Library/Application Support/Brisvane");

bool writeFile(const QString &path, const QByteArray &content, bool executable = false)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size()
        && (!executable || file.setPermissions(file.permissions() | QFile::ExeOwner));
}
} // namespace

class tst_UninstallScript : public QObject
{
    Q_OBJECT

private slots:
    void run_data();
    void run();
};

void tst_UninstallScript::run_data()
{
    QTest::addColumn<QStringList>("present"); // daemon definitions and support folder
    QTest::addColumn<QString>("folder"); // the installation, under the sandbox root
    QTest::addColumn<QString>("how"); // "fill": as the uninstaller; "arg"; "none"
    QTest::addColumn<QString>("failing"); // "launchctl", or an rm target, or empty
    QTest::addColumn<QStringList>("expectedOut"); // "$R" = the sandbox root, "$0" = the script
    QTest::addColumn<QStringList>("expectedCalls");

    const QString app = QStringLiteral("Applications/Brisvane");
    auto unload = [](const QString &plist) {
        return QStringList {"launchctl unload $R" + plist + " 2",
            "sudo launchctl unload $R" + plist + " 2", "launchctl unload $R" + plist + " 2",
            "sleep 1", "rm -f $R" + plist};
    };
    const QStringList tail {"rm -rf $R" + C_APPSUPPORT, "rm -rf $R/" + app};
    const QStringList both = unload(C_LOAD) + unload(C_LOAD_OLD) + tail;
    const QString uninstallFailed = "failed to uninstall $R" + C_LOAD;

    // clang-format off
    QTest::newRow("neither definition") << QStringList {C_APPSUPPORT} << app << "arg" << "" << QStringList {"0"} << tail;
    QTest::newRow("only the old definition") << QStringList {C_LOAD_OLD} << app << "arg" << "" << QStringList {"0"} << unload(C_LOAD_OLD) + tail;
    QTest::newRow("both, filled in") << QStringList {C_LOAD, C_LOAD_OLD, C_APPSUPPORT} << app << "fill" << "" << QStringList {"0"} << both;
    QTest::newRow("unload refused") << QStringList {C_LOAD} << app << "fill" << "launchctl" << QStringList {uninstallFailed, uninstallFailed, "0"} << unload(C_LOAD) + tail;
    QTest::newRow("definition not removable") << QStringList {C_LOAD} << app << "fill" << "$R" + C_LOAD << QStringList {"failed to remove $R" + C_LOAD, "0"} << unload(C_LOAD) + tail;
    QTest::newRow("support folder not removable") << QStringList {C_APPSUPPORT} << app << "fill" << "$R" + C_APPSUPPORT << QStringList {"failed to remove $R" + C_APPSUPPORT, "0"} << tail;
    QTest::newRow("installation not removable") << QStringList() << app << "fill" << "$R/" + app << QStringList {"1"} << tail;
    QTest::newRow("no argument") << QStringList {C_LOAD, C_APPSUPPORT} << app << "none" << "" << QStringList {"usage: $0 <path to Brisvane Installation>", "1"} << QStringList();
    QTest::newRow("blanks, filled in") << QStringList() << "My Apps/Brisvane" << "fill" << "" << QStringList {"0"} << QStringList {tail.first(), "rm -rf $R/My Apps/Brisvane"};
    // clang-format on
}

void tst_UninstallScript::run()
{
    QFETCH(QStringList, present);
    QFETCH(QString, folder);
    QFETCH(QString, how);
    QFETCH(QString, failing);
    QFETCH(QStringList, expectedOut);
    QFETCH(QStringList, expectedCalls);

    QTemporaryDir sandbox;
    QVERIFY2(sandbox.isValid(), qPrintable(sandbox.errorString()));
    const QString root = sandbox.path() + QStringLiteral("/root");
    const QString bin = sandbox.path() + QStringLiteral("/bin");
    const QString log = sandbox.path() + QStringLiteral("/calls.log");
    const QString installation = root + u'/' + folder;
    failing.replace(QLatin1String("$R"), root);

    // The stand-ins write down their calls; rm does the real work unless told to fail.
    const QByteArray standIn
        = "#!/bin/bash\nname=${0##*/}\necho \"$name $*\" >> \"$BV_CALLS\"\n"
          "case $name in\n"
          "sudo) exec \"$@\" ;;\n"
          "launchctl) echo noise; echo noise >&2; [ \"$BV_FAIL\" != launchctl ] ;;\n"
          "rm) for a; do [ \"$a\" = \"$BV_FAIL\" ] && exit 1; done; exec /bin/rm \"$@\" ;;\n"
          "esac\n";
    for (const char *name : {"launchctl", "sudo", "sleep", "rm"})
        QVERIFY(writeFile(bin + u'/' + QLatin1String(name), standIn, true));

    for (const QString &path : present) // the support folder is not empty
        QVERIFY(writeFile(root + path + (path == C_APPSUPPORT ? "/data/settings" : ""), "x"));
    QVERIFY(writeFile(installation + "/Brisvane.app/Contents/MacOS/Brisvane", "x"));

    QFile shipped(QStringLiteral(":/scripts/scripts/uninstall.sh"));
    QVERIFY(shipped.open(QIODevice::ReadOnly | QIODevice::Text));
    QString script = QString::fromUtf8(shipped.readAll());
    // Exactly these three paths are moved into the sandbox; any other would escape it.
    QCOMPARE(script.count(QLatin1String("/Library/")), 3);
    script.replace(QLatin1String("\"/Library/"), QLatin1String("\"") + root + "/Library/");
    if (how == QLatin1String("fill"))
        script = script.arg(installation);
    const QString scriptPath = sandbox.path() + QStringLiteral("/uninstall.sh");
    QVERIFY(writeFile(scriptPath, script.toUtf8()));

    QStringList arguments {scriptPath};
    if (how == QLatin1String("arg"))
        arguments << installation;

    QProcess bash;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("PATH", bin + ":/usr/bin:/bin");
    env.insert("BV_CALLS", log);
    env.insert("BV_FAIL", failing);
    bash.setProcessEnvironment(env);
    bash.setWorkingDirectory(sandbox.path());
    bash.start(QStringLiteral("/bin/bash"), arguments);
    QVERIFY(bash.waitForFinished(30000));
    QCOMPARE(bash.exitStatus(), QProcess::NormalExit);
    QCOMPARE(bash.exitCode(), 0);
    // The unload commands send all their output away.
    QCOMPARE(QString::fromUtf8(bash.readAllStandardError()), QString());

    auto expand = [&](QStringList lines) {
        for (QString &line : lines)
            line.replace(QLatin1String("$R"), root).replace(QLatin1String("$0"), scriptPath);
        return lines;
    };
    const QString out = QString::fromUtf8(bash.readAllStandardOutput());
    QCOMPARE(out, expand(expectedOut).join(u'\n') + u'\n');

    QFile calls(log);
    QStringList called;
    if (calls.open(QIODevice::ReadOnly))
        called = QString::fromUtf8(calls.readAll()).split(u'\n', Qt::SkipEmptyParts);
    QCOMPARE(called, expand(expectedCalls));

    const bool untouched = how == QLatin1String("none");
    QCOMPARE(QFileInfo::exists(installation), untouched || failing == installation);
    for (const QString &path : present)
        QCOMPARE(QFileInfo::exists(root + path), untouched || failing == root + path);
}

QTEST_GUILESS_MAIN(tst_UninstallScript)
#include "tst_uninstallscript.moc"
