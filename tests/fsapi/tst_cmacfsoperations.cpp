#include "fsapi/CFSOperations.h"

#include "fstestsupport.h"

#include <QTemporaryDir>

#include <cstdio>
#include <functional>
#include <memory>
#include <sys/socket.h>
#include <sys/un.h>

using namespace FsTest;

namespace {
using Attr = IFSOperations::EFileSystemAttribute;
// The operation under test, given the sandbox folder (with a trailing '/').
using Call = std::function<bool(IFSOperations &, const QString &)>;
#define OP(expression)                                                                             \
    Call([=]([[maybe_unused]] IFSOperations &f, [[maybe_unused]] const QString &r) {               \
        return expression;                                                                         \
    })
const QDateTime kNone;
const char *const kSources = "CMacFSOperations(?:_safe)?\\.cpp";
const QString kOdd = CMacFSOperations::decodePath("odd\xff\xfe");
const QString kLatin = CMacFSOperations::decodePath("n\xe9");
using L = QStringList;

// What copying the folder "dir" of the sandbox to "copy" makes: file modes kept, folders
// made 0700 as createDirectory makes them, the link copied as the file it points to.
const L kCopied {"copy dir 700", "copy/inside file 644 \"in\"", "copy/link file 644 \"data\"",
    "copy/script file 750 \"#!\"", "copy/sub dir 700", "copy/sub/secret file 600 \"k\""};

// gone: what vanishes from the sandbox's snapshot, added: what appears; nothing else may
// change. logged: "function|text". faults: plain operations made to fail, see Faulty.
void addRow(const char *name, const Call &call, const QString &expected, const L &gone = {},
    const L &added = {}, const L &logged = {}, const L &faults = {})
{
    QTest::newRow(name) << call << expected << gone << added << logged << faults;
}

// The outcome and lines of a call made in a child with the fault injector preloaded and
// the variables in faults ("VARIABLE=value;...") set.
QStringList runInjected(const QString &call, const QString &faults)
{
    const L variables = L {"LD_PRELOAD=" BV_FAULT_PRELOAD} + faults.split(';', Qt::SkipEmptyParts);
    for (const QString &variable : variables)
        qputenv(qPrintable(variable.section('=', 0, 0)), variable.section('=', 1).toUtf8());
    const BvTest::ChildResult child = BvTest::runChild(call, 10000);
    for (const QString &variable : variables)
        qunsetenv(qPrintable(variable.section('=', 0, 0)));
    L lines = QString::fromUtf8(child.standardError).split('\n', Qt::SkipEmptyParts);
    const bool answered = !lines.isEmpty() && lines.last().startsWith("RESULT ");
    lines.prepend(answered ? lines.takeLast().mid(7) : "no answer: the child hung or died");
    return logged(lines, kSources);
}
} // namespace

Q_DECLARE_METATYPE(Call)

class tst_CMacFSOperations : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void operations_data();
    void operations();
    void inChild_data();
    void inChild();
    void undeletableEntryStopsTheWalk();

private:
    std::unique_ptr<QTemporaryDir> m_Dir;
    QString m_Root;
};

void tst_CMacFSOperations::init()
{
    m_Dir = std::make_unique<QTemporaryDir>();
    QVERIFY2(m_Dir->isValid(), qPrintable(m_Dir->errorString()));
    m_Root = m_Dir->path() + QLatin1Char('/');
    QVERIFY(make(m_Root,
        {"file=data", "FILE=upper", "long=0123LONGER", "dir/", "dir/inside=in", "dir/script=#!",
            "dir/sub/", "dir/sub/secret=k", "dir/link->../file", "empty/", "canary/",
            "canary/keep=precious", "tree/", "tree/top=y", "tree/to-keep->../canary/keep",
            "tree/a/", "tree/a/b/", "tree/a/b/deep=x", "tree/a/to-canary->../../canary",
            "dirlink->dir", "dangling->nowhere", kOdd + "/", kOdd + "/" + kLatin + "=latin"}));
    QVERIFY(::chmod(bytes(m_Root + "dir/script").constData(), 0750) == 0);
    QVERIFY(::chmod(bytes(m_Root + "dir/sub").constData(), 0700) == 0);
    QVERIFY(::chmod(bytes(m_Root + "dir/sub/secret").constData(), 0600) == 0);
}

