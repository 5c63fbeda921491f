#pragma once

#include "fsapi/IFSOperations.h"

#include <QByteArray>

// The POSIX implementation of the file-system operations, used on macOS and Linux alike.
// Hard failures throw the exceptions of fsapi/FSExceptions.h (as pointers); soft ones
// (an empty path) answer false with a critical diagnostic line.
class CMacFSOperations : public IFSOperations
{
public:
    CMacFSOperations() = default;
    ~CMacFSOperations() override = default;

    bool tryExclusiveLock(const QString &path) override;
    bool tryWriteLock(const QString &path) override;
    bool fileExists(const QString &path) override;
    bool directoryExists(const QString &path) override;
    bool safeExchangeFile(const QString &xchgIn, const QString &xchgOut,
        const QString &originalPath, const QString &xchgSrcName, const QString &originalName,
        const QDateTime &time1, const QDateTime &time2) override;
    bool copyFile(
        const QString &src, const QString &dst, bool force, bool unused, bool overwrite) override;
    bool safeCopyFile(const QString &src, const QString &dst, const QString &safeName, bool force,
        bool unused, bool overwrite) override;
    bool copyDirectory(const QString &src, const QString &dst) override;
    bool createFile(const QString &path, const QDateTime &created, const QDateTime &modified,
        const QDateTime &accessed, const EFileSystemAttribute &attributes) override;
    bool createDirectory(const QString &path, const QDateTime &created, const QDateTime &modified,
        const QDateTime &accessed, const EFileSystemAttribute &attributes, bool force) override;
    bool safeCreateDirectory(const QString &path, const QString &safeName, const QDateTime &created,
        const QDateTime &modified, const QDateTime &accessed,
        const EFileSystemAttribute &attributes, bool force) override;
    bool renameFile(const QString &from, const QString &to, bool overwrite) override;
    bool safeRenameFile(
        const QString &from, const QString &to, const QString &safeName, bool overwrite) override;
    bool renameDirectory(const QString &from, const QString &to) override;
    bool safeRenameDirectory(
        const QString &from, const QString &to, const QString &safeName) override;
    bool moveFile(const QString &src, const QString &dst, bool force, bool overwrite) override;
    bool safeMoveFile(const QString &src, const QString &dst, const QString &safeName, bool force,
        bool overwrite) override;
    bool moveDirectory(const QString &src, const QString &dst, bool force) override;
    bool safeMoveDirectory(
        const QString &src, const QString &dst, const QString &safeName, bool force) override;
    bool deleteFile(const QString &path, bool force) override;
    bool safeDeleteFile(const QString &path, const QString &safeName, bool force) override;
    bool deleteDirectory(const QString &path, bool force) override;
    bool safeDeleteDirectory(const QString &path, const QString &safeName, bool force) override;
    bool cleanDirectory(const QString &path, bool recursive) override;
    bool safeCleanDirectory(const QString &path, const QString &safeName, bool recursive) override;
    bool setTimeStamps(const QString &path, const QDateTime &created, const QDateTime &modified,
        const QDateTime &accessed, bool flag) override;
    bool safeSetTimeStamps(const QString &path, const QString &safeName, const QDateTime &created,
        const QDateTime &modified, const QDateTime &accessed, bool flag) override;
    bool setAttributes(const QString &path, const EFileSystemAttribute &attributes) override;
    bool removeAttributes(const QString &path, const EFileSystemAttribute &attributes) override;
    // A 64-bit identity of the entry itself (symbolic links are not followed): its inode
    // number mixed with the device it lives on.
    bool getFSID(QString path, unsigned long long &id) override;
    bool isSymbolicLink(const QString &path) override;

    // File names travel as QString but reach the kernel as bytes: QFile::encodeName and
    // decodeName for well-formed names. Bytes that are not UTF-8 (which decodeName would
    // turn into U+FFFD) decode to U+DC80..U+DCFF and encode back to themselves, so any
    // name read from a directory can be handed back to these operations unchanged.
    static QByteArray encodePath(const QString &path);
    static QString decodePath(const QByteArray &bytes);

protected:
    bool copyDirContents(const QString &src, const QString &dst);
    // 0 on success, -1 on failure with errno describing the failing call.
    int file_copy(const QString &src, const QString &dst, bool overwrite);
    int fdcopy(int in, int out);

private:
    // The walk itself; complete turns false for a source entry left out on purpose. Of the
    // same name, so that its lines and exceptions name the operation.
    bool copyDirContents(const QString &src, const QString &dst, bool &complete);
    enum class Stamping { Done, RolledBack, RollbackFailed };
    Stamping stampNewDirectory(const QString &path, const QDateTime &created,
        const QDateTime &modified, const QDateTime &accessed);
    // The folder holding path, in the same absolute or relative form as path.
    static bool splitFolder(const QString &path, QString &folder);
};
