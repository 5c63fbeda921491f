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
#include <memory>
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

const int C_TWO_AT_ONCE = -1;

// The product of alice, replaced by one that takes a second to end after SIGTERM.
const char C_SLOW_PRODUCT[]
    = "kill $(cat product-alice.pid); cp /bin/bash Brisvane; setpriv --reuid=4101 --regid=4101 "
      "--clear-groups ./Brisvane -c 'trap \"sleep 1; exit 0\" TERM; while :; do sleep 0.05; done' "
      "& echo $! >product-alice.pid; sleep 0.3";

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
    QTest::addColumn<int>("exitCode"); // C_TWO_AT_ONCE: two runs at once, one 0, one 75
    QTest::addColumn<QString>("check"); // shell, afterwards; report.json is the report
    // Optional {shell, check}: the shell removes the cause, a second run then exits 0.
    QTest::addColumn<QStringList>("again");

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
           + "[ -e /proc/$(cat product-alice.pid) ]" << QStringList {};
    QTest::newRow("dry run as a user") << "" << "alice" << QStringList {"--dry-run"} << 0 << unchanged << QStringList {};
    QTest::newRow("one user") << "" << "root" << one << 0
        << removed + "removed alice; " + valid + report("assert r[\"exitCode\"]==0 and r[\"message\"] is None;"
           " assert all(x[\"result\"] in (\"done\",\"nothing-to-do\") for x in r[\"steps\"]), r;"
           " assert [x[\"user\"] for x in r[\"steps\"] if x[\"step\"]==\"deleteData\"]==[\"alice\"]")
           + "[ -d homes/bob/.bv2 ]" << QStringList {};
    QTest::newRow("backups elsewhere") << "" << "root" << QStringList {"--unattended", "--user", "alice", "--backup-dir", "$R/safe"} << 0
        << removed + "removed alice safe/alice; [ $(stat -c %u:%a safe/alice) = 4101:700 ]; [ -z \"$(ls homes/alice/Documents)\" ]" << QStringList {};
    QTest::newRow("no backup") << "" << "root" << QStringList {"--unattended", "--user", "alice", "--no-backup"} << 0
        << "[ ! -e homes/alice/.bv2 ]; [ -z \"$(ls homes/alice/Documents)\" ]; [ ! -e Apps/Brisvane ]" << QStringList {};
    QTest::newRow("every user") << "" << "root" << QStringList {"--unattended", "--all-users", "--report", "$R/report.json", "--log", "$R/run.log"} << 0
        << removed + "removed alice; removed bob; [ ! -e /proc/$(cat product-bob.pid) ];"
           " [ -f homes/carol/keep.txt ]; [ -z \"$(ls homes/carol/Documents)\" ];" + valid
           + report("assert sorted({x[\"user\"] for x in r[\"steps\"] if x[\"step\"]==\"deleteData\"})==[\"alice\",\"bob\"], r")
           + "grep -q 'Start logging' run.log; grep -q 'will now delete' run.log" << QStringList {};
    QTest::newRow("product ignores SIGTERM") << "kill $(cat product-alice.pid); cp /bin/sleep Brisvane; setpriv --reuid=4101 --regid=4101 --clear-groups"
                                                " bash -c 'trap \"\" TERM; exec ./Brisvane 300' & echo $! >product-alice.pid; sleep 0.5"
        << "root" << one << 10
        << unchanged + "[ -e /proc/$(cat product-alice.pid) ]; " + valid
           + report("assert r[\"exitCode\"]==10 and r[\"message\"]==\"Unable to quit Brisvane.\";"
                    " assert [x[\"result\"] for x in r[\"steps\"]][0]==\"failed\";"
                    " assert {x[\"result\"] for x in r[\"steps\"][1:]}=={\"skipped\"}, r") << QStringList {};
    QTest::newRow("hostile product folder") << "mv Apps \"Apps \\\"x\\\" '\"'\"'y'\"'\"' \\$(touch PWNED) \\`touch PWNED\\` ; touch PWNED\"" << "root" << one << 0
        << "[ -z \"$(find . -name PWNED)\" ]; [ ! -e Apps*/Brisvane ]; [ -f Apps*/Other/keep.txt ]; [ ! -e homes/alice/.bv2 ]" << QStringList {};
    QTest::newRow("unknown option") << "" << "root" << QStringList {"--unattended", "--user", "alice", "--force"} << 64 << unchanged << QStringList {};
    QTest::newRow("unknown user") << "" << "root" << QStringList {"--unattended", "--user", "mallory", "--report", "$R/report.json"} << 64
        << unchanged + valid + report("assert r[\"exitCode\"]==64 and r[\"steps\"]==[] and \"mallory\" in r[\"message\"]") << QStringList {};
    QTest::newRow("--user with --all-users") << "" << "root" << QStringList {"--unattended", "--user", "alice", "--all-users"} << 64 << unchanged << QStringList {};
    QTest::newRow("root without a user") << "" << "root" << QStringList {"--unattended"} << 64 << unchanged << QStringList {};
    QTest::newRow("both modes") << "" << "root" << QStringList {"--unattended", "--dry-run", "--user", "alice"} << 64 << unchanged << QStringList {};
    QTest::newRow("unattended without root") << "" << "alice" << QStringList {"--unattended"} << 77 << unchanged << QStringList {};
    QTest::newRow("--user without root") << "" << "alice" << QStringList {"--dry-run", "--user", "bob"} << 77 << unchanged << QStringList {};
    QTest::newRow("--all-users without root") << "" << "alice" << QStringList {"--dry-run", "--all-users", "--report", "-"} << 77 << unchanged << QStringList {};

    // Root acts for a user whose home is hostile: only the user's own rights reach it.
    auto failedDetail = [&report](int exitCode, const QString &fragment) {
        return report(QStringLiteral("f=[x for x in r[\"steps\"] if x[\"result\"]==\"failed\"]; assert r[\"exitCode\"]==%1 and len(f)==1, r;"
                                     " assert \"%2\" in f[0][\"detail\"], f").arg(exitCode).arg(fragment));
    };
    const QString secret = "mkdir -m 700 secret; echo root-only >secret/token; ";
    QTest::newRow("key folder: a link into a root-only folder") << secret + "rm -r homes/alice/.bv2/pss; ln -s $PWD/secret homes/alice/.bv2/pss" << "root" << one << 0
        << "[ \"$(readlink homes/alice/Documents/pss_*)\" = $PWD/secret ]; [ -z \"$(grep -r root-only homes)\" ]; grep -qx root-only secret/token;"
           " [ ! -e homes/alice/.bv2 ]; diff -r keys-alice/server_access_keys homes/alice/Documents/server_access_keys_*" << QStringList {};
    QTest::newRow("data folder: a link into a root-only folder") << secret + "cp -a homes/alice/.bv2/. secret/; chown -R 0:0 secret; chmod 700 secret; rm -r homes/alice/.bv2; ln -s $PWD/secret homes/alice/.bv2"
        << "root" << one << 11
        << unchanged + "diff -r keys-alice/pss secret/pss; [ -z \"$(ls -A homes/alice/Documents)\" ]; " + failedDetail(11, "/.bv2/pss: Permission denied") << QStringList {};
    QTest::newRow("Documents: a link into a root-owned folder") << "mkdir rootowned; rmdir homes/alice/Documents; ln -s $PWD/rootowned homes/alice/Documents"
        << "root" << one << 11 << unchanged + "[ -z \"$(ls -A rootowned)\" ]; " + failedDetail(11, "Permission denied") << QStringList {};
    QTest::newRow("configuration and data: links") << "mv homes/alice/.config/Brisvane cfg; ln -s $PWD/cfg homes/alice/.config/Brisvane; mv homes/alice/.bv2 data; ln -s $PWD/data homes/alice/.bv2"
        << "root" << one << 0 << removed + "removed alice; [ ! -L homes/alice/.config/Brisvane ]; [ -f cfg/Brisvane.conf ]; diff -r keys-alice data" << QStringList {};
    QTest::newRow("Documents on a full disk") << "mount -t tmpfs -o size=24k,uid=4101,gid=4101,mode=755 tmpfs homes/alice/Documents"
        << "root" << QStringList {one} + QStringList {"--log", "$R/run.log"} << 11
        << valid + failedDetail(11, "/nested/s.key: No space left on device; the incomplete copy")
           + "grep -q 'No space left on device' run.log; [ -z \"$(ls homes/alice/Documents | grep server_access)\" ];"
             " diff -r keys-alice/pss homes/alice/Documents/pss_*; diff -r keys-alice homes/alice/.bv2" << QStringList {};
    QTest::newRow("an entry the user cannot delete") << "mkdir homes/alice/.bv2/locked; echo x >homes/alice/.bv2/locked/f" << "root" << one << 13
        << valid + failedDetail(13, "/.bv2/locked/f: Permission denied") + "[ -f homes/alice/.bv2/locked/f ]; [ ! -e homes/alice/.config/Brisvane ]"
        << QStringList {"chown -R 4101:4101 homes/alice/.bv2", "[ ! -e homes/alice/.bv2 ]; [ ! -e Apps/Brisvane ]"};
    QTest::newRow("two runs at once") << C_SLOW_PRODUCT << "root" << QStringList {"--unattended", "--user", "alice"} << C_TWO_AT_ONCE
        << removed + "removed alice" << QStringList {};
    // clang-format on
}