// QTemporaryDir cannot remove names that are not UTF-8.
void tst_CMacFSOperations::cleanup()
{
    QProcess::execute("rm", {"-rf", m_Dir->path()});
}

// The safe variants park the object under the safe name, act on it there and move it back
// when the act fails; a failed way back leaves it parked, with "ERROR at ROLLBACK: ".
void tst_CMacFSOperations::operations_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QString>("expected"); // outcome(); %R stands for the sandbox
    QTest::addColumn<L>("gone");
    QTest::addColumn<L>("added");
    QTest::addColumn<L>("logged");
    QTest::addColumn<L>("faults");
    const QString notDir
        = "FileSystemException: %R%1 is not a directory / Specified path is not a directory";
    const QString invalid = "FileSystemException: Empty path / Invalid parameter";
    const QString injected = "FileSystemException: injected";
    const QString parkedFile = "safe file 644 \"data\" @1000000";
    const QDateTime t = QDateTime::fromSecsSinceEpoch(1000000000);
    const auto roundTrip = [](const char *name) {
        return OP(CMacFSOperations::encodePath(CMacFSOperations::decodePath(name)) == name);
    };
    const auto rollback = [](const char *function, const char *what) {
        return L {QStringLiteral("%1|ERROR at ROLLBACK:  %2").arg(function, what)};
    };
    // clang-format off
    addRow("fileExists: file",                  OP(f.fileExists(r + "file")), "true");
    addRow("fileExists: folder",                OP(f.fileExists(r + "dir")), "FileSystemException: %Rdir is a directory / Specified path is not a file");
    addRow("fileExists: link to a folder",      OP(f.fileExists(r + "dirlink")), "true");
    addRow("fileExists: dangling link",         OP(f.fileExists(r + "dangling")), "true");
    addRow("fileExists: empty path",            OP(f.fileExists("")), invalid);
    addRow("directoryExists: file",             OP(f.directoryExists(r + "file")), notDir.arg("file"));
    addRow("directoryExists: link to a folder", OP(f.directoryExists(r + "dirlink")), notDir.arg("dirlink"));
    addRow("directoryExists: missing",          OP(f.directoryExists(r + "missing")), "false");
    addRow("directoryExists: empty path",       OP(f.directoryExists("")), "false", {}, {}, {"directoryExists|Empty path ..."});
    addRow("isSymbolicLink: dangling",          OP(f.isSymbolicLink(r + "dangling")), "true");
    addRow("getFSID: of the link itself",       Call([](IFSOperations &f, const QString &r) { unsigned long long a = 0, b = 0; return f.getFSID(r + "dirlink", a) && f.getFSID(r + "dir", b) && a != b; }), "true");
    // deleteFile tries the removal first and tells why only when it fails.
    addRow("deleteFile: file",                  OP(f.deleteFile(r + "file", false)), "true", {"file"});
    addRow("deleteFile: missing",               OP(f.deleteFile(r + "missing", false)), "DoesNotExist: File not found: %Rmissing / Specified file doesn't exist");
    addRow("deleteFile: folder",                OP(f.deleteFile(r + "empty", false)), "FileSystemException: %Rempty is a directory / Specified path is not a file");
    addRow("deleteFile: link to a folder",      OP(f.deleteFile(r + "dirlink", false)), "true", {"dirlink"});
    addRow("deleteFile: dangling link",         OP(f.deleteFile(r + "dangling", false)), "true", {"dangling"});
    addRow("deleteFile: empty path",            OP(f.deleteFile("", false)), invalid);
    addRow("delete tree, links not followed",   OP(f.deleteDirectory(r + "tree", true)), "true", {"tree"});
    addRow("delete full folder, not forced",    OP(f.deleteDirectory(r + "dir", false)), "false");
    addRow("delete folder, odd names",          OP(f.deleteDirectory(r + kOdd, true)), "true", {kOdd});
    addRow("clean, files only",                 OP(f.cleanDirectory(r + "tree", false)), "true", {"tree/top", "tree/to-keep"});
    addRow("clean, recursive",                  OP(f.cleanDirectory(r + "tree", true)), "true", {"tree/top", "tree/to-keep", "tree/a"});
    addRow("clean missing folder",              OP(f.cleanDirectory(r + "missing", true)), "false", {}, {}, {"cleanDirectory|directory doesn't exists \"%Rmissing\""});
    addRow("copy folder",                       OP(f.copyDirectory(r + "dir", r + "copy")), "true", {}, kCopied);
    addRow("copy folder, odd names",            OP(f.copyDirectory(r + kOdd, r + "copy")), "true", {}, {"copy dir 700", "copy/" + kLatin + " file 644 \"latin\""});
    addRow("copy folder onto existing",         OP(f.copyDirectory(r + "dir", r + "empty")), "DirectoryExists: Destination already exists: %Rempty / Specified directory already exists");
    addRow("copy folder, empty source",         OP(f.copyDirectory("", r + "copy")), "false", {}, {}, {"copyDirectory|Empty src path ..."});
    addRow("copy over longer file keeps tail",  OP(f.copyFile(r + "file", r + "long", false, false, true)), "true", {"long"}, {"long file 644 \"dataLONGER\""});
    addRow("copy onto existing",                OP(f.copyFile(r + "file", r + "long", false, false, false)), "FileExists: Destination already exists: %Rlong");
    addRow("copy into missing folder",          OP(f.copyFile(r + "file", r + "new/copy", false, false, false)), "DoesNotExist: Specified path doesn't exist: %Rnew/copy");
    addRow("copy, empty destination",           OP(f.copyFile(r + "file", "", true, true, true)), "false", {}, {}, {"copyFile|Empty dest path ..."});
    addRow("create three levels, forced",       OP(f.createDirectory(r + "x/y/z", kNone, kNone, kNone, Attr(), true)), "true", {}, {"x dir 700", "x/y dir 700", "x/y/z dir 700"});
    addRow("create, missing parent",            OP(f.createDirectory(r + "x/y/z", kNone, kNone, kNone, Attr(), false)), "DoesNotExist: Specified path doesn't exist: %Rx/y/z");
    addRow("create file with stamps",           OP(f.createFile(r + "new", kNone, t, t, Attr())), "true", {}, {"new file 644 \"\" @1000000000"});
    addRow("null stamp keeps the time",         OP(f.setTimeStamps(r + "file", kNone, kNone, t, false)), "true");
    addRow("move onto existing",                OP(f.moveFile(r + "file", r + "long", false, false)), "FileExists: Destination already exists: %Rlong");
    addRow("rename file across folders",        OP(f.renameFile(r + "file", r + "dir/file", false)), "FileSystemException: Paths not equal / Invalid parameter");
    // "link/" still names the link: the kernel would resolve it to the folder it points to.
    addRow("link/: delete tree",                OP(f.deleteDirectory(r + "dirlink/", true)), notDir.arg("dirlink/"));
    addRow("link/: clean",                      OP(f.cleanDirectory(r + "dirlink/", true)), notDir.arg("dirlink/"));
    addRow("link//: directoryExists",           OP(f.directoryExists(r + "dirlink//")), notDir.arg("dirlink//"));
    addRow("link/: fileExists",                 OP(f.fileExists(r + "dirlink/")), "true");
    addRow("link/: isSymbolicLink",             OP(f.isSymbolicLink(r + "dirlink/")), "true");
    addRow("link/: getFSID of the link",        Call([](IFSOperations &f, const QString &r) { unsigned long long a = 0, b = 1; return f.getFSID(r + "dirlink/", a) && f.getFSID(r + "dirlink", b) && a == b; }), "true");
    addRow("link/: deleteFile removes the link", OP(f.deleteFile(r + "dirlink/", false)), "true", {"dirlink"});
    addRow("link/: copy folder",                OP(f.copyDirectory(r + "dirlink/", r + "copy")), notDir.arg("dirlink/"));
    addRow("folder/: delete tree",              OP(f.deleteDirectory(r + "tree/", true)), "true", {"tree"});
    addRow("safe deleteFile",                  OP(f.safeDeleteFile(r + "file", r + "safe", false)), "true", {"file"});
    addRow("safe deleteFile: rolled back",     OP(f.safeDeleteFile(r + "file", r + "safe", false)), "false", {}, {}, {}, {"deleteFile#1"});
    addRow("safe deleteFile: throws",          OP(f.safeDeleteFile(r + "file", r + "safe", false)), injected, {}, {}, {}, {"deleteFile#1!"});
    addRow("safe deleteFile: rollback fails",  OP(f.safeDeleteFile(r + "file", r + "safe", false)), "false", {"file"}, {parkedFile}, rollback("safeDeleteFile", "\"%Rsafe\" \"%Rfile\""), {"deleteFile#1", "moveFile#2"});
    addRow("safe deleteFile: missing",         OP(f.safeDeleteFile(r + "missing", r + "safe", false)), "DoesNotExist: File not found: %Rmissing / Specified file doesn't exist");
    addRow("safe deleteFile: empty path",      OP(f.safeDeleteFile("", r + "safe", false)), "false", {}, {}, {"safeDeleteFile|Empty path ..."});
    addRow("safe deleteDirectory",             OP(f.safeDeleteDirectory(r + "empty", r + "safe", true)), "true", {"empty"});
    addRow("safe deleteDirectory: rolled back", OP(f.safeDeleteDirectory(r + "empty", r + "safe", true)), "false", {}, {}, {}, {"deleteDirectory#1"});
    addRow("safe deleteDirectory: rollback fails", OP(f.safeDeleteDirectory(r + "empty", r + "safe", true)), "false", {"empty"}, {"safe dir 755"}, rollback("safeDeleteDirectory", "\"%Rsafe\" \"%Rempty\""), {"deleteDirectory#1", "moveDirectory#2"});
    addRow("safe deleteDirectory: parked on a folder", OP(f.safeDeleteDirectory(r + "dir", r + "empty", true)), "false", {}, {}, {"safeDeleteDirectory|Could not rename file to safe name:  \"%Rdir\" \"%Rempty\""});
    addRow("safe moveFile",                    OP(f.safeMoveFile(r + "file", r + "new/a", r + "safe", true, false)), "true", {"file"}, {"new dir 700", "new/a file 644 \"data\" @1000000"});
    addRow("safe moveFile: rolled back",       OP(f.safeMoveFile(r + "file", r + "new/a", r + "safe", true, false)), "false", {}, {}, {}, {"moveFile#2"});
    addRow("safe moveFile: throws",            OP(f.safeMoveFile(r + "file", r + "new/a", r + "safe", true, false)), injected, {}, {}, {}, {"moveFile#2!"});
    addRow("safe moveFile: rollback fails",    OP(f.safeMoveFile(r + "file", r + "new/a", r + "safe", true, false)), "false", {"file"}, {parkedFile}, rollback("safeMoveFile", "\"%Rsafe\" \"%Rfile\""), {"moveFile#2", "moveFile#3"});
    addRow("safe moveFile: onto existing",     OP(f.safeMoveFile(r + "file", r + "long", r + "safe", true, false)), "FileExists: Destination already exists: %Rlong", {}, {}, {"safeMoveFile|Destination already exists:  \"%Rlong\""});
    addRow("safe moveFile: onto a name differing in case", OP(f.safeMoveFile(r + "file", r + "FILE", r + "safe", false, false)), "FileExists: Destination already exists: %RFILE", {}, {}, {"safeMoveFile|Destination already exists:  \"%RFILE\""});
    // Whatever is under the safe name stays: parking replaces nothing, in any variant.
    addRow("safe moveFile: safe name taken",   OP(f.safeMoveFile(r + "file", r + "new/a", r + "long", true, false)), "FileExists: Destination already exists: %Rlong");
    addRow("safe renameFile: safe name taken", OP(f.safeRenameFile(r + "file", r + "renamed", r + "long", false)), "FileExists: Destination already exists: %Rlong");
    addRow("safe moveFile: safe name differs in case", OP(f.safeMoveFile(r + "file", r + "new/a", r + "FILE", true, false)), "FileExists: Destination already exists: %RFILE");
    addRow("safe deleteFile: safe name taken", OP(f.safeDeleteFile(r + "file", r + "long", false)), "FileExists: Destination already exists: %Rlong");
    addRow("safe deleteFile: safe name differs in case", OP(f.safeDeleteFile(r + "file", r + "FILE", false)), "FileExists: Destination already exists: %RFILE");
    addRow("safe copyFile: safe name taken",   OP(f.safeCopyFile(r + "file", r + "copy", r + "long", false, false, false)), "FileExists: Destination already exists: %Rlong");
    addRow("safe setTimeStamps: safe name differs in case", OP(f.safeSetTimeStamps(r + "file", r + "FILE", t, t, t, false)), "true", {"file"}, {"file file 644 \"data\" @1000000000"}, {"safeSetTimeStamps|could not rename file/dir to safename before setting timestamps -> now set timestamps to original file/dir"});
    addRow("safe deleteDirectory: safe name taken", OP(f.safeDeleteDirectory(r + "empty", r + "file", true)), "false", {}, {}, {"safeDeleteDirectory|Could not rename file to safe name:  \"%Rempty\" \"%Rfile\""});
    addRow("safe moveDirectory",               OP(f.safeMoveDirectory(r + "empty", r + "dir/moved", r + "safe", false)), "true", {"empty"}, {"dir/moved dir 755"});
    addRow("safe moveDirectory: rolled back",  OP(f.safeMoveDirectory(r + "empty", r + "dir/moved", r + "safe", false)), "false", {}, {}, {}, {"moveDirectory#2"});
    addRow("safe moveDirectory: throws",       OP(f.safeMoveDirectory(r + "empty", r + "dir/moved", r + "safe", false)), injected, {}, {}, {}, {"moveDirectory#2!"});
    addRow("safe moveDirectory: rollback fails", OP(f.safeMoveDirectory(r + "empty", r + "dir/moved", r + "safe", false)), "false", {"empty"}, {"safe dir 755"}, rollback("safeMoveDirectory", "\"%Rsafe\" \"%Rempty\""), {"moveDirectory#2", "moveDirectory#3"});
    addRow("safe copyFile",                    OP(f.safeCopyFile(r + "file", r + "copy", r + "safe", false, false, false)), "true", {}, {"copy file 644 \"data\""});
    addRow("safe copyFile: rolled back",       OP(f.safeCopyFile(r + "file", r + "copy", r + "safe", false, false, false)), "false", {}, {}, {}, {"moveFile#1"});
    addRow("safe copyFile: throws",            OP(f.safeCopyFile(r + "file", r + "copy", r + "safe", false, false, false)), injected, {}, {}, {}, {"copyFile#1!"});
    addRow("safe copyFile: rollback fails",    OP(f.safeCopyFile(r + "file", r + "copy", r + "safe", false, false, false)), "false", {}, {"safe file 644 \"data\""}, rollback("safeCopyFile", "\"%Rsafe\""), {"moveFile#1", "deleteFile#1"});
    addRow("safe renameFile",                  OP(f.safeRenameFile(r + "file", r + "renamed", r + "safe", false)), "true", {"file"}, {"renamed file 644 \"data\" @1000000"});
    addRow("safe renameFile: rolled back",     OP(f.safeRenameFile(r + "file", r + "renamed", r + "safe", false)), "false", {}, {}, {}, {"moveFile#2"});
    addRow("safe renameFile: rollback fails",  OP(f.safeRenameFile(r + "file", r + "renamed", r + "safe", false)), "false", {"file"}, {parkedFile}, rollback("safeMoveFile", "\"%Rsafe\" \"%Rfile\""), {"moveFile#2", "moveFile#3"});
    addRow("safe renameFile: across folders",  OP(f.safeRenameFile(r + "file", r + "dir/file", r + "safe", false)), "FileSystemException: Paths not equal / Invalid parameter");
    addRow("safe renameDirectory",             OP(f.safeRenameDirectory(r + "empty", r + "renamed", r + "safe")), "true", {"empty"}, {"renamed dir 755"});
    addRow("safe renameDirectory: rolled back", OP(f.safeRenameDirectory(r + "empty", r + "renamed", r + "safe")), "false", {}, {}, {}, {"moveDirectory#2"});
    addRow("safe renameDirectory: rollback fails", OP(f.safeRenameDirectory(r + "empty", r + "renamed", r + "safe")), "false", {"empty"}, {"safe dir 755"}, rollback("safeMoveDirectory", "\"%Rsafe\" \"%Rempty\""), {"moveDirectory#2", "moveDirectory#3"});
    addRow("safe createDirectory",             OP(f.safeCreateDirectory(r + "made", r + "safe", t, t, t, Attr(), false)), "true", {}, {"made dir 700"});
    addRow("safe createDirectory: rolled back", OP(f.safeCreateDirectory(r + "made", r + "safe", t, t, t, Attr(), false)), "false", {}, {}, {}, {"moveDirectory#1"});
    addRow("safe createDirectory: rollback fails", OP(f.safeCreateDirectory(r + "made", r + "safe", t, t, t, Attr(), false)), "false", {}, {"safe dir 700"}, rollback("safeCreateDirectory", "\"%Rsafe\""), {"moveDirectory#1", "deleteDirectory#1"});
    addRow("safe cleanDirectory",              OP(f.safeCleanDirectory(r + "canary", r + "safe", false)), "true", {"canary/keep"});
    addRow("safe cleanDirectory: rolled back", OP(f.safeCleanDirectory(r + "canary", r + "safe", false)), "false", {}, {}, {}, {"deleteFile#1"});
    addRow("safe cleanDirectory: rollback fails", OP(f.safeCleanDirectory(r + "canary", r + "safe", false)), "false", {"canary/keep"}, {"safe.keep file 644 \"precious\" @1000000"}, rollback("safeDeleteFile", "\"%Rsafe.keep\" \"%Rcanary/keep\""), {"deleteFile#1", "moveFile#2"});
    addRow("safe setTimeStamps",               OP(f.safeSetTimeStamps(r + "file", r + "safe", t, t, t, false)), "true", {"file"}, {"file file 644 \"data\" @1000000000"});
    addRow("safe setTimeStamps: throws",       OP(f.safeSetTimeStamps(r + "file", r + "safe", t, t, t, false)), injected, {}, {}, {"safeSetTimeStamps|could not set TimeStamp \"%Rsafe\""}, {"setTimeStamps#1!"});
    addRow("safe setTimeStamps: rollback fails", OP(f.safeSetTimeStamps(r + "file", r + "safe", t, t, t, false)), "false", {"file"}, {"safe file 644 \"data\" @1000000000"}, rollback("safeSetTimeStamps", "\"%Rsafe\" \"%Rfile\""), {"moveFile#2"});
    addRow("safe deleteDirectory: link/",     OP(f.safeDeleteDirectory(r + "dirlink/", r + "safe", true)), "FileSystemException: %Rdirlink/ is not a directory / Specified path is not a directory");
    addRow("safe cleanDirectory: link/",       OP(f.safeCleanDirectory(r + "dirlink/", r + "safe", true)), "FileSystemException: %Rdirlink/ is not a directory / Specified path is not a directory");
    addRow("safe setTimeStamps: cannot park",  OP(f.safeSetTimeStamps(r + "file", r + "no/safe", t, t, t, false)), "true", {"file"}, {"file file 644 \"data\" @1000000000"}, {"safeSetTimeStamps|could not rename file/dir to safename before setting timestamps -> now set timestamps to original file/dir"});
    // Names as readdir gives them must reach the kernel again as the same bytes, also where
    // they are not UTF-8 and QFile::decodeName would turn them into U+FFFD.
    addRow("name: ASCII",                   roundTrip("plain.txt"), "true");
    addRow("name: UTF-8",                   roundTrip("n\xc3\xa9 \xe2\x82\xac"), "true");
    addRow("name: outside the BMP",         roundTrip("\xf0\x9f\x94\x91key"), "true");
    addRow("name: Latin-1",                 roundTrip("n\xe9"), "true");
    addRow("name: UTF-8 and Latin-1 mixed", roundTrip("\xc3\xa9t\xe9"), "true");
    addRow("name: cut short",               roundTrip("ab\xe2\x82"), "true");
    addRow("name: overlong slash",          roundTrip("x\xc0\xafy"), "true");
    addRow("name: encoded surrogate",       roundTrip("\xed\xa0\x80"), "true");
    addRow("name: the escape's own bytes",  roundTrip("\xed\xb2\x80"), "true");
    addRow("name: beyond U+10FFFF",         roundTrip("\xf4\x90\x80\x80"), "true");
    // clang-format on
}

