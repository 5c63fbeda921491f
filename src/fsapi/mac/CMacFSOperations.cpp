// Implementation notes
//
// - Plain POSIX: the same code serves macOS and Linux.
// - Operations reach one another through the IFSOperations table (unqualified virtual
//   calls), never by qualified calls, so a subclass that overrides one operation changes
//   every operation built on it.
// - Paths reach the kernel as bytes through QFile::encodeName/decodeName. A name that is
//   not valid UTF-8 would come back from decodeName with U+FFFD in place of its odd bytes
//   and name nothing; only such names take the escape of encodePath/decodePath, so that a
//   directory walk still deletes and copies them.
// - errno is saved right after a failing call, before logging or string work can change
//   it, and restored where a caller goes on to read it.
// - deleteFile unlinks first and asks what is there only when that fails: a tree deletion
//   then costs one call per file, as rm -rf does, and ends with the same exceptions as a
//   check made beforehand would give (missing: DoesNotExist; a folder: fileExists throws).
//   Inside a cleanDirectory walk that call is relative to the listed folder (unlinkat),
//   as rm -rf's are, instead of resolving the whole path once more per file.
// - A symbolic link is an entry of its own wherever it appears, also as "link/": the
//   existence checks never follow it, so no operation empties or copies what it points to.
// - Debug lines are only formatted when debug output is enabled: a tree walk writes two
//   of them per copied file.

#include "CMacFSOperations.h"
#include "CMacFSOperations_p.h"

#include "fsapi/FSExceptions.h"
#include "misc/CPathOperations.h"
#include "threading/assertions/assertion.h"

#include <QFile>
#include <QLoggingCategory>

#include <algorithm>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#undef BV_SOURCE_FILE
#define BV_SOURCE_FILE "src/fsapi/mac/CMacFSOperations.cpp"

#define FS_DEBUG()                                                                                 \
    if (!debugEnabled()) {                                                                         \
    } else                                                                                         \
        BV_DEBUG()

