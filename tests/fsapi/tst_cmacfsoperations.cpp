#include "fsapi/CFSOperations.h"
#include "fsapi/FSExceptions.h"
#include "fsapi/mac/CMacFSOperations.h"

#include "BvTestSupport.h"

#include <QTemporaryDir>

#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

using Attr = IFSOperations::EFileSystemAttribute;

namespace {
const QDateTime kNone;

// Tree helpers work on raw bytes so that names which are not UTF-8 can be made and checked.
QByteArray bytes(const QString &path)
{
    return CMacFSOperations::encodePath(path);
}

void makeDir(const QByteArray &path)
{
    QVERIFY2(::mkdir(path.constData(), 0755) == 0, path.constData());
}

void makeFile(const QByteArray &path, const QByteArray &content = {}, mode_t mode = 0644)
{
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC, mode);
    QVERIFY2(fd >= 0, path.constData());
    QCOMPARE(::write(fd, content.constData(), size_t(content.size())), ssize_t(content.size()));
    ::close(fd);
    ::chmod(path.constData(), mode);
}

bool exists(const QByteArray &path)
{
    struct stat st;
    return ::lstat(path.constData(), &st) == 0;
}

QByteArray content(const QByteArray &path)
{
    const int fd = ::open(path.constData(), O_RDONLY);
    if (fd < 0)
        return "<missing>";
    QByteArray data;
    char buffer[4096];
    for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;)
        data.append(buffer, n);
    ::close(fd);
    return data;
}

mode_t modeOf(const QByteArray &path)
{
    struct stat st;
    return ::lstat(path.constData(), &st) == 0 ? st.st_mode & 07777 : 0;
}

QList<QByteArray> listing(const QByteArray &folder)
{
    QList<QByteArray> names;
    if (DIR *dir = ::opendir(folder.constData())) {
        while (const dirent *e = ::readdir(dir))
            if (qstrcmp(e->d_name, ".") && qstrcmp(e->d_name, ".."))
                names << QByteArray(e->d_name);
        ::closedir(dir);
    }
    return names;
}

// Expected texts name the paths under test as %1 and %2.
QString fill(QString text, const QString &first, const QString &second = QString())
{
    return text.replace(QLatin1String("%1"), first).replace(QLatin1String("%2"), second);
}

// "<type>: <message>" of what `call` threw, "true"/"false" when it returned.
template<typename Call> QString outcome(Call call)
{
    try {
        return call() ? QStringLiteral("true") : QStringLiteral("false");
    } catch (CException *e) {
        const QString text = QString::fromLatin1(e->getTypeName()) + QLatin1String(": ")
            + QString::fromUtf8(e->getMessage().c_str())
            + (e->getSubException() ? QLatin1String(" / ") + QLatin1String(e->getSubException())
                                    : QString());
        delete e;
        return text;
    }
}

// The text of each captured line after its "[ thread ] [ file : line : function ] " prefix.
QStringList texts(const BvTest::MessageCapture &capture)
{
    static const QRegularExpression prefix(QStringLiteral("^\\[ [^]]* \\] \\[ [^]]* \\] "));
    QStringList result;
    for (QString m : capture.messages())
        result << m.remove(prefix);
    return result;
}

class Exposed : public CMacFSOperations
{
public:
    using CMacFSOperations::fdcopy;
    using CMacFSOperations::file_copy;
};
} // namespace

class tst_CMacFSOperations : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void existence_data();
    void existence();
    void emptyPaths_data();
    void emptyPaths();
    void deleteTreeLeavesLinkTargets();
    void deleteDirectoryOutcomes_data();
    void deleteDirectoryOutcomes();
    void cleanDirectory_data();
    void cleanDirectory();
    void copyDirectoryCopiesContentAndModes();
    void copyDirectoryOntoExistingThrows();
    void copyFile_data();
    void copyFile();
    void fileCopyQuirks();
    void createDirectory_data();
    void createDirectory();
    void createFileAndStamps();
    void moveAndRename_data();
    void moveAndRename();
    void linksAndIds();
    void namesSurviveTheRoundTrip_data();
    void namesSurviveTheRoundTrip();
    void invalidUtf8NamesAreCopiedAndDeleted();
    void injectedFailures_data();
    void injectedFailures();
    void undeletableEntryStopsTheWalk();

