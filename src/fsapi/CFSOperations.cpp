#include "CFSOperations.h"

#include "fsapi/mac/CMacFSOperations.h"
#include "threading/assertions/assertion.h"
#include "threading/exceptions/CException.h"

#include "misc/CPathOperations.h"

#include <QDir>

#include <exception>
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

bool CFSOperations::safeExchangeFile(const QString &xchgIn, const QString &xchgOut,
    const QString &originalPath, const QString &xchgSrcName, const QString &originalName,
    const QDateTime &time1, const QDateTime &time2)
{
    if (isNull())
        return false;
    return internalSafeExchangeFile(native(xchgIn), native(xchgOut), native(originalPath),
        native(xchgSrcName), native(originalName), time1, time2);
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

// ---------------------------------------------------------------------------
// The safe file exchange
// ---------------------------------------------------------------------------

bool CFSOperations::internalSafeExchangeFile(const QString &xchgIn, const QString &xchgOut,
    const QString &originalPath, const QString &xchgSrcName, const QString &originalName,
    const QDateTime &time1, const QDateTime &time2)
{
    if (xchgIn.isEmpty() || xchgOut.isEmpty() || originalPath.isEmpty() || xchgSrcName.isEmpty()
        || originalName.isEmpty()) {
        BV_CRITICAL() << "Empty path ...";
        BV_CRITICAL() << "XChgIn:" << xchgIn << "XChgOut:" << xchgOut
                      << "XChgSrcName:" << xchgSrcName;
        BV_CRITICAL() << "OriginalPath:" << originalPath << "OriginalName:" << originalName;
        return false;
    }

    // What fails is logged here and thrown on as it is: the caller decides, and the files
    // stay where the failing step left them.
    try {
        const QString target
            = CPathOperations::concatPath(originalPath, originalName, QString(), true, false);
        const QString tilde = CPathOperations::concatPath(
            originalPath, QStringLiteral("~"), QString(), true, false);
        const QString templateFile = CPathOperations::concatPath(
            originalPath, originalName, QStringLiteral("brisvane"), true, false);
        const QString incoming
            = CPathOperations::concatPath(xchgIn, xchgSrcName, QString(), true, false);
        const QString parked
            = CPathOperations::concatPath(xchgOut, xchgSrcName, QString(), true, false);

        const bool hasTarget = m_Implementation && m_Implementation->fileExists(target);
        const bool hasTemplate = m_Implementation && m_Implementation->fileExists(templateFile);
        if (!hasTarget && !hasTemplate)
            return exchangeNewFile(target, tilde, incoming, time1, time2);
        if (!hasTarget)
            return exchangeTemplateFile(target, tilde, templateFile, incoming, time1, time2);
        if (!hasTemplate)
            return exchangeNormal(target, tilde, incoming, parked, time1, time2);
        return exchangeBoth(target, tilde, templateFile, incoming, parked, time1, time2);
    } catch (const std::exception &e) {
        BV_CRITICAL() << "Failed to "
                         "internalSafeExchangeFile failed";
        BV_CRITICAL() << e.what();
        throw;
    } catch (CException *e) {
        BV_CRITICAL() << "Failed to "
                         "internalSafeExchangeFile failed";
        BV_CRITICAL() << e->what();
        throw;
    } catch (int value) {
        BV_CRITICAL() << "Failed to "
                         "internalSafeExchangeFile failed";
        BV_CRITICAL() << "catched int:" << value;
        throw;
    } catch (...) {
        BV_CRITICAL() << "Failed to "
                         "internalSafeExchangeFile failed"
                         "! Unkown exception.";
        throw;
    }
}

bool CFSOperations::exchangeNormal(const QString &target, const QString &, const QString &incoming,
    const QString &parked, const QDateTime &, const QDateTime &)
{
    if (isNull())
        return false;
    if (m_Implementation->moveFile(target, parked, false, true)
        && m_Implementation->moveFile(incoming, target, false, true))
        return m_Implementation->deleteFile(parked, false);
    // Put the current version back. When it was never parked there is nothing to put back,
    // and the move says so by throwing DoesNotExist: the caller must not take the false
    // answer for "nothing happened, try again".
    m_Implementation->moveFile(parked, target, false, true);
    return false;
}

bool CFSOperations::exchangeBoth(const QString &target, const QString &tilde,
    const QString &templateFile, const QString &incoming, const QString &parked,
    const QDateTime &time1, const QDateTime &time2)
{
    if (isNull())
        return false;
    const bool exchanged = exchangeNormal(target, tilde, incoming, parked, time1, time2);
    if (!m_Implementation->fileExists(templateFile))
        return exchanged;
    return exchanged && m_Implementation->deleteFile(templateFile, false);
}

bool CFSOperations::exchangeTemplateFile(const QString &target, const QString &,
    const QString &templateFile, const QString &incoming, const QDateTime &, const QDateTime &)
{
    if (isNull())
        return false;
    const bool moved = m_Implementation->moveFile(incoming, target, false, true);
    if (!m_Implementation->fileExists(templateFile))
        return moved;
    // The template stays when the new version did not arrive.
    return moved && m_Implementation->deleteFile(templateFile, false);
}

bool CFSOperations::exchangeNewFile(const QString &target, const QString &, const QString &incoming,
    const QDateTime &, const QDateTime &)
{
    if (isNull())
        return false;
    return m_Implementation->moveFile(incoming, target, false, true);
}
