#pragma once

#include <QAtomicInt>
#include <QString>
#include <QThread>

#include <string>

// Base of every worker thread of the library. Each thread carries a number from a
// process-wide counter (the first thread gets 1) and a name; both appear in the
// prefix of every diagnostic line written from the thread.
class CBasicThread : public QThread
{
    Q_OBJECT
    Q_CLASSINFO("Description", "Basic Thread Implementation")

public:
    // Note: a string literal as the first argument selects this constructor (a pointer
    // converts to bool); pass a std::string to name a thread with the other one.
    explicit CBasicThread(
        bool useEventLoop = false, QObject *parent = nullptr, const char *name = nullptr);
    explicit CBasicThread(
        const std::string &name, bool useEventLoop = false, QObject *parent = nullptr);
    ~CBasicThread() override;

    qint32 getThreadNumber() const { return m_ThreadNumber; }
    QString getThreadName() const { return m_Name; }
    bool usesEventLoop() const { return m_UseEventLoop; }

protected:
    void run() override;
    virtual void runMethod();

private:
    static QAtomicInt s_Count;

    bool m_UseEventLoop;
    qint32 m_ThreadNumber;
    QString m_Name;
};