private:
    std::unique_ptr<QTemporaryDir> m_Dir;
    CFSOperations m_Fs;
    QString path(const char *relative) const { return m_Dir->filePath(QLatin1String(relative)); }
    QByteArray raw(const char *relative) const { return bytes(path(relative)); }
};

void tst_CMacFSOperations::init()
{
    m_Dir = std::make_unique<QTemporaryDir>();
    QVERIFY2(m_Dir->isValid(), qPrintable(m_Dir->errorString()));
    makeFile(raw("file"), "data");
    makeDir(raw("dir"));
    QVERIFY(::symlink(raw("dir").constData(), raw("dirlink").constData()) == 0);
    QVERIFY(::symlink(raw("file").constData(), raw("filelink").constData()) == 0);
    QVERIFY(::symlink(raw("nowhere").constData(), raw("dangling").constData()) == 0);
}

void tst_CMacFSOperations::existence_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("asFile");
    QTest::addColumn<QString>("asDirectory");
    const QString notFile = "FileSystemException: %1 is a directory / Specified path is not a file";
    const QString notDir
        = "FileSystemException: %1 is not a directory / Specified path is not a directory";
    // clang-format off
    QTest::newRow("file")              << "file"     << "true"  << notDir;
    QTest::newRow("directory")         << "dir"      << notFile << "true";
    QTest::newRow("missing")           << "missing"  << "false" << "false";
    QTest::newRow("link to directory") << "dirlink"  << "true"  << notDir;
    QTest::newRow("link to file")      << "filelink" << "true"  << notDir;
    QTest::newRow("dangling link")     << "dangling" << "true"  << notDir;
    // clang-format on
}

void tst_CMacFSOperations::existence()
{
    QFETCH(QString, name);
    QFETCH(QString, asFile);
    QFETCH(QString, asDirectory);
    const QString p = m_Dir->filePath(name);
    QCOMPARE(outcome([&] { return m_Fs.fileExists(p); }), fill(asFile, p));
    QCOMPARE(outcome([&] { return m_Fs.directoryExists(p); }), fill(asDirectory, p));
}

void tst_CMacFSOperations::emptyPaths_data()
{
    using F = std::function<bool(IFSOperations &)>;
    QTest::addColumn<F>("call");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QString>("logged");
    const QString invalid = QStringLiteral("FileSystemException: Empty path / Invalid parameter");
    const QDateTime n;
    // clang-format off
    QTest::newRow("fileExists")          << F([](IFSOperations &f) { return f.fileExists(""); }) << invalid << "";
    QTest::newRow("deleteFile")          << F([](IFSOperations &f) { return f.deleteFile("", true); }) << invalid << "";
    QTest::newRow("directoryExists")     << F([](IFSOperations &f) { return f.directoryExists(""); }) << "false" << "Empty path ...";
    QTest::newRow("deleteDirectory")     << F([](IFSOperations &f) { return f.deleteDirectory("", true); }) << "false" << "Empty path ...";
    QTest::newRow("cleanDirectory")      << F([](IFSOperations &f) { return f.cleanDirectory("", true); }) << "false" << "Empty path ...";
    QTest::newRow("copyDirectory src")   << F([](IFSOperations &f) { return f.copyDirectory("", "/x"); }) << "false" << "Empty src path ...";
    QTest::newRow("copyFile dst")        << F([](IFSOperations &f) { return f.copyFile("/x", "", true, true, true); }) << "false" << "Empty dest path ...";
    QTest::newRow("moveFile src")        << F([](IFSOperations &f) { return f.moveFile("", "/x", true, true); }) << "false" << "Empty src path ...";
    QTest::newRow("renameDirectory dst") << F([](IFSOperations &f) { return f.renameDirectory("/x", ""); }) << "false" << "Empty dest path ...";
    QTest::newRow("createDirectory")     << F([n](IFSOperations &f) { return f.createDirectory("", n, n, n, Attr(), true); }) << "false" << "Empty path ...";
    QTest::newRow("setTimeStamps")       << F([n](IFSOperations &f) { return f.setTimeStamps("", n, n, n, false); }) << "false" << "Empty path ...";
    QTest::newRow("isSymbolicLink")      << F([](IFSOperations &f) { return f.isSymbolicLink(""); }) << "false" << "Empty path ...";
    QTest::newRow("removeAttributes")    << F([](IFSOperations &f) { return f.removeAttributes("/x", IFSOperations::ReadOnly); }) << "false" << "not implemented";
    // clang-format on
}

