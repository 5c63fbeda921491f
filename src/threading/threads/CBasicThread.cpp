#include "CBasicThread.h"

#include "threading/assertions/assertion.h"
#include "threading/exceptions/CCallStack.h"
#include "threading/exceptions/CException.h"

#include <QDeadlineTimer>
#include <QMutexLocker>

#include <cstdlib>
#include <exception>
#include <limits>

#undef BV_SOURCE_FILE
#define BV_SOURCE_FILE "src/threading/threads/CBasicThread"

// With glibc, a hard termination (pthread_cancel) unwinds the thread's stack with an
// exception of its own that every catch-all must let through, or the process aborts.
// That exception has no object, so the sanitizer's null-reference check must stay out
// of the one handler that names it.
#if defined(__GLIBCXX__) && defined(__GLIBC__)
#include <cxxabi.h>
#define BV_HAVE_FORCED_UNWIND 1
#define BV_NO_NULL_CHECK __attribute__((no_sanitize("null")))
#else
#define BV_NO_NULL_CHECK
#endif

QAtomicInt CBasicThread::s_Count = 0;
QList<CBasicThread *> CBasicThread::s_Threads;
QMutex CBasicThread::s_ListMutex;
CBasicThread *CBasicThread::s_CoreDeamon = nullptr;

// "Thread ( <number> <name> <closing text>", the opening of every line of this class.
#define BV_THREAD_LOG(type) BV_LOG(type) << "Thread (" << m_ThreadNumber << m_Name
#define BV_CURRENT "[" << QThread::currentThread() << "]"

namespace {
QString threadName(const char *name)
{
    return name ? QString::fromLocal8Bit(name) : QStringLiteral("CBasicThread");
}

QDeadlineTimer suspensionDeadline(quint32 milliseconds)
{
    if (milliseconds == CBasicThread::cNoTimeout)
        return QDeadlineTimer(QDeadlineTimer::Forever);
    return QDeadlineTimer(qint64(milliseconds));
}
} // namespace

CBasicThread::CBasicThread(bool useEventLoop, QObject *parent, const char *name)
    : QThread(parent)
    , m_UseEventLoop(useEventLoop)
    , m_ThreadNumber(s_Count.fetchAndAddOrdered(1) + 1)
    , m_ExitCode(0)
    , m_Impl(nullptr)
    , m_ImplThread(QThread::currentThread())
    , m_Name(threadName(name))
    , m_State(StateNotStarted)
    , m_SuspensionRequests(0)
    , m_SuspensionTimeout(cNoTimeout)
    , m_SuspensionRelease(0)
{
    initialize();
    BV_THREAD_LOG(QtDebugMsg) << ") registering ..." << BV_CURRENT;
    registerThread();
}

CBasicThread::CBasicThread(const std::string &name, bool useEventLoop, QObject *parent)
    : CBasicThread(useEventLoop, parent, name.c_str())
{ }

CBasicThread::~CBasicThread()
{
    BV_THREAD_LOG(QtDebugMsg) << ") unregistering ..." << BV_CURRENT;
    unregisterThread();
}

qint32 CBasicThread::getSuspensionRequests() const
{
    QMutexLocker lock(&m_SuspensionMutex);
    return m_SuspensionRequests;
}

void CBasicThread::registerThread()
{
    QMutexLocker lock(&s_ListMutex);
    s_Threads.append(this);
}

void CBasicThread::unregisterThread()
{
    QMutexLocker lock(&s_ListMutex);
    s_Threads.removeAll(this);
    if (s_CoreDeamon == this)
        s_CoreDeamon = nullptr;
}

void CBasicThread::initialize()
{
    // Direct connections: the state must be settled before wait() returns to a caller,
    // not whenever the owner's event loop gets round to it.
    bool connRes = connect(
        this, &QThread::finished, this, &CBasicThread::threadFinished, Qt::DirectConnection);
    BV_ASSERT_THROW(connRes);
    connRes = connect(
        this, &CBasicThread::threadStarted, this, &CBasicThread::onStart, Qt::DirectConnection);
    BV_ASSERT_THROW(connRes);
    connRes
        = connect(this, &QThread::finished, this, &CBasicThread::onFinish, Qt::DirectConnection);
    BV_ASSERT_THROW(connRes);
    // QThread no longer reports a hard termination; terminateHard() raises
    // threadTerminated() and calls onTermination() itself.
}

