#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <atomic>

// Everything the product puts on a machine, in one table: the steps of a run, its dry
// run, the window's details and the check after a run all find the product's files
// through it, and nowhere else.
//
// A name matches only exactly: the literal prefix "com.brisvane." (with the ending the
// table gives) or the exact name. Never a part of a name, never another case:
// "com.brisvaneapps.plist", "BrisvaneTools" or "com.other.Brisvane.plist" belong to
// somebody else.
namespace UninstallFootprint {

// Which step of a run removes an entry.
enum Part {
    PartConfiguration, // the per-user steps of old: ~/.config/Brisvane
    PartData, // ~/.bv2
    PartLeftovers, // the rest of the home
    PartInstallation, // the removal script: the product folder and its daemon
    PartMachine, // the second privileged script: the rest outside the homes
};

struct Entry
{
    bool inHome; // below the home, or below the machine's Library folder
    const char *folder; // relative to that base ("" the base itself)
    const char *name; // the exact name, or the prefix when `suffix` is set
    const char *suffix; // null: `name` is exact; otherwise the required ending
    Part part;
    bool launchAgent; // unloaded before its file goes
    bool keepsOwnLog; // a folder whose entries go, except the uninstaller's own log
};

// The table itself.
const QList<Entry> &entries();

// One thing on disk a run removes: a file, a folder or a link (never followed).
struct Item
{
    QString path;
    Part part = PartLeftovers;
    bool launchAgent = false;
};

// Whether `fileName` in the entry's folder is the entry.
bool matches(const Entry &entry, const QString &fileName);

// What of the home's part of the footprint is there now, in the table's order, looked
// at with the calling thread's rights. `parts` limits it to some steps' entries.
QList<Item> inHome(const QString &home, const QList<Part> &parts = {});
// The same outside the homes, below `library` (the machine's Library folder).
QList<Item> onMachine(const QString &library, const QList<Part> &parts = {});
// /Library on macOS. Elsewhere the Library folder beside the folder that holds the
// product folder (the staged installation's own), so that nothing outside it is ever
// a target.
QString machineLibrary();

// The package receipts of the product the system knows of ("pkgutil --pkgs" ids that
// start with "com.brisvane."). Empty where there is no pkgutil, when it takes longer than
// 30 s, or as soon as `stop` becomes true.
QStringList receipts(const std::atomic_bool *stop = nullptr);

// The bytes below `path`: a file's size, a folder's files summed, a link's own size;
// links are never followed. Stops early (with what it has) when `stop` becomes true.
qint64 size(const QString &path, const std::atomic_bool *stop = nullptr);

// The uninstaller's own log files, kept where the product's logs go.
bool isOwnLog(const QString &fileName);

} // namespace UninstallFootprint