void tst_CMacFSOperations::emptyPaths()
{
    using F = std::function<bool(IFSOperations &)>;
    QFETCH(F, call);
    QFETCH(QString, expected);
    QFETCH(QString, logged);
    BvTest::MessageCapture capture;
    QCOMPARE(outcome([&] { return call(m_Fs); }), expected);
    QCOMPARE(texts(capture), logged.isEmpty() ? QStringList() : QStringList {logged});
}

void tst_CMacFSOperations::deleteTreeLeavesLinkTargets()
{
    makeDir(raw("canary"));
    makeFile(raw("canary/keep"), "precious");
    makeDir(raw("tree"));
    makeDir(raw("tree/a"));
    makeDir(raw("tree/a/b"));
    makeFile(raw("tree/a/b/deep"), "x");
    makeFile(raw("tree/top"), "y");
    QVERIFY(::symlink(raw("canary").constData(), raw("tree/a/to-canary").constData()) == 0);
    QVERIFY(::symlink(raw("canary/keep").constData(), raw("tree/to-keep").constData()) == 0);

    QCOMPARE(outcome([&] { return m_Fs.deleteDirectory(path("tree"), true); }), "true");
    QVERIFY(!exists(raw("tree")));
    QCOMPARE(content(raw("canary/keep")), QByteArray("precious"));
}

void tst_CMacFSOperations::deleteDirectoryOutcomes_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("force");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<bool>("remains");
    // clang-format off
    QTest::newRow("non-empty without force") << "dir"     << false << "false" << true;
    QTest::newRow("empty without force")     << "empty"   << false << "true"  << false;
    QTest::newRow("missing")                 << "missing" << true  << "DoesNotExist: File not found: %1 / Specified file doesn't exist" << false;
    QTest::newRow("regular file")            << "file"    << true  << "FileSystemException: %1 is not a directory / Specified path is not a directory" << true;
    // clang-format on
}

void tst_CMacFSOperations::deleteDirectoryOutcomes()
{
    QFETCH(QString, name);
    QFETCH(bool, force);
    QFETCH(QString, expected);
    QFETCH(bool, remains);
    makeFile(raw("dir/inside"));
    makeDir(raw("empty"));
    const QString p = m_Dir->filePath(name);
    QCOMPARE(outcome([&] { return m_Fs.deleteDirectory(p, force); }), fill(expected, p));
    QCOMPARE(exists(bytes(p)), remains);
    if (name == QLatin1String("dir"))
        QVERIFY(exists(raw("dir/inside")));
}

void tst_CMacFSOperations::cleanDirectory_data()
{
    QTest::addColumn<bool>("recursive");
    QTest::newRow("files only") << false;
    QTest::newRow("recursive") << true;
}

void tst_CMacFSOperations::cleanDirectory()
{
    QFETCH(bool, recursive);
    makeFile(raw("dir/a"));
    makeFile(raw("dir/b"));
    makeDir(raw("dir/sub"));
    makeFile(raw("dir/sub/c"));
    QVERIFY(::symlink(raw("file").constData(), raw("dir/link").constData()) == 0);
    QCOMPARE(outcome([&] { return m_Fs.cleanDirectory(path("dir"), recursive); }), "true");
    QList<QByteArray> expected;
    if (!recursive)
        expected << "sub";
    QCOMPARE(listing(raw("dir")), expected);
    QCOMPARE(exists(raw("dir/sub/c")), !recursive);
    QVERIFY(exists(raw("file")));

    BvTest::MessageCapture capture;
    QCOMPARE(outcome([&] { return m_Fs.cleanDirectory(path("missing"), recursive); }), "false");
    QCOMPARE(texts(capture), QStringList {"directory doesn't exists \"" + path("missing") + "\""});
}

