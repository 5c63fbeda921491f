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

} // namespace UninstallSafety
