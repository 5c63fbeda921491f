// The staged UnInstallerMac as people run it, one throw-away sandbox a row: in its window,
// in an X server of its own with its buttons pressed through xdotool, and from the command
// line as management tools run it.
//
// A sandbox holds three accounts of its own user database: alice and bob use the product
// (it runs as each of them; their keys are copied aside to compare backups with), carol
// does not. The staged installation is copied into Apps/. Every run goes through
// tests/common/private-run, where the sandbox's passwd is the user database and its run/
// is /run, and with tools/sandbox-bin first on PATH, so that the removal script deletes
// nothing outside the sandbox.

#include "BvTestSupport.h"

#include <QJsonDocument>
#include <QLockFile>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <memory>
#include <unistd.h>

namespace {

using BvTest::shell;

// Every file and folder of the sandbox with its size, time stamp, mode and owner.
// The window's support log and lock in ~/.local are left out.
const char C_SNAPSHOT[]
    = "find homes Apps* Library -name .local -prune -o -printf '%p %s %T@ %m %u %g\\n' | sort";

// fp + / fp -: the kind and path of every entry of tests/uninstaller/data/footprint.txt
// that is the product's, or somebody else's; decoys: those of somebody else, with their
// bytes.
const char C_FOOTPRINT[] = "fp() { sed -n \"s|^$1 \\(.\\) ~|\\1 homes/alice|p; s|^$1 \\(.\\) |\\1 |p\" "
    BV_SOURCE_DIR "/tests/uninstaller/data/footprint.txt; };"
    " decoys() { fp - | while read -r k p; do find \"$p\" -printf '%p %s %m %u %l\\n'; find \"$p\" -type f -exec md5sum {} +; done; }; ";

const char C_PROGRAM[] = "Apps/Brisvane/Brisvane.app/Contents/MacOS/UnInstallerMac";

// Whether the window's support log holds `fragment` yet.
bool logShows(const QString &log, const QByteArray &fragment)
{
    QFile file(log);
    return file.open(QIODevice::ReadOnly) && file.readAll().contains(fragment);
}

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
    // Clicks Uninstall, waits for the run to end, then clicks Close (or Cancel, at the same
    // place) until the window has gone.
    void useWindow(QProcess &uninstaller, const QString &log);

    QProcess m_Xvfb;
};

void tst_UninstallE2e::initTestCase()
{
    if (::geteuid() != 0)
        QSKIP("Acting for other accounts, and the privileged step, need root");
    if (QProcess::execute("python3", {"-c", "import jsonschema"}) != 0)
        QSKIP("python3-jsonschema is not installed (tools/install-deps installs it)");
    for (const char *tool : {"Xvfb", "xdotool"})
        if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
            QSKIP("Xvfb or xdotool is not installed (tools/install-deps installs them)");
    // -displayfd picks a free display and writes its number once the server is ready. Any
    // local user may connect (-ac): some rows run the window as alice.
    m_Xvfb.start("Xvfb", {"-displayfd", "1", "-screen", "0", "640x480x24", "-nolisten", "tcp", "-ac"});
    QByteArray number;
    while (!number.endsWith('\n') && m_Xvfb.waitForReadyRead(15000))
        number += m_Xvfb.readAllStandardOutput();
    QVERIFY2(!number.trimmed().isEmpty(), "Xvfb did not start");
    qputenv("DISPLAY", ":" + number.trimmed());
}