void tst_CMacFSOperations::copyDirectoryCopiesContentAndModes()
{
    makeDir(raw("src"));
    makeDir(raw("src/sub"));
    makeDir(raw("src/sub/deeper"));
    makeFile(raw("src/script"), "#!/bin/sh\n", 0750);
    makeFile(raw("src/sub/secret"), QByteArray(40000, 'k'), 0600);
    makeFile(raw("src/sub/deeper/empty"), {}, 0644);
    QVERIFY(::symlink(raw("file").constData(), raw("src/link").constData()) == 0);

    QCOMPARE(outcome([&] { return m_Fs.copyDirectory(path("src"), path("dst")); }), "true");
    QCOMPARE(content(raw("dst/script")), QByteArray("#!/bin/sh\n"));
    QCOMPARE(content(raw("dst/sub/secret")), QByteArray(40000, 'k'));
    QCOMPARE(content(raw("dst/sub/deeper/empty")), QByteArray());
    QCOMPARE(modeOf(raw("dst/script")), mode_t(0750));
    QCOMPARE(modeOf(raw("dst/sub/secret")), mode_t(0600));
    QCOMPARE(modeOf(raw("dst/sub/deeper/empty")), mode_t(0644));
    // A link is copied as the file it points to, never entered or recreated as a link.
    QVERIFY(S_ISREG([&] {
        struct stat st;
        ::lstat(raw("dst/link").constData(), &st);
        return st.st_mode;
    }()));
    QCOMPARE(content(raw("dst/link")), QByteArray("data"));
}

void tst_CMacFSOperations::copyDirectoryOntoExistingThrows()
{
    makeFile(raw("dir/x"));
    makeDir(raw("target"));
    QCOMPARE(outcome([&] { return m_Fs.copyDirectory(path("dir"), path("target")); }),
        "DirectoryExists: Destination already exists: " + path("target")
            + " / Specified directory already exists");
    QCOMPARE(outcome([&] { return m_Fs.copyDirectory(path("missing"), path("other")); }),
        "DoesNotExist: File not found: " + path("missing") + " / Specified file doesn't exist");
    QVERIFY(listing(raw("target")).isEmpty());
}

void tst_CMacFSOperations::copyFile_data()
{
    QTest::addColumn<QString>("dst");
    QTest::addColumn<bool>("force");
    QTest::addColumn<bool>("overwrite");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QByteArray>("result");
    // clang-format off
    QTest::newRow("new file")                     << "copy"        << false << false << "true" << QByteArray("data");
    QTest::newRow("overwrite keeps longer tail")  << "long"        << false << true  << "true" << QByteArray("dataLONGER");
    QTest::newRow("existing without overwrite")   << "long"        << false << false << "FileExists: Destination already exists: %1" << QByteArray("0123LONGER");
    QTest::newRow("missing folder with force")    << "new/er/copy" << true  << false << "true" << QByteArray("data");
    QTest::newRow("missing folder without force") << "new/copy"    << false << false << "DoesNotExist: Specified path doesn't exist: %1" << QByteArray("<missing>");
    // clang-format on
}

void tst_CMacFSOperations::copyFile()
{
    QFETCH(QString, dst);
    QFETCH(bool, force);
    QFETCH(bool, overwrite);
    QFETCH(QString, expected);
    QFETCH(QByteArray, result);
    makeFile(raw("long"), "0123LONGER");
    const QString target = m_Dir->filePath(dst);
    QCOMPARE(outcome([&] { return m_Fs.copyFile(path("file"), target, force, false, overwrite); }),
        fill(expected, target));
    QCOMPARE(content(bytes(target)), result);
}

void tst_CMacFSOperations::fileCopyQuirks()
{
    Exposed fs;
    // A missing source is created empty and copied rather than reported.
    QCOMPARE(fs.file_copy(path("ghost"), path("ghost-copy"), false), 0);
    QVERIFY(exists(raw("ghost")));
    QCOMPARE(content(raw("ghost-copy")), QByteArray());

    makeFile(raw("empty"));
    makeFile(raw("out"), "untouched");
    const int in = ::open(raw("empty").constData(), O_RDONLY);
    const int out = ::open(raw("out").constData(), O_WRONLY);
    QCOMPARE(fs.fdcopy(in, out), 0);
    ::close(in);
    ::close(out);
    QCOMPARE(content(raw("out")), QByteArray("untouched"));
}

