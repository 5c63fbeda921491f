#include "fsapi/CFSOperations.h"

#include "fstestsupport.h"

#include <QTemporaryDir>

#include <functional>
#include <memory>

using namespace FsTest;

namespace {
using Attr = IFSOperations::EFileSystemAttribute;
// The operation under test, given the sandbox folder (with a trailing '/').
using Call = std::function<bool(IFSOperations &, const QString &)>;
const QDateTime kNone;
const QDateTime kStamp = QDateTime::fromSecsSinceEpoch(1200000000);
const char *const kSource = "CMacFSOperations_safe.cpp";
} // namespace

Q_DECLARE_METATYPE(Call)

class tst_SafeOperations : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void actsLikeThePlainOperation_data();
    void actsLikeThePlainOperation();
    void rollsBack_data();
    void rollsBack();
    void refuses_data();
    void refuses();
    void stamps();

private:
    // A sandbox with a few files and folders; the returned path ends in '/'.
    QString sandbox(QTemporaryDir &dir);
    std::unique_ptr<QTemporaryDir> m_Dir;
    QString m_Root;
};

QString tst_SafeOperations::sandbox(QTemporaryDir &dir)
{
    const QString r = dir.path() + QLatin1Char('/');
    QDir(r).mkpath(QStringLiteral("dir/sub"));
    QDir(r).mkpath(QStringLiteral("elsewhere"));
    for (const char *file : {"a.txt=alpha", "other.txt=other", "dir/one=1", "dir/sub/two=2"}) {
        const QList<QByteArray> parts = QByteArray(file).split('=');
        if (!writeFile(r + QString::fromLatin1(parts[0]), parts[1]))
            qFatal("cannot write the sandbox");
    }
    return r;
}

void tst_SafeOperations::init()
{
    m_Dir = std::make_unique<QTemporaryDir>();
    QVERIFY2(m_Dir->isValid(), qPrintable(m_Dir->errorString()));
    m_Root = sandbox(*m_Dir);
}

void tst_SafeOperations::actsLikeThePlainOperation_data()
{
    QTest::addColumn<Call>("safe");
    QTest::addColumn<Call>("plain");
    const QDateTime t = kStamp;
    // clang-format off
    QTest::newRow("delete file")           << Call([](IFSOperations &f, const QString &r) { return f.safeDeleteFile(r + "a.txt", r + "safe", false); })
                                           << Call([](IFSOperations &f, const QString &r) { return f.deleteFile(r + "a.txt", false); });
    QTest::newRow("delete tree")           << Call([](IFSOperations &f, const QString &r) { return f.safeDeleteDirectory(r + "dir", r + "safe", true); })
                                           << Call([](IFSOperations &f, const QString &r) { return f.deleteDirectory(r + "dir", true); });
    QTest::newRow("move over a file")      << Call([](IFSOperations &f, const QString &r) { return f.safeMoveFile(r + "a.txt", r + "other.txt", r + "safe", false, true); })
                                           << Call([](IFSOperations &f, const QString &r) { return f.moveFile(r + "a.txt", r + "other.txt", false, true); });
    QTest::newRow("move, making folders")  << Call([](IFSOperations &f, const QString &r) { return f.safeMoveFile(r + "a.txt", r + "new/deep/a", r + "safe", true, false); })
                                           << Call([](IFSOperations &f, const QString &r) { return f.moveFile(r + "a.txt", r + "new/deep/a", true, false); });
    QTest::newRow("move folder")           << Call([](IFSOperations &f, const QString &r) { return f.safeMoveDirectory(r + "dir", r + "elsewhere/moved", r + "safe", false); })
                                           << Call([](IFSOperations &f, const QString &r) { return f.moveDirectory(r + "dir", r + "elsewhere/moved", false); });
    QTest::newRow("copy")                  << Call([](IFSOperations &f, const QString &r) { return f.safeCopyFile(r + "a.txt", r + "elsewhere/copy", r + "safe", false, false, false); })
                                           << Call([](IFSOperations &f, const QString &r) { return f.copyFile(r + "a.txt", r + "elsewhere/copy", false, false, false); });
    QTest::newRow("copy over a file")      << Call([](IFSOperations &f, const QString &r) { return f.safeCopyFile(r + "a.txt", r + "other.txt", r + "safe", false, false, true); })
                                           << Call([](IFSOperations &f, const QString &r) { return f.copyFile(r + "a.txt", r + "other.txt", false, false, true); });
    QTest::newRow("rename file")           << Call([](IFSOperations &f, const QString &r) { return f.safeRenameFile(r + "a.txt", r + "b.txt", r + "safe", false); })
                                           << Call([](IFSOperations &f, const QString &r) { return f.renameFile(r + "a.txt", r + "b.txt", false); });
    QTest::newRow("rename folder")         << Call([](IFSOperations &f, const QString &r) { return f.safeRenameDirectory(r + "dir", r + "folder", r + "safe"); })
                                           << Call([](IFSOperations &f, const QString &r) { return f.renameDirectory(r + "dir", r + "folder"); });
    QTest::newRow("create folder, forced") << Call([t](IFSOperations &f, const QString &r) { return f.safeCreateDirectory(r + "x/y/z", r + "safe", t, t, t, Attr(), true); })
                                           << Call([t](IFSOperations &f, const QString &r) { return f.createDirectory(r + "x/y/z", t, t, t, Attr(), true); });
    QTest::newRow("clean, files only")     << Call([](IFSOperations &f, const QString &r) { return f.safeCleanDirectory(r + "dir", r + "safe", false); })
                                           << Call([](IFSOperations &f, const QString &r) { return f.cleanDirectory(r + "dir", false); });
    QTest::newRow("clean, recursive")      << Call([](IFSOperations &f, const QString &r) { return f.safeCleanDirectory(r + "dir", r + "dir/safe", true); })
                                           << Call([](IFSOperations &f, const QString &r) { return f.cleanDirectory(r + "dir", true); });
    QTest::newRow("stamp file")            << Call([t](IFSOperations &f, const QString &r) { return f.safeSetTimeStamps(r + "a.txt", r + "safe", t, t, t, false); })
                                           << Call([t](IFSOperations &f, const QString &r) { return f.setTimeStamps(r + "a.txt", t, t, t, false); });
    // clang-format on
}