void tst_UninstallE2e::run_data()
{
    // "root", "alice": the command line run by that account; "twice": two root runs at
    // once (one exits 75); "window", "window as alice": the window run by root or alice,
    // in alice's home; "window, unreadable key": root's window, reading s.key fails.
    QTest::addColumn<QString>("how");
    QTest::addColumn<QString>("setup"); // shell, in the sandbox once it is made
    QTest::addColumn<QStringList>("arguments"); // "$R": the sandbox
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("check"); // shell, afterwards; report.json is the report
    // Optional {shell, check[, arguments]}: the shell removes the cause, a second run (with
    // other arguments, when given) then exits 0.
    QTest::addColumn<QStringList>("again");

    const QString unchanged = QStringLiteral("diff snapshot.before <(%1); ").arg(C_SNAPSHOT);
    // removed USER [BACKUPS [UID:GID]]: the user's folders are gone, the backups match the
    // keys byte for byte, with their modes, owned by the user (or UID:GID).
    const QString removed = QStringLiteral(
        "removed() { h=homes/$1; b=${2:-$h/Documents}; ids=${3:-$(grep ^$1: passwd | cut -d: -f3,4)};"
        " [ ! -e $h/.bv2 ] && [ ! -e $h/.config/Brisvane ]; diff -r keys-$1/pss $b/pss_*;"
        " diff -r keys-$1/server_access_keys $b/server_access_keys_*;"
        " [ -z \"$(find $b/pss_* $b/server_access_keys_* ! -uid ${ids%:*} -o ! -gid ${ids#*:})\" ];"
        " [ $(stat -c %a $b/pss_*) = 700 ]; [ $(stat -c %a $b/pss_*/id.key) = 600 ]; };"
        " [ ! -e Apps/Brisvane ]; [ ! -e /proc/$(cat product-alice.pid) ]; ");
    auto report = [](const QString &python) {
        return QStringLiteral("python3 validate.py report.json; python3 -c 'import json;"
                              " r=json.load(open(\"report.json\")); s=r[\"steps\"]; %1'; ")
            .arg(python);
    };
    auto failed = [&report](int exitCode, const QString &fragment) {
        return report(QStringLiteral("f=[x for x in s if x[\"result\"]==\"failed\"];"
                                     " assert r[\"exitCode\"]==%1 and len(f)==1, r; assert \"%2\" in f[0][\"detail\"], f")
                          .arg(exitCode)
                          .arg(fragment));
    };
    const QStringList one {"--unattended", "--user", "alice", "--report", "$R/report.json"};
    const QStringList dryRun {"--dry-run", "--user", "alice", "--report", "$R/report.json"};
    const QString secret = "mkdir -m 700 secret; echo root-only >secret/token; ";
    // alice's home and the machine hold the product's whole footprint and decoys.
    const QString footprint = QString(C_FOOTPRINT)
        + "make() { while read -r k p; do mkdir -p \"$(dirname \"$p\")\"; case $k in f) echo \"$p\" >\"$p\";;"
          " d) mkdir -p \"$p/in\"; head -c 5000 /dev/urandom >\"$p/in/data\";; l) ln -s $PWD/elsewhere \"$p\";; esac; done; };"
          " fp - | make; fp + | make; chown -R 4101:4201 homes/alice; decoys >decoys.before; touch privileged.log; chmod 666 privileged.log;"
          " printf '%s\\n' com.brisvane.Brisvane com.brisvane.pkg.helper com.brisvaneapps.pkg com.other.brisvane >receipts";
    // All of it gone, decoys byte for byte as they were, the receipts forgotten, the agent
    // unloaded while its file was still there.
    const QString footprintGone = QString(C_FOOTPRINT)
        + "[ -z \"$(fp + | while read -r k p; do [ ! -e \"$p\" ] && [ ! -L \"$p\" ] || echo \"$p\"; done)\" ]; diff decoys.before <(decoys);"
          " [ \"$(cat receipts)\" = \"$(printf 'com.brisvaneapps.pkg\\ncom.other.brisvane')\" ];"
          " grep -A1 -xF \"launchctl bootout gui/4101 $PWD/homes/alice/Library/LaunchAgents/com.brisvane.sync.plist\" privileged.log | grep -qxF '  (its file was there)'; ";
    // The window stops the first product it finds: only alice's runs.
    const QString windowDone = removed
        + "removed alice '' 0:0; [ $(ls homes/alice/Documents | wc -l) = 2 ];"
          " grep -qxF 'refused: rm -rf /Library/Application\\ Support/Brisvane (outside the sandbox)' privileged.log;"
          " [ $(grep -c refused: privileged.log) = 1 ]; timeout 5 sh -c 'until [ -s browser.log ]; do sleep 0.1; done';"
          " grep -qxF 'https://www.brisvane.com/redirector.php?lang=en&page=uninstall' browser.log; ";

    // clang-format off
    QTest::newRow("dry run changes nothing") << "root" << "" << dryRun << 0
        << unchanged + report("assert r[\"dryRun\"] and r[\"exitCode\"]==0;"
           " assert [x[\"step\"] for x in s if x[\"result\"]!=\"nothing-to-do\"]==[\"quit\",\"backup\",\"backup\",\"deleteConfiguration\",\"deleteData\",\"removeInstallation\"], s;"
           " assert {x[\"result\"] for x in s}<={\"planned\",\"nothing-to-do\"}, s") << QStringList();
    QTest::newRow("one user") << "root" << "" << one << 0
        << removed + "removed alice; [ -d homes/bob/.bv2 ]; [ -e /proc/$(cat product-bob.pid) ]; "
           + report("assert r[\"exitCode\"]==0 and r[\"message\"] is None and not r[\"dryRun\"], r;"
                    " assert all(x[\"result\"] in (\"done\",\"nothing-to-do\") for x in s), r") << QStringList();
    // bob has data only; root's own home is never a target.
    QTest::newRow("every user, backups elsewhere") << "root" << "rm -r homes/bob/.config/Brisvane; echo an earlier run >run.log"
        << QStringList {"--unattended", "--all-users", "--backup-dir", "$R/safe", "--log", "$R/run.log"} << 0
        << removed + "removed alice safe/alice; removed bob safe/bob; [ $(stat -c %u:%a safe/alice) = 4101:700 ];"
           " [ ! -e /proc/$(cat product-bob.pid) ]; [ -d roothome/.bv2/pss ]; [ -z \"$(find homes/*/Documents -mindepth 1)\" ];"
           " grep -q 'will now delete' run.log; grep -qx 'an earlier run' run.log" << QStringList();
    QTest::newRow("no backup") << "root" << "" << QStringList {"--unattended", "--user", "alice", "--no-backup"} << 0
        << "[ ! -e homes/alice/.bv2 ]; [ -z \"$(ls homes/alice/Documents)\" ]; [ ! -e Apps/Brisvane ]" << QStringList();
    // The one row that waits the product's full 30 s.
    QTest::newRow("product ignores SIGTERM") << "root"
        << "kill $(cat product-alice.pid); cp /bin/sleep Brisvane; product alice 4101:4201 bash -c 'trap \"\" TERM; exec ./Brisvane 300'"
        << one << 10
        << unchanged + "[ -e /proc/$(cat product-alice.pid) ]; "
           + report("assert r[\"message\"]==\"Unable to quit Brisvane.\" and s[0][\"result\"]==\"failed\";"
                    " assert {x[\"result\"] for x in s[1:]}=={\"skipped\"}, r") << QStringList();
    // The dry run's lists are the real run's, which removes exactly the footprint.
    QTest::newRow("whole footprint: dry run, then the run") << "root" << footprint << dryRun << 0
        << unchanged + "[ -s receipts ]; "
        << QStringList {"cp report.json dry.json; " + QString(C_FOOTPRINT) + "fp + | while read -r k p; do realpath -s \"$p\"; done >expected",
               footprintGone + report("d=json.load(open(\"dry.json\")); it=lambda r: sorted(i for x in r[\"steps\"] for i in x[\"items\"]);"
                   " assert it(d)==it(r), (it(d), it(r)); assert {i for i in it(r) if \"/Library/\" in i}==set(open(\"expected\").read().splitlines()), it(r);"
                   " assert [x[\"receipts\"] for y in (s, d[\"steps\"]) for x in y if \"receipts\" in x]==[[\"com.brisvane.Brisvane\", \"com.brisvane.pkg.helper\"]]*2, r;"
                   " assert r[\"remaining\"]==[] and d[\"remaining\"] is None and r[\"schemaVersion\"]==2, r;"
                   " assert [x[\"bytesFreed\"] for x in s]==[x[\"bytesFreed\"] for x in d[\"steps\"]] and s[-2][\"bytesFreed\"]>=5*5000, r"),
               "--unattended --user alice --report $R/report.json"};
    // Only the user's rights reach the rest of the home: a root-owned entry stops the run.
    // The daemon's file stays where the removal script does not reach (outside /Library):
    // the check after the run names it.
    QTest::newRow("an entry of the rest of the home the user cannot delete") << "root"
        << footprint + "; mkdir Library/LaunchDaemons; touch Library/LaunchDaemons/com.brisvane.fseventsdaemon.plist; mkdir homes/alice/Library/Caches/Brisvane/locked; echo x >homes/alice/Library/Caches/Brisvane/locked/f"
        << QStringList {one} + QStringList {"--log", "$R/run.log"} << 15
        << failed(15, "/Caches/Brisvane/locked/f: Permission denied") + "[ -d Apps/Brisvane ]; [ -f Library/PrivilegedHelperTools/com.brisvane.helper ]; [ -s receipts ]; "
        << QStringList {"chown -R 4101 homes/alice/Library/Caches/Brisvane", footprintGone
               + report("assert r[\"remaining\"]==[__import__(\"os\").getcwd() + \"/Library/LaunchDaemons/com.brisvane.fseventsdaemon.plist\"], r")
               + "grep -q 'still there after the uninstall: .*/Library/LaunchDaemons/com.brisvane.fseventsdaemon.plist' run.log"};
    QTest::newRow("the privileged removal fails") << "root" << "echo $PWD/Apps/Brisvane >rm-fails" << one << 14
        << QString(removed).replace("[ ! -e Apps/Brisvane ]; ", "[ -d Apps/Brisvane ]; ") + "removed alice; "
           + report("assert s[-1][\"step\"]==\"removeInstallation\" and s[-1][\"result\"]==\"failed\", s")
        << QStringList {"rm rm-fails", "[ ! -e Apps/Brisvane ]"};
    // The installation went, a helper tool did not: the receipts stay until it has.
    QTest::newRow("a helper tool the privileged script cannot remove") << "root"
        << footprint + "; echo $PWD/Library/PrivilegedHelperTools/com.brisvane.helper >rm-fails" << one << 14
        << "[ ! -e Apps/Brisvane ]; [ -f Library/PrivilegedHelperTools/com.brisvane.helper ]; [ $(wc -l <receipts) = 4 ]; "
           + failed(14, "failed to remove /")
        << QStringList();
    QTest::newRow("hostile product folder")
        << "root" << "mv Apps \"Apps \\\"x\\\" '\"'\"'y'\"'\"' \\$(touch PWNED) \\`touch PWNED\\` ; touch PWNED \\\\\n\\$HOME \\${IFS}&& touch PWNED|\"; ln -s Apps* Apps"
        << one << 0 << "rm Apps; [ ! -e Apps*/Brisvane ]; [ ! -e homes/alice/.bv2 ]" << QStringList();
    QTest::newRow("unknown user") << "root" << "" << QStringList {"--unattended", "--user", "mallory", "--report", "$R/report.json"} << 64
        << unchanged + report("assert r[\"exitCode\"]==64 and s==[] and \"mallory\" in r[\"message\"]") << QStringList();
    QTest::newRow("both modes") << "root" << "" << QStringList {"--unattended", "--dry-run", "--user", "alice"} << 64 << unchanged << QStringList();
    QTest::newRow("unattended without root") << "alice" << "" << QStringList {"--unattended"} << 77 << unchanged << QStringList();
    QTest::newRow("dry run as a user, report on standard output") << "alice" << "" << QStringList {"--dry-run", "--report", "-"} << 0
        << unchanged << QStringList();

    // Root acts for a user whose home is hostile: only the user's own rights reach it.
    QTest::newRow("key folder: a link into a root-only folder") << "root"
        << secret + "rm -r homes/alice/.bv2/pss; ln -s $PWD/secret homes/alice/.bv2/pss" << one << 0
        << "[ \"$(readlink homes/alice/Documents/pss_*)\" = $PWD/secret ]; [ -z \"$(grep -r root-only homes)\" ]; grep -qx root-only secret/token;"
           " [ ! -e homes/alice/.bv2 ]; diff -r keys-alice/server_access_keys homes/alice/Documents/server_access_keys_*" << QStringList();
    QTest::newRow("data folder: a link into a root-only folder") << "root"
        << secret + "cp -a homes/alice/.bv2/. secret/; chown -R 0:0 secret; chmod 700 secret; rm -r homes/alice/.bv2; ln -s $PWD/secret homes/alice/.bv2"
        << one << 11 << unchanged + "diff -r keys-alice/pss secret/pss; " + failed(11, "/.bv2/pss: Permission denied") << QStringList();
    QTest::newRow("Documents: a link into a root-owned folder") << "root"
        << "mkdir rootowned; rmdir homes/alice/Documents; ln -s $PWD/rootowned homes/alice/Documents" << one << 11
        << unchanged + "[ -z \"$(ls -A rootowned)\" ]; " + failed(11, "Permission denied") << QStringList();
    QTest::newRow("configuration and data: links") << "root"
        << "mv homes/alice/.config/Brisvane cfg; ln -s $PWD/cfg homes/alice/.config/Brisvane; mv homes/alice/.bv2 data; ln -s $PWD/data homes/alice/.bv2"
        << QStringList {"--unattended", "--all-users"} << 0
        << removed + "removed alice; removed bob; [ -f cfg/Brisvane.conf ]; diff -r keys-alice data" << QStringList();
    QTest::newRow("Documents on a full disk") << "root"
        << "mount -t tmpfs -o size=24k,uid=4101,gid=4201,mode=755 tmpfs homes/alice/Documents"
        << QStringList {one} + QStringList {"--log", "$R/run.log"} << 11
        << failed(11, "/nested/s.key: No space left on device; the incomplete copy")
           + "grep -q 'No space left on device' run.log; [ -z \"$(ls homes/alice/Documents | grep server_access)\" ];"
             " diff -r keys-alice/pss homes/alice/Documents/pss_*; diff -r keys-alice homes/alice/.bv2" << QStringList();
    QTest::newRow("an entry the user cannot delete") << "root"
        << "mkdir homes/alice/.bv2/locked; echo x >homes/alice/.bv2/locked/f" << one << 13
        << failed(13, "/.bv2/locked/f: Permission denied") + "[ -f homes/alice/.bv2/locked/f ]; [ ! -e homes/alice/.config/Brisvane ]"
        << QStringList {"chown -R 4101 homes/alice/.bv2", "[ ! -e homes/alice/.bv2 ]; [ ! -e Apps/Brisvane ]"};
    // alice's product takes 4 s to end: the second run starts while the first waits, and
    // the first waits long enough.
    QTest::newRow("two runs at once") << "twice"
        << "kill $(cat product-alice.pid); cp /bin/bash Brisvane;"
           " product alice 4101:4201 ./Brisvane -c 'trap \"sleep 4; exit 0\" TERM; while :; do sleep 0.05; done'"
        << QStringList {"--unattended", "--user", "alice"} << 0 << removed + "removed alice" << QStringList();

    QTest::newRow("window") << "window" << "" << QStringList() << 0 << windowDone << QStringList();
    QTest::newRow("window, product folder holds more than the bundle") << "window" << "touch Apps/Brisvane/Notes.txt" << QStringList() << 0
        << "[ ! -e homes/alice/.bv2 ]; [ ! -e Apps/Brisvane/Brisvane.app ]; [ -f Apps/Brisvane/Notes.txt ]" << QStringList();
    QTest::newRow("window, unreadable key") << "window, unreadable key" << "" << QStringList() << 0
        << "[ ! -e /proc/$(cat product-alice.pid) ]; diff -r keys-alice homes/alice/.bv2; [ \"$(ls homes/alice/Documents | cut -c1-4)\" = pss_ ];"
           " [ -d homes/alice/.config/Brisvane ]; [ -d Apps/Brisvane ]; [ ! -e privileged.log ]; [ ! -e browser.log ]" << QStringList();
    // Rights come first: the product was not even asked to stop, and no backup was made.
    QTest::newRow("window, administrator prompt declined") << "window as alice" << "" << QStringList() << 0
        << "[ -e /proc/$(cat product-alice.pid) ]; " + unchanged + "[ ! -e privileged.log ];"
           " grep -qF 'acquireRight ] failed to aquire right system.privilege.admin. Err: -60006' homes/alice/.local/state/Brisvane/Uninstaller.log"
        << QStringList();
    // clang-format on
}

