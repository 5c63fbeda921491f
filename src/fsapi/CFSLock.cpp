#include "CFSLock.h"

#include "fsapi/IFSLock.h"
#include "fsapi/mac/CMacFSLock.h"

#include <QDir>

#include <new>

CFSLock::CFSLock(QString const &path)
    : m_Impl(new (std::nothrow) CMacFSLock)
    , m_Path(path)
{ }

CFSLock::CFSLock(QString const &path, IFSLock *impl)
    : m_Impl(impl)
    , m_Path(path)
{ }

CFSLock::~CFSLock()
{
    delete m_Impl;
    m_Impl = nullptr;
}

bool CFSLock::lockExclusive()
{
    return m_Impl && m_Impl->getExclusiveLock(QDir::toNativeSeparators(m_Path));
}

bool CFSLock::lockWrite()
{
    return m_Impl && m_Impl->getWriteLock(QDir::toNativeSeparators(m_Path));
}

bool CFSLock::lockReadWrite()
{
    return m_Impl && m_Impl->getReadWriteLock(QDir::toNativeSeparators(m_Path));
}

bool CFSLock::lockDelete()
{
    return m_Impl && m_Impl->getDeleteLock(QDir::toNativeSeparators(m_Path));
}

bool CFSLock::releaseLock()
{
    return m_Impl ? m_Impl->releaseLock() : true;
}

bool CFSLock::isLocked()
{
    return m_Impl && m_Impl->isLocked();
}