void tst_CMacFSOperations::createDirectory_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("force");
    QTest::addColumn<int>("attributes");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<int>("mode");
    // clang-format off
    QTest::newRow("three missing levels, forced") << "x/y/z" << true  << 0 << "true" << 0700;
    QTest::newRow("missing parent, not forced")   << "x/y/z" << false << 0 << "DoesNotExist: Specified path doesn't exist: %1" << 0;
    QTest::newRow("existing, even forced")        << "dir"   << true  << 0 << "DirectoryExists: Destination already exists: %1 / Specified directory already exists" << 0755;
    QTest::newRow("read-only")                    << "ro"    << false << 2 << "true" << 0500;
    QTest::newRow("over a file")                  << "file"  << false << 0 << "FileSystemException: %1 is not a directory / Specified path is not a directory" << 0644;
    // clang-format on
}

void tst_CMacFSOperations::createDirectory()
{
    QFETCH(QString, name);
    QFETCH(bool, force);
    QFETCH(int, attributes);
    QFETCH(QString, expected);
    QFETCH(int, mode);
    const QString p = m_Dir->filePath(name);
    QCOMPARE(outcome([&] {
        return m_Fs.createDirectory(p, kNone, kNone, kNone, Attr(attributes), force);
    }),
        fill(expected, p));
    QCOMPARE(int(modeOf(bytes(p))), mode);
    if (force && expected == QLatin1String("true"))
        QCOMPARE(modeOf(raw("x/y")), mode_t(0700));
}

void tst_CMacFSOperations::createFileAndStamps()
{
    const QDateTime modified = QDateTime::fromSecsSinceEpoch(1000000000);
    const QDateTime accessed = QDateTime::fromSecsSinceEpoch(1100000000);
    QCOMPARE(
        outcome([&] { return m_Fs.createFile(path("new"), kNone, modified, accessed, Attr()); }),
        "true");
    struct stat st;
    QCOMPARE(::stat(raw("new").constData(), &st), 0);
    QCOMPARE(qint64(st.st_mtime), modified.toSecsSinceEpoch());
    QCOMPARE(qint64(st.st_atime), accessed.toSecsSinceEpoch());

    // A null stamp keeps what the entry had.
    QVERIFY(m_Fs.setTimeStamps(path("new"), kNone, kNone, QDateTime::fromSecsSinceEpoch(5), false));
    QCOMPARE(::stat(raw("new").constData(), &st), 0);
    QCOMPARE(qint64(st.st_mtime), modified.toSecsSinceEpoch());
    QCOMPARE(qint64(st.st_atime), qint64(5));

    QCOMPARE(outcome([&] { return m_Fs.createFile(path("new"), kNone, kNone, kNone, Attr()); }),
        "FileExists: Destination already exists: " + path("new"));
    QCOMPARE(outcome([&] { return m_Fs.createFile(path("no/new"), kNone, kNone, kNone, Attr()); }),
        "DoesNotExist: Specified path doesn't exist: " + path("no/new"));
    QCOMPARE(
        outcome([&] { return m_Fs.setTimeStamps(path("gone"), kNone, modified, kNone, false); }),
        "DoesNotExist: Specified path doesn't exist: " + path("gone"));

    QVERIFY(m_Fs.setAttributes(path("new"), IFSOperations::ReadOnly));
    QCOMPARE(modeOf(raw("new")) & 0222, mode_t(0));
}

void tst_CMacFSOperations::moveAndRename_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::addColumn<bool>("flag");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<bool>("moved");
    const QString notEqual
        = QStringLiteral("FileSystemException: Paths not equal / Invalid parameter");
    // Names equal but for case are one entry on a case-insensitive volume, so such a move
    // must not be refused as "exists".
    // clang-format off
    QTest::newRow("move onto existing, overwrite")   << "moveFile" << "file" << "other" << true  << "true" << true;
    QTest::newRow("move onto existing")              << "moveFile" << "file" << "other" << false << "FileExists: Destination already exists: %2" << false;
    QTest::newRow("move changing only case")         << "moveFile" << "file" << "FILE"  << false << "true" << true;
    QTest::newRow("move into missing folder")        << "moveFile" << "file" << "p/q/file" << true << "true" << true;
    QTest::newRow("move missing source")             << "moveFile" << "gone" << "x"     << false << "DoesNotExist: Source doesn't exists: %1 / Specified file doesn't exist" << false;
    QTest::newRow("move directory, forced")          << "moveDirectory" << "dir" << "p/dir" << true << "true" << true;
    QTest::newRow("rename file")                     << "renameFile" << "file" << "renamed" << false << "true" << true;
    QTest::newRow("rename file across folders")      << "renameFile" << "file" << "dir/file" << false << notEqual << false;
    QTest::newRow("rename directory across folders") << "renameDirectory" << "dir" << "other-dir/dir" << false << notEqual << false;
    QTest::newRow("rename directory")                << "renameDirectory" << "dir" << "folder" << false << "true" << true;
    // clang-format on
}

