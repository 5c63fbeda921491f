// UnInstallerMac without a window, as a management tool runs it: the staged program from a
// copy of the installation inside a throw-away sandbox, as root, for accounts that exist
// only in the sandbox's own user database (bv_fakepasswd), whose homes lie in the sandbox.
// tools/sandbox-bin goes first on PATH, so the removal script deletes nothing outside it.

#include "BvTestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <csignal>
#include <unistd.h>

class tst_CommandLine : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void run_data();
    void run();
    void help();
};

namespace {

const QString C_SCHEMA = QStringLiteral(BV_SOURCE_DIR "/docs/report.schema.json");

// Runs `script` with -e in the sandbox `root`; answers the trace when it fails.
QByteArray sh(const QString &root, const QString &script)
{
    QProcess shell;
    shell.setWorkingDirectory(root);
    shell.start(QStringLiteral("/bin/bash"), QStringList {"-exc", script});
    if (shell.waitForFinished(60000) && shell.exitCode() == 0)
        return QByteArray();
    return "failed:\n" + shell.readAllStandardError().right(4000);
}

// Every file and folder of the sandbox with its size, time stamp, mode and owner.
const char C_SNAPSHOT[] = "find homes Apps* -printf '%p %s %T@ %m %u %g\\n' | sort";

} // namespace

void tst_CommandLine::initTestCase()
{
    if (::geteuid() != 0)
        QSKIP("Acting for other accounts needs root");
    if (QProcess::execute("python3", {"-c", "import jsonschema"}) != 0)
        QSKIP("python3-jsonschema is not installed (tools/install-deps installs it)");
}

void tst_CommandLine::run_data()
{
    QTest::addColumn<QString>("setup"); // shell, after the sandbox is made
    QTest::addColumn<QString>("runAs"); // "root", or an account of the sandbox
    QTest::addColumn<QStringList>("arguments"); // "$R": the sandbox
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("check"); // shell, afterwards; report.json is the report

    const QString unchanged = QStringLiteral("diff snapshot.before <(%1); ").arg(C_SNAPSHOT);
    // The product is gone, its folders are removed, the backups match the keys byte for
    // byte and belong to their user with the originals' modes.
    const QString removed
        = QStringLiteral("removed() { u=$1; h=homes/$u; id=$(grep ^$u: passwd | cut -d: -f3); [ ! "
                         "-e $h/.bv2 ] && [ ! -e $h/.config/Brisvane ];"
                         " diff -r keys-$u/pss ${2:-$h/Documents}/pss_*; diff -r "
                         "keys-$u/server_access_keys ${2:-$h/Documents}/server_access_keys_*;"
                         " [ -z \"$(find ${2:-$h/Documents}/pss_* "
                         "${2:-$h/Documents}/server_access_keys_* ! -uid $id)\" ];"
                         " [ $(stat -c %a ${2:-$h/Documents}/pss_*) = 700 ]; [ $(stat -c %a "
                         "${2:-$h/Documents}/pss_*/id.key) = 600 ]; };"
                         " [ ! -e Apps/Brisvane ]; [ ! -e /proc/$(cat product-alice.pid) ]; ");
    const QString valid = QStringLiteral("python3 validate.py report.json; ");
    auto report = [](const QString &python) {
        return QStringLiteral(
            "python3 -c 'import json,sys; r=json.load(open(\"report.json\")); %1' ; ")
            .arg(python);
    };
    const QStringList one {"--unattended", "--user", "alice", "--report", "$R/report.json"};

    // clang-format off
    QTest::newRow("dry run changes nothing") << "" << "root" << QStringList {"--dry-run", "--user", "alice", "--report", "$R/report.json"} << 0
        << unchanged + valid + report("s=r[\"steps\"]; assert r[\"dryRun\"] and r[\"exitCode\"]==0 and len(s)>=5;"
           " assert {x[\"result\"] for x in s} <= {\"planned\",\"nothing-to-do\"}, s;"
           " assert [x[\"step\"] for x in s if x[\"result\"]==\"planned\"]==[\"quit\",\"backup\",\"backup\",\"deleteConfiguration\",\"deleteData\",\"removeInstallation\"], s")
           + "[ -e /proc/$(cat product-alice.pid) ]";
    QTest::newRow("dry run as a user") << "" << "alice" << QStringList {"--dry-run"} << 0 << unchanged;
    QTest::newRow("one user") << "" << "root" << one << 0
        << removed + "removed alice; " + valid + report("assert r[\"exitCode\"]==0 and r[\"message\"] is None;"
           " assert all(x[\"result\"] in (\"done\",\"nothing-to-do\") for x in r[\"steps\"]), r;"
           " assert [x[\"user\"] for x in r[\"steps\"] if x[\"step\"]==\"deleteData\"]==[\"alice\"]")
           + "[ -d homes/bob/.bv2 ]";
    QTest::newRow("backups elsewhere") << "" << "root" << QStringList {"--unattended", "--user", "alice", "--backup-dir", "$R/safe"} << 0
        << removed + "removed alice safe/alice; [ $(stat -c %u safe/alice) = 4101 ]; [ -z \"$(ls homes/alice/Documents)\" ]";
    QTest::newRow("no backup") << "" << "root" << QStringList {"--unattended", "--user", "alice", "--no-backup"} << 0
        << "[ ! -e homes/alice/.bv2 ]; [ -z \"$(ls homes/alice/Documents)\" ]; [ ! -e Apps/Brisvane ]";
    QTest::newRow("every user") << "" << "root" << QStringList {"--unattended", "--all-users", "--report", "$R/report.json", "--log", "$R/run.log"} << 0
        << removed + "removed alice; removed bob; [ ! -e /proc/$(cat product-bob.pid) ];"
           " [ -f homes/carol/keep.txt ]; [ -z \"$(ls homes/carol/Documents)\" ];" + valid
           + report("assert sorted({x[\"user\"] for x in r[\"steps\"] if x[\"step\"]==\"deleteData\"})==[\"alice\",\"bob\"], r")
           + "grep -q 'Start logging' run.log; grep -q 'will now delete' run.log";
    QTest::newRow("product ignores SIGTERM") << "kill $(cat product-alice.pid); cp /bin/sleep Brisvane; setpriv --reuid=4101 --regid=4101 --clear-groups"
                                                " bash -c 'trap \"\" TERM; exec ./Brisvane 300' & echo $! >product-alice.pid; sleep 0.5"
        << "root" << one << 10
        << unchanged + "[ -e /proc/$(cat product-alice.pid) ]; " + valid
           + report("assert r[\"exitCode\"]==10 and r[\"message\"]==\"Unable to quit Brisvane.\";"
                    " assert [x[\"result\"] for x in r[\"steps\"]][0]==\"failed\";"
                    " assert {x[\"result\"] for x in r[\"steps\"][1:]}=={\"skipped\"}, r");
    QTest::newRow("hostile product folder") << "mv Apps \"Apps \\\"x\\\" '\"'\"'y'\"'\"' \\$(touch PWNED) \\`touch PWNED\\` ; touch PWNED\"" << "root" << one << 0
        << "[ -z \"$(find . -name PWNED)\" ]; [ ! -e Apps*/Brisvane ]; [ -f Apps*/Other/keep.txt ]; [ ! -e homes/alice/.bv2 ]";
    QTest::newRow("unknown option") << "" << "root" << QStringList {"--unattended", "--user", "alice", "--force"} << 64 << unchanged;
    QTest::newRow("unknown user") << "" << "root" << QStringList {"--unattended", "--user", "mallory", "--report", "$R/report.json"} << 64
        << unchanged + valid + report("assert r[\"exitCode\"]==64 and r[\"steps\"]==[] and \"mallory\" in r[\"message\"]");
    QTest::newRow("--user with --all-users") << "" << "root" << QStringList {"--unattended", "--user", "alice", "--all-users"} << 64 << unchanged;
    QTest::newRow("root without a user") << "" << "root" << QStringList {"--unattended"} << 64 << unchanged;
    QTest::newRow("both modes") << "" << "root" << QStringList {"--unattended", "--dry-run", "--user", "alice"} << 64 << unchanged;
    QTest::newRow("unattended without root") << "" << "alice" << QStringList {"--unattended"} << 77 << unchanged;
    QTest::newRow("--user without root") << "" << "alice" << QStringList {"--dry-run", "--user", "bob"} << 77 << unchanged;
    QTest::newRow("--all-users without root") << "" << "alice" << QStringList {"--dry-run", "--all-users", "--report", "-"} << 77 << unchanged;
    // clang-format on
}

