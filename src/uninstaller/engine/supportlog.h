#pragma once

#include <QString>

#include <memory>

class CLog;

// The diagnostic lines of the uninstaller, kept in a file for support: appended run after
// run, outside every folder an uninstall deletes.
namespace SupportLog {

// ~/Library/Logs/Brisvane/Uninstaller.log on macOS; elsewhere
// $XDG_STATE_HOME/Brisvane/Uninstaller.log, ~/.local/state/... when that is not set.
QString defaultPath();

// Starts a log that appends every diagnostic line, debug ones included, to `path`
// (making its folder); the lines still reach standard error as before. Null when the
// file cannot be opened: the program goes on without it.
std::unique_ptr<CLog> start(const QString &path);

} // namespace SupportLog
