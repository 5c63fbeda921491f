#include "CMacFSLock.h"

bool CMacFSLock::getExclusiveLock(QString const &path)
{
    return getPidsByPath(path).isEmpty();
}

bool CMacFSLock::getReadWriteLock(QString const &path)
{
    return getExclusiveLock(path);
}

bool CMacFSLock::getWriteLock(QString const &path)
{
    return getReadWriteLock(path);
}

bool CMacFSLock::getDeleteLock(QString const &path)
{
    return getWriteLock(path);
}

bool CMacFSLock::releaseLock()
{
    return true;
}

bool CMacFSLock::isLocked()
{
    return false;
}
