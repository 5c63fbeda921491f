#include "CBasicThread.h"

#include "threading/assertions/assertion.h"
#include "threading/exceptions/CCallStack.h"
#include "threading/exceptions/CException.h"

#include <QDeadlineTimer>
#include <QMutexLocker>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <mutex>

#if defined(Q_OS_UNIX)
#include <pthread.h>
#include <setjmp.h>
#include <signal.h>
#define BV_HAVE_HARD_STOP 1
#if defined(__linux__)
#include <link.h>
#include <ucontext.h>
#endif
#endif

#undef BV_SOURCE_FILE
#define BV_SOURCE_FILE "src/threading/threads/CBasicThread"

// Implementation notes: hard termination
//
// QThread::terminate() is a deferred pthread_cancel. A thread reaches it only in a
// cancellation point (a sleep, a wait, a write) and then unwinds its stack with an
// exception no noexcept frame may see: a cancellation point inside a destructor - the
// one of QDebug that writes a diagnostic line, for instance - ends the process.
// Therefore:
// - The thread runs with cancellation disabled except inside exec() / runMethod(), and
//   this class and the log hold a CTerminationGuard wherever they lock or write. A
//   request that arrives there waits; a thread whose runMethod() has returned drops it.
// - A runMethod() that reaches no cancellation point (a busy loop) is interrupted by a
//   signal of ours and jumps back into run(), which finishes as usual. No exception
//   travels through its frames, so none of them can end the process; their destructors
//   do not run, which is what ending such code by force costs. The jump is taken only
//   where the thread may be cancelled at all and, for a while, only in the program's own
//   code, not inside the C library or Qt, whose locks it would leave taken.
// - Waits of this class (QThread::wait(), the suspension) run under the guard too: a
//   cancellation inside a wait condition would leave its internal mutex taken. A
//   suspended thread is woken by the hard termination instead.

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

// How long a deferred cancellation gets before a busy runMethod() is interrupted, how
// often it is interrupted, after how long the interruption stops sparing library code,
// and how long terminateThread(code, false) goes on interrupting before it returns.
constexpr int cCancellationGraceMs = 10;
constexpr int cPushIntervalMs = 2;
constexpr int cForceAfterMs = 1000;
constexpr int cAtOnceMs = 100;

#ifdef BV_HAVE_HARD_STOP
// The state before, so that it can be put back.
int blockTermination()
{
    int previous = PTHREAD_CANCEL_ENABLE;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous);
    return previous;
}

void allowTermination(int state)
{
    pthread_setcancelstate(state, nullptr);
    // A request that came while the thread was getting ready takes effect here.
    pthread_testcancel();
}

struct StopPoint
{
    sigjmp_buf buffer;
    pthread_t thread;
    // Jump even outside the program's own code.
    std::atomic<int> forced;
};

thread_local StopPoint *tl_StopPoint = nullptr;

int stopSignal()
{
#ifdef SIGRTMIN
    return SIGRTMIN + 5;
#else
    return SIGUSR2;
#endif
}

// The program's own machine code, where a jump leaves no lock of a library taken.
// Written once, before the signal handler is installed.
struct CodeRange
{
    quintptr begin;
    quintptr end;
};
CodeRange g_OwnCode[16];
int g_OwnCodeCount = 0;

#if defined(__linux__)
int collectOwnCode(struct dl_phdr_info *info, size_t, void *)
{
    // The program itself comes first.
    for (int i = 0; i < info->dlpi_phnum && g_OwnCodeCount < 16; ++i) {
        const ElfW(Phdr) &header = info->dlpi_phdr[i];
        if (header.p_type == PT_LOAD && (header.p_flags & PF_X)) {
            const quintptr begin = info->dlpi_addr + header.p_vaddr;
            g_OwnCode[g_OwnCodeCount++] = {begin, begin + header.p_memsz};
        }
    }
    return 1;
}
#endif

bool inOwnCode(void *context)
{
#if defined(__linux__) && defined(__x86_64__)
    const quintptr pc = quintptr(static_cast<ucontext_t *>(context)->uc_mcontext.gregs[REG_RIP]);
#elif defined(__linux__) && defined(__aarch64__)
    const quintptr pc = quintptr(static_cast<ucontext_t *>(context)->uc_mcontext.pc);
#else
    Q_UNUSED(context);
    return true;
#endif
#if defined(__linux__) && (defined(__x86_64__) || defined(__aarch64__))
    if (g_OwnCodeCount == 0)
        return true;
    for (int i = 0; i < g_OwnCodeCount; ++i)
        if (pc >= g_OwnCode[i].begin && pc < g_OwnCode[i].end)
            return true;
    return false;
#endif
}

