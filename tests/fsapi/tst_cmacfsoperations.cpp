#include "fsapi/mac/CMacFSOperations.h"

#include "fstestsupport.h"

#include <functional>

using namespace FsTest;

// The operation under test, given the sandbox folder (with a trailing '/').
using Call = std::function<bool(CMacFSOperations &, const QString &)>;
Q_DECLARE_METATYPE(Call)
#define OP(expression)                                                                             \
    Call([]([[maybe_unused]] CMacFSOperations &f, [[maybe_unused]] const QString &r) {             \
        return expression;                                                                         \
    })
using L = QStringList;

// The program runs with the fault injector preloaded (see faultinject.cpp); a row's fault
// variable is set for its call only.
class tst_CMacFSOperations : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(qgetenv("LD_PRELOAD").contains("bv_faultinject")); }
    void operations_data();
    void operations();
};

void tst_CMacFSOperations::operations_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QString>("fault"); // VARIABLE=value for the injector
    QTest::addColumn<QString>("expected"); // outcome(); %R stands for the sandbox
    QTest::addColumn<L>("gone"); // what vanishes from the sandbox
    QTest::addColumn<L>("added"); // and what appears; nothing else may change
    QTest::addColumn<L>("logged"); // critical lines it gives, %R as above
    const QString notDir
        = "FileSystemException: %R%1 is not a directory / Specified path is not a directory";
    // clang-format off
    QTest::newRow("link to a folder is none")  << OP(f.directoryExists(r + "dirlink")) << "" << notDir.arg("dirlink") << L {} << L {} << L {};
    // "link/" still names the link: the kernel would resolve it to the folder it points to.
    QTest::newRow("delete tree through link/") << OP(f.deleteDirectory(r + "dirlink/", true)) << "" << notDir.arg("dirlink/") << L {} << L {} << L {};
    QTest::newRow("delete tree")               << OP(f.deleteDirectory(r + "tree", true)) << "" << "true" << L {"tree"} << L {} << L {};
    QTest::newRow("delete tree, no d_type")    << OP(f.deleteDirectory(r + "tree", true)) << "BV_FAULT_DTUNKNOWN=1" << "true" << L {"tree"} << L {} << L {};
    QTest::newRow("rmdir interrupted once")    << OP(f.deleteDirectory(r + "empty", false)) << "BV_FAULT_UNLINK=/empty:EINTR" << "true" << L {"empty"} << L {} << L {};
    // Modes kept, folders made 0700; the device link is left out and said so. It comes
    // before the file in one folder and after it in the other, in any file system's order:
    // a copy that did not note the skipped entry would answer for its last one only.
    QTest::newRow("copy folder, device as y") << OP(f.copyDirectory(r + "dir", r + "copy")) << "" << "false" << L {} << L {"copy dir 700", "copy/x file 600 k"} << L {"Not a regular file, not copied: \"%Rdir/y\""};
    QTest::newRow("copy folder, device as x") << OP(f.copyDirectory(r + "dir2", r + "copy")) << "" << "false" << L {} << L {"copy dir 700", "copy/y file 600 k"} << L {"Not a regular file, not copied: \"%Rdir2/x\""};
    QTest::newRow("copy into a sibling with the same prefix") << OP(f.copyDirectory(r + "empty", r + "emptycopy")) << "" << "true" << L {} << L {"emptycopy dir 700"} << L {};
    // A short write is a failure too, and the partial copy goes.
    QTest::newRow("write cut short")           << OP(f.copyFile(r + "file", r + "out", false, false, false)) << "BV_FAULT_WRITE=/out:2" << "FileSystemException: createDirectory failed. Errno: 5" << L {} << L {} << L {};
    // Names that are not UTF-8 reach the kernel again as the same bytes.
    QTest::newRow("name: encoded surrogate")   << OP(CMacFSOperations::encodePath(CMacFSOperations::decodePath("\xed\xa0\x80")) == "\xed\xa0\x80") << "" << "true" << L {} << L {} << L {};
    // Parking replaces nothing, not even an empty folder; a failed step is rolled back.
    QTest::newRow("safe delete parked on a folder") << OP(f.safeDeleteDirectory(r + "tree", r + "empty", true)) << "" << "false" << L {} << L {} << L {"Could not rename file to safe name:  \"%Rtree\" \"%Rempty\""};
    QTest::newRow("safe delete, deletion fails") << OP(f.safeDeleteFile(r + "file", r + "safe", false)) << "BV_FAULT_UNLINK=/safe" << "FileSystemException: deleteFile failed. Errno: 13 'Permission denied' '%Rsafe'" << L {} << L {} << L {};
    QTest::newRow("safe clean, parking fails") << OP(f.safeCleanDirectory(r + "dir", r + "no/safe", false)) << "" << "false" << L {} << L {} << L {"Could not rename file to safe name:  \"%Rdir/x\" \"%Rno/safe.x\"", "Could not rename file to safe name:  \"%Rdir/y\" \"%Rno/safe.y\""};
    // clang-format on
}

void tst_CMacFSOperations::operations()
{
    QFETCH(Call, call);
    QFETCH(QString, fault);
    QFETCH(QString, expected);
    QFETCH(L, gone);
    QFETCH(L, added);
    QFETCH(L, logged);
    QTemporaryDir dir;
    QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
    const QString root = dir.path() + '/';
    QVERIFY(make(root,
        {"file=data", "dir/", "dir/x=k", "dir/y->/dev/null", "dir2/", "dir2/x->/dev/null",
            "dir2/y=k", "dirlink->dir", "empty/", "tree/", "tree/f=", "tree/sub/",
            "tree/sub/g=", "tree/to-dir->../dir"}));
    for (const char *key : {"dir/x", "dir2/y"})
        QVERIFY(QFile::setPermissions(root + key, QFile::ReadOwner | QFile::WriteOwner));
    const L before = snapshot(root);
    for (const QString &line : logged) // in any order: the walks go in readdir's
        QTest::ignoreMessage(QtCriticalMsg,
            QRegularExpression(
                "\\] " + QRegularExpression::escape(QString(line).replace("%R", root)) + "$"));
    CMacFSOperations fs;
    qputenv(qPrintable(fault.section('=', 0, 0)), fault.section('=', 1).toUtf8());
    const QString got = outcome([&] { return call(fs, root); });
    qunsetenv(qPrintable(fault.section('=', 0, 0)));
    QCOMPARE(got, expected.replace("%R", root));
    QCOMPARE(snapshot(root), changed(before, gone, added));
}

QTEST_GUILESS_MAIN(tst_CMacFSOperations)
#include "tst_cmacfsoperations.moc"