void CBasicThread::finalize()
{
    if (m_Impl && m_UseEventLoop)
        m_Impl->disconnect();
    m_Impl = nullptr;
    disconnect();
}

bool CBasicThread::startThread(QObject *impl, TThreadPriority priority)
{
    QMutexLocker lock(&m_StateMutex);
    const int state = getState();
    if (state == StateStartingUp || state == StateRunning) {
        BV_THREAD_LOG(QtCriticalMsg)
            << ")"
            << "Attempt to start a starting up or already running thread ..." << BV_CURRENT;
        return false;
    }
    m_State.storeRelease(StateNotStarted);
    BV_THREAD_LOG(QtDebugMsg) << ") starting ..." << BV_CURRENT;
    m_Impl = impl;
    m_ImplThread = impl ? impl->thread() : QThread::currentThread();

    // run() waits for the state mutex, so the impl is moved before it is used there.
    start(priority);
    if (m_State.testAndSetOrdered(StateNotStarted, StateStartingUp))
        BV_THREAD_LOG(QtDebugMsg) << ") starting up ..." << BV_CURRENT;

    if (m_Impl) {
        BV_THREAD_LOG(QtDebugMsg) << ") moving impl ..." << BV_CURRENT;
        BV_ASSERT(0 == m_Impl->parent());
        BV_ASSERT(QThread::currentThread() == m_Impl->thread());
        m_Impl->moveToThread(this);
    }
    // Still under the state mutex: onStart() must set "running" before run() can finish.
    emit threadStarted();
    return true;
}

BV_NO_NULL_CHECK void CBasicThread::run()
{
    const char *const what = m_UseEventLoop ? "exec failed." : "runMethod failed.";
    {
        QMutexLocker lock(&m_StateMutex);
        const int state = getState();
        if (state == StateTerminated || state == StateFinished) {
            BV_LOG(QtWarningMsg)
                << "Thread was requested to finish or terminate before started to run ...";
            lock.unlock();
            moveImplBack();
            return;
        }
        setExceptionHandlers();
        BV_THREAD_LOG(QtDebugMsg) << ") setting running flag ..." << BV_CURRENT;
        m_State.storeRelease(StateRunning);
    }

    try {
        if (m_UseEventLoop) {
            BV_THREAD_LOG(QtDebugMsg) << "running ..." << BV_CURRENT;
            m_ExitCode.storeRelease(exec());
        } else {
            runMethod();
        }
#ifdef BV_HAVE_FORCED_UNWIND
    } catch (abi::__forced_unwind &) {
        throw;
#endif
    } catch (CException *e) {
        BV_CRITICAL() << "Failed to " << what << e->what();
        delete e;
        m_State.storeRelease(StateFinished);
    } catch (int value) {
        BV_CRITICAL() << "Failed to " << what;
        BV_CRITICAL() << "catched int:" << value;
        m_State.storeRelease(StateFinished);
    } catch (const std::exception &e) {
        BV_CRITICAL() << "Failed to " << what << e.what();
        m_State.storeRelease(StateFinished);
    } catch (...) {
        BV_CRITICAL() << "Failed to " << what << "Unkown exception.";
        m_State.storeRelease(StateFinished);
    }
    moveImplBack();
}

void CBasicThread::moveImplBack()
{
    if (!m_Impl)
        return;
    if (m_Impl->thread() != m_ImplThread) {
        BV_THREAD_LOG(QtDebugMsg) << ") moving back impl ..." << BV_CURRENT;
        BV_ASSERT(0 == m_Impl->parent());
        BV_ASSERT(QThread::currentThread() == m_Impl->thread());
        m_Impl->moveToThread(m_ImplThread);
    }
    m_Impl = nullptr;
}

void CBasicThread::runMethod()
{
    BV_THREAD_LOG(QtDebugMsg) << " default runMethod called ..." << BV_CURRENT;
}

