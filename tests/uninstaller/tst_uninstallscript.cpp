// The embedded removal script, run by bash in a sandbox: its absolute paths are moved
// under a temporary root, and launchctl, sudo, sleep and rm are stand-ins on the PATH
// that write down how they were called.

#include "BvTestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace {
const QString C_SCRIPT = QStringLiteral(":/scripts/scripts/uninstall.sh");
const QString C_LOAD = QStringLiteral("/Library/LaunchDaemons/com.brisvane.fseventsdaemon.plist");
const QString C_LOAD_OLD = QStringLiteral("/Library/LaunchDaemons/FSEventsDeamon.plist");
const QString C_APPSUPPORT = QStringLiteral("/Library/Application Support/Brisvane");

bool writeFile(const QString &path, const QByteArray &content, bool executable = false)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        return false;
    file.close();
    if (executable)
        file.setPermissions(
            file.permissions() | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
    return true;
}

QString readScript()
{
    QFile file(C_SCRIPT);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return QString();
    return QString::fromUtf8(file.readAll());
}
} // namespace

class tst_UninstallScript : public QObject
{
    Q_OBJECT

private slots:
    void shippedPaths();
    void run_data();
    void run();
};

void tst_UninstallScript::shippedPaths()
{
    const QString script = readScript();
    QVERIFY(script.startsWith(QLatin1String("#!/bin/bash\n")));
    QVERIFY(script.contains(QStringLiteral("LOAD=\"%1\"").arg(C_LOAD)));
    QVERIFY(script.contains(QStringLiteral("LOAD_OLD=\"%1\"").arg(C_LOAD_OLD)));
    QVERIFY(script.contains(QStringLiteral("APPSUPPORT=\"%1\"").arg(C_APPSUPPORT)));
    // The sandbox below moves exactly these three; any other absolute path would escape it.
    QCOMPARE(script.count(QLatin1String("\"/Library/")), 3);
    QCOMPARE(script.count(QLatin1String("/Library/")), 3);
    // The uninstaller fills in one place marker, and the guard must survive that.
    QCOMPARE(script.count(QLatin1String("%1")), 1);
    QCOMPARE(script.arg(QStringLiteral("/x")).count(QLatin1String("'%'\"1\"")), 1);
}

void tst_UninstallScript::run_data()
{
    QTest::addColumn<QStringList>("present"); // daemon definitions and support folder
    QTest::addColumn<QString>("folder"); // the installation, under the sandbox root
    QTest::addColumn<QString>("how"); // "fill": as the uninstaller; "arg"; "none"
    QTest::addColumn<QString>("failing"); // "launchctl", or an rm target, or empty
    QTest::addColumn<QStringList>("expectedOut"); // "$R" = the sandbox root, "$0" = the script
    QTest::addColumn<QStringList>("expectedCalls");
    QTest::addColumn<bool>("folderGone");

    const QStringList all {C_LOAD, C_LOAD_OLD, C_APPSUPPORT};
    const QString app = QStringLiteral("Applications/Brisvane");
    auto unload = [](const QString &plist) {
        return QStringList {"launchctl unload $R" + plist + " 2",
            "sudo launchctl unload $R" + plist + " 2", "launchctl unload $R" + plist + " 2",
            "sleep 1", "rm -f $R" + plist};
    };
    const QStringList tail {"rm -rf $R" + C_APPSUPPORT};

    QTest::newRow("neither daemon definition")
        << QStringList {C_APPSUPPORT} << app << "arg"
        << "" << QStringList {"0"} << QStringList(tail + QStringList {"rm -rf $R/" + app}) << true;
    QTest::newRow("only the old definition")
        << QStringList {C_LOAD_OLD} << app << "arg"
        << "" << QStringList {"0"}
        << QStringList(unload(C_LOAD_OLD) + tail + QStringList {"rm -rf $R/" + app}) << true;
    QTest::newRow("both definitions, filled in") << all << app << "fill"
                                                 << "" << QStringList {"0"}
                                                 << QStringList(unload(C_LOAD) + unload(C_LOAD_OLD)
                                                        + tail + QStringList {"rm -rf $R/" + app})
                                                 << true;
    QTest::newRow("unload refused")
        << QStringList {C_LOAD} << app << "fill"
        << "launchctl"
        << QStringList {"failed to uninstall $R" + C_LOAD, "failed to uninstall $R" + C_LOAD, "0"}
        << QStringList(unload(C_LOAD) + tail + QStringList {"rm -rf $R/" + app}) << true;
    QTest::newRow("definition not removable")
        << QStringList {C_LOAD} << app << "fill"
        << "$R" + C_LOAD << QStringList {"failed to remove $R" + C_LOAD, "0"}
        << QStringList(unload(C_LOAD) + tail + QStringList {"rm -rf $R/" + app}) << true;
    QTest::newRow("support folder not removable")
        << all << app << "fill"
        << "$R" + C_APPSUPPORT << QStringList {"failed to remove $R" + C_APPSUPPORT, "0"}
        << QStringList(
               unload(C_LOAD) + unload(C_LOAD_OLD) + tail + QStringList {"rm -rf $R/" + app})
        << true;
    QTest::newRow("installation not removable")
        << QStringList() << app << "fill"
        << "$R/" + app << QStringList {"1"} << QStringList(tail + QStringList {"rm -rf $R/" + app})
        << false;
    QTest::newRow("no argument") << all << app << "none"
                                 << ""
                                 << QStringList {"usage: $0 <path to Brisvane Installation>", "1"}
                                 << QStringList() << false;
    QTest::newRow("blanks, filled in")
        << QStringList() << "My Apps/Brisvane"
        << "fill"
        << "" << QStringList {"0"} << QStringList(tail + QStringList {"rm -rf $R/My Apps/Brisvane"})
        << true;
    // Given by hand, the folder is split at the blank and only its first part is used.
    QTest::newRow("blanks, by hand")
        << QStringList() << "My Apps/Brisvane"
        << "arg"
        << "" << QStringList {"0"} << QStringList(tail + QStringList {"rm -rf $R/My"}) << false;
}