void tst_CMacFSOperations::moveAndRename()
{
    QFETCH(QString, operation);
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(bool, flag);
    QFETCH(QString, expected);
    QFETCH(bool, moved);
    makeFile(raw("other"), "other");
    makeDir(raw("other-dir"));
    const QString src = m_Dir->filePath(from);
    const QString dst = m_Dir->filePath(to);
    const bool wasThere = exists(bytes(src));
    const QString result = outcome([&] {
        if (operation == QLatin1String("moveFile"))
            return m_Fs.moveFile(src, dst, flag, flag);
        if (operation == QLatin1String("moveDirectory"))
            return m_Fs.moveDirectory(src, dst, flag);
        if (operation == QLatin1String("renameFile"))
            return m_Fs.renameFile(src, dst, flag);
        return m_Fs.renameDirectory(src, dst);
    });
    QCOMPARE(result, fill(expected, src, dst));
    QCOMPARE(exists(bytes(dst)), moved || (to == QLatin1String("other")));
    QCOMPARE(exists(bytes(src)), wasThere && !moved);
    if (to == QLatin1String("other"))
        QCOMPARE(content(raw("other")), QByteArray(moved ? "data" : "other"));
}

void tst_CMacFSOperations::linksAndIds()
{
    QVERIFY(m_Fs.isSymbolicLink(path("dirlink")));
    QVERIFY(m_Fs.isSymbolicLink(path("dangling")));
    QVERIFY(!m_Fs.isSymbolicLink(path("file")));
    QCOMPARE(outcome([&] { return m_Fs.isSymbolicLink(path("missing")); }),
        "DoesNotExist: File not found: " + path("missing") + " / Specified file doesn't exist");

    QVERIFY(::link(raw("file").constData(), raw("hardlink").constData()) == 0);
    unsigned long long file = 0, hard = 1, link = 2, missing = 3;
    QVERIFY(m_Fs.getFSID(path("file"), file));
    QVERIFY(m_Fs.getFSID(path("hardlink"), hard));
    QVERIFY(m_Fs.getFSID(path("filelink"), link));
    QCOMPARE(hard, file);
    QVERIFY(link != file); // the link itself, not its target
    QVERIFY(!m_Fs.getFSID(path("missing"), missing));
    QCOMPARE(missing, 3ull);
}

void tst_CMacFSOperations::namesSurviveTheRoundTrip_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("ascii") << QByteArray("plain.txt");
    QTest::newRow("utf-8") << QByteArray("caf\xc3\xa9 \xf0\x9f\x93\x81");
    QTest::newRow("latin-1 byte") << QByteArray("caf\xe9");
    QTest::newRow("truncated sequence") << QByteArray("a\xe2\x82");
    QTest::newRow("overlong slash") << QByteArray("\xc0\xaf");
    QTest::newRow("encoded surrogate") << QByteArray("\xed\xb2\x80");
    QTest::newRow("stray continuation") << QByteArray("\x80x\xbf");
}

void tst_CMacFSOperations::namesSurviveTheRoundTrip()
{
    QFETCH(QByteArray, name);
    const QString decoded = CMacFSOperations::decodePath(name);
    QCOMPARE(CMacFSOperations::encodePath(decoded), name);
    if (name.isValidUtf8())
        QCOMPARE(decoded, QString::fromUtf8(name));
    else
        QVERIFY(!decoded.contains(QChar::ReplacementCharacter));
}

