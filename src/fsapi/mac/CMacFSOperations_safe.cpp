// Implementation notes: the safe variants
//
// - Each one is built from the plain operations, called through the IFSOperations table:
//   park the object under the caller's safe name, act on it there, and move it back when
//   the act fails. A subclass that overrides a plain operation therefore changes the safe
//   one too, which is how the tests make a chosen step fail.
// - A plain operation that fails by throwing is rolled back like one that answers false;
//   its exception is thrown on afterwards, so callers still learn why. An exception of the
//   rollback itself is dropped after the "ERROR at ROLLBACK: " line: the caller is told
//   about the first failure, not the second.
// - Parking never makes folders (force false) and never replaces what is already there:
//   neither would be undone by the rollback. That includes a safe name that differs from
//   the file's own only in case, which moveFile lets through.

#include "CMacFSOperations.h"
#include "CMacFSOperations_p.h"

#include "fsapi/FSExceptions.h"
#include "misc/CPathOperations.h"
#include "threading/assertions/assertion.h"

#include <dirent.h>
#include <exception>
#include <memory>

#undef BV_SOURCE_FILE
#define BV_SOURCE_FILE "src/fsapi/mac/CMacFSOperations_safe.cpp"

namespace {

const QDateTime kNoTime;

// What one step did: its answer, or what it threw (kept to be thrown on later).
struct Step
{
    bool done = false;
    std::exception_ptr thrown;

    bool failed() const { return !done; }
    void rethrow() const
    {
        if (thrown)
            std::rethrow_exception(thrown);
    }
};

template<typename Call> Step attempt(Call call)
{
    Step step;
    try {
        step.done = call();
    } catch (...) {
        step.thrown = std::current_exception();
    }
    return step;
}

// A step whose failure is reported by the caller; an exception is owned here and deleted.
template<typename Call> bool quietly(Call call)
{
    try {
        return call();
    } catch (CException *e) {
        delete e;
    } catch (...) { }
    return false;
}

// Whether anything at all is at path. directoryExists throws only when something that is
// not a folder is there.
bool occupied(IFSOperations &fs, const QString &path)
{
    try {
        return fs.directoryExists(path);
    } catch (CException *e) {
        delete e;
        return true;
    }
}

// Parks a folder under safeName. The system rename would silently replace an empty folder
// found there, which no rollback brings back, so an occupied safe name is refused first.
bool parkDirectory(IFSOperations &fs, const QString &path, const QString &safeName)
{
    if (occupied(fs, safeName))
        return false;
    return fs.moveDirectory(path, safeName, false);
}

// Whether a file is under a safe name that moveFile would not check: one that differs from
// path only in case. moveFile allows that for a change of case on a case-insensitive
// volume, where the name is the file itself; on a case-sensitive one it is another file,
// which parking would replace.
bool caseTwinTaken(IFSOperations &fs, const QString &path, const QString &safeName)
{
    return path.compare(safeName, Qt::CaseInsensitive) == 0 && fs.fileExists(safeName);
}

QString joinEntry(const QString &folder, const QString &name)
{
    return CPathOperations::concatPath(folder, name, QString(), false, false);
}

} // namespace

// ---------------------------------------------------------------------------
// Deletion
// ---------------------------------------------------------------------------

bool CMacFSOperations::safeDeleteFile(const QString &path, const QString &safeName, bool force)
{
    if (path.isEmpty()) {
        BV_CRITICAL() << "Empty path ...";
        return false;
    }
    if (!fileExists(path))
        FS_THROW_SUB(
            DoesNotExist, QLatin1String("File not found: ") + path, "Specified file doesn't exist");
    // Without overwrite: a file already under the safe name is not ours to replace.
    if (caseTwinTaken(*this, path, safeName))
        FS_THROW_SYSTEM(FileExists, QLatin1String("Destination already exists: ") + safeName);
    if (!moveFile(path, safeName, false, false)) {
        BV_CRITICAL() << "Could not rename file to safe name: " << path << safeName;
        return false;
    }
    const Step deleted = attempt([&] { return deleteFile(safeName, force); });
    if (deleted.done)
        return true;
    if (!quietly([&] { return moveFile(safeName, path, false, false); }))
        BV_CRITICAL() << "ERROR at ROLLBACK: " << safeName << path;
    deleted.rethrow();
    return false;
}

