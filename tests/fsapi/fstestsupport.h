#pragma once

// File trees made and read back in a sandbox, and a call's outcome as text.

#include "fsapi/FSExceptions.h"

#include <QDirIterator>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

namespace FsTest {

// Each entry is "name=content" (a file), "name->target" (a symbolic link) or "name/" (a
// folder); names are relative to root, which ends in '/'.
inline bool make(const QString &root, const QStringList &entries)
{
    for (const QString &entry : entries) {
        const QString path = root + entry.section(QRegularExpression("=|->"), 0, 0);
        QFile file(path);
        if (entry.contains("->")) {
            const QByteArray target = QFile::encodeName(entry.section("->", 1));
            if (::symlink(target.constData(), QFile::encodeName(path).constData()) != 0)
                return false;
        } else if (entry.endsWith('/') ? !QDir().mkdir(path)
                                       : (!file.open(QIODevice::WriteOnly)
                                           || file.write(entry.section('=', 1).toUtf8()) < 0)) {
            return false;
        }
    }
    return true;
}

// Everything below root, links not followed, one sorted line per entry: its relative path,
// kind and mode, and a file's content.
inline QStringList snapshot(const QString &root)
{
    QStringList lines;
    QDirIterator it(root, QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot,
        QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        struct stat st = {};
        ::lstat(QFile::encodeName(path).constData(), &st);
        const char *kind = S_ISDIR(st.st_mode) ? "dir" : S_ISLNK(st.st_mode) ? "link" : "file";
        QFile file(path);
        const QByteArray content
            = S_ISREG(st.st_mode) && file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        lines << QStringLiteral("%1 %2 %3 %4")
                     .arg(path.mid(root.size()), kind)
                     .arg(st.st_mode & 07777, 0, 8)
                     .arg(content)
                     .trimmed();
    }
    lines.sort();
    return lines;
}

// The snapshot `before` without every entry at or below a path in `gone`, with `added`.
inline QStringList changed(QStringList before, const QStringList &gone, const QStringList &added)
{
    for (const QString &path : gone)
        before.removeIf([&](const QString &line) {
            return line.startsWith(path + ' ') || line.startsWith(path + '/');
        });
    before << added;
    before.sort();
    return before;
}

// "true"/"false" when call returned; "<type>: <message>[ / <sub-exception>]" of the library
// exception it threw.
template<typename Call> QString outcome(Call call)
{
    try {
        return call() ? "true" : "false";
    } catch (CException *e) {
        const QScopedPointer<CException> owned(e);
        const QString sub = e->getSubException();
        return QString(e->getTypeName()) + ": " + QString::fromStdString(e->getMessage())
            + (sub.isEmpty() ? "" : " / " + sub);
    }
}

} // namespace FsTest