void onStopSignal(int, siginfo_t *, void *context)
{
    StopPoint *const point = tl_StopPoint;
    if (!point)
        return;
    const int savedErrno = errno;
    // Disabled means "not here": a guard, or the thread's own setTerminationEnabled(false).
    int state = PTHREAD_CANCEL_DISABLE;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    if (state == PTHREAD_CANCEL_ENABLE && (point->forced.load() || inOwnCode(context))) {
        tl_StopPoint = nullptr;
        // Cancellation stays disabled: the pending request dies with runMethod().
        siglongjmp(point->buffer, 1);
    }
    pthread_setcancelstate(state, nullptr);
    errno = savedErrno;
}

void installStopSignal()
{
    static std::once_flag once;
    std::call_once(once, [] {
#if defined(__linux__)
        dl_iterate_phdr(&collectOwnCode, nullptr);
#endif
        struct sigaction action = {};
        action.sa_sigaction = &onStopSignal;
        action.sa_flags = SA_SIGINFO | SA_RESTART;
        sigemptyset(&action.sa_mask);
        sigaction(stopSignal(), &action, nullptr);
    });
}
#else
int blockTermination()
{
    return 0;
}
void allowTermination(int) { }
#endif

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
    , m_StopRequested(0)
    , m_StopPoint(nullptr)
{
    const CTerminationGuard guard;
    initialize();
    BV_THREAD_LOG(QtDebugMsg) << ") registering ..." << BV_CURRENT;
    registerThread();
}

CBasicThread::CBasicThread(const std::string &name, bool useEventLoop, QObject *parent)
    : CBasicThread(useEventLoop, parent, name.c_str())
{ }

CBasicThread::~CBasicThread()
{
    const CTerminationGuard guard;
    BV_THREAD_LOG(QtDebugMsg) << ") unregistering ..." << BV_CURRENT;
    unregisterThread();
}

CBasicThread::CTerminationGuard::CTerminationGuard()
    : m_Previous(blockTermination())
{ }

CBasicThread::CTerminationGuard::~CTerminationGuard()
{
#ifdef BV_HAVE_HARD_STOP
    // Deferred cancellation: putting it back does not act on a pending request.
    pthread_setcancelstate(m_Previous, nullptr);
#endif
}

qint32 CBasicThread::getSuspensionRequests() const
{
    const CTerminationGuard guard;
    QMutexLocker lock(&m_SuspensionMutex);
    return m_SuspensionRequests;
}

void CBasicThread::registerThread()
{
    const CTerminationGuard guard;
    QMutexLocker lock(&s_ListMutex);
    s_Threads.append(this);
}