bool CMacFSOperations::safeDeleteDirectory(const QString &path, const QString &safeName, bool force)
{
    if (path.isEmpty()) {
        BV_CRITICAL() << "Empty path ...";
        return false;
    }
    if (!directoryExists(path))
        FS_THROW_SUB(
            DoesNotExist, QLatin1String("File not found: ") + path, "Specified file doesn't exist");
    if (!parkDirectory(*this, path, safeName)) {
        BV_CRITICAL() << "Could not rename file to safe name: " << path << safeName;
        return false;
    }
    // force goes on unchanged: it decides whether a non-empty folder may go at all. What a
    // forced deletion removed before it failed is gone; the rollback restores the name.
    const Step deleted = attempt([&] { return deleteDirectory(safeName, force); });
    if (deleted.done)
        return true;
    if (!quietly([&] { return moveDirectory(safeName, path, false); }))
        BV_CRITICAL() << "ERROR at ROLLBACK: " << safeName << path;
    deleted.rethrow();
    return false;
}

bool CMacFSOperations::safeCleanDirectory(
    const QString &path, const QString &safeName, bool recursive)
{
    if (path.isEmpty()) {
        BV_CRITICAL() << "Empty path ...";
        return false;
    }
    // The entries' safe names are built from it; from an empty one they would be relative
    // names, parked wherever the process happens to be.
    if (safeName.isEmpty()) {
        BV_CRITICAL() << "Empty safePath ...";
        return false;
    }
    if (!directoryExists(path)) {
        BV_CRITICAL() << "directory doesn't exists" << path;
        return false;
    }

    // The names are read first and the folder closed before anything moves: the entries are
    // parked while we go, and a listing that changes under readdir may show them twice.
    struct Entry
    {
        QString name;
        bool isDirectory;
    };
    QList<Entry> entries;
    {
        const std::unique_ptr<DIR, int (*)(DIR *)> listing(
            ::opendir(encodePath(path).constData()), &::closedir);
        if (!listing)
            return true; // as cleanDirectory: nothing we can list is nothing to clean
        while (const dirent *entry = ::readdir(listing.get())) {
            const QByteArray name(entry->d_name);
            if (name == "." || name == "..")
                continue;
            entries.append({decodePath(name), entry->d_type == DT_DIR});
            if (entry->d_type == DT_UNKNOWN) // not every file system fills in d_type
                entries.last().isDirectory = quietly(
                    [&] { return directoryExists(joinEntry(path, entries.last().name)); });
        }
    }

    bool done = true;
    for (const Entry &entry : entries) {
        if (entry.isDirectory && !recursive)
            continue;
        const QString child = joinEntry(path, entry.name);
        // Each entry is parked beside the caller's safe name, as "<safeName>.<entry>": the
        // same folder (so the same volume, and the caller knows where to look after a
        // failed rollback), and distinct per entry because the entry names are.
        const QString parked
            = CPathOperations::concatPath(safeName, QString(), entry.name, false, false);
        // Every entry is tried; one that fails is back in place, and the answer says so even
        // when later entries went.
        if (!(entry.isDirectory ? safeDeleteDirectory(child, parked, true)
                                : safeDeleteFile(child, parked, false)))
            done = false;
    }
    return done;
}

// ---------------------------------------------------------------------------
// Moving and renaming
// ---------------------------------------------------------------------------