namespace {

bool debugEnabled()
{
    const QLoggingCategory *category = QLoggingCategory::defaultCategory();
    return category && category->isDebugEnabled();
}

template<typename Call> auto retryOnEintr(Call call)
{
    decltype(call()) result;
    do {
        result = call();
    } while (result == -1 && errno == EINTR);
    return result;
}

int lstatPath(const QByteArray &path, struct stat *st)
{
    return retryOnEintr([&] { return ::lstat(path.constData(), st); });
}

int statPath(const QByteArray &path, struct stat *st)
{
    return retryOnEintr([&] { return ::stat(path.constData(), st); });
}

int openPath(const QByteArray &path, int flags, mode_t mode)
{
    return retryOnEintr([&] { return ::open(path.constData(), flags, mode); });
}

// Whether the path ends in a separator that is not the whole path ("/").
bool hasTrailingSeparator(const QByteArray &path)
{
    return path.size() > 1 && path.endsWith('/');
}

QByteArray withoutTrailingSeparators(QByteArray path)
{
    while (hasTrailingSeparator(path))
        path.chop(1);
    return path;
}

// lstat of the entry the path names. The kernel resolves "link/" to what the link points
// to; a trailing separator must not turn a symbolic link into the folder it points to, so
// such a path is looked at without it first.
int lstatEntry(const QByteArray &path, struct stat *st)
{
    if (hasTrailingSeparator(path) && lstatPath(withoutTrailingSeparators(path), st) == 0
        && S_ISLNK(st->st_mode))
        return 0;
    return lstatPath(path, st);
}

// What a source entry gives when it is read, links followed. Only a regular file is ever
// opened: a FIFO blocks its reader until a writer comes, a device may never end, and a
// link to nothing has nothing to give.
enum class Source { File, NotAFile, LinkToNothing };

Source sourceKind(const QByteArray &path)
{
    struct stat st;
    if (statPath(path, &st) == 0)
        return S_ISREG(st.st_mode) ? Source::File : Source::NotAFile;
    const int error = errno;
    if (error == ENOENT && lstatPath(path, &st) == 0 && S_ISLNK(st.st_mode))
        return Source::LinkToNothing;
    errno = error;
    return Source::File; // let the copy meet the failure and report it as usual
}

// The absolute form of path with every link resolved. The part that does not exist yet
// is appended as written. Empty when nothing could be resolved.
QByteArray resolvedPath(const QByteArray &path)
{
    char buffer[PATH_MAX];
    if (::realpath(path.constData(), buffer))
        return QByteArray(buffer);
    const QByteArray trimmed = withoutTrailingSeparators(path);
    const qsizetype cut = trimmed.lastIndexOf('/');
    const QByteArray name = trimmed.mid(cut + 1);
    const QByteArray folder = cut < 0 ? QByteArray(".")
        : cut == 0                    ? QByteArray("/")
                                      : trimmed.left(cut);
    if (folder == trimmed)
        return {};
    QByteArray resolved = resolvedPath(folder);
    if (resolved.isEmpty() || name.isEmpty() || name == ".")
        return resolved;
    if (name == "..")
        return resolved.left(qMax(qsizetype(1), resolved.lastIndexOf('/')));
    if (!resolved.endsWith('/'))
        resolved += '/';
    return resolved + name;
}

// Whether path lies below folder, links resolved ("folder/x/y", or "link-to-folder/x").
bool isBelow(const QByteArray &path, const QByteArray &folder)
{
    const QByteArray inner = resolvedPath(path);
    QByteArray outer = resolvedPath(folder);
    if (inner.isEmpty() || outer.isEmpty())
        return false;
    if (!outer.endsWith('/'))
        outer += '/';
    return inner.size() > outer.size() && inner.startsWith(outer);
}

// The folder a cleanDirectory walk on this thread is listing, innermost first. deleteFile
// unlinks that folder's own entries relative to its descriptor: the kernel then resolves
// one name instead of the whole path, per file of a tree.
struct WalkFolder
{
    const QString &path;
    int fd;
    WalkFolder *outer;
};
thread_local WalkFolder *t_walk = nullptr;

class WalkScope
{
public:
    WalkScope(const QString &path, int fd)
        : m_Folder {path, fd, t_walk}
    {
        t_walk = &m_Folder;
    }
    ~WalkScope() { t_walk = m_Folder.outer; }
    WalkScope(const WalkScope &) = delete;
    WalkScope &operator=(const WalkScope &) = delete;

private:
    WalkFolder m_Folder;
};

// The descriptor of the listed folder when path names an entry directly inside it (its
// last component is then relative to it); AT_FDCWD otherwise.
int walkFolderOf(const QString &path)
{
    const WalkFolder *walk = t_walk;
    if (!walk)
        return AT_FDCWD;
    const QString &folder = walk->path;
    const bool separated = folder.endsWith(QLatin1Char('/'));
    const qsizetype prefix = folder.size() + (separated ? 0 : 1);
    if (path.size() <= prefix || !path.startsWith(folder)
        || (!separated && path.at(folder.size()) != QLatin1Char('/'))
        || QStringView(path).mid(prefix).contains(QLatin1Char('/')))
        return AT_FDCWD;
    return walk->fd;
}

bool isDotOrDotDot(const char *name)
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Built in one allocation: a tree walk joins one path per entry.
QString joinPath(const QString &folder, const QString &name)
{
    const bool separated = folder.endsWith(QLatin1Char('/'));
    QString path;
    path.reserve(folder.size() + name.size() + 1);
    path.append(folder);
    if (!separated)
        path.append(QLatin1Char('/'));
    path.append(name);
    return path;
}

QString errnoText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

QString number(int value)
{
    return QString::number(value);
}

// QDateTime::toTime_t of old: seconds since the epoch as an unsigned 32-bit value, with
// everything outside that range (and invalid stamps) reported as (uint)-1.
time_t toTimeT(const QDateTime &stamp)
{
    if (!stamp.isValid())
        return time_t(quint32(-1));
    const qint64 seconds = stamp.toSecsSinceEpoch();
    if (seconds < 0 || seconds > qint64(quint32(-1)))
        return time_t(quint32(-1));
    return time_t(seconds);
}

const QDateTime kNoTime;
const IFSOperations::EFileSystemAttribute kNoAttributes = IFSOperations::NoAttributes;

// Length of the well-formed UTF-8 sequence at data[i], or 0 when there is none.
int utf8SequenceLength(const unsigned char *data, int i, int size)
{
    const unsigned char lead = data[i];
    int length;
    char32_t min;
    char32_t code;
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        min = 0x80;
        code = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        min = 0x800;
        code = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        min = 0x10000;
        code = lead & 0x07;
    } else {
        return 0;
    }
    if (i + length > size)
        return 0;
    for (int k = 1; k < length; ++k) {
        if ((data[i + k] & 0xC0) != 0x80)
            return 0;
        code = (code << 6) | (data[i + k] & 0x3F);
    }
    if (code < min || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
        return 0;
    return length;
}

} // namespace

