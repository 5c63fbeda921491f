#include "uninstallsafety.h"

#include "threading/assertions/assertion.h"

#include <QDirIterator>
#include <QFile>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#undef BV_SOURCE_FILE
#define BV_SOURCE_FILE "src/uninstaller/mac/uninstallsafety"

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

bool handOverEntry(const QString &source, const QString &copy, qint64 uid, qint64 gid)
{
    const QByteArray path = QFile::encodeName(copy);
    struct stat info;
    if (::lstat(path.constData(), &info) != 0)
        return false;
    if (uid >= 0 || gid >= 0) {
        if (::lchown(path.constData(), uid_t(uid), gid_t(gid)) != 0) {
            const int savedErrno = errno;
            BV_CRITICAL() << "could not give" << copy << "to" << uid << gid
                          << QString::fromLocal8Bit(::strerror(savedErrno));
            return false;
        }
    }
    struct stat original;
    if (S_ISDIR(info.st_mode) && !source.isEmpty()
        && ::lstat(QFile::encodeName(source).constData(), &original) == 0
        && S_ISDIR(original.st_mode)) {
        if (::chmod(path.constData(), original.st_mode & 07777) != 0) {
            const int savedErrno = errno;
            BV_CRITICAL() << "could not set the mode of" << copy
                          << QString::fromLocal8Bit(::strerror(savedErrno));
            return false;
        }
    }
    return true;
}

} // namespace

bool plainTree(const QString &tree, QString *offending)
{
    return everyEntry(tree, [offending](const QString &entry, const QString &) {
        struct stat info;
        if (::lstat(QFile::encodeName(entry).constData(), &info) == 0
            && (S_ISDIR(info.st_mode) || S_ISREG(info.st_mode)))
            return true;
        *offending = entry;
        return false;
    });
}

bool handOver(const QString &source, const QString &copy, qint64 uid, qint64 gid)
{
    return everyEntry(copy, [&](const QString &entry, const QString &relative) {
        return handOverEntry(source.isEmpty() ? QString() : source + relative, entry, uid, gid);
    });
}

} // namespace UninstallSafety