// On success a safe variant leaves exactly what its plain twin leaves: nothing under the
// safe name, nothing else touched.
void tst_SafeOperations::actsLikeThePlainOperation()
{
    QFETCH(Call, safe);
    QFETCH(Call, plain);
    QTemporaryDir twinDir;
    QVERIFY2(twinDir.isValid(), qPrintable(twinDir.errorString()));
    const QString twin = sandbox(twinDir);
    const QStringList before = snapshot(m_Root);
    QCOMPARE(snapshot(twin), before);

    CFSOperations fs;
    BvTest::MessageCapture capture;
    QCOMPARE(outcome([&] { return safe(fs, m_Root); }), QStringLiteral("true"));
    QCOMPARE(capture.messages(), QStringList());
    QCOMPARE(outcome([&] { return plain(fs, twin); }), QStringLiteral("true"));
    QCOMPARE(snapshot(m_Root), snapshot(twin));
    QVERIFY(snapshot(m_Root) != before);
}

void tst_SafeOperations::rollsBack_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QStringList>("faults");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QStringList>("logged");
    // Where the object stays when the rollback fails too; empty: all is as it was.
    QTest::addColumn<QString>("leftAt");
    const QString injected = QStringLiteral("FileSystemException: injected");
    const QDateTime t = kStamp;
    using L = QStringList;
    // clang-format off
    const Call delFile([](IFSOperations &f, const QString &r) { return f.safeDeleteFile(r + "a.txt", r + "safe", false); });
    QTest::newRow("delete file: delete fails")         << delFile << L {"deleteFile#1"} << "false" << L {} << "";
    QTest::newRow("delete file: delete throws")        << delFile << L {"deleteFile#1!"} << injected << L {} << "";
    QTest::newRow("delete file: rollback fails")       << delFile << L {"deleteFile#1", "moveFile#2"} << "false" << L {"safeDeleteFile|ERROR at ROLLBACK:  \"%Rsafe\" \"%Ra.txt\""} << "safe";
    QTest::newRow("delete file: rollback throws")      << delFile << L {"deleteFile#1!", "moveFile#2!"} << injected << L {"safeDeleteFile|ERROR at ROLLBACK:  \"%Rsafe\" \"%Ra.txt\""} << "safe";
    const Call delDir([](IFSOperations &f, const QString &r) { return f.safeDeleteDirectory(r + "dir", r + "safe", true); });
    QTest::newRow("delete tree: delete fails")         << delDir << L {"deleteDirectory#1"} << "false" << L {} << "";
    QTest::newRow("delete tree: rollback fails")       << delDir << L {"deleteDirectory#1", "moveDirectory#2"} << "false" << L {"safeDeleteDirectory|ERROR at ROLLBACK:  \"%Rsafe\" \"%Rdir\""} << "safe";
    const Call moveFile([](IFSOperations &f, const QString &r) { return f.safeMoveFile(r + "a.txt", r + "other.txt", r + "safe", false, true); });
    QTest::newRow("move file: move fails")             << moveFile << L {"moveFile#2"} << "false" << L {} << "";
    QTest::newRow("move file: move throws")            << moveFile << L {"moveFile#2!"} << injected << L {} << "";
    QTest::newRow("move file: rollback fails")         << moveFile << L {"moveFile#2", "moveFile#3"} << "false" << L {"safeMoveFile|ERROR at ROLLBACK:  \"%Rsafe\" \"%Ra.txt\""} << "safe";
    const Call moveDir([](IFSOperations &f, const QString &r) { return f.safeMoveDirectory(r + "dir", r + "elsewhere/dir", r + "safe", true); });
    QTest::newRow("move folder: move fails")           << moveDir << L {"moveDirectory#2"} << "false" << L {} << "";
    QTest::newRow("move folder: rollback fails")       << moveDir << L {"moveDirectory#2", "moveDirectory#3"} << "false" << L {"safeMoveDirectory|ERROR at ROLLBACK:  \"%Rsafe\" \"%Rdir\""} << "safe";
    const Call copy([](IFSOperations &f, const QString &r) { return f.safeCopyFile(r + "a.txt", r + "other.txt", r + "safe", false, false, true); });
    QTest::newRow("copy: copy throws")                 << copy << L {"copyFile#1!"} << injected << L {} << "";
    QTest::newRow("copy: move fails")                  << copy << L {"moveFile#1"} << "false" << L {} << "";
    QTest::newRow("copy: removal fails")               << copy << L {"moveFile#1", "deleteFile#1"} << "false" << L {"safeCopyFile|ERROR at ROLLBACK:  \"%Rsafe\""} << "safe";
    const Call rename([](IFSOperations &f, const QString &r) { return f.safeRenameFile(r + "a.txt", r + "b.txt", r + "safe", false); });
    QTest::newRow("rename file: move fails")           << rename << L {"moveFile#2"} << "false" << L {} << "";
    const Call renameDir([](IFSOperations &f, const QString &r) { return f.safeRenameDirectory(r + "dir", r + "folder", r + "safe"); });
    QTest::newRow("rename folder: move throws")        << renameDir << L {"moveDirectory#2!"} << injected << L {} << "";
    const Call create([t](IFSOperations &f, const QString &r) { return f.safeCreateDirectory(r + "made", r + "safe", t, t, t, Attr(), false); });
    QTest::newRow("create: move fails")                << create << L {"moveDirectory#1"} << "false" << L {} << "";
    QTest::newRow("create: stamping fails")            << create << L {"setTimeStamps#2!"} << "false" << L {"safeCreateDirectory|could not set TimeStamp \"%Rmade\""} << "";
    QTest::newRow("create: rollback fails")            << create << L {"moveDirectory#1", "deleteDirectory#1"} << "false" << L {"safeCreateDirectory|ERROR at ROLLBACK:  \"%Rsafe\""} << "safe";
    const Call clean([](IFSOperations &f, const QString &r) { return f.safeCleanDirectory(r + "dir", r + "safe", false); });
    QTest::newRow("clean: delete fails")               << clean << L {"deleteFile#1"} << "false" << L {} << "";
    const Call stamp([t](IFSOperations &f, const QString &r) { return f.safeSetTimeStamps(r + "a.txt", r + "safe", t, t, t, false); });
    QTest::newRow("stamp: stamping throws")            << stamp << L {"setTimeStamps#1!"} << injected << L {"safeSetTimeStamps|could not set TimeStamp \"%Rsafe\""} << "";
    QTest::newRow("stamp: moving back fails")          << stamp << L {"moveFile#2"} << "false" << L {"safeSetTimeStamps|ERROR at ROLLBACK:  \"%Rsafe\" \"%Ra.txt\""} << "safe";
    // clang-format on
}