// ---------------------------------------------------------------------------
// Names
// ---------------------------------------------------------------------------

QByteArray CMacFSOperations::encodePath(const QString &path)
{
    const QChar *begin = path.constData();
    const QChar *end = begin + path.size();
    if (std::none_of(begin, end, [](QChar c) { return c.isSurrogate(); }))
        return QFile::encodeName(path);

    QByteArray bytes;
    bytes.reserve(path.size() * 3);
    for (const QChar *c = begin; c != end; ++c) {
        const char16_t unit = c->unicode();
        if (unit >= 0xDC80 && unit <= 0xDCFF) {
            bytes.append(char(unit - 0xDC00));
        } else if (c->isHighSurrogate() && c + 1 != end && (c + 1)->isLowSurrogate()) {
            bytes.append(QStringView(c, 2).toUtf8());
            ++c;
        } else {
            bytes.append(QStringView(c, 1).toUtf8());
        }
    }
    return bytes;
}

QString CMacFSOperations::decodePath(const QByteArray &bytes)
{
    if (bytes.isValidUtf8())
        return QFile::decodeName(bytes);

    QString path;
    path.reserve(bytes.size());
    const auto *data = reinterpret_cast<const unsigned char *>(bytes.constData());
    const int size = int(bytes.size());
    for (int i = 0; i < size;) {
        const int length = utf8SequenceLength(data, i, size);
        if (length == 0) {
            path.append(QChar(char16_t(0xDC00 + data[i])));
            ++i;
        } else {
            path.append(QString::fromUtf8(bytes.constData() + i, length));
            i += length;
        }
    }
    return path;
}

bool CMacFSOperations::splitFolder(const QString &path, QString &folder)
{
    QString name;
    if (!CPathOperations::splitPath(path, folder, name, true, true))
        return false;
    // The split answers directory-style paths ("/a/b/"); keep the caller's form instead,
    // so lstat sees the folder itself and a relative path stays relative.
    const QChar separator = QLatin1Char('/');
    if (!path.startsWith(separator) && folder.startsWith(separator))
        folder.remove(0, 1);
    while (folder.size() > 1 && folder.endsWith(separator))
        folder.chop(1);
    return true;
}

// ---------------------------------------------------------------------------
// Existence
// ---------------------------------------------------------------------------

bool CMacFSOperations::tryExclusiveLock(const QString &)
{
    return true;
}

bool CMacFSOperations::tryWriteLock(const QString &)
{
    return true;
}

bool CMacFSOperations::fileExists(const QString &path)
{
    if (path.isEmpty())
        FS_THROW_INVALID(QStringLiteral("Empty path"));
    struct stat st;
    if (lstatEntry(encodePath(path), &st) != 0)
        return false;
    if (!S_ISDIR(st.st_mode))
        return true;
    FS_THROW_SUB(FileSystemException, path + QLatin1String(" is a directory"),
        "Specified path is not a file");
}

bool CMacFSOperations::directoryExists(const QString &path)
{
    if (path.isEmpty()) {
        BV_CRITICAL() << "Empty path ...";
        return false;
    }
    struct stat st;
    if (lstatEntry(encodePath(path), &st) != 0)
        return false;
    if (S_ISDIR(st.st_mode))
        return true;
    FS_THROW_SUB(FileSystemException, path + QLatin1String(" is not a directory"),
        "Specified path is not a directory");
}

bool CMacFSOperations::isSymbolicLink(const QString &path)
{
    if (path.isEmpty()) {
        BV_CRITICAL() << "Empty path ...";
        return false;
    }
    struct stat st;
    if (lstatEntry(encodePath(path), &st) != 0) {
        const int error = errno;
        BV_CRITICAL() << path << errnoText(error);
        FS_THROW_SUB(
            DoesNotExist, QLatin1String("File not found: ") + path, "Specified file doesn't exist");
    }
    return S_ISLNK(st.st_mode);
}

bool CMacFSOperations::getFSID(QString path, unsigned long long &id)
{
    if (path.isEmpty()) {
        BV_CRITICAL() << "Empty path ...";
        return false;
    }
    struct stat st;
    if (lstatEntry(encodePath(path), &st) != 0) {
        const int error = errno;
        BV_CRITICAL() << path << errnoText(error);
        return false;
    }
    // The inode number alone repeats across volumes; spread the device over all 64 bits
    // so two volumes' numbering does not line up.
    id = static_cast<unsigned long long>(st.st_ino)
        ^ (static_cast<unsigned long long>(st.st_dev) * 0x9E3779B97F4A7C15ull);
    return true;
}

