#include "CBasicThread.h"

#include "threading/assertions/assertion.h"

QAtomicInt CBasicThread::s_Count = 0;

namespace {
QString threadName(const char *name)
{
    return name ? QString::fromLocal8Bit(name) : QStringLiteral("CBasicThread");
}
} // namespace

CBasicThread::CBasicThread(bool useEventLoop, QObject *parent, const char *name)
    : QThread(parent)
    , m_UseEventLoop(useEventLoop)
    , m_ThreadNumber(s_Count.fetchAndAddOrdered(1) + 1)
    , m_Name(threadName(name))
{ }

CBasicThread::CBasicThread(const std::string &name, bool useEventLoop, QObject *parent)
    : CBasicThread(useEventLoop, parent, name.c_str())
{ }

CBasicThread::~CBasicThread() = default;

void CBasicThread::run()
{
    if (m_UseEventLoop)
        exec();
    else
        runMethod();
}

void CBasicThread::runMethod()
{
    BV_DEBUG() << "Thread (" << m_ThreadNumber << m_Name << ") default runMethod called ...";
}