void tst_CMacFSOperations::operations()
{
    QFETCH(Call, call);
    QFETCH(QString, expected);
    QFETCH(L, gone);
    QFETCH(L, added);
    QFETCH(L, logged);
    QFETCH(L, faults);
    const L before = snapshot(m_Root);
    CFSOperations fs(new Faulty(faults));
    {
        BvTest::MessageCapture capture;
        QCOMPARE(outcome([&] { return call(fs, m_Root); }), expected.replace("%R", m_Root));
        L lines; // debug lines trace the walk; only the others are fixed texts
        for (int i = 0; i < capture.messages().size(); ++i)
            if (capture.types().at(i) != QtDebugMsg)
                lines << capture.messages().at(i);
        QCOMPARE(FsTest::logged(lines, kSources), logged.replaceInStrings("%R", m_Root));
    }
    QCOMPARE(snapshot(m_Root), changed(before, gone, added));
}

// "<operation>|<path>[|<path>]" in a child; the outcome goes last to stderr.
int childMain(const QByteArray &mode)
{
    const L call = QString::fromUtf8(mode).split('|');
    CFSOperations fs;
    const QString result = outcome([&] {
        if (call[0] == "copyFile")
            return fs.copyFile(call[1], call[2], false, false, false);
        if (call[0] == "copyDirectory")
            return fs.copyDirectory(call[1], call[2]);
        return fs.deleteDirectory(call[1], true);
    });
    std::fprintf(stderr, "RESULT %s\n", result.toUtf8().constData());
    return 0;
}