void tst_CMacFSOperations::invalidUtf8NamesAreCopiedAndDeleted()
{
    const QByteArray odd("odd\xff\xfe");
    makeDir(raw("src"));
    makeDir(raw("src") + "/" + odd);
    makeFile(raw("src") + "/" + odd + "/n\xe9", "latin");
    QCOMPARE(outcome([&] { return m_Fs.copyDirectory(path("src"), path("dst")); }), "true");
    QCOMPARE(content(raw("dst") + "/" + odd + "/n\xe9"), QByteArray("latin"));
    QCOMPARE(outcome([&] { return m_Fs.deleteDirectory(path("src"), true); }), "true");
    QCOMPARE(outcome([&] { return m_Fs.deleteDirectory(path("dst"), true); }), "true");
    QVERIFY(!exists(raw("src")));
    QVERIFY(!exists(raw("dst")));
}

// ---------------------------------------------------------------------------
// Failures the system has to be made to give: a child runs the operation with the
// fault injector preloaded and reports its outcome on the last line of its stderr.
// ---------------------------------------------------------------------------

namespace {
struct ChildOutcome
{
    QString result;
    QStringList lines;
};

// faults: "VARIABLE=value" entries separated by ';'.
ChildOutcome runInjected(
    const QByteArray &mode, const QString &a, const QString &b, const QString &faults)
{
    QList<QByteArray> names {"LD_PRELOAD", "BV_TEST_A", "BV_TEST_B"};
    qputenv("LD_PRELOAD", BV_FAULT_PRELOAD);
    qputenv("BV_TEST_A", bytes(a));
    qputenv("BV_TEST_B", bytes(b));
    for (const QString &fault : faults.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
        const QByteArray entry = fault.toUtf8();
        const int eq = entry.indexOf('=');
        names << entry.left(eq);
        qputenv(entry.left(eq).constData(), entry.mid(eq + 1));
    }
    const BvTest::ChildResult child = BvTest::runChild(QString::fromLatin1(mode));
    for (const QByteArray &name : names)
        qunsetenv(name.constData());

    ChildOutcome outcome;
    for (const QByteArray &line : child.standardError.split('\n')) {
        if (line.startsWith("RESULT "))
            outcome.result = QString::fromUtf8(line.mid(7));
        else if (!line.isEmpty())
            outcome.lines << QString::fromUtf8(line);
    }
    return outcome;
}
} // namespace

int childMain(const QByteArray &mode)
{
    const QString a = CMacFSOperations::decodePath(qgetenv("BV_TEST_A"));
    const QString b = CMacFSOperations::decodePath(qgetenv("BV_TEST_B"));
    CFSOperations fs;
    const QString result = outcome([&] {
        if (mode == "copyFile")
            return fs.copyFile(a, b, false, false, false);
        if (mode == "copyDirectory")
            return fs.copyDirectory(a, b);
        if (mode == "deleteDirectory")
            return fs.deleteDirectory(a, true);
        if (mode == "createDirectory")
            return fs.createDirectory(a, kNone, kNone, kNone, Attr(), false);
        return false;
    });
    std::fprintf(stderr, "RESULT %s\n", result.toUtf8().constData());
    return 0;
}

void tst_CMacFSOperations::injectedFailures_data()
{
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<QString>("faults");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QString>("logged");
    QTest::addColumn<QStringList>("gone");
    QTest::addColumn<QStringList>("present");
    const QString failed = QStringLiteral("FileSystemException: createDirectory failed. Errno: %1");
    const QByteArray copy("copyFile");
    const QByteArray create("createDirectory");
    using L = QStringList;
    // clang-format off
    QTest::newRow("write fails with EIO")    << copy << "big" << "out" << "BV_FAULT_WRITE=/out:0:EIO" << failed.arg(EIO) << "fdcopy ] Could not write." << L {"out"} << L {"big"};
    QTest::newRow("write fails with ENOSPC") << copy << "big" << "out" << "BV_FAULT_WRITE=/out:16384:ENOSPC" << failed.arg(ENOSPC) << "file_copy ] fdcopy failed" << L {"out"} << L {"big"};
    QTest::newRow("write cut short")         << copy << "big" << "out" << "BV_FAULT_WRITE=/out:5000" << failed.arg(EIO) << "fdcopy ] Could not write." << L {"out"} << L {"big"};
    QTest::newRow("read fails")              << copy << "big" << "out" << "BV_FAULT_READ=/big" << failed.arg(EIO) << "fdcopy ] Could not read." << L {"out"} << L {"big"};
    QTest::newRow("source unreadable")       << copy << "big" << "out" << "BV_FAULT_OPEN=/big:EACCES" << failed.arg(EACCES) << "file_copy ] Could not open  \"%1\"" << L {"out"} << L {"big"};
    QTest::newRow("mode not copied")         << copy << "big" << "out" << "BV_FAULT_CHMOD=/out" << failed.arg(EPERM) << "file_copy ] chmod failed for  \"%2\"" << L {} << L {"out"};
    QTest::newRow("no d_type: delete")       << QByteArray("deleteDirectory") << "tree" << "" << "BV_FAULT_DTUNKNOWN=1" << "true" << "" << L {"tree"} << L {};
    QTest::newRow("no d_type: copy")         << QByteArray("copyDirectory") << "tree" << "copy" << "BV_FAULT_DTUNKNOWN=1" << "true" << "" << L {} << L {"copy/sub/inner", "copy/top"};
    QTest::newRow("stamping fails")          << create << "made" << "" << "BV_FAULT_UTIME=/made" << "false" << "createDirectory ] could not set TimeStamp \"%1\"" << L {"made"} << L {};
    QTest::newRow("rollback fails too")      << create << "made" << "" << "BV_FAULT_UTIME=/made;BV_FAULT_UNLINK=/made" << "FileSystemException: ERROR at ROLLBACK: %1" << "" << L {} << L {"made"};
    // clang-format on
}

