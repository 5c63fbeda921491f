#pragma once

#include <stdexcept>

// Helpers for the file-system tests. Trees are made and read as bytes, so that names which
// are not UTF-8 can be made and checked too.

#include "fsapi/FSExceptions.h"
#include "fsapi/mac/CMacFSOperations.h"

#include "BvTestSupport.h"

#include <QHash>
#include <QRegularExpression>

#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

namespace FsTest {

inline QByteArray bytes(const QString &path)
{
    return CMacFSOperations::encodePath(path);
}

// Each entry is "name=content" (a file, mode 0644, modified at 1000000), "name/" (a
// folder, 0755), or "name->target" (a symbolic link); names are relative to root.
inline bool make(const QString &root, const QStringList &entries)
{
    for (const QString &entry : entries) {
        const QByteArray e = bytes(entry);
        const qsizetype arrow = e.indexOf("->");
        const qsizetype eq = arrow < 0 ? e.indexOf('=') : e.left(arrow).indexOf('=');
        const QByteArray path = bytes(root) + '/'
            + (eq >= 0           ? e.left(eq)
                    : arrow >= 0 ? e.left(arrow)
                                 : e);
        if (eq >= 0) {
            const QByteArray content = e.mid(eq + 1);
            const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            const utimbuf times {1000000, 1000000};
            const bool written = fd >= 0
                && ::write(fd, content.constData(), size_t(content.size())) == content.size();
            if (fd < 0 || ::close(fd) != 0 || !written || ::chmod(path.constData(), 0644) != 0
                || ::utime(path.constData(), &times) != 0)
                return false;
        } else if (arrow >= 0) {
            if (::symlink(e.mid(arrow + 2).constData(), path.constData()) != 0)
                return false;
        } else if (::mkdir(path.constData(), 0755) != 0 || ::chmod(path.constData(), 0755) != 0) {
            return false;
        }
    }
    return true;
}

// Everything below root, one sorted line per entry: its relative path, then what matters
// of it (a file's mode and content and, unless it was just written, its modification time;
// a folder's mode; a link's target). Folder times are left out: renaming inside changes them.
inline QStringList snapshot(const QString &root, const QByteArray &below = {})
{
    QStringList lines;
    const QByteArray folder = bytes(root) + below;
    DIR *dir = ::opendir(folder.constData());
    while (const dirent *entry = dir ? ::readdir(dir) : nullptr) {
        const QByteArray name = below + '/' + entry->d_name;
        const QByteArray path = folder + '/' + entry->d_name;
        struct stat st;
        if (qstrcmp(entry->d_name, ".") == 0 || qstrcmp(entry->d_name, "..") == 0
            || ::lstat(path.constData(), &st) != 0)
            continue;
        QString line = CMacFSOperations::decodePath(name.mid(1));
        char target[4096] = {};
        if (S_ISLNK(st.st_mode) && ::readlink(path.constData(), target, sizeof target - 1) > 0) {
            line += QLatin1String(" -> ") + CMacFSOperations::decodePath(target);
        } else if (S_ISDIR(st.st_mode)) {
            line += QStringLiteral(" dir %1").arg(st.st_mode & 07777, 0, 8);
            lines << snapshot(root, name);
        } else {
            QByteArray content(int(st.st_size), '\0');
            const int fd = ::open(path.constData(), O_RDONLY);
            content.truncate(fd < 0 ? 0 : int(::read(fd, content.data(), size_t(st.st_size))));
            ::close(fd);
            line += QStringLiteral(" file %1 \"%2\"")
                        .arg(st.st_mode & 07777, 0, 8)
                        .arg(QString::fromUtf8(content));
            if (st.st_mtime < std::time(nullptr) - 3600)
                line += QStringLiteral(" @%1").arg(qint64(st.st_mtime));
        }
        lines << line;
    }
    if (dir)
        ::closedir(dir);
    lines.sort();
    return lines;
}

// "true"/"false" when call returned; "<type>: <message>[ / <sub-exception>]" of the
// library exception it threw.
template<typename Call> QString outcome(Call call)
{
    try {
        return call() ? QStringLiteral("true") : QStringLiteral("false");
    } catch (CException *e) {
        QString text = QString::fromLatin1(e->getTypeName()) + QLatin1String(": ")
            + QString::fromUtf8(e->getMessage().c_str());
        if (e->getSubException())
            text += QLatin1String(" / ") + QLatin1String(e->getSubException());
        delete e;
        return text;
    } catch (int value) {
        return QStringLiteral("int %1").arg(value);
    } catch (const std::exception &e) {
        return QStringLiteral("std: ") + QString::fromLocal8Bit(e.what());
    } catch (...) {
        return QStringLiteral("unknown");
    }
}

// Diagnostic lines as "function|text", once their fixed prefix, naming sourceFile, is
// checked; a line without that prefix comes back whole.
inline QStringList logged(const QStringList &messages, const char *sourceFile)
{
    static const QRegularExpression prefix(
        QStringLiteral("^\\[ -1 : MainThread \\] \\[ ([^ ]+) : \\d+ : ([^ ]+) \\] (.*)$"),
        QRegularExpression::DotMatchesEverythingOption);
    QStringList lines;
    for (const QString &message : messages) {
        const QRegularExpressionMatch m = prefix.match(message);
        lines << (m.hasMatch() && m.captured(1) == QLatin1String(sourceFile)
                ? m.captured(2) + QLatin1Char('|') + m.captured(3)
                : message);
    }
    return lines;
}

// The POSIX operations, except that chosen calls of the plain operations fail: "moveFile#2"
// makes the second moveFile answer false, "moveFile#2!" makes it throw a
// FileSystemException with the message "injected". Calls are counted per operation,
// including those the operations make of one another.
class Faulty : public CMacFSOperations
{
public:
    explicit Faulty(const QStringList &faults)
        : m_Faults(faults)
    { }