bool CMacFSOperations::safeMoveFile(
    const QString &src, const QString &dst, const QString &safeName, bool force, bool overwrite)
{
    if (src.isEmpty()) {
        BV_CRITICAL() << "Empty src path ...";
        return false;
    }
    if (dst.isEmpty()) {
        BV_CRITICAL() << "Empty dest path ...";
        return false;
    }
    if (!fileExists(src)) {
        BV_CRITICAL() << "Source doesn't exists: " << src;
        FS_THROW_SUB(DoesNotExist, QLatin1String("Source doesn't exists: ") + src,
            "Specified file doesn't exist");
    }
    // Checked whatever the names: unlike moveFile, a change of case alone is no exception.
    if (!overwrite && fileExists(dst)) {
        BV_CRITICAL() << "Destination already exists: " << dst;
        FS_THROW_SYSTEM(FileExists, QLatin1String("Destination already exists: ") + dst);
    }
    // Parked without overwrite, as in every variant: what is under the safe name stays.
    if (caseTwinTaken(*this, src, safeName))
        FS_THROW_SYSTEM(FileExists, QLatin1String("Destination already exists: ") + safeName);
    if (!moveFile(src, safeName, false, false)) {
        BV_CRITICAL() << "Could not rename file to safe name: " << src << safeName;
        return false;
    }
    const Step moved = attempt([&] { return moveFile(safeName, dst, force, overwrite); });
    if (moved.done)
        return true;
    if (!quietly([&] { return moveFile(safeName, src, false, false); }))
        BV_CRITICAL() << "ERROR at ROLLBACK: " << safeName << src;
    moved.rethrow();
    return false;
}

bool CMacFSOperations::safeMoveDirectory(
    const QString &src, const QString &dst, const QString &safeName, bool force)
{
    if (src.isEmpty()) {
        BV_CRITICAL() << "Empty src path ...";
        return false;
    }
    if (dst.isEmpty()) {
        BV_CRITICAL() << "Empty dest path ...";
        return false;
    }
    if (!directoryExists(src)) {
        BV_CRITICAL() << "Source doesn't exists: " << src;
        FS_THROW_SUB(DoesNotExist, QLatin1String("Source doesn't exists: ") + src,
            "Specified directory doesn't exist");
    }
    if (!parkDirectory(*this, src, safeName)) {
        BV_CRITICAL() << "Could not rename file to safe name: " << src << safeName;
        return false;
    }
    // The caller's force applies to the destination only; the way back needs no folder made
    // because the source's folder is where the parked folder came from.
    const Step moved = attempt([&] { return moveDirectory(safeName, dst, force); });
    if (moved.done)
        return true;
    if (!quietly([&] { return moveDirectory(safeName, src, false); }))
        BV_CRITICAL() << "ERROR at ROLLBACK: " << safeName << src;
    moved.rethrow();
    return false;
}

bool CMacFSOperations::safeRenameFile(
    const QString &from, const QString &to, const QString &safeName, bool overwrite)
{
    FS_CHECK_RENAME_ARGUMENTS(from, to);
    // No force: the folder is the source's own and exists.
    return safeMoveFile(from, to, safeName, false, overwrite);
}

bool CMacFSOperations::safeRenameDirectory(
    const QString &from, const QString &to, const QString &safeName)
{
    FS_CHECK_RENAME_ARGUMENTS(from, to);
    return safeMoveDirectory(from, to, safeName, false);
}

// ---------------------------------------------------------------------------
// Copying and creation
// ---------------------------------------------------------------------------