// Failures the system has to be made to give, and entries whose reading would block, never
// end or write outside the copy: run in a child that is killed when it hangs.
void tst_CMacFSOperations::inChild_data()
{
    QTest::addColumn<L>("tree"); // made before the call; "fifo:<path>", "socket:<path>" too
    QTest::addColumn<QString>("call"); // paths relative to the sandbox
    QTest::addColumn<QString>("faults");
    QTest::addColumn<L>("result"); // the outcome, then lines it must give among others
    QTest::addColumn<L>("gone");
    QTest::addColumn<L>("added");
    const QString failed = "FileSystemException: createDirectory failed. Errno: %1";
    const QString fdcopyFailed = "file_copy|fdcopy failed";
    const L src {"src/", "src/a=x", "src/sub/", "src/sub/z=z"};
    const L copied {
        "copy dir 700", "copy/a file 644 \"x\"", "copy/sub dir 700", "copy/sub/z file 644 \"z\""};
    const QString notAFile = "copyDirContents|Not a regular file, not copied: \"%R%1\"";
    const QString itself = "copyDirectory|Cannot copy a folder into itself: \"%Rsrc\" \"%R%1\"";
    // clang-format off
    QTest::newRow("write fails with EIO")    << L {} << "copyFile|big|out" << "BV_FAULT_WRITE=/out:0:EIO" << L {failed.arg(EIO), "fdcopy|Could not write.", fdcopyFailed} << L {} << L {};
    // Cut short inside the first buffer: a short write is a failure too.
    QTest::newRow("write cut short")         << L {} << "copyFile|big|out" << "BV_FAULT_WRITE=/out:10000" << L {failed.arg(EIO), "fdcopy|Could not write.", fdcopyFailed} << L {} << L {};
    QTest::newRow("write fails with ENOSPC") << L {} << "copyFile|big|out" << "BV_FAULT_WRITE=/out:16384" << L {failed.arg(ENOSPC), "fdcopy|Could not write.", fdcopyFailed} << L {} << L {};
    QTest::newRow("read fails")              << L {} << "copyFile|big|out" << "BV_FAULT_READ=/big" << L {failed.arg(EIO), "fdcopy|Could not read.", fdcopyFailed} << L {} << L {};
    QTest::newRow("source unreadable")       << L {} << "copyFile|big|out" << "BV_FAULT_OPEN=/big:EACCES" << L {failed.arg(EACCES), "file_copy|Could not open  \"%Rbig\""} << L {} << L {};
    QTest::newRow("open interrupted once")   << L {} << "copyFile|big|out" << "BV_FAULT_OPEN=/big:EINTR" << L {"true"} << L {} << L {"out file 644 \"" + QString(40000, 'a') + "\""};
    QTest::newRow("no d_type: delete")       << L {} << "deleteDirectory|tree" << "BV_FAULT_DTUNKNOWN=1" << L {"true"} << L {"tree"} << L {};
    QTest::newRow("no d_type: copy")         << L {} << "copyDirectory|dir|copy" << "BV_FAULT_DTUNKNOWN=1" << L {"true"} << L {} << kCopied;
    QTest::newRow("FIFO")                    << src + L {"fifo:src/sub/pipe"} << "copyDirectory|src|copy" << "" << L {"false", notAFile.arg("src/sub/pipe")} << L {} << copied;
    QTest::newRow("socket")                  << src + L {"socket:src/sock"} << "copyDirectory|src|copy" << "" << L {"false", notAFile.arg("src/sock")} << L {} << copied;
    QTest::newRow("link to a FIFO")          << src + L {"src/to-pipe->../pipe", "fifo:pipe"} << "copyDirectory|src|copy" << "" << L {"false", notAFile.arg("src/to-pipe")} << L {} << copied;
    QTest::newRow("link to a device")        << src + L {"src/null->/dev/null"} << "copyDirectory|src|copy" << "" << L {"false", notAFile.arg("src/null")} << L {} << copied;
    QTest::newRow("dangling link")           << src + L {"src/sub/gone->../../made-by-copy"} << "copyDirectory|src|copy" << "" << L {"false", "copyDirContents|Link to nothing, not copied: \"%Rsrc/sub/gone\""} << L {} << copied;
    QTest::newRow("copyFile of a FIFO")      << src + L {"fifo:pipe"} << "copyFile|pipe|out" << "" << L {failed.arg(EINVAL)} << L {} << L {};
    QTest::newRow("into own subtree")        << src << "copyDirectory|src|src/sub/copy" << "" << L {"false", itself.arg("src/sub/copy")} << L {} << L {};
    QTest::newRow("into own subtree, through a link") << src + L {"into->src/sub"} << "copyDirectory|src|into/copy" << "" << L {"false", itself.arg("into/copy")} << L {} << L {};
    QTest::newRow("into a sibling with the same prefix") << src + L {"src2/"} << "copyDirectory|src|src2/copy" << "" << L {"true"} << L {} << L {"src2/copy dir 700", "src2/copy/a file 644 \"x\"", "src2/copy/sub dir 700", "src2/copy/sub/z file 644 \"z\""};
    // clang-format on
}