void tst_SafeOperations::rollsBack()
{
    QFETCH(Call, call);
    QFETCH(QStringList, faults);
    QFETCH(QString, expected);
    QFETCH(QStringList, logged);
    QFETCH(QString, leftAt);
    const QStringList before = snapshot(m_Root);

    CFSOperations fs(new Faulty(faults));
    {
        BvTest::MessageCapture capture;
        QCOMPARE(outcome([&] { return call(fs, m_Root); }), expected);
        compareLines(capture, kSource, logged.replaceInStrings(QLatin1String("%R"), m_Root));
    }
    if (leftAt.isEmpty()) {
        QCOMPARE(snapshot(m_Root), before);
    } else {
        QVERIFY(QFileInfo::exists(m_Root + leftAt));
        QVERIFY(snapshot(m_Root) != before);
    }
}

void tst_SafeOperations::refuses_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QStringList>("logged");
    const QString notEqual = QStringLiteral("FileSystemException: Paths not equal");
    using L = QStringList;
    // clang-format off
    QTest::newRow("delete missing file")             << Call([](IFSOperations &f, const QString &r) { return f.safeDeleteFile(r + "missing", r + "safe", false); }) << "DoesNotExist: File not found: %Rmissing" << L {};
    QTest::newRow("delete, empty path")              << Call([](IFSOperations &f, const QString &r) { return f.safeDeleteFile("", r + "safe", false); }) << "false" << L {"safeDeleteFile|Empty path ..."};
    QTest::newRow("delete, safe name unreachable")   << Call([](IFSOperations &f, const QString &r) { return f.safeDeleteFile(r + "a.txt", r + "no/safe", false); }) << "false" << L {"safeDeleteFile|Could not rename file to safe name:  \"%Ra.txt\" \"%Rno/safe\""};
    QTest::newRow("delete, safe name taken")         << Call([](IFSOperations &f, const QString &r) { return f.safeDeleteFile(r + "a.txt", r + "other.txt", false); }) << "FileExists: Destination already exists: %Rother.txt" << L {};
    QTest::newRow("delete tree, safe name is a folder") << Call([](IFSOperations &f, const QString &r) { return f.safeDeleteDirectory(r + "dir", r + "elsewhere", true); }) << "false" << L {"safeDeleteDirectory|Could not rename file to safe name:  \"%Rdir\" \"%Relsewhere\""};
    QTest::newRow("move onto existing")              << Call([](IFSOperations &f, const QString &r) { return f.safeMoveFile(r + "a.txt", r + "other.txt", r + "safe", true, false); }) << "FileExists: Destination already exists: %Rother.txt" << L {"safeMoveFile|Destination already exists:  \"%Rother.txt\""};
    QTest::newRow("move missing file")               << Call([](IFSOperations &f, const QString &r) { return f.safeMoveFile(r + "gone", r + "b", r + "safe", false, false); }) << "DoesNotExist: Source doesn't exists: %Rgone" << L {"safeMoveFile|Source doesn't exists:  \"%Rgone\""};
    QTest::newRow("move folder onto a full one")     << Call([](IFSOperations &f, const QString &r) { return f.safeMoveDirectory(r + "elsewhere", r + "dir", r + "safe", false); }) << "false" << L {};
    QTest::newRow("copy onto existing")              << Call([](IFSOperations &f, const QString &r) { return f.safeCopyFile(r + "a.txt", r + "other.txt", r + "safe", false, false, false); }) << "FileExists: Destination already exists: %Rother.txt" << L {};
    QTest::newRow("copy, safe name taken")           << Call([](IFSOperations &f, const QString &r) { return f.safeCopyFile(r + "a.txt", r + "new", r + "other.txt", false, false, false); }) << "FileExists: Destination already exists: %Rother.txt" << L {};
    QTest::newRow("rename file across folders")      << Call([](IFSOperations &f, const QString &r) { return f.safeRenameFile(r + "a.txt", r + "dir/a.txt", r + "safe", false); }) << notEqual << L {};
    QTest::newRow("rename folder across folders")    << Call([](IFSOperations &f, const QString &r) { return f.safeRenameDirectory(r + "dir", r + "elsewhere/dir", r + "safe"); }) << notEqual << L {};
    QTest::newRow("create, empty safe name")         << Call([](IFSOperations &f, const QString &r) { return f.safeCreateDirectory(r + "made", "", kNone, kNone, kNone, Attr(), false); }) << "false" << L {"safeCreateDirectory|Empty safePath ..."};
    QTest::newRow("create existing")                 << Call([](IFSOperations &f, const QString &r) { return f.safeCreateDirectory(r + "dir", r + "safe", kNone, kNone, kNone, Attr(), true); }) << "DirectoryExists: Destination already exists: %Rdir" << L {"safeCreateDirectory|Destination already exists:  \"%Rdir\""};
    QTest::newRow("create, safe name taken")         << Call([](IFSOperations &f, const QString &r) { return f.safeCreateDirectory(r + "made", r + "elsewhere", kNone, kNone, kNone, Attr(), false); }) << "DirectoryExists: Destination already exists: %Relsewhere" << L {};
    QTest::newRow("clean, empty safe name")          << Call([](IFSOperations &f, const QString &r) { return f.safeCleanDirectory(r + "dir", "", true); }) << "false" << L {"safeCleanDirectory|Empty safePath ..."};
    QTest::newRow("clean missing folder")            << Call([](IFSOperations &f, const QString &r) { return f.safeCleanDirectory(r + "missing", r + "safe", true); }) << "false" << L {"safeCleanDirectory|directory doesn't exists \"%Rmissing\""};
    // clang-format on
}