    using S = const QString &;
    using D = const QDateTime &;
    // clang-format off
    bool moveFile(S s, S d, bool f, bool o) override { return pass("moveFile") && CMacFSOperations::moveFile(s, d, f, o); }
    bool moveDirectory(S s, S d, bool f) override { return pass("moveDirectory") && CMacFSOperations::moveDirectory(s, d, f); }
    bool deleteFile(S p, bool f) override { return pass("deleteFile") && CMacFSOperations::deleteFile(p, f); }
    bool deleteDirectory(S p, bool f) override { return pass("deleteDirectory") && CMacFSOperations::deleteDirectory(p, f); }
    bool copyFile(S s, S d, bool f, bool u, bool o) override { return pass("copyFile") && CMacFSOperations::copyFile(s, d, f, u, o); }
    bool setTimeStamps(S p, D c, D m, D a, bool f) override { return pass("setTimeStamps") && CMacFSOperations::setTimeStamps(p, c, m, a, f); }
    // clang-format on

private:
    bool pass(const char *operation)
    {
        const QString call = QLatin1String(operation) + QLatin1Char('#')
            + QString::number(++m_Calls[QLatin1String(operation)]);
        if (m_Faults.contains(call + QLatin1Char('!')))
            throw new Exceptions::FileSystemException(
                operation, "faulty", 1, "injected", CCallStack(), nullptr, -1, -1, nullptr);
        if (m_Faults.contains(call + QLatin1String("!int")))
            throw 7;
        if (m_Faults.contains(call + QLatin1String("!std")))
            throw std::runtime_error("injected");
        if (m_Faults.contains(call + QLatin1String("!other")))
            throw QStringLiteral("injected");
        return !m_Faults.contains(call);
    }

    QStringList m_Faults;
    QHash<QString, int> m_Calls;
};

} // namespace FsTest
