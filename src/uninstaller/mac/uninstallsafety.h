#pragma once

#include <QString>

// Safety checks the uninstaller adds around the destructive steps.
namespace UninstallSafety {

// Makes `text` safe to stand between double quotes in a POSIX shell script: the four
// characters the shell still interprets there (\ " $ `) get a backslash. Blanks,
// semicolons, quotes and line feeds need nothing more inside double quotes.
QString escapeForDoubleQuotes(const QString &text);

// True when `copy` holds every folder, regular file and symbolic link of `source` with
// the same type and size, the same bytes for files and the same target for links.
// Logs the first entry that differs. Anything else in the tree (a socket, a FIFO)
// cannot have been copied faithfully and fails the check as well.
bool verifyCopy(const QString &source, const QString &copy);

// True when `tree` (not followed if it is a link) and everything below it are folders and
// regular files only; otherwise `offending` names the first other entry.
bool plainTree(const QString &tree, QString *offending);

// Gives every folder in `copy` the mode of its counterpart in `source` (an empty source:
// leaves the modes) and, when `uid` or `gid` is not -1, makes every entry of `copy` belong
// to them. Links are changed themselves, never followed. False (with a critical line) at
// the first entry that cannot be changed.
bool handOver(const QString &source, const QString &copy, qint64 uid, qint64 gid);

} // namespace UninstallSafety