bool CMacFSOperations::safeCopyFile(const QString &src, const QString &dst, const QString &safeName,
    bool force, bool unused, bool overwrite)
{
    if (!fileExists(src))
        FS_THROW_SUB(
            DoesNotExist, QLatin1String("File not found: ") + src, "Specified file doesn't exist");
    if (!overwrite && fileExists(dst))
        FS_THROW_SYSTEM(FileExists, QLatin1String("Destination already exists: ") + dst);
    // Whatever is under the safe name after a failed copy must be ours to remove.
    if (fileExists(safeName))
        FS_THROW_SYSTEM(FileExists, QLatin1String("Destination already exists: ") + safeName);

    // The copy to the safe name makes no folders (nothing would remove them) and replaces
    // nothing; the caller's force and overwrite apply where the copy ends up.
    const Step copied = attempt([&] { return copyFile(src, safeName, false, unused, false); });
    Step moved;
    if (copied.done)
        moved = attempt([&] { return moveFile(safeName, dst, force, overwrite); });
    if (moved.done)
        return true;

    // A failed copy may have left a partial file behind.
    if (!quietly([&] { return !fileExists(safeName) || deleteFile(safeName, false); }))
        BV_CRITICAL() << "ERROR at ROLLBACK: " << safeName;
    copied.rethrow();
    moved.rethrow();
    return false;
}

bool CMacFSOperations::safeCreateDirectory(const QString &path, const QString &safeName,
    const QDateTime &created, const QDateTime &modified, const QDateTime &accessed,
    const EFileSystemAttribute &attributes, bool force)
{
    if (path.isEmpty()) {
        BV_CRITICAL() << "Empty path ...";
        return false;
    }
    if (safeName.isEmpty()) {
        BV_CRITICAL() << "Empty safePath ...";
        return false;
    }
    if (directoryExists(path)) {
        BV_CRITICAL() << "Destination already exists: " << path;
        FS_THROW_SUB(DirectoryExists, QLatin1String("Destination already exists: ") + path,
            "Specified directory already exists");
    }

    // The folder is made without stamps (they are set once it is in place) and without
    // force: folders made above the safe name would outlive a rollback. The caller's force
    // makes the missing folders above the target instead, in the move.
    if (!createDirectory(safeName, kNoTime, kNoTime, kNoTime, attributes, false))
        return false;

    const Step moved = attempt([&] { return moveDirectory(safeName, path, force); });
    if (moved.failed()) {
        // Only an empty folder is removed (no force): nothing anybody put there meanwhile.
        if (!quietly([&] { return deleteDirectory(safeName, false); }))
            BV_CRITICAL() << "ERROR at ROLLBACK: " << safeName;
        moved.rethrow();
        return false;
    }

    // A failed stamp answers false, as createDirectory does, rather than throwing.
    if (quietly([&] { return setTimeStamps(path, created, modified, accessed, false); }))
        return true;
    BV_CRITICAL() << "could not set TimeStamp" << path;
    if (!quietly([&] { return deleteDirectory(path, false); }))
        BV_CRITICAL() << "ERROR at ROLLBACK: " << path;
    return false;
}

// ---------------------------------------------------------------------------
// Time stamps
// ---------------------------------------------------------------------------

bool CMacFSOperations::safeSetTimeStamps(const QString &path, const QString &safeName,
    const QDateTime &created, const QDateTime &modified, const QDateTime &accessed, bool flag)
{
    if (path.isEmpty()) {
        BV_CRITICAL() << "Empty path ...";
        return false;
    }
    const bool isDirectory = quietly([&] { return directoryExists(path); });
    const bool parked = quietly([&] {
        return isDirectory
            ? parkDirectory(*this, path, safeName)
            : !caseTwinTaken(*this, path, safeName) && moveFile(path, safeName, false, false);
    });
    if (!parked) {
        BV_CRITICAL() << "could not rename file/dir to safename before setting timestamps -> now "
                         "set timestamps to original file/dir";
        return setTimeStamps(path, created, modified, accessed, flag);
    }

    const Step stamped
        = attempt([&] { return setTimeStamps(safeName, created, modified, accessed, flag); });
    if (stamped.failed())
        BV_CRITICAL() << "could not set TimeStamp" << safeName;
    const bool back = quietly([&] {
        return isDirectory ? moveDirectory(safeName, path, false)
                           : moveFile(safeName, path, false, false);
    });
    if (!back)
        BV_CRITICAL() << "ERROR at ROLLBACK: " << safeName << path;
    stamped.rethrow();
    return stamped.done && back;
}