void tst_CMacFSOperations::inChild()
{
    QFETCH(L, tree);
    QFETCH(QString, call);
    QFETCH(QString, faults);
    QFETCH(L, result);
    QFETCH(L, gone);
    QFETCH(L, added);
    const L specials = tree.filter(QRegularExpression("^(fifo|socket):"));
    QVERIFY(make(m_Root,
        tree.filter(QRegularExpression("^(?!fifo:|socket:)")) << "big=" + QString(40000, 'a')));
    const L before = snapshot(m_Root);
    for (const QString &special : specials) {
        const QByteArray path = bytes(m_Root + special.section(':', 1));
        sockaddr_un address {AF_UNIX, {}};
        qstrncpy(address.sun_path, path.constData(), sizeof address.sun_path);
        const int fd = special.startsWith("fifo:") ? -1 : ::socket(AF_UNIX, SOCK_STREAM, 0);
        QVERIFY(fd < 0 ? ::mkfifo(path.constData(), 0644) == 0
                       : ::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0
                    && ::close(fd) == 0);
    }
    const L got = runInjected(call.replace("|", "|" + m_Root), faults);
    result.replaceInStrings("%R", m_Root);
    QCOMPARE(got.value(0), result.first());
    for (const QString &line : result.mid(1))
        QVERIFY2(got.contains(line), qPrintable(line + " not in\n" + got.join('\n')));
    for (const QString &special : specials) // the snapshot would read them as files
        QVERIFY(::unlink(bytes(m_Root + special.section(':', 1)).constData()) == 0);
    QCOMPARE(snapshot(m_Root), changed(before, gone, added));
}

void tst_CMacFSOperations::undeletableEntryStopsTheWalk()
{
    QVERIFY(make(m_Root,
        {"locked/", "locked/sub/", "locked/sub/inner=", "locked/LOCKED=kept",
            "locked/f0=", "locked/f1=", "locked/f2=", "locked/f3=", "locked/f4="}));
    // The names in readdir's order, which is the walk's.
    const auto listing = [&] {
        return QDir(m_Root + "locked")
            .entryList(QDir::AllEntries | QDir::NoDotAndDotDot, QDir::Unsorted);
    };
    const L order = listing();
    QCOMPARE(runInjected("deleteDirectory|" + m_Root + "locked", "BV_FAULT_UNLINK=LOCKED").value(0),
        "FileSystemException: deleteFile failed. Errno: 13 'Permission denied' '" + m_Root
            + "locked/LOCKED'");
    // What came before the undeletable entry is gone, the rest stays.
    QCOMPARE(listing(), order.mid(order.indexOf("LOCKED")));
}

BV_TEST_MAIN_WITH_CHILD(tst_CMacFSOperations, QCoreApplication)
#include "tst_cmacfsoperations.moc"
