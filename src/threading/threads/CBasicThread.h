#pragma once

#include <QAtomicInt>
#include <QDeadlineTimer>
#include <QList>
#include <QMutex>
#include <QString>
#include <QThread>
#include <QWaitCondition>

#include <string>

// Base of every worker thread of the library. Each thread carries a number from a
// process-wide counter (the first thread gets 1) and a name; both appear in the
// prefix of every diagnostic line written from the thread.
//
// Life cycle (getState()):
//   0 not started -> 1 starting up -> 2 running <-> 3 suspended -> 5 finished / 4 terminated
// A thread asked to finish or terminate before run() got going does not run at all.
//
// An optional worker object (the "impl") is moved into the thread for its life and
// moved back to its home thread when run() ends.
//
// A hard termination (exitThread() with kill, terminateThread(), killAllThreads()) ends
// a thread waiting in a system call where it waits; a runMethod() busy in a loop of
// its own is cut short and run() finishes from there. Either way the caller goes on,
// and no lock of this class or of the log is left taken.
class CBasicThread : public QThread
{
    Q_OBJECT
    Q_CLASSINFO("Description", "Basic Thread Implementation")

public:
    typedef QThread::Priority TThreadPriority;

    enum State {
        StateNotStarted = 0,
        StateStartingUp = 1,
        StateRunning = 2,
        StateSuspended = 3,
        StateTerminated = 4,
        StateFinished = 5,
    };

    // A suspension time-out of this value never runs out.
    static constexpr quint32 cNoTimeout = 0xFFFFFFFFu;

    // While one lives, the calling thread is not ended by a hard termination; one that
    // comes meanwhile takes effect later. Held wherever a lock is taken or a line is
    // written on the way to code that must not be abandoned halfway.
    class CTerminationGuard
    {
    public:
        CTerminationGuard();
        ~CTerminationGuard();
        Q_DISABLE_COPY_MOVE(CTerminationGuard)

    private:
        int m_Previous;
    };

    // Note: a string literal as the first argument selects this constructor (a pointer
    // converts to bool); pass a std::string to name a thread with the other one.
    explicit CBasicThread(
        bool useEventLoop = false, QObject *parent = nullptr, const char *name = nullptr);
    explicit CBasicThread(
        const std::string &name, bool useEventLoop = false, QObject *parent = nullptr);
    ~CBasicThread() override;

    qint32 getThreadNumber() const { return m_ThreadNumber; }
    QString getThreadName() const { return m_Name; }
    qint32 getExitCode() const { return m_ExitCode.loadAcquire(); }
    qint32 getState() const { return m_State.loadAcquire(); }
    qint32 getSuspensionRequests() const;

    // The state of this object. isRunning() and isFinished() answer the state machine,
    // not QThread's own view; use QThread::isRunning() for that.
    bool isNotStarted() const { return getState() == StateNotStarted; }
    bool isStartingUp() const { return getState() == StateStartingUp; }
    bool isRunning() const { return getState() == StateRunning; }
    bool isSuspended() const { return getState() == StateSuspended; }
    bool isTerminated() const { return getState() == StateTerminated; }
    bool isFinished() const { return getState() == StateFinished; }

    // The state of the calling thread; false when it is not a CBasicThread, except
    // selfRunning(), which then answers whether the current QThread runs.
    static bool selfRunning();
    static bool selfSuspended();
    static bool selfFinished();
    static bool selfTerminated();
    static CBasicThread *getCurrentThread();
    bool isCurrentThread() const;

    // Called by the thread itself at points where it may be suspended.
    void checkSuspended();

    virtual void initialize();
    virtual void finalize();
    virtual void startup() { }
    virtual void shutdown() { finalize(); }

    // Class-wide operations over every registered thread except s_CoreDeamon.
    static void waitForAllThreads();
    static void killAllThreads(int exitCode, bool wait);

    static void setGlobalExceptionHandlers();
    static void setExceptionHandlers();
    [[noreturn]] static void globalTerminateHandler();
    [[noreturn]] static void globalUnexpectedHandler();
    [[noreturn]] virtual void terminateHandler();
    [[noreturn]] virtual void unexpectedHandler();

    // The one thread the class-wide operations leave alone; not owned.
    static CBasicThread *s_CoreDeamon;

signals:
    void threadStarted();
    void threadResumed();
    void threadSuspended();
    void threadFinished();
    void threadTerminated();

public slots:
    bool startThread(QObject *impl = nullptr, TThreadPriority priority = QThread::InheritPriority);
    bool exitThread(int exitCode = 0, unsigned long waitTime = 1000, bool kill = true);
    bool terminateThread(int exitCode = -1, bool wait = true);
    void resumeThread(TThreadPriority priority = QThread::InheritPriority);
    void suspendThread(unsigned long milliseconds = cNoTimeout);
    void onTermination();
    void onFinish();
    void onStart();

protected:
    void run() override;
    virtual void runMethod();

private:
    void registerThread();
    void unregisterThread();
    void moveImplBack();
    // Ends the thread by force; with waitForEnd, returns once it has ended. QThread
    // reports no termination itself, so threadTerminated() is raised here.
    void terminateHard(bool waitForEnd = true);
    // exec() or runMethod(), the only stretch where a hard termination may strike.
    void runInterruptibly(int terminationState);
    void openStopWindow(void *point);
    void closeStopWindow();
    // Interrupts a runMethod() that reaches no cancellation point until it has left it,
    // the thread has ended or the deadline has passed.
    void pushOutOfRunMethod(QDeadlineTimer deadline);

    static QAtomicInt s_Count;
    static QList<CBasicThread *> s_Threads;
    static QMutex s_ListMutex;

    bool m_UseEventLoop;
    qint32 m_ThreadNumber;
    QAtomicInt m_ExitCode;
    QObject *m_Impl;
    QThread *m_ImplThread;
    QString m_Name;
    QAtomicInt m_State;
    QMutex m_StateMutex;
    mutable QMutex m_SuspensionMutex;
    QWaitCondition m_SuspensionCondition;
    qint32 m_SuspensionRequests;
    quint32 m_SuspensionTimeout;
    quint32 m_SuspensionRelease;
    // Set by a hard termination: a suspended thread wakes up for it.
    QAtomicInt m_StopRequested;
    // Where runMethod() may be cut short; null outside it.
    QMutex m_StopMutex;
    void *m_StopPoint;
};