void tst_UninstallScript::run()
{
    QFETCH(QStringList, present);
    QFETCH(QString, folder);
    QFETCH(QString, how);
    QFETCH(QString, failing);
    QFETCH(QStringList, expectedOut);
    QFETCH(QStringList, expectedCalls);
    QFETCH(bool, folderGone);

    QTemporaryDir sandbox;
    QVERIFY2(sandbox.isValid(), qPrintable(sandbox.errorString()));
    const QString root = sandbox.path() + QStringLiteral("/root");
    const QString bin = sandbox.path() + QStringLiteral("/bin");
    const QString log = sandbox.path() + QStringLiteral("/calls.log");
    const QString installation = root + u'/' + folder;
    failing.replace(QLatin1String("$R"), root);

    // The stand-ins. rm does the real work unless it is told to fail for its target.
    QVERIFY(writeFile(bin + "/launchctl",
        "#!/bin/bash\necho \"launchctl $*\" >> \"$BV_CALLS\"\n"
        "echo noise; echo noise >&2\n"
        "[ \"$BV_FAIL\" != launchctl ]\n",
        true));
    QVERIFY(writeFile(
        bin + "/sudo", "#!/bin/bash\necho \"sudo $*\" >> \"$BV_CALLS\"\nexec \"$@\"\n", true));
    QVERIFY(writeFile(bin + "/sleep", "#!/bin/bash\necho \"sleep $*\" >> \"$BV_CALLS\"\n", true));
    QVERIFY(writeFile(bin + "/rm",
        "#!/bin/bash\necho \"rm $*\" >> \"$BV_CALLS\"\n"
        "for a in \"$@\"; do [ \"$a\" = \"$BV_FAIL\" ] && exit 1; done\n"
        "exec /bin/rm \"$@\"\n",
        true));

    for (const QString &path : present) {
        if (path == C_APPSUPPORT)
            QVERIFY(writeFile(root + path + "/data/settings", "x"));
        else
            QVERIFY(writeFile(root + path, "<plist/>"));
    }
    QVERIFY(writeFile(installation + "/Brisvane.app/Contents/MacOS/Brisvane", "x"));

    QString script = readScript();
    QVERIFY(!script.isEmpty());
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

    QCOMPARE(!QFileInfo::exists(installation), folderGone);
    for (const QString &path : present) {
        const bool kept = how == QLatin1String("none") || failing == root + path;
        QCOMPARE(QFileInfo::exists(root + path), kept);
    }
}

QTEST_GUILESS_MAIN(tst_UninstallScript)
#include "tst_uninstallscript.moc"