void tst_UninstallE2e::run()
{
    QFETCH(QString, how);
    QFETCH(QString, setup);
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, check);
    QFETCH(QStringList, again);
    const bool window = how.startsWith("window");

    // The uninstaller stops processes called Brisvane: runs of this test in other build
    // trees must not stop each other's.
    QLockFile productLock(QDir::tempPath() + "/brisvane-uninstaller-e2e.lock");
    QVERIFY2(productLock.tryLock(300000), "another run holds the product");
    QTemporaryDir sandbox(QDir::homePath() + "/../e2e-XXXXXX");
    QVERIFY2(sandbox.isValid(), qPrintable(sandbox.errorString()));
    const QString root = QFileInfo(sandbox.path()).canonicalFilePath();
    // The user database's groups differ from the user ids, as on any real system. A product
    // runs as its user under a shell that waits for it, so that it is reaped as soon as it
    // ends (as the system does for a real product): a zombie still answers signal 0, and
    // the window stops the first process called Brisvane it finds.
    QByteArray failure = shell(root,
        "product() { n=$1; id=$2; shift 2; (setpriv --reuid=${id%:*} --regid=${id#*:} --clear-groups \"$@\" & echo $! >product-$n.pid; wait)"
        "  </dev/null >/dev/null 2>&1 & sleep 0.3; };"
        " chmod 755 .; mkdir -p run roothome/.bv2/pss; echo \"root:x:0:0:root:$PWD/roothome:/bin/bash\" >run/passwd; ln -s run/passwd;"
        " for u in alice:4101 bob:4102 carol:4103; do n=${u%:*}; id=${u#*:}; gid=$((id + 100)); h=$PWD/homes/$n;"
        "  echo \"$n:x:$id:$gid::$h:/bin/bash\" >>passwd; mkdir -p $h/Documents $h/.local; echo canary >$h/keep.txt;"
        "  if [ $n != carol ]; then mkdir -p $h/.bv2/pss $h/.bv2/server_access_keys/nested $h/.config/Brisvane;"
        "   echo \"$n key\" >$h/.bv2/pss/id.key; head -c 40000 /dev/urandom >$h/.bv2/server_access_keys/nested/s.key;"
        "   echo cache >$h/.bv2/cache.db; echo >$h/.config/Brisvane/Brisvane.conf;"
        "   chmod 700 $h/.bv2/pss; chmod 600 $h/.bv2/pss/id.key; cp -a $h/.bv2 keys-$n; fi;"
        "  chown -R $id:$gid $h;"
        "  if [ $n = alice ] || [ $n = bob -a \"$2\" = false ]; then product $n $id:$gid \"$1/Brisvane.app/Contents/MacOS/Brisvane\" 300; fi;"
        " done; mkdir -p Library Apps/Other; echo canary >Apps/Other/keep.txt; cp -al \"$1\" Apps/;"
        " printf 'import json,sys,jsonschema\\njsonschema.validate(json.load(open(sys.argv[1])), json.load(open(\"%s\")))\\n'"
        "  \"$3\" >validate.py; "
            + (setup.isEmpty() ? QString("true") : setup) + "; " + C_SNAPSHOT + " >snapshot.before",
        {BV_STAGE_PRODUCT_DIR, window ? "true" : "false", BV_SOURCE_DIR "/docs/report.schema.json"});
    auto stopProducts = qScopeGuard([&root] {
        shell(root, "for f in product-*.pid; do kill -9 $(cat $f) || true; done;"
                    " ! mountpoint -q homes/alice/Documents || umount homes/alice/Documents");
    });
    QVERIFY2(failure.isEmpty(), failure.constData());
    arguments.replaceInStrings("$R", root);

    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("BV_SANDBOX", root);
    env.insert("PATH", BV_SOURCE_DIR "/tools/sandbox-bin:" + env.value("PATH"));
    env.insert("LC_ALL", "C");
    env.insert("HOME", root + (window || how == "alice" ? "/homes/alice" : "/roothome"));
    env.remove("XDG_STATE_HOME"); // the support log goes where the program puts it by default
    env.remove("XDG_CONFIG_HOME");
    env.remove("XDG_RUNTIME_DIR");
    QStringList command {BV_SOURCE_DIR "/tests/common/private-run", root + "/run"};
    if (how.contains("alice"))
        command << "setpriv" << "--reuid=4101" << "--regid=4201" << "--clear-groups";
    command << root + '/' + C_PROGRAM;
    if (window) {
        env.insert("QT_QPA_PLATFORM", "xcb");
    } else {
        env.remove("DISPLAY"); // no window server, as under a management tool
        env.remove("QT_QPA_PLATFORM");
    }
    if (how.endsWith("unreadable key")) {
        // Root reads everything: the read error comes from the fault injector. The sanitizer
        // runtime is not preloaded ahead of it (ps and the shell tools would inherit it).
        env.insert("LD_PRELOAD", BV_FAULTINJECT);
        env.insert("ASAN_OPTIONS", env.value("ASAN_OPTIONS") + ":verify_asan_link_order=0");
        env.insert("BV_FAULT_READ", "s.key");
    }
    auto start = [&] {
        auto uninstaller = std::make_unique<QProcess>();
        uninstaller->setProcessEnvironment(env);
        uninstaller->setWorkingDirectory(root);
        uninstaller->start(command.first(), command.mid(1) + arguments);
        uninstaller->waitForStarted();
        return uninstaller;
    };
    QByteArray said; // everything the runs printed
    auto finish = [&said](QProcess &uninstaller, QByteArray *output = nullptr) {
        const bool ended = uninstaller.waitForFinished(90000) || uninstaller.state() == QProcess::NotRunning;
        const QByteArray printed = uninstaller.readAllStandardOutput();
        if (output)
            *output = printed;
        said += printed + uninstaller.readAllStandardError().right(3000);
        return ended && uninstaller.exitStatus() == QProcess::NormalExit ? uninstaller.exitCode() : -1;
    };

    if (how == "twice") {
        const std::unique_ptr<QProcess> first = start();
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(root + "/run/com.brisvane.uninstaller.lock"), 20000);
        const std::unique_ptr<QProcess> second = start();
        QVERIFY2(finish(*second) == 75, said.constData());
        QVERIFY2(said.contains("Another uninstall is running."), said.constData());
        QVERIFY2(finish(*first) == exitCode, said.constData());
    } else {
        const std::unique_ptr<QProcess> uninstaller = start();
        if (window)
            useWindow(*uninstaller, root + "/homes/alice/.local/state/Brisvane/Uninstaller.log");
        QByteArray output;
        QVERIFY2(finish(*uninstaller, &output) == exitCode, said.constData());
        if (arguments.contains("-")) // the report on standard output, and nothing else there
            QVERIFY2(QJsonDocument::fromJson(output).isObject(), output.constData());
    }

    // Nothing ran that a folder name smuggled in, and the canaries are untouched.
    const QString canaries = "[ -z \"$(find . -name PWNED)\" ]; for u in alice bob carol; do"
                             " grep -qx canary homes/$u/keep.txt; done; grep -qx canary Apps*/Other/keep.txt; ";
    failure = shell(root, canaries + check);
    QVERIFY2(failure.isEmpty(), (failure + "\n--- program said:\n" + said).constData());
    if (again.isEmpty())
        return;
    QCOMPARE(shell(root, again.first()), QByteArray());
    if (again.size() > 2)
        arguments = again.at(2).split(' ').replaceInStrings("$R", root);
    QVERIFY2(finish(*start()) == 0, said.constData());
    failure = shell(root, canaries + again.at(1));
    QVERIFY2(failure.isEmpty(), (failure + "\n--- program said:\n" + said).constData());
}

