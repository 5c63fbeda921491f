#pragma once

#include <QDateTime>
#include <QString>

// The file-system operations every platform implements. Callers go through the
// CFSOperations facade; implementations reach their own operations through this table
// too, so overriding one operation changes every operation built on it.
//
// The order of the declarations is the order of the table and must not change.
class IFSOperations
{
public:
    enum EFileSystemAttribute {
        NoAttributes = 0,
        ReadOnly = 2,
    };

    virtual bool tryExclusiveLock(const QString &path) = 0;
    virtual bool tryWriteLock(const QString &path) = 0;
    virtual bool fileExists(const QString &path) = 0;
    virtual bool directoryExists(const QString &path) = 0;
    virtual bool safeExchangeFile(const QString &xchgIn, const QString &xchgOut,
        const QString &originalPath, const QString &xchgSrcName, const QString &originalName,
        const QDateTime &time1, const QDateTime &time2)
        = 0;
    virtual bool copyFile(
        const QString &src, const QString &dst, bool force, bool unused, bool overwrite)
        = 0;
    virtual bool safeCopyFile(const QString &src, const QString &dst, const QString &safeName,
        bool force, bool unused, bool overwrite)
        = 0;
    virtual bool copyDirectory(const QString &src, const QString &dst) = 0;
    virtual bool createFile(const QString &path, const QDateTime &created,
        const QDateTime &modified, const QDateTime &accessed,
        const EFileSystemAttribute &attributes)
        = 0;
    virtual bool createDirectory(const QString &path, const QDateTime &created,
        const QDateTime &modified, const QDateTime &accessed,
        const EFileSystemAttribute &attributes, bool force)
        = 0;
    virtual bool safeCreateDirectory(const QString &path, const QString &safeName,
        const QDateTime &created, const QDateTime &modified, const QDateTime &accessed,
        const EFileSystemAttribute &attributes, bool force)
        = 0;
    virtual bool renameFile(const QString &from, const QString &to, bool overwrite) = 0;
    virtual bool safeRenameFile(
        const QString &from, const QString &to, const QString &safeName, bool overwrite)
        = 0;
    virtual bool renameDirectory(const QString &from, const QString &to) = 0;
    virtual bool safeRenameDirectory(
        const QString &from, const QString &to, const QString &safeName)
        = 0;
    virtual bool moveFile(const QString &src, const QString &dst, bool force, bool overwrite) = 0;
    virtual bool safeMoveFile(
        const QString &src, const QString &dst, const QString &safeName, bool force, bool overwrite)
        = 0;
    virtual bool moveDirectory(const QString &src, const QString &dst, bool force) = 0;
    virtual bool safeMoveDirectory(
        const QString &src, const QString &dst, const QString &safeName, bool force)
        = 0;
    virtual bool deleteFile(const QString &path, bool force) = 0;
    virtual bool safeDeleteFile(const QString &path, const QString &safeName, bool force) = 0;
    virtual bool deleteDirectory(const QString &path, bool force) = 0;
    virtual bool safeDeleteDirectory(const QString &path, const QString &safeName, bool force) = 0;
    virtual bool cleanDirectory(const QString &path, bool recursive) = 0;
    virtual bool safeCleanDirectory(const QString &path, const QString &safeName, bool recursive)
        = 0;
    virtual bool setTimeStamps(const QString &path, const QDateTime &created,
        const QDateTime &modified, const QDateTime &accessed, bool flag)
        = 0;
    virtual bool safeSetTimeStamps(const QString &path, const QString &safeName,
        const QDateTime &created, const QDateTime &modified, const QDateTime &accessed, bool flag)
        = 0;
    virtual bool setAttributes(const QString &path, const EFileSystemAttribute &attributes) = 0;
    virtual bool removeAttributes(const QString &path, const EFileSystemAttribute &attributes) = 0;
    virtual bool getFSID(QString path, unsigned long long &id) = 0;
    virtual bool isSymbolicLink(const QString &path) = 0;
    virtual ~IFSOperations() = default;
};