bool CBasicThread::exitThread(int exitCode, unsigned long waitTime, bool kill)
{
    QMutexLocker lock(&m_StateMutex);
    m_ExitCode.storeRelease(exitCode);
    // The state first: the thread may look at it the moment its event loop returns.
    BV_THREAD_LOG(QtDebugMsg) << ") setting finished flag ..." << BV_CURRENT;
    m_State.storeRelease(StateFinished);
    // Waited for even when QThread no longer calls it running: it may still be emitting
    // finished(), and the caller is promised a settled state. A thread that never started
    // returns at once.
    exit(exitCode);
    // The thread's own start-up takes the state mutex: never wait for it while holding it.
    lock.unlock();
    if (wait(waitTime))
        return true;
    lock.relock();
    if (!kill) {
        BV_THREAD_LOG(QtCriticalMsg) << ")"
                                     << qUtf8Printable(QStringLiteral("thread not finished after "
                                                                      "%1 msecs , caller has to "
                                                                      "terminate thread !!!")
                                                           .arg(waitTime));
        m_State.storeRelease(StateRunning);
        return false;
    }
    m_State.storeRelease(StateTerminated);
    lock.unlock();
    terminateHard();
    return true;
}

bool CBasicThread::terminateThread(int exitCode, bool wait)
{
    QMutexLocker lock(&m_StateMutex);
    m_ExitCode.storeRelease(exitCode);
    if (!wait) {
        lock.unlock();
        terminateHard();
        return true;
    }
    exit(exitCode);
    BV_THREAD_LOG(QtDebugMsg) << ") setting terminated flag ..." << BV_CURRENT;
    m_State.storeRelease(StateTerminated);
    lock.unlock();
    if (!QThread::wait(1000))
        terminateHard();
    return true;
}

void CBasicThread::terminateHard()
{
    if (isCurrentThread()) {
        BV_THREAD_LOG(QtCriticalMsg) << ") cannot terminate itself ..." << BV_CURRENT;
        return;
    }
    terminate();
    QThread::wait();
    emit threadTerminated();
    onTermination();
}

void CBasicThread::suspendThread(unsigned long milliseconds)
{
    BV_THREAD_LOG(QtDebugMsg) << ") aquire suspension ..." << BV_CURRENT;
    QMutexLocker lock(&m_SuspensionMutex);
    ++m_SuspensionRequests;
    m_SuspensionTimeout = quint32(qMin<unsigned long>(milliseconds, cNoTimeout));
}

void CBasicThread::checkSuspended()
{
    CBasicThread *self = getCurrentThread();
    if (!self) {
        BV_LOG(QtCriticalMsg)
            << "CBasicThread::checkSuspended() called from a non suspendable Thread!";
        return;
    }
    if (self != this) {
        // Only the thread itself may stop: suspend the caller's own state machine.
        self->checkSuspended();
        return;
    }
    QMutexLocker lock(&m_SuspensionMutex);
    if (m_SuspensionRequests <= 0)
        return;
    BV_THREAD_LOG(QtDebugMsg) << ") suspending ..." << BV_CURRENT;
    emit threadSuspended();
    BV_THREAD_LOG(QtDebugMsg) << ") setting suspended flag ..." << BV_CURRENT;
    m_State.storeRelease(StateSuspended);
    const QDeadlineTimer deadline = suspensionDeadline(m_SuspensionTimeout);
    // Woken by the release, not by the count: a new request may come in before this
    // thread gets the mutex back, and it starts a suspension of its own.
    const quint32 release = m_SuspensionRelease;
    while (m_SuspensionRelease == release) {
        if (!m_SuspensionCondition.wait(&m_SuspensionMutex, deadline)) {
            // Running out of time ends the suspension with every request it held.
            m_SuspensionRequests = 0;
            break;
        }
    }
    // A thread asked to finish or terminate meanwhile keeps that state.
    m_State.testAndSetOrdered(StateSuspended, StateRunning);
}

void CBasicThread::resumeThread(TThreadPriority priority)
{
    QMutexLocker lock(&m_SuspensionMutex);
    // QThread refuses InheritPriority and threads that do not run.
    if (priority != QThread::InheritPriority && QThread::isRunning())
        setPriority(priority);
    if (m_SuspensionRequests <= 0)
        return;
    if (--m_SuspensionRequests > 0)
        return;
    ++m_SuspensionRelease;
    m_SuspensionCondition.wakeAll();
    emit threadResumed();
    BV_THREAD_LOG(QtDebugMsg) << ") setting running flag ..." << BV_CURRENT;
    m_State.testAndSetOrdered(StateSuspended, StateRunning);
}