void tst_UninstallE2e::useWindow(QProcess &uninstaller, const QString &log)
{
    // Places in the fixed-size window: Uninstall, and Close or Cancel; a click on a
    // disabled button is lost.
    // ("%1" is xdotool's: the first window found.)
    const QString click = "search --sync --onlyvisible --name \"^Brisvane Uninstaller$\" mousemove --window %1 ";
    QProcess xdotool;
    xdotool.start("xdotool", QProcess::splitCommand(click + "250 312 click 1"));
    QVERIFY2(xdotool.waitForFinished(20000), uninstaller.readAllStandardError().constData());
    // The window has dealt with the end of the run and stays until told to close.
    QTRY_VERIFY2_WITH_TIMEOUT(logShows(log, "Thread ( 1 \"Uninstall\" ) unregistering"), qPrintable(log), 60000);
    QCOMPARE(uninstaller.state(), QProcess::Running);
    for (int i = 0; i < 60 && uninstaller.state() != QProcess::NotRunning; ++i) {
        xdotool.start("xdotool", QProcess::splitCommand(click + "352 312 click 1"));
        xdotool.waitForFinished(10000);
        uninstaller.waitForFinished(500);
    }
}

QTEST_GUILESS_MAIN(tst_UninstallE2e)
#include "tst_uninstall_e2e.moc"