// ---------------------------------------------------------------------------
// Deletion
// ---------------------------------------------------------------------------

bool CMacFSOperations::deleteFile(const QString &path, bool)
{
    if (path.isEmpty())
        FS_THROW_INVALID(QStringLiteral("Empty path"));
    const QByteArray bytes = encodePath(path);
    int error = 0;
    if (!hasTrailingSeparator(bytes)) {
        const int folder = walkFolderOf(path);
        const char *name = folder == AT_FDCWD ? bytes.constData()
                                              : bytes.constData() + bytes.lastIndexOf('/') + 1;
        if (::unlinkat(folder, name, 0) == 0)
            return true;
        error = errno;
        // Why it failed, decided as a check beforehand would have: nothing there, or a
        // folder (fileExists throws " is a directory"), or a file that stays.
        if (!fileExists(path))
            FS_THROW_SUB(DoesNotExist, QLatin1String("File not found: ") + path,
                "Specified file doesn't exist");
    } else {
        // "link/" names the link, which the kernel will not unlink under that spelling.
        if (!fileExists(path))
            FS_THROW_SUB(DoesNotExist, QLatin1String("File not found: ") + path,
                "Specified file doesn't exist");
        if (::unlink(withoutTrailingSeparators(bytes).constData()) == 0)
            return true;
        error = errno;
    }
    FS_THROW_SYSTEM(FileSystemException,
        QStringLiteral("deleteFile failed. Errno: %1 '%2' '%3'")
            .arg(number(error), errnoText(error), path));
}

bool CMacFSOperations::deleteDirectory(const QString &path, bool force)
{
    if (path.isEmpty()) {
        BV_CRITICAL() << "Empty path ...";
        return false;
    }
    if (!directoryExists(path))
        FS_THROW_SUB(
            DoesNotExist, QLatin1String("File not found: ") + path, "Specified file doesn't exist");
    if (force)
        cleanDirectory(path, true); // throws on real failures; its answer adds nothing
    // A failure is left in errno for cleanDirectory, which reports the last one of its walk.
    return retryOnEintr([&] { return ::rmdir(encodePath(path).constData()); }) == 0;
}

