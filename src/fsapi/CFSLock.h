#pragma once

#include <QString>

class IFSLock;

// Binds one path to one lock implementation. Without an implementation (allocation
// failed) every lock fails, while releasing still succeeds.
class CFSLock
{
public:
    explicit CFSLock(QString const &path);
    ~CFSLock();
    CFSLock(const CFSLock &) = delete;
    CFSLock &operator=(const CFSLock &) = delete;

    bool isNull() const { return m_Impl == nullptr; }

    bool lockExclusive();
    bool lockWrite();
    bool lockReadWrite();
    bool lockDelete();
    bool releaseLock();
    bool isLocked();

    QString getPath() const { return m_Path; }

protected:
    // For tests: wrap a given implementation (ownership passes), or none.
    CFSLock(QString const &path, IFSLock *impl);

private:
    IFSLock *m_Impl;
    QString m_Path;
};
