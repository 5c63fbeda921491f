#pragma once

#include "fsapi/IFSLock.h"

#include <QList>

// No lock is taken: a lock of any kind succeeds when no process holds the path open.
// Every kind ends in the exclusive test, through the virtual calls, so a subclass that
// tightens getExclusiveLock() tightens them all.
class CMacFSLock : public IFSLock
{
public:
    bool getExclusiveLock(QString const &path) override;
    bool getWriteLock(QString const &path) override;
    bool getReadWriteLock(QString const &path) override;
    bool getDeleteLock(QString const &path) override;
    bool releaseLock() override;
    bool isLocked() override;

    // The processes holding path open. Only whether the list is empty carries
    // information: the macOS backend reports a zero for every process found.
    virtual QList<unsigned int> getPidsByPath(QString const &path);
};