bool CMacFSOperations::cleanDirectory(const QString &path, bool recursive)
{
    if (path.isEmpty()) {
        BV_CRITICAL() << "Empty path ...";
        return false;
    }
    if (!directoryExists(path)) {
        BV_CRITICAL() << "directory doesn't exists" << path;
        return false;
    }
    DIR *dir = ::opendir(encodePath(path).constData());
    if (!dir)
        return true; // nothing we can list is nothing to clean

    bool done = true;
    int lastError = 0;
    try {
        const WalkScope scope(path, ::dirfd(dir));
        while (const dirent *entry = ::readdir(dir)) {
            if (isDotOrDotDot(entry->d_name))
                continue;
            const QString child = joinPath(path, decodePath(QByteArray(entry->d_name)));
            bool isDirectory = entry->d_type == DT_DIR;
            if (entry->d_type == DT_UNKNOWN) {
                // Not every file system fills in d_type; never take a folder for a file.
                struct stat st;
                isDirectory = ::fstatat(::dirfd(dir), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0
                    && S_ISDIR(st.st_mode);
            }
            if (isDirectory) {
                if (!recursive)
                    continue;
                done = deleteDirectory(child, true);
            } else {
                done = deleteFile(child, false);
            }
            // The walk goes on regardless; only the last entry's outcome is reported.
            lastError = done ? 0 : errno;
        }
    } catch (...) {
        ::closedir(dir);
        throw;
    }
    ::closedir(dir);

    if (!done && lastError != 0 && lastError != ESPIPE)
        FS_THROW_SYSTEM(
            FileSystemException, QLatin1String("deleteFile failed. Errno: ") + number(lastError));
    return true;
}

// ---------------------------------------------------------------------------
// Copying
// ---------------------------------------------------------------------------

bool CMacFSOperations::copyDirectory(const QString &src, const QString &dst)
{
    if (src.isEmpty()) {
        BV_CRITICAL() << "Empty src path ...";
        return false;
    }
    if (dst.isEmpty()) {
        BV_CRITICAL() << "Empty dest path ...";
        return false;
    }
    if (!directoryExists(src))
        FS_THROW_SUB(
            DoesNotExist, QLatin1String("File not found: ") + src, "Specified file doesn't exist");
    // A copy made inside its own source would be listed and copied again, level after
    // level, until the path grows too long.
    if (isBelow(encodePath(dst), encodePath(src))) {
        BV_CRITICAL() << "Cannot copy a folder into itself:" << src << dst;
        return false;
    }
    return copyDirContents(src, dst);
}

bool CMacFSOperations::copyDirContents(const QString &src, const QString &dst)
{
    bool complete = true;
    const bool done = copyDirContents(src, dst, complete);
    return done && complete;
}

bool CMacFSOperations::copyDirContents(const QString &src, const QString &dst, bool &complete)
{
    if (src.isEmpty()) {
        BV_CRITICAL() << "Empty src path ...";
        return false;
    }
    if (!directoryExists(src)) {
        BV_CRITICAL() << "Directory doesn't exists" << src;
        return false;
    }
    if (!createDirectory(dst, kNoTime, kNoTime, kNoTime, kNoAttributes, false)) {
        BV_CRITICAL() << "Could not create directory " << dst;
        return false;
    }

    bool done = true;
    int lastError = 0;
    const std::unique_ptr<DIR, int (*)(DIR *)> listing(
        ::opendir(encodePath(src).constData()), &::closedir);
    DIR *dir = listing.get();
    if (!dir) {
        lastError = errno;
        done = false;
    }
    while (const dirent *entry = dir ? ::readdir(dir) : nullptr) {
        if (isDotOrDotDot(entry->d_name)) {
            FS_DEBUG() << "skipping . and ..";
            continue;
        }
        const QString name = decodePath(QByteArray(entry->d_name));
        const QString srcPath = joinPath(src, name);
        const QString dstPath = joinPath(dst, name);

        // The entry's own type, as lstat reports it: a symbolic link is never entered.
        // directoryExists decides whenever d_type does not rule a folder out; for anything
        // else it would only throw "is not a directory" at the cost of a stack capture.
        bool isDirectory = false;
        if (entry->d_type == DT_DIR || entry->d_type == DT_UNKNOWN) {
            try {
                isDirectory = directoryExists(srcPath);
            } catch (Exceptions::FileSystemException *e) {
                delete e;
            }
        }

        if (isDirectory) {
            FS_DEBUG() << "found subdir: " << srcPath;
            try {
                done = copyDirContents(srcPath, dstPath, complete);
                lastError = done ? 0 : errno;
            } catch (CException *e) {
                delete e;
                FS_DEBUG() << "Dir Copy failed!";
                done = false;
                lastError = 0;
            }
        } else {
            FS_DEBUG() << "found file: " << srcPath;
            const Source kind
                = entry->d_type == DT_REG ? Source::File : sourceKind(encodePath(srcPath));
            if (kind != Source::File) {
                // Left out, and the whole copy answers false for it: a backup that misses
                // an entry must not pass for complete.
                if (kind == Source::NotAFile)
                    BV_CRITICAL() << "Not a regular file, not copied:" << srcPath;
                else
                    BV_CRITICAL() << "Link to nothing, not copied:" << srcPath;
                done = false;
                lastError = 0;
                complete = false;
                errno = 0; // what a caller one level up reads after this answer
            } else {
                try {
                    done = file_copy(srcPath, dstPath, true) == 0;
                    lastError = done ? 0 : errno;
                } catch (CException *e) {
                    delete e;
                    FS_DEBUG() << "File Copy failed!";
                    done = false;
                    lastError = 0;
                }
            }
        }
        FS_DEBUG() << "finished" << srcPath << dstPath << (done ? "true" : "false");
    }

    if (!done && lastError != 0 && lastError != ESPIPE)
        FS_THROW_SYSTEM(FileSystemException,
            QStringLiteral("copyFile failed. Errno: %1: %2")
                .arg(number(lastError), errnoText(lastError)));
    return done;
}

bool CMacFSOperations::copyFile(
    const QString &src, const QString &dst, bool force, bool, bool overwrite)
{
    if (src.isEmpty()) {
        BV_CRITICAL() << "Empty src path ...";
        return false;
    }
    if (dst.isEmpty()) {
        BV_CRITICAL() << "Empty dest path ...";
        return false;
    }
    if (!fileExists(src))
        FS_THROW_SUB(
            DoesNotExist, QLatin1String("File not found: ") + src, "Specified file doesn't exist");
    if (!overwrite && fileExists(dst))
        FS_THROW_SYSTEM(FileExists, QLatin1String("Destination already exists: ") + dst);

    if (file_copy(src, dst, overwrite) == 0)
        return true;
    const int error = errno;
    if (error == ENOENT && force) {
        QString folder;
        if (!splitFolder(dst, folder)) {
            BV_CRITICAL() << "could not split path" << dst;
            return false;
        }
        if (!createDirectory(folder, kNoTime, kNoTime, kNoTime, kNoAttributes, true)) {
            BV_CRITICAL() << "force = true, createDirectory returned false - " << folder;
            return false;
        }
        return file_copy(src, dst, overwrite) == 0;
    }
    if (error == ENOENT)
        FS_THROW_SYSTEM(DoesNotExist, QLatin1String("Specified path doesn't exist: ") + dst);
    // The words name the wrong operation; callers match on them as they stand.
    FS_THROW_SYSTEM(
        FileSystemException, QLatin1String("createDirectory failed. Errno: ") + number(error));
}

int CMacFSOperations::file_copy(const QString &src, const QString &dst, bool overwrite)
{
    const QByteArray from = encodePath(src);
    const QByteArray to = encodePath(dst);
    // Only a regular file is opened, links followed, and the source is never created: a
    // FIFO would block the copy until a writer comes, a device may never end, and creating
    // a missing source would put a file wherever a dangling link points.
    struct stat st;
    int refused = 0; // the errno of a source that is not opened
    if (statPath(from, &st) != 0)
        refused = errno;
    else if (!S_ISREG(st.st_mode))
        refused = EINVAL;
    int in = -1;
    if (refused == 0) {
        in = openPath(from, O_RDONLY | O_NOCTTY | O_NONBLOCK, 0);
        if (in < 0) {
            refused = errno;
        } else if (::fstat(in, &st) != 0 || !S_ISREG(st.st_mode)) {
            // Replaced by something else since it was looked at: not read either.
            ::close(in);
            in = -1;
            refused = EINVAL;
        }
    }
    if (in < 0) {
        const int error = refused;
        FS_DEBUG() << "Could not open " << src;
        errno = error;
        return -1;
    }
    // No O_TRUNC: a longer destination keeps its tail beyond the copied bytes, which
    // callers overwriting in place rely on. The mode of 0 or 1 is long-standing behaviour;
    // the source's mode is set once the bytes are in.
    const mode_t mode = overwrite ? 1 : 0;
    const int out = openPath(to, overwrite ? O_RDWR | O_CREAT : O_RDWR | O_CREAT | O_EXCL, mode);
    if (out < 0) {
        const int error = errno;
        FS_DEBUG() << "Could not open " << dst;
        ::close(in);
        errno = error;
        return -1;
    }
    if (fdcopy(in, out) != 0) {
        const int error = errno;
        FS_DEBUG() << "fdcopy failed";
        ::close(in);
        ::close(out);
        ::remove(to.constData());
        errno = error;
        return -1;
    }
    ::close(in);
    ::close(out);

    if (retryOnEintr([&] { return ::chmod(to.constData(), st.st_mode & 07777); }) != 0) {
        const int error = errno;
        BV_CRITICAL() << "chmod failed for " << dst;
        errno = error;
        return -1;
    }
    return 0;
}

int CMacFSOperations::fdcopy(int in, int out)
{
    // One buffer per copy: 16 KiB, halved while memory is short, down to 128 bytes.
    size_t size = 16384;
    char *buffer = nullptr;
    for (int attempt = 0; attempt < 8; ++attempt) {
        buffer = static_cast<char *>(std::malloc(size));
        if (buffer)
            break;
        size /= 2;
    }
    if (!buffer)
        return -1;

    for (;;) {
        const ssize_t got = ::read(in, buffer, size);
        if (got < 0) {
            const int error = errno;
            FS_DEBUG() << "Could not read.";
            std::free(buffer);
            errno = error;
            return -1;
        }
        if (got == 0) {
            std::free(buffer);
            return 0;
        }
        const ssize_t written = ::write(out, buffer, size_t(got));
        if (written != got) {
            // A short write leaves errno untouched; name it as the I/O failure it is.
            const int error = written < 0 ? errno : EIO;
            FS_DEBUG() << "Could not write.";
            std::free(buffer);
            errno = error;
            return -1;
        }
    }
}

// ---------------------------------------------------------------------------
// Moving and renaming
// ---------------------------------------------------------------------------

bool CMacFSOperations::moveFile(const QString &src, const QString &dst, bool force, bool overwrite)
{
    if (src.isEmpty()) {
        BV_CRITICAL() << "Empty src path ...";
        return false;
    }
    if (dst.isEmpty()) {
        BV_CRITICAL() << "Empty dest path ...";
        return false;
    }
    if (!fileExists(src))
        FS_THROW_SUB(DoesNotExist, QLatin1String("Source doesn't exists: ") + src,
            "Specified file doesn't exist");
    // A move that only changes the case of the name must pass on a case-insensitive volume,
    // where the destination "exists" as the source itself.
    if (!overwrite && src.compare(dst, Qt::CaseInsensitive) != 0 && fileExists(dst))
        FS_THROW_SYSTEM(FileExists, QLatin1String("Destination already exists: ") + dst);
    if (force) {
        QString folder;
        if (!splitFolder(dst, folder)) {
            BV_CRITICAL() << "could not split path" << dst;
            return false;
        }
        if (!directoryExists(folder)
            && !createDirectory(folder, kNoTime, kNoTime, kNoTime, kNoAttributes, true)) {
            BV_CRITICAL() << "Could not force Directory " << folder;
            return false;
        }
    }
    return ::rename(encodePath(src).constData(), encodePath(dst).constData()) == 0;
}

bool CMacFSOperations::moveDirectory(const QString &src, const QString &dst, bool force)
{
    if (src.isEmpty()) {
        BV_CRITICAL() << "Empty src path ...";
        return false;
    }
    if (dst.isEmpty()) {
        BV_CRITICAL() << "Empty dest path ...";
        return false;
    }
    if (!directoryExists(src))
        FS_THROW_SUB(DoesNotExist, QLatin1String("Source doesn't exists: ") + src,
            "Specified directory doesn't exist");
    if (force) {
        QString folder;
        if (!splitFolder(dst, folder)) {
            BV_CRITICAL() << "could not split path" << dst;
            return false;
        }
        if (!directoryExists(folder)
            && !createDirectory(folder, kNoTime, kNoTime, kNoTime, kNoAttributes, true)) {
            BV_CRITICAL() << "Could not force Directory " << folder;
            return false;
        }
    }
    return ::rename(encodePath(src).constData(), encodePath(dst).constData()) == 0;
}

bool CMacFSOperations::renameFile(const QString &from, const QString &to, bool overwrite)
{
    FS_CHECK_RENAME_ARGUMENTS(from, to);
    return moveFile(from, to, false, overwrite);
}

bool CMacFSOperations::renameDirectory(const QString &from, const QString &to)
{
    FS_CHECK_RENAME_ARGUMENTS(from, to);
    return moveDirectory(from, to, false);
}

// ---------------------------------------------------------------------------
// Creation, time stamps and attributes
// ---------------------------------------------------------------------------

CMacFSOperations::Stamping CMacFSOperations::stampNewDirectory(const QString &path,
    const QDateTime &created, const QDateTime &modified, const QDateTime &accessed)
{
    bool stamped = false;
    try {
        stamped = setTimeStamps(path, created, modified, accessed, false);
    } catch (CException *e) {
        delete e;
    }
    if (stamped)
        return Stamping::Done;
    bool removed = false;
    try {
        removed = deleteDirectory(path, false);
    } catch (CException *e) {
        delete e;
    }
    return removed ? Stamping::RolledBack : Stamping::RollbackFailed;
}

bool CMacFSOperations::createDirectory(const QString &path, const QDateTime &created,
    const QDateTime &modified, const QDateTime &accessed, const EFileSystemAttribute &attributes,
    bool force)
{
    if (path.isEmpty()) {
        BV_CRITICAL() << "Empty path ...";
        return false;
    }
    if (directoryExists(path))
        FS_THROW_SUB(DirectoryExists, QLatin1String("Destination already exists: ") + path,
            "Specified directory already exists");

    const QByteArray bytes = encodePath(path);
    const mode_t mode = (attributes & ReadOnly) ? 0500 : 0700;
    int result = retryOnEintr([&] { return ::mkdir(bytes.constData(), mode); });
    int error = result == 0 ? 0 : errno;
    if (result != 0 && error == ENOENT && force) {
        QString parent;
        if (!splitFolder(path, parent)) {
            BV_CRITICAL() << "could not split path" << path;
            return false;
        }
        if (!createDirectory(parent, created, modified, accessed, attributes, true)) {
            BV_CRITICAL() << "force = true, createDirectory returned false - " << parent;
            return false;
        }
        result = retryOnEintr([&] { return ::mkdir(bytes.constData(), mode); });
        error = result == 0 ? 0 : errno;
    }
    if (result == 0) {
        switch (stampNewDirectory(path, created, modified, accessed)) {
        case Stamping::Done:
            return true;
        case Stamping::RolledBack:
            BV_CRITICAL() << "could not set TimeStamp" << path;
            return false;
        case Stamping::RollbackFailed:
            FS_THROW_SYSTEM(FileSystemException, QLatin1String("ERROR at ROLLBACK: ") + path);
        }
    }
    if (error == ENOENT)
        FS_THROW_SYSTEM(DoesNotExist, QLatin1String("Specified path doesn't exist: ") + path);
    FS_THROW_SYSTEM(
        FileSystemException, QLatin1String("createDirectory failed. Errno: ") + number(error));
}

bool CMacFSOperations::createFile(const QString &path, const QDateTime &created,
    const QDateTime &modified, const QDateTime &accessed, const EFileSystemAttribute &attributes)
{
    if (path.isEmpty()) {
        BV_CRITICAL() << "Empty path ...";
        return false;
    }
    // Permissions as any new file gets them (the umask decides), less write for read-only.
    const mode_t mode = (attributes & ReadOnly) ? 0444 : 0666;
    const int fd = openPath(encodePath(path), O_RDONLY | O_CREAT | O_EXCL, mode);
    if (fd >= 0) {
        ::close(fd);
        return setTimeStamps(path, created, modified, accessed, false);
    }
    const int error = errno;
    if (error == EEXIST)
        FS_THROW_SYSTEM(FileExists, QLatin1String("Destination already exists: ") + path);
    if (error == ENOENT)
        FS_THROW_SYSTEM(DoesNotExist, QLatin1String("Specified path doesn't exist: ") + path);
    FS_THROW_SYSTEM(
        FileSystemException, QLatin1String("createFile failed. Errno: ") + number(error));
}

bool CMacFSOperations::setTimeStamps(const QString &path, const QDateTime &,
    const QDateTime &modified, const QDateTime &accessed, bool)
{
    if (path.isEmpty()) {
        BV_CRITICAL() << "Empty path ...";
        return false;
    }
    const QByteArray bytes = encodePath(path);
    struct stat st;
    int error = 0;
    if (statPath(bytes, &st) == 0) {
        // A null stamp keeps what the entry has; the creation stamp cannot be set here.
        utimbuf times;
        times.actime = accessed.isNull() ? st.st_atime : toTimeT(accessed);
        times.modtime = modified.isNull() ? st.st_mtime : toTimeT(modified);
        if (retryOnEintr([&] { return ::utime(bytes.constData(), &times); }) == 0)
            return true;
    }
    error = errno;
    if (error == ENOENT)
        FS_THROW_SYSTEM(DoesNotExist, QLatin1String("Specified path doesn't exist: ") + path);
    FS_THROW_SYSTEM(
        FileSystemException, QLatin1String("setTimeStamps failed. Errno: ") + number(error));
}

bool CMacFSOperations::setAttributes(const QString &path, const EFileSystemAttribute &attributes)
{
    if (path.isEmpty()) {
        BV_CRITICAL() << "Empty path ...";
        return false;
    }
    const QByteArray bytes = encodePath(path);
    struct stat st;
    if (statPath(bytes, &st) == 0) {
        mode_t mode = st.st_mode & 07777;
        if (attributes & ReadOnly)
            mode &= ~mode_t(0222);
        if (retryOnEintr([&] { return ::chmod(bytes.constData(), mode); }) == 0)
            return true;
    }
    const int error = errno;
    if (error == ENOENT)
        FS_THROW_SYSTEM(DoesNotExist, QLatin1String("Specified path doesn't exist: ") + path);
    FS_THROW_SYSTEM(
        FileSystemException, QLatin1String("setAttributes failed. Errno: ") + number(error));
}

bool CMacFSOperations::removeAttributes(const QString &, const EFileSystemAttribute &)
{
    BV_CRITICAL() << "not implemented";
    return false;
}

// ---------------------------------------------------------------------------
// The exchange (the safe variants live in CMacFSOperations_safe.cpp)
// ---------------------------------------------------------------------------

bool CMacFSOperations::safeExchangeFile(const QString &, const QString &, const QString &,
    const QString &, const QString &, const QDateTime &, const QDateTime &)
{
    // The facade performs the exchange itself from the plain operations.
    return false;
}