void CBasicThread::unregisterThread()
{
    const CTerminationGuard guard;
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
    const CTerminationGuard guard;
    QMutexLocker lock(&m_StateMutex);
    const int state = getState();
    if (state == StateStartingUp || state == StateRunning) {
        BV_THREAD_LOG(QtCriticalMsg)
            << ")"
            << "Attempt to start a starting up or already running thread ..." << BV_CURRENT;
        return false;
    }
    m_State.storeRelease(StateNotStarted);
    m_StopRequested.storeRelease(0);
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
    // From here on a hard termination takes effect only inside runInterruptibly().
    const int terminationState = blockTermination();
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
        if (m_UseEventLoop)
            BV_THREAD_LOG(QtDebugMsg) << "running ..." << BV_CURRENT;
        runInterruptibly(terminationState);
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

void CBasicThread::runInterruptibly(int terminationState)
{
#ifdef BV_HAVE_HARD_STOP
    StopPoint point;
    point.thread = pthread_self();
    point.forced.store(0);
    if (sigsetjmp(point.buffer, 1) != 0) {
        // Back from the signal handler, with cancellation disabled.
        closeStopWindow();
        return;
    }
    // An event loop is left alone: its frames hold Qt's own bookkeeping. It waits in a
    // cancellation point, where the deferred request reaches it.
    if (!m_UseEventLoop)
        openStopWindow(&point);
#endif
    try {
        allowTermination(terminationState);
        if (m_UseEventLoop)
            m_ExitCode.storeRelease(exec());
        else
            runMethod();
    } catch (...) {
        // The cancellation's own unwinding passes here too and goes on.
        blockTermination();
        closeStopWindow();
        throw;
    }
    blockTermination();
    closeStopWindow();
}

void CBasicThread::openStopWindow(void *point)
{
#ifdef BV_HAVE_HARD_STOP
    QMutexLocker lock(&m_StopMutex);
    m_StopPoint = point;
    tl_StopPoint = static_cast<StopPoint *>(point);
#else
    Q_UNUSED(point);
#endif
}

void CBasicThread::closeStopWindow()
{
#ifdef BV_HAVE_HARD_STOP
    tl_StopPoint = nullptr;
    QMutexLocker lock(&m_StopMutex);
    m_StopPoint = nullptr;
#endif
}

void CBasicThread::pushOutOfRunMethod(QDeadlineTimer deadline)
{
#ifdef BV_HAVE_HARD_STOP
    installStopSignal();
    const QDeadlineTimer sparing(cForceAfterMs);
    forever
    {
        {
            QMutexLocker lock(&m_StopMutex);
            auto *const point = static_cast<StopPoint *>(m_StopPoint);
            if (!point)
                return;
            if (sparing.hasExpired())
                point->forced.store(1);
            // The thread clears the point under this mutex before it ends: it is alive.
            pthread_kill(point->thread, stopSignal());
        }
        if (QThread::wait(QDeadlineTimer(cPushIntervalMs)) || deadline.hasExpired())
            return;
    }
#else
    Q_UNUSED(deadline);
#endif
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
    const CTerminationGuard guard;
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
    const CTerminationGuard guard;
    QMutexLocker lock(&m_StateMutex);
    m_ExitCode.storeRelease(exitCode);
    if (!wait) {
        lock.unlock();
        terminateHard(false);
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

void CBasicThread::terminateHard(bool waitForEnd)
{
    const CTerminationGuard guard;
    if (isCurrentThread()) {
        BV_THREAD_LOG(QtCriticalMsg) << ") cannot terminate itself ..." << BV_CURRENT;
        return;
    }
    // A suspended thread waits under a guard: wake it, it does not suspend again.
    m_StopRequested.storeRelease(1);
    {
        QMutexLocker lock(&m_SuspensionMutex);
        m_SuspensionCondition.wakeAll();
    }
    // A thread in a cancellation point ends there, its stack unwound ...
    terminate();
    // ... one busy in runMethod() never reaches one.
    if (!QThread::wait(QDeadlineTimer(cCancellationGraceMs)))
        pushOutOfRunMethod(
            waitForEnd ? QDeadlineTimer(QDeadlineTimer::Forever) : QDeadlineTimer(cAtOnceMs));
    if (waitForEnd)
        QThread::wait();
    emit threadTerminated();
    onTermination();
}

void CBasicThread::suspendThread(unsigned long milliseconds)
{
    const CTerminationGuard guard;
    BV_THREAD_LOG(QtDebugMsg) << ") aquire suspension ..." << BV_CURRENT;
    QMutexLocker lock(&m_SuspensionMutex);
    ++m_SuspensionRequests;
    m_SuspensionTimeout = quint32(qMin<unsigned long>(milliseconds, cNoTimeout));
}

void CBasicThread::checkSuspended()
{
    const CTerminationGuard guard;
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
    // A thread being ended by force does not stop on its way out.
    if (m_SuspensionRequests <= 0 || m_StopRequested.loadAcquire())
        return;
    BV_THREAD_LOG(QtDebugMsg) << ") suspending ..." << BV_CURRENT;
    emit threadSuspended();
    BV_THREAD_LOG(QtDebugMsg) << ") setting suspended flag ..." << BV_CURRENT;
    m_State.storeRelease(StateSuspended);
    const QDeadlineTimer deadline = suspensionDeadline(m_SuspensionTimeout);
    // Woken by the release, not by the count: a new request may come in before this
    // thread gets the mutex back, and it starts a suspension of its own.
    const quint32 release = m_SuspensionRelease;
    while (m_SuspensionRelease == release && !m_StopRequested.loadAcquire()) {
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
    const CTerminationGuard guard;
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
    const CTerminationGuard guard;
    BV_THREAD_LOG(QtDebugMsg) << ") setting running flag ..." << BV_CURRENT;
    m_State.storeRelease(StateRunning);
}

void CBasicThread::onFinish()
{
    const CTerminationGuard guard;
    BV_THREAD_LOG(QtDebugMsg) << ") setting finished flag ..." << BV_CURRENT;
    // A thread stopped before it ran, or by force, stays terminated.
    m_State.testAndSetOrdered(StateRunning, StateFinished);
    m_State.testAndSetOrdered(StateStartingUp, StateFinished);
    m_State.testAndSetOrdered(StateSuspended, StateFinished);
}

void CBasicThread::onTermination()
{
    const CTerminationGuard guard;
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
    const CTerminationGuard guard;
    QMutexLocker lock(&s_ListMutex);
    for (CBasicThread *thread : std::as_const(s_Threads)) {
        if (thread != s_CoreDeamon && !thread->isCurrentThread())
            thread->QThread::wait();
    }
}

void CBasicThread::killAllThreads(int exitCode, bool wait)
{
    const CTerminationGuard guard;
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
