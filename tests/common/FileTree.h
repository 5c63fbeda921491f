#pragma once

// Making and reading back file trees in a sandbox. Names travel as the bytes the library
// gives them, so that names which are not UTF-8 can be made and checked too.

#include "fsapi/mac/CMacFSOperations.h"

#include <QStringList>

#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

namespace FileTree {

inline QByteArray bytes(const QString &path)
{
    return CMacFSOperations::encodePath(path);
}

// Each entry is "name=content" (a file, mode 0644, modified at 1000000), "name->target" (a
// symbolic link) or "name/" (a folder, 0755); names are relative to root.
inline bool make(const QString &root, const QStringList &entries)
{
    for (const QString &entry : entries) {
        const QByteArray e = bytes(entry);
        const qsizetype eq = e.indexOf('='), arrow = eq < 0 ? e.indexOf("->") : -1;
        const QByteArray path = bytes(root) + '/'
            + e.left(eq >= 0     ? eq
                    : arrow >= 0 ? arrow
                                 : e.size());
        if (eq >= 0) {
            const QByteArray content = e.mid(eq + 1);
            const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            const utimbuf times {1000000, 1000000};
            const bool written = fd >= 0
                && ::write(fd, content.constData(), size_t(content.size())) == content.size();
            if (fd < 0 || ::close(fd) != 0 || !written || ::chmod(path.constData(), 0644) != 0
                || ::utime(path.constData(), &times) != 0)
                return false;
        } else if (arrow >= 0
                ? ::symlink(e.mid(arrow + 2).constData(), path.constData()) != 0
                : ::mkdir(path.constData(), 0755) != 0 || ::chmod(path.constData(), 0755) != 0) {
            return false;
        }
    }
    return true;
}

// Everything below root, one sorted line per entry: its relative path, then a file's mode,
// content and, unless it was just written, modification time; a folder's mode; a link's
// target. Folder times are left out: renaming inside changes them.
inline QStringList snapshot(const QString &root, const QByteArray &below = {})
{
    QStringList lines;
    const QByteArray folder = bytes(root) + below;
    DIR *dir = ::opendir(folder.constData());
    while (const dirent *entry = dir ? ::readdir(dir) : nullptr) {
        const QByteArray name = below + '/' + entry->d_name, path = folder + '/' + entry->d_name;
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

// The snapshot `before` without every entry at or below a path in `gone`, with `added`.
inline QStringList changed(QStringList before, const QStringList &gone, const QStringList &added)
{
    for (const QString &path : gone)
        before.removeIf([&](const QString &line) {
            return line.startsWith(path + QLatin1Char(' '))
                || line.startsWith(path + QLatin1Char('/'));
        });
    before << added;
    before.sort();
    return before;
}

} // namespace FileTree
