#include "CFSOperations.h"

#include "fsapi/mac/CMacFSOperations.h"
#include "threading/assertions/assertion.h"

#include <QDir>

#include <new>

namespace {
QString native(const QString &path)
{
    return QDir::toNativeSeparators(path);
}
} // namespace

CFSOperations::CFSOperations()
    : m_Implementation(new (std::nothrow) CMacFSOperations())
{ }

CFSOperations::CFSOperations(IFSOperations *implementation)
    : m_Implementation(implementation)
{ }

CFSOperations::~CFSOperations()
{
    delete m_Implementation;
    m_Implementation = nullptr;
}

bool CFSOperations::tryExclusiveLock(const QString &path)
{
    return !isNull() && m_Implementation->tryExclusiveLock(native(path));
}

bool CFSOperations::tryWriteLock(const QString &path)
{
    return !isNull() && m_Implementation->tryWriteLock(native(path));
}

bool CFSOperations::fileExists(const QString &path)
{
    return !isNull() && m_Implementation->fileExists(native(path));
}

bool CFSOperations::directoryExists(const QString &path)
{
    return !isNull() && m_Implementation->directoryExists(native(path));
}

bool CFSOperations::safeExchangeFile(const QString &, const QString &, const QString &,
    const QString &, const QString &, const QDateTime &, const QDateTime &)
{
    if (isNull())
        return false;
    BV_CRITICAL() << "not implemented";
    return false;
}

bool CFSOperations::copyFile(
    const QString &src, const QString &dst, bool force, bool unused, bool overwrite)
{
    return !isNull()
        && m_Implementation->copyFile(native(src), native(dst), force, unused, overwrite);
}

bool CFSOperations::safeCopyFile(const QString &src, const QString &dst, const QString &safeName,
    bool force, bool unused, bool overwrite)
{
    return !isNull()
        && m_Implementation->safeCopyFile(
            native(src), native(dst), native(safeName), force, unused, overwrite);
}

bool CFSOperations::copyDirectory(const QString &src, const QString &dst)
{
    return !isNull() && m_Implementation->copyDirectory(native(src), native(dst));
}

bool CFSOperations::createFile(const QString &path, const QDateTime &created,
    const QDateTime &modified, const QDateTime &accessed, const EFileSystemAttribute &attributes)
{
    return !isNull()
        && m_Implementation->createFile(native(path), created, modified, accessed, attributes);
}

bool CFSOperations::createDirectory(const QString &path, const QDateTime &created,
    const QDateTime &modified, const QDateTime &accessed, const EFileSystemAttribute &attributes,
    bool force)
{
    return !isNull()
        && m_Implementation->createDirectory(
            native(path), created, modified, accessed, attributes, force);
}

bool CFSOperations::safeCreateDirectory(const QString &path, const QString &safeName,
    const QDateTime &created, const QDateTime &modified, const QDateTime &accessed,
    const EFileSystemAttribute &attributes, bool force)
{
    return !isNull()
        && m_Implementation->safeCreateDirectory(
            native(path), native(safeName), created, modified, accessed, attributes, force);
}

bool CFSOperations::renameFile(const QString &from, const QString &to, bool overwrite)
{
    return !isNull() && m_Implementation->renameFile(native(from), native(to), overwrite);
}

bool CFSOperations::safeRenameFile(
    const QString &from, const QString &to, const QString &safeName, bool overwrite)
{
    return !isNull()
        && m_Implementation->safeRenameFile(native(from), native(to), native(safeName), overwrite);
}

bool CFSOperations::renameDirectory(const QString &from, const QString &to)
{
    return !isNull() && m_Implementation->renameDirectory(native(from), native(to));
}

bool CFSOperations::safeRenameDirectory(
    const QString &from, const QString &to, const QString &safeName)
{
    return !isNull()
        && m_Implementation->safeRenameDirectory(native(from), native(to), native(safeName));
}

bool CFSOperations::moveFile(const QString &src, const QString &dst, bool force, bool overwrite)
{
    return !isNull() && m_Implementation->moveFile(native(src), native(dst), force, overwrite);
}

bool CFSOperations::safeMoveFile(
    const QString &src, const QString &dst, const QString &safeName, bool force, bool overwrite)
{
    return !isNull()
        && m_Implementation->safeMoveFile(
            native(src), native(dst), native(safeName), force, overwrite);
}

bool CFSOperations::moveDirectory(const QString &src, const QString &dst, bool force)
{
    return !isNull() && m_Implementation->moveDirectory(native(src), native(dst), force);
}

bool CFSOperations::safeMoveDirectory(
    const QString &src, const QString &dst, const QString &safeName, bool force)
{
    return !isNull()
        && m_Implementation->safeMoveDirectory(native(src), native(dst), native(safeName), force);
}

bool CFSOperations::deleteFile(const QString &path, bool force)
{
    return !isNull() && m_Implementation->deleteFile(native(path), force);
}

bool CFSOperations::safeDeleteFile(const QString &path, const QString &safeName, bool force)
{
    return !isNull() && m_Implementation->safeDeleteFile(native(path), native(safeName), force);
}

bool CFSOperations::deleteDirectory(const QString &path, bool force)
{
    return !isNull() && m_Implementation->deleteDirectory(native(path), force);
}

bool CFSOperations::safeDeleteDirectory(const QString &path, const QString &safeName, bool force)
{
    return !isNull()
        && m_Implementation->safeDeleteDirectory(native(path), native(safeName), force);
}

bool CFSOperations::cleanDirectory(const QString &path, bool recursive)
{
    return !isNull() && m_Implementation->cleanDirectory(native(path), recursive);
}

bool CFSOperations::safeCleanDirectory(const QString &path, const QString &safeName, bool recursive)
{
    return !isNull()
        && m_Implementation->safeCleanDirectory(native(path), native(safeName), recursive);
}

bool CFSOperations::setTimeStamps(const QString &path, const QDateTime &created,
    const QDateTime &modified, const QDateTime &accessed, bool flag)
{
    return !isNull()
        && m_Implementation->setTimeStamps(native(path), created, modified, accessed, flag);
}

bool CFSOperations::safeSetTimeStamps(const QString &path, const QString &safeName,
    const QDateTime &created, const QDateTime &modified, const QDateTime &accessed, bool flag)
{
    return !isNull()
        && m_Implementation->safeSetTimeStamps(
            native(path), native(safeName), created, modified, accessed, flag);
}

bool CFSOperations::setAttributes(const QString &path, const EFileSystemAttribute &attributes)
{
    return !isNull() && m_Implementation->setAttributes(native(path), attributes);
}

bool CFSOperations::removeAttributes(const QString &path, const EFileSystemAttribute &attributes)
{
    return !isNull() && m_Implementation->removeAttributes(native(path), attributes);
}

bool CFSOperations::getFSID(QString path, unsigned long long &id)
{
    return !isNull() && m_Implementation->getFSID(native(path), id);
}

bool CFSOperations::isSymbolicLink(const QString &path)
{
    return !isNull() && m_Implementation->isSymbolicLink(native(path));
}
