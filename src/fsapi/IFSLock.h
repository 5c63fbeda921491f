#pragma once

#include <QString>

// Advisory locks on a path. Implementations decide what "locked" means; on the
// platforms we ship, a lock succeeds when no process holds the path open.
class IFSLock
{
public:
    virtual bool getExclusiveLock(QString const &path) = 0;
    virtual bool getWriteLock(QString const &path) = 0;
    virtual bool getReadWriteLock(QString const &path) = 0;
    virtual bool getDeleteLock(QString const &path) = 0;
    virtual bool releaseLock() = 0;
    virtual bool isLocked() = 0;
    virtual ~IFSLock() = default;
};