void tst_CMacFSOperations::injectedFailures()
{
    QFETCH(QByteArray, mode);
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(QString, faults);
    QFETCH(QString, expected);
    QFETCH(QString, logged);
    QFETCH(QStringList, gone);
    QFETCH(QStringList, present);

    QByteArray big(40000, '\0');
    for (int i = 0; i < big.size(); ++i)
        big[i] = char(i * 7);
    makeFile(raw("big"), big);
    makeDir(raw("tree"));
    makeDir(raw("tree/sub"));
    makeFile(raw("tree/sub/inner"), "inner");
    makeFile(raw("tree/top"), "top");

    const QString pa = m_Dir->filePath(a);
    const QString pb = b.isEmpty() ? QString() : m_Dir->filePath(b);
    const ChildOutcome child = runInjected(mode, pa, pb, faults);
    QCOMPARE(child.result, fill(expected, pa, pb));
    if (!logged.isEmpty()) {
        const QString line = QStringLiteral(": ") + fill(logged, pa, pb);
        QVERIFY2(std::any_of(child.lines.cbegin(), child.lines.cend(),
                     [&](const QString &l) { return l.endsWith(line); }),
            qPrintable(child.lines.join(QLatin1Char('\n'))));
    }
    for (const QString &name : gone)
        QVERIFY2(!exists(bytes(m_Dir->filePath(name))), qPrintable(name));
    for (const QString &name : present)
        QVERIFY2(exists(bytes(m_Dir->filePath(name))), qPrintable(name));
    if (present.contains(QLatin1String("copy/sub/inner")))
        QCOMPARE(content(raw("copy/sub/inner")), QByteArray("inner"));
}

void tst_CMacFSOperations::undeletableEntryStopsTheWalk()
{
    makeDir(raw("tree"));
    for (int i = 0; i < 8; ++i)
        makeFile(raw("tree") + "/f" + QByteArray::number(i));
    makeDir(raw("tree/sub"));
    makeFile(raw("tree/sub/inner"));
    makeFile(raw("tree/LOCKED"), "kept");

    const QList<QByteArray> order = listing(raw("tree"));
    const int locked = int(order.indexOf("LOCKED"));
    const ChildOutcome child
        = runInjected("deleteDirectory", path("tree"), {}, "BV_FAULT_UNLINK=LOCKED");
    QCOMPARE(child.result,
        QStringLiteral("FileSystemException: deleteFile failed. Errno: 13 'Permission denied' '%1'")
            .arg(path("tree/LOCKED")));
    // The walk ends at the undeletable entry: what came before it is gone, the rest stays.
    QCOMPARE(listing(raw("tree")), order.mid(locked));
    QCOMPARE(content(raw("tree/LOCKED")), QByteArray("kept"));
}

BV_TEST_MAIN_WITH_CHILD(tst_CMacFSOperations, QCoreApplication)
#include "tst_cmacfsoperations.moc"