// Checks that fail before anything moves leave the sandbox as it was.
void tst_SafeOperations::refuses()
{
    QFETCH(Call, call);
    QFETCH(QString, expected);
    QFETCH(QStringList, logged);
    const QStringList before = snapshot(m_Root);
    CFSOperations fs;
    {
        BvTest::MessageCapture capture;
        QCOMPARE(outcome([&] { return call(fs, m_Root); }), expected.replace("%R", m_Root));
        compareLines(capture, kSource, logged.replaceInStrings(QLatin1String("%R"), m_Root));
    }
    QCOMPARE(snapshot(m_Root), before);
}

void tst_SafeOperations::stamps()
{
    const QDateTime modified = QDateTime::fromSecsSinceEpoch(1000000000);
    const QDateTime accessed = QDateTime::fromSecsSinceEpoch(1100000000);
    const auto times = [](const QString &path) {
        struct stat st;
        ::lstat(CMacFSOperations::encodePath(path).constData(), &st);
        return qMakePair(qint64(st.st_mtime), qint64(st.st_atime));
    };
    const auto expected = qMakePair(modified.toSecsSinceEpoch(), accessed.toSecsSinceEpoch());
    CFSOperations fs;

    QVERIFY(
        fs.safeSetTimeStamps(m_Root + "dir", m_Root + "safe", kNone, modified, accessed, false));
    QCOMPARE(times(m_Root + "dir"), expected);
    QVERIFY(fs.safeCreateDirectory(
        m_Root + "made", m_Root + "safe", kNone, modified, accessed, Attr(), false));
    QCOMPARE(times(m_Root + "made"), expected);
    QVERIFY(!QFileInfo::exists(m_Root + "safe"));

    // Parking is impossible: the stamps go onto the file where it is.
    BvTest::MessageCapture capture;
    QVERIFY(fs.safeSetTimeStamps(
        m_Root + "a.txt", m_Root + "no/safe", kNone, modified, accessed, false));
    QCOMPARE(times(m_Root + "a.txt"), expected);
    compareLines(capture, kSource,
        {"safeSetTimeStamps|could not rename file/dir to safename before setting timestamps -> "
         "now set timestamps to original file/dir"});
}

QTEST_GUILESS_MAIN(tst_SafeOperations)
#include "tst_safeoperations.moc"
