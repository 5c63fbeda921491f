#include "uninstallsafety.h"

#include "threading/assertions/assertion.h"

#include <QDirIterator>
#include <QFile>

#include <memory>

#include <dirent.h>
#include <fcntl.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#undef BV_SOURCE_FILE
#define BV_SOURCE_FILE "src/uninstaller/engine/uninstallsafety"

namespace UninstallSafety {

QString escapeForDoubleQuotes(const QString &text)
{
    QString escaped;
    escaped.reserve(text.size() + 8);
    for (const QChar c : text) {
        if (c == QLatin1Char('\\') || c == QLatin1Char('"') || c == QLatin1Char('$')
            || c == QLatin1Char('`'))
            escaped += QLatin1Char('\\');
        escaped += c;
    }
    return escaped;
}

namespace {

enum class Kind { Missing, Directory, File, Link, Other };

Kind kindOf(const QString &path, struct stat &info)
{
    if (::lstat(QFile::encodeName(path).constData(), &info) != 0)
        return Kind::Missing;
    if (S_ISDIR(info.st_mode))
        return Kind::Directory;
    if (S_ISREG(info.st_mode))
        return Kind::File;
    if (S_ISLNK(info.st_mode))
        return Kind::Link;
    return Kind::Other;
}

const char *kindName(Kind kind)
{
    switch (kind) {
    case Kind::Missing:
        return "missing";
    case Kind::Directory:
        return "folder";
    case Kind::File:
        return "file";
    case Kind::Link:
        return "symbolic link";
    case Kind::Other:
        break;
    }
    return "special file";
}

bool sameContents(const QString &sourcePath, const QString &copyPath)
{
    QFile source(sourcePath);
    QFile copy(copyPath);
    if (!source.open(QIODevice::ReadOnly)) {
        BV_CRITICAL() << "backup check: cannot read" << sourcePath << source.errorString();
        return false;
    }
    if (!copy.open(QIODevice::ReadOnly)) {
        BV_CRITICAL() << "backup check: cannot read" << copyPath << copy.errorString();
        return false;
    }
    constexpr qint64 chunk = 64 * 1024;
    for (;;) {
        const QByteArray a = source.read(chunk);
        const QByteArray b = copy.read(chunk);
        if (a != b) {
            BV_CRITICAL() << "backup check: contents differ" << sourcePath << copyPath;
            return false;
        }
        if (a.isEmpty()) {
            if (source.error() != QFileDevice::NoError || copy.error() != QFileDevice::NoError) {
                BV_CRITICAL() << "backup check: read failed" << sourcePath << source.errorString()
                              << copy.errorString();
                return false;
            }
            return true;
        }
    }
}

// The target as written in the link: a relative target must stay relative in the copy.
QByteArray rawLinkTarget(const QString &path)
{
    QByteArray buffer(4096, '\0');
    const ssize_t n = ::readlink(QFile::encodeName(path).constData(), buffer.data(), buffer.size());
    return n < 0 ? QByteArray() : buffer.left(n);
}

bool sameEntry(const QString &sourcePath, const QString &copyPath)
{
    struct stat sourceInfo
    {
    };
    struct stat copyInfo
    {
    };
    const Kind sourceKind = kindOf(sourcePath, sourceInfo);
    const Kind copyKind = kindOf(copyPath, copyInfo);
    if (sourceKind == Kind::Other || sourceKind == Kind::Missing || sourceKind != copyKind) {
        BV_CRITICAL() << "backup check:" << sourcePath << "is a" << kindName(sourceKind) << "but"
                      << copyPath << "is" << kindName(copyKind);
        return false;
    }
    if (sourceKind == Kind::Directory)
        return true;
    if (sourceInfo.st_size != copyInfo.st_size) {
        BV_CRITICAL() << "backup check: size differs" << sourcePath << qint64(sourceInfo.st_size)
                      << copyPath << qint64(copyInfo.st_size);
        return false;
    }
    if (sourceKind == Kind::Link) {
        if (rawLinkTarget(sourcePath) != rawLinkTarget(copyPath)) {
            BV_CRITICAL() << "backup check: link target differs" << sourcePath << copyPath;
            return false;
        }
        return true;
    }
    return sameContents(sourcePath, copyPath);
}

// Calls `visit` with `tree` and every entry below it (hidden and system ones too; links
// are looked at, never followed) and the same path relative to `tree`, until it answers
// false.
template<typename Visit> bool everyEntry(const QString &tree, Visit visit)
{
    if (!visit(tree, QString()))
        return false;
    QDirIterator it(tree, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
        QDirIterator::Subdirectories);
    const int prefix = tree.size();
    while (it.hasNext()) {
        const QString entry = it.next();
        if (!visit(entry, entry.mid(prefix)))
            return false;
    }
    return true;
}

} // namespace

bool verifyCopy(const QString &source, const QString &copy)
{
    return everyEntry(source, [&copy](const QString &entry, const QString &relative) {
        return sameEntry(entry, copy + relative);
    });
}

namespace {

bool failed(FailureCause *cause, const QByteArray &entry, int error)
{
    if (cause)
        *cause = FailureCause::system(QFile::decodeName(entry), error);
    return false;
}

template<typename Call> auto retryOnEintr(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

bool copyFile(const QByteArray &from, const QByteArray &to, FailureCause *cause, bool *made)
{
    // Only a regular file is read: a FIFO would block, a device might never end.
    const int in = retryOnEintr(
        [&] { return ::open(from.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); });
    if (in < 0)
        return failed(cause, from, errno);
    struct stat info;
    if (::fstat(in, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(in);
        if (cause) {
            *cause = FailureCause();
            cause->entry = QFile::decodeName(from);
            cause->ownReason = FailureCause::C_NOT_COPYABLE;
        }
        return false;
    }
    const int out = retryOnEintr([&] {
        return ::open(to.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    });
    if (out < 0) {
        const int savedErrno = errno;
        ::close(in);
        return failed(cause, to, savedErrno);
    }
    *made = true;
    QByteArray buffer(64 * 1024, Qt::Uninitialized);
    bool done = true;
    for (;;) {
        const ssize_t got = retryOnEintr([&] { return ::read(in, buffer.data(), buffer.size()); });
        if (got < 0) {
            done = failed(cause, from, errno);
            break;
        }
        if (got == 0)
            break;
        for (ssize_t written = 0; done && written < got;) {
            const ssize_t n = retryOnEintr(
                [&] { return ::write(out, buffer.constData() + written, size_t(got - written)); });
            if (n < 0)
                done = failed(cause, to, errno);
            else
                written += n;
        }
        if (!done)
            break;
    }
    ::close(in);
    if (done && ::fchmod(out, info.st_mode & 07777) != 0)
        done = failed(cause, to, errno);
    // A full disk may only show when the data is written out.
    if (::close(out) != 0 && done)
        done = failed(cause, to, errno);
    return done;
}

bool copyEntry(const QByteArray &from, const QByteArray &to, FailureCause *cause, bool *made)
{
    struct stat info;
    if (::lstat(from.constData(), &info) != 0)
        return failed(cause, from, errno);

    if (S_ISLNK(info.st_mode)) {
        QByteArray target(256, Qt::Uninitialized);
        ssize_t n;
        while ((n = ::readlink(from.constData(), target.data(), target.size())) == target.size())
            target.resize(target.size() * 2);
        if (n < 0)
            return failed(cause, from, errno);
        target.truncate(n);
        if (::symlink(target.constData(), to.constData()) != 0)
            return failed(cause, to, errno);
        *made = true;
        return true;
    }

    if (S_ISREG(info.st_mode))
        return copyFile(from, to, cause, made);

    if (!S_ISDIR(info.st_mode)) {
        if (cause) {
            *cause = FailureCause();
            cause->entry = QFile::decodeName(from);
            cause->ownReason = FailureCause::C_NOT_COPYABLE;
        }
        return false;
    }

    // Private while it fills; the original's mode once complete.
    if (::mkdir(to.constData(), 0700) != 0)
        return failed(cause, to, errno);
    *made = true;
    const std::unique_ptr<DIR, int (*)(DIR *)> dir(::opendir(from.constData()), &::closedir);
    if (!dir)
        return failed(cause, from, errno);
    for (;;) {
        errno = 0;
        const dirent *entry = ::readdir(dir.get());
        if (!entry) {
            if (errno != 0)
                return failed(cause, from, errno);
            break;
        }
        const QByteArray name(entry->d_name);
        if (name == "." || name == "..")
            continue;
        bool madeEntry = false;
        if (!copyEntry(from + '/' + name, to + '/' + name, cause, &madeEntry))
            return false;
    }
    if (::chmod(to.constData(), info.st_mode & 07777) != 0)
        return failed(cause, to, errno);
    return true;
}

} // namespace

bool copyTree(const QString &source, const QString &target, FailureCause *cause, bool *made)
{
    bool madeTarget = false;
    const bool done
        = copyEntry(QFile::encodeName(source), QFile::encodeName(target), cause, &madeTarget);
    if (made)
        *made = madeTarget;
    return done;
}

bool makeUserFolder(const QString &folder, qint64 uid, qint64 gid, FailureCause *cause)
{
    const QByteArray path = QFile::encodeName(folder);
    const bool made = ::mkdir(path.constData(), 0700) == 0;
    if (!made && errno != EEXIST)
        return failed(cause, path, errno);
    // Whatever is there by that name is looked at through a descriptor that never
    // follows a link, so the owner given is that of this very folder.
    const int fd = ::open(path.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return failed(cause, path, errno == ELOOP ? ENOTDIR : errno);
    struct stat info;
    bool done = ::fstat(fd, &info) == 0;
    if (!done) {
        failed(cause, path, errno);
    } else if (made) {
        if (::fchown(fd, uid_t(uid), gid_t(gid)) != 0 || ::fchmod(fd, 0700) != 0)
            done = failed(cause, path, errno);
    } else if (info.st_uid != uid_t(uid)) {
        // Somebody else's folder: the user's backups do not go there.
        done = failed(cause, path, EPERM);
    }
    ::close(fd);
    return done;
}

} // namespace UninstallSafety