void tst_CommandLine::run()
{
    QFETCH(QString, setup);
    QFETCH(QString, runAs);
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, check);

    QTemporaryDir sandbox(QDir::homePath() + QStringLiteral("/../cli-XXXXXX"));
    QVERIFY2(sandbox.isValid(), qPrintable(sandbox.errorString()));
    const QString root = QFileInfo(sandbox.path()).canonicalFilePath();
    QVERIFY(QFile::setPermissions(root,
        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup | QFile::ExeGroup
            | QFile::ReadOther | QFile::ExeOther));

    // Three accounts of the sandbox: alice and bob use the product, carol does not. Each
    // runs the product (the stand-in, as that user), keeps private keys and a copy of them
    // to compare backups with; canaries must survive whatever happens.
    QByteArray failure = sh(root,
        "printf 'root:x:0:0:root:/root:/bin/bash\\n' >passwd;"
        " for u in alice:4101 bob:4102 carol:4103; do n=${u%:*}; id=${u#*:}; h=$PWD/homes/$n;"
        "  echo \"$n:x:$id:$id::$h:/bin/bash\" >>passwd; mkdir -p $h/Documents; echo canary "
        ">$h/keep.txt;"
        "  if [ $n != carol ]; then mkdir -p $h/.bv2/pss $h/.bv2/server_access_keys/nested "
        "$h/.config/Brisvane;"
        "   echo \"$n key\" >$h/.bv2/pss/id.key; head -c 40000 /dev/urandom "
        ">$h/.bv2/server_access_keys/nested/s.key;"
        "   echo cache >$h/.bv2/cache.db; echo >$h/.config/Brisvane/Brisvane.conf;"
        "   chmod 700 $h/.bv2/pss; chmod 600 $h/.bv2/pss/id.key; cp -a $h/.bv2 keys-$n; fi;"
        "  chown -R $id:$id $h;"
        "  if [ $n != carol ]; then setpriv --reuid=$id --regid=$id "
        "--clear-groups " BV_STAGE_PRODUCT_DIR
        "/Brisvane.app/Contents/MacOS/Brisvane 300 & echo $! >product-$n.pid; fi;"
        " done;"
        " mkdir -p Apps/Other; echo canary >Apps/Other/keep.txt; cp -al " BV_STAGE_PRODUCT_DIR
        " Apps/;"
        " printf 'import json,sys,jsonschema\\njsonschema.validate(json.load(open(sys.argv[1])), "
        "json.load(open(\"%s\")))\\n' "
            + C_SCHEMA.toLocal8Bit() + " >validate.py; sleep 0.3; "
            + (setup.isEmpty() ? QByteArray("true") : setup.toLocal8Bit()) + "; " + C_SNAPSHOT
            + " >snapshot.before");
    auto stopProducts = qScopeGuard(
        [&root] { sh(root, "for f in product-*.pid; do kill -9 $(cat $f) || true; done"); });
    QVERIFY2(failure.isEmpty(), failure.constData());

    QString program;
    for (const QFileInfo &apps : QDir(root).entryInfoList({"Apps*"}, QDir::Dirs))
        if (QFileInfo::exists(
                apps.filePath() + "/Brisvane/Brisvane.app/Contents/MacOS/UnInstallerMac"))
            program = apps.filePath() + "/Brisvane/Brisvane.app/Contents/MacOS/UnInstallerMac";
    QVERIFY(!program.isEmpty());
    arguments.replaceInStrings(QStringLiteral("$R"), root);

    QProcess uninstaller;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("DISPLAY"); // no window server, as under a management tool
    env.remove("QT_QPA_PLATFORM");
    env.insert("BV_SANDBOX", root);
    env.insert("PATH", BV_SOURCE_DIR "/tools/sandbox-bin:" + env.value("PATH"));
    env.insert("LD_PRELOAD", BV_FAKEPASSWD);
    env.insert("BV_PASSWD_FILE", root + "/passwd");
    // The sanitizer runtime is not preloaded ahead of the stand-in database.
    env.insert("ASAN_OPTIONS", env.value("ASAN_OPTIONS") + ":verify_asan_link_order=0");
    if (runAs == QLatin1String("root")) {
        env.insert("HOME", root + "/roothome");
        uninstaller.setProcessEnvironment(env);
        uninstaller.start(program, arguments);
    } else {
        env.insert("HOME", root + "/homes/" + runAs);
        uninstaller.setProcessEnvironment(env);
        const QString id = runAs == QLatin1String("alice") ? "4101" : "4102";
        uninstaller.start("setpriv",
            QStringList {"--reuid=" + id, "--regid=" + id, "--clear-groups", program} + arguments);
    }
    uninstaller.setWorkingDirectory(root);
    QVERIFY(uninstaller.waitForFinished(90000));
    const QByteArray output = uninstaller.readAllStandardOutput();
    const QByteArray errors = uninstaller.readAllStandardError();
    QCOMPARE(uninstaller.exitStatus(), QProcess::NormalExit);
    QVERIFY2(uninstaller.exitCode() == exitCode, (output + errors.right(3000)).constData());
    if (arguments.contains("-")) // the report on standard output, and nothing else there
        QVERIFY2(QJsonDocument::fromJson(output).isObject(), output.constData());

    failure = sh(root,
        "[ -z \"$(find . -name PWNED)\" ]; for u in alice bob carol; do grep -qx canary "
        "homes/$u/keep.txt; done;"
        " grep -qx canary Apps*/Other/keep.txt; "
            + check);
    QVERIFY2(failure.isEmpty(),
        (failure + "\n--- program said:\n" + output + errors.right(3000)).constData());
}

void tst_CommandLine::help()
{
    QProcess uninstaller;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("DISPLAY");
    uninstaller.setProcessEnvironment(env);
    uninstaller.start(
        BV_STAGE_PRODUCT_DIR "/Brisvane.app/Contents/MacOS/UnInstallerMac", {"--help"});
    QVERIFY(uninstaller.waitForFinished(30000));
    QCOMPARE(uninstaller.exitCode(), 0);
    const QString help = QString::fromUtf8(uninstaller.readAllStandardOutput());
    for (const char *option :
        {"--unattended", "--dry-run", "--no-backup", "--backup-dir <DIR>", "--user <NAME>",
            "--all-users", "--report <FILE>", "--log <FILE>", "-h, --help", "-v, --version"})
        QVERIFY2(help.contains(QLatin1String(option)), option);
    for (const char *code : {" 0 ", " 10 ", " 11 ", " 12 ", " 13 ", " 14 ", " 64 ", " 77 "})
        QVERIFY2(help.contains(QLatin1String(code)), code);
}

QTEST_GUILESS_MAIN(tst_CommandLine)
#include "tst_commandline.moc"
