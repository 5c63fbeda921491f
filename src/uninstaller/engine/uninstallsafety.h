#pragma once

#include "failurecause.h"

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

// Copies the key folder `source` to `target` (which must not exist yet) for a backup:
// folders and regular files with their modes, symbolic links as links with the same
// target, never followed. A FIFO, socket or device fails the copy. False at the first
// entry that cannot be copied, with `cause` naming it; what was copied stays, and `made`
// tells whether `target` was created by this call.
bool copyTree(
    const QString &source, const QString &target, FailureCause *cause, bool *made = nullptr);

// Makes `folder` (mode 0700) for `uid`/`gid`, or accepts it when it is already a folder
// of that user. A link by that name, or a folder of somebody else, fails (with `cause`).
// For root, in a folder root chose.
bool makeUserFolder(const QString &folder, qint64 uid, qint64 gid, FailureCause *cause);

} // namespace UninstallSafety
