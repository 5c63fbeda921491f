#include "CCallStack.h"

#include "threading/assertions/assertion.h"

#include <cstdlib>
#include <cstring>
#include <ostream>

#if __has_include(<execinfo.h>)
#include <execinfo.h>
#define BV_HAVE_BACKTRACE 1
#endif

CCallStack::CCallStack()
{
    std::memset(m_Frames, 0, sizeof(m_Frames));
    m_Count = 0;
#ifdef BV_HAVE_BACKTRACE
    m_Count = backtrace(m_Frames, MaxFrames);
#endif
}

QString CCallStack::formatFrame(int index, const QString &symbol)
{
    return QStringLiteral("[bt] %1 %2").arg(index, 3, 10, QLatin1Char(' ')).arg(symbol);
}

QStringList CCallStack::getStack() const
{
    QStringList frames;
    if (m_Count <= 0)
        return frames;
#ifdef BV_HAVE_BACKTRACE
    char **symbols = backtrace_symbols(m_Frames, m_Count);
    for (int i = 0; i < m_Count; ++i) {
        const QString symbol = symbols ? QString::fromLocal8Bit(symbols[i])
                                       : QStringLiteral("0x%1").arg(quintptr(m_Frames[i]), 0, 16);
        frames << formatFrame(i, symbol);
    }
    std::free(symbols);
#endif
    return frames;
}

QString CCallStack::toReport() const
{
    // The thread named is the one writing the report, not the one that captured it.
    return QStringLiteral("Callstack for \"%1\"(%2):\n%3")
        .arg(bvCurrentThreadName())
        .arg(bvCurrentThreadNumber())
        .arg(getStack().join(QLatin1Char('\n')));
}

std::ostream &operator<<(std::ostream &out, const CCallStack &stack)
{
    return out << stack.toReport().toLocal8Bit().constData();
}

QDebug operator<<(QDebug debug, const CCallStack &stack)
{
    debug.nospace() << stack.toReport();
    return debug.space();
}