void tst_CommandLine::run()
{
    QFETCH(QString, setup);
    QFETCH(QString, runAs);
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, check);
    QFETCH(QStringList, again);

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
    auto stopProducts = qScopeGuard([&root] {
        sh(root,
            "for f in product-*.pid; do kill -9 $(cat $f) || true; done;"
            " ! mountpoint -q homes/alice/Documents || umount homes/alice/Documents");
    });
    QVERIFY2(failure.isEmpty(), failure.constData());

    QString program;
    for (const QFileInfo &apps : QDir(root).entryInfoList({"Apps*"}, QDir::Dirs))
        if (QFileInfo::exists(
                apps.filePath() + "/Brisvane/Brisvane.app/Contents/MacOS/UnInstallerMac"))
            program = apps.filePath() + "/Brisvane/Brisvane.app/Contents/MacOS/UnInstallerMac";
    QVERIFY(!program.isEmpty());
    arguments.replaceInStrings(QStringLiteral("$R"), root);

    // Each run sees the sandbox's run/ as /run, where root runs keep their lock.
    QVERIFY(QDir(root).mkpath("run"));
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("DISPLAY"); // no window server, as under a management tool
    env.remove("QT_QPA_PLATFORM");
    env.insert("BV_SANDBOX", root);
    env.insert("PATH", BV_SOURCE_DIR "/tools/sandbox-bin:" + env.value("PATH"));
    env.insert("LD_PRELOAD", BV_FAKEPASSWD);
    env.insert("BV_PASSWD_FILE", root + "/passwd");
    // The sanitizer runtime is not preloaded ahead of the stand-in database.
    env.insert("ASAN_OPTIONS", env.value("ASAN_OPTIONS") + ":verify_asan_link_order=0");
    QStringList command {root + "/run", program};
    if (runAs == QLatin1String("root")) {
        env.insert("HOME", root + "/roothome");
    } else {
        env.insert("HOME", root + "/homes/" + runAs);
        const QString id = runAs == QLatin1String("alice") ? "4101" : "4102";
        command = QStringList {root + "/run", "setpriv", "--reuid=" + id, "--regid=" + id,
            "--clear-groups", program};
    }
    auto start = [&] {
        auto uninstaller = std::make_unique<QProcess>();
        uninstaller->setProcessEnvironment(env);
        uninstaller->setWorkingDirectory(root);
        uninstaller->start(BV_SOURCE_DIR "/tests/common/private-run", command + arguments);
        return uninstaller;
    };
    QByteArray said; // everything the runs printed
    QByteArray output; // what the last run printed on standard output
    // Answers the exit code, or -1 when the program did not end normally.
    auto finish = [&said, &output](QProcess &uninstaller) {
        const bool ended = uninstaller.waitForFinished(90000);
        output = uninstaller.readAllStandardOutput();
        said += output + uninstaller.readAllStandardError().right(3000);
        return ended && uninstaller.exitStatus() == QProcess::NormalExit ? uninstaller.exitCode()
                                                                         : -1;
    };

    if (exitCode == C_TWO_AT_ONCE) {
        // The second starts once the first holds the lock, while it waits for the product.
        const std::unique_ptr<QProcess> first = start();
        QTRY_VERIFY_WITH_TIMEOUT(
            QFile::exists(root + "/run/com.brisvane.uninstaller.lock"), 20000);
        const std::unique_ptr<QProcess> second = start();
        QVERIFY2(finish(*second) == 75, said.constData());
        QVERIFY2(said.contains("Another uninstall is running."), said.constData());
        QVERIFY2(finish(*first) == 0, said.constData());
    } else {
        const std::unique_ptr<QProcess> uninstaller = start();
        QVERIFY2(finish(*uninstaller) == exitCode, said.constData());
        if (arguments.contains("-")) // the report on standard output, and nothing else there
            QVERIFY2(QJsonDocument::fromJson(output).isObject(), output.constData());
    }

    const QByteArray canaries = "[ -z \"$(find . -name PWNED)\" ]; for u in alice bob carol; do "
                                "grep -qx canary homes/$u/keep.txt; done;"
                                " grep -qx canary Apps*/Other/keep.txt; ";
    failure = sh(root, canaries + check);
    QVERIFY2(failure.isEmpty(), (failure + "\n--- program said:\n" + said).constData());
    if (again.isEmpty())
        return;
    failure = sh(root, again.first());
    QVERIFY2(failure.isEmpty(), failure.constData());
    const std::unique_ptr<QProcess> retry = start();
    QVERIFY2(finish(*retry) == 0, said.constData());
    failure = sh(root, canaries + again.last());
    QVERIFY2(failure.isEmpty(), (failure + "\n--- program said:\n" + said).constData());
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
    for (const char *code : {" 0 ", " 10 ", " 11 ", " 12 ", " 13 ", " 14 ", " 64 ", " 75 ", " 77 "})
        QVERIFY2(help.contains(QLatin1String(code)), code);
}

QTEST_GUILESS_MAIN(tst_CommandLine)
#include "tst_commandline.moc"