void CBasicThread::onStart()
{
    BV_THREAD_LOG(QtDebugMsg) << ") setting running flag ..." << BV_CURRENT;
    m_State.storeRelease(StateRunning);
}

void CBasicThread::onFinish()
{
    BV_THREAD_LOG(QtDebugMsg) << ") setting finished flag ..." << BV_CURRENT;
    // A thread stopped before it ran, or by force, stays terminated.
    m_State.testAndSetOrdered(StateRunning, StateFinished);
    m_State.testAndSetOrdered(StateStartingUp, StateFinished);
    m_State.testAndSetOrdered(StateSuspended, StateFinished);
}

void CBasicThread::onTermination()
{
    BV_THREAD_LOG(QtDebugMsg) << ") setting terminated flag ..." << BV_CURRENT;
    m_State.storeRelease(StateTerminated);
}

bool CBasicThread::selfRunning()
{
    if (CBasicThread *thread = getCurrentThread())
        return thread->isRunning();
    return QThread::currentThread()->isRunning();
}

bool CBasicThread::selfSuspended()
{
    CBasicThread *thread = getCurrentThread();
    return thread && thread->isSuspended();
}

bool CBasicThread::selfFinished()
{
    CBasicThread *thread = getCurrentThread();
    return thread && thread->isFinished();
}

bool CBasicThread::selfTerminated()
{
    CBasicThread *thread = getCurrentThread();
    return thread && thread->isTerminated();
}

CBasicThread *CBasicThread::getCurrentThread()
{
    return qobject_cast<CBasicThread *>(QThread::currentThread());
}

bool CBasicThread::isCurrentThread() const
{
    return QThread::currentThread() == this;
}

void CBasicThread::waitForAllThreads()
{
    QMutexLocker lock(&s_ListMutex);
    for (CBasicThread *thread : std::as_const(s_Threads)) {
        if (thread != s_CoreDeamon && !thread->isCurrentThread())
            thread->QThread::wait();
    }
}

void CBasicThread::killAllThreads(int exitCode, bool wait)
{
    QMutexLocker lock(&s_ListMutex);
    QList<CBasicThread *> victims;
    for (CBasicThread *thread : std::as_const(s_Threads)) {
        if (thread == s_CoreDeamon || thread->isCurrentThread())
            continue;
        victims << thread;
        thread->exit(exitCode);
        // A runMethod() has no event loop to leave: it sees the request in the state.
        if (!thread->m_UseEventLoop)
            thread->m_State.fetchAndStoreOrdered(StateTerminated);
        thread->m_ExitCode.storeRelease(exitCode);
    }
    if (!wait)
        return;
    for (CBasicThread *thread : std::as_const(victims)) {
        if (thread->QThread::wait(1000))
            continue;
        if (!thread->m_UseEventLoop)
            thread->m_State.fetchAndStoreOrdered(StateTerminated);
        thread->terminateHard();
    }
}

void CBasicThread::setGlobalExceptionHandlers()
{
    // Unexpected-exception handlers can no longer be installed in C++17; they stay
    // callable for code that wants the same report.
    std::set_terminate(&CBasicThread::globalTerminateHandler);
}

void CBasicThread::setExceptionHandlers()
{
    setGlobalExceptionHandlers();
}

void CBasicThread::globalTerminateHandler()
{
    if (CBasicThread *thread = getCurrentThread())
        thread->terminateHandler();
    const CCallStack stack;
    BV_CRITICAL() << "terminate called in thread" << BV_CURRENT << stack;
    std::_Exit(-1);
}

void CBasicThread::globalUnexpectedHandler()
{
    if (CBasicThread *thread = getCurrentThread())
        thread->unexpectedHandler();
    const CCallStack stack;
    BV_CRITICAL() << "unexpected exception in thread" << BV_CURRENT << stack;
    std::_Exit(-1);
}

void CBasicThread::terminateHandler()
{
    const CCallStack stack;
    BV_THREAD_LOG(QtCriticalMsg) << ") terminate called ..." << BV_CURRENT << stack;
    std::_Exit(-1);
}

void CBasicThread::unexpectedHandler()
{
    const CCallStack stack;
    BV_THREAD_LOG(QtCriticalMsg) << ") unexpected exception ..." << BV_CURRENT << stack;
    std::terminate();
}
