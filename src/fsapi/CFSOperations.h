#pragma once

#include "IFSOperations.h"

// What callers use for file-system work. Owns one platform implementation, hands it every
// path in native separators and passes its results and exceptions through unchanged.
// Without an implementation (allocation failed) every operation answers false.
class CFSOperations : public IFSOperations
{
public:
    CFSOperations();
    // Takes ownership of implementation, which may be null.
    explicit CFSOperations(IFSOperations *implementation);
    ~CFSOperations() override;
    CFSOperations(const CFSOperations &) = delete;
    CFSOperations &operator=(const CFSOperations &) = delete;

    bool isNull() const { return m_Implementation == nullptr; }

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
    bool getFSID(QString path, unsigned long long &id) override;
    bool isSymbolicLink(const QString &path) override;

    // The exchange's own steps, on paths already in native form. Every move replaces its
    // destination and makes no folders; the time stamps are carried along but not used.
    bool internalSafeExchangeFile(const QString &xchgIn, const QString &xchgOut,
        const QString &originalPath, const QString &xchgSrcName, const QString &originalName,
        const QDateTime &time1, const QDateTime &time2);
    // target exists, no template: park it, move the incoming file in, drop the parked one.
    bool exchangeNormal(const QString &target, const QString &tilde, const QString &incoming,
        const QString &parked, const QDateTime &time1, const QDateTime &time2);
    // target and template exist: as exchangeNormal, then the template goes.
    bool exchangeBoth(const QString &target, const QString &tilde, const QString &templateFile,
        const QString &incoming, const QString &parked, const QDateTime &time1,
        const QDateTime &time2);
    // only the template exists: move the incoming file in, then the template goes.
    bool exchangeTemplateFile(const QString &target, const QString &tilde,
        const QString &templateFile, const QString &incoming, const QDateTime &time1,
        const QDateTime &time2);
    // neither exists: move the incoming file in.
    bool exchangeNewFile(const QString &target, const QString &tilde, const QString &incoming,
        const QDateTime &time1, const QDateTime &time2);

private:
    IFSOperations *m_Implementation;
};
