#pragma once

#include <QDebug>
#include <QString>
#include <QtGlobal>

// ---------------------------------------------------------------------------
// Diagnostic lines
//
// Every diagnostic line starts with the prefix
//     [ <thread number> : <thread name> ] [ <file> : <line> : <function> ]
// Threads that are not CBasicThreads (the main thread among them) appear as
// -1 / MainThread.
// ---------------------------------------------------------------------------

// A debug stream of the given severity that already holds the prefix; the line is
// handed to Qt's message output when the last copy of the stream goes away.
QDebug getLogMessageTemplate(const char *file, const char *function, quint32 line, QtMsgType type);

// Writes one whole fatal line through qFatal; does not return.
[[noreturn]] void printFatalMessage(
    const char *file, const char *function, quint32 line, const char *message);

// The identity of the calling thread as it appears in diagnostic prefixes.
qint32 bvCurrentThreadNumber();
QString bvCurrentThreadName();

// ---------------------------------------------------------------------------
// Assertions
//
// The functions are entered only once a condition has failed; the macros below
// test the condition. The checks stay in release builds.
// ---------------------------------------------------------------------------
extern const char C_ASSERT_TEMPLATE_PRINTF[];
extern const char C_ASSERT_RETURN_TEMPLATE_PRINTF[];
extern const char C_ASSERT_TEMPLATE[];
extern const char C_ASSERT_MSG_TEMPLATE[];

void bvPrintAssert(const char *condition, const char *file, qint32 line);
void bvReturnAssertMsg(
    const char *condition, const char *file, qint32 line, const char *returnText);
[[noreturn]] void bvCoreDump(const char *condition, const char *file, qint32 line);
[[noreturn]] void bvThrowAssert(const char *condition, const char *file, qint32 line);
[[noreturn]] void bvThrowAssertMsg(
    const char *condition, const char *file, qint32 line, const char *message);

// The file name used by the macros. A source file may name itself differently:
//     #undef BV_SOURCE_FILE
//     #define BV_SOURCE_FILE "src/misc/CPathOperations"
#ifndef BV_SOURCE_FILE
#define BV_SOURCE_FILE __FILE__
#endif

#define BV_LOG(type) getLogMessageTemplate(BV_SOURCE_FILE, __func__, __LINE__, type)
#define BV_DEBUG() BV_LOG(QtDebugMsg)
#define BV_WARNING() BV_LOG(QtWarningMsg)
#define BV_CRITICAL() BV_LOG(QtCriticalMsg)
#define BV_FATAL(message) printFatalMessage(BV_SOURCE_FILE, __func__, __LINE__, message)

// Logs the failed condition at critical severity and carries on.
#define BV_ASSERT(cond)                                                                            \
    do {                                                                                           \
        if (!(cond))                                                                               \
            bvPrintAssert(#cond, BV_SOURCE_FILE, __LINE__);                                        \
    } while (false)

// Logs the failed condition and returns `ret` from the calling function.
#define BV_ASSERT_RETURN(cond, ret)                                                                \
    do {                                                                                           \
        if (!(cond)) {                                                                             \
            bvReturnAssertMsg(#cond, BV_SOURCE_FILE, __LINE__, #ret);                              \
            return ret;                                                                            \
        }                                                                                          \
    } while (false)

// Logs the failed condition as fatal: the process aborts.
#define BV_ASSERT_COREDUMP(cond)                                                                   \
    do {                                                                                           \
        if (!(cond))                                                                               \
            bvCoreDump(#cond, BV_SOURCE_FILE, __LINE__);                                           \
    } while (false)

// Throws a CException* describing the failed condition.
#define BV_ASSERT_THROW(cond)                                                                      \
    do {                                                                                           \
        if (!(cond))                                                                               \
            bvThrowAssert(#cond, BV_SOURCE_FILE, __LINE__);                                        \
    } while (false)

#define BV_ASSERT_THROW_MSG(cond, message)                                                         \
    do {                                                                                           \
        if (!(cond))                                                                               \
            bvThrowAssertMsg(#cond, BV_SOURCE_FILE, __LINE__, message);                            \
    } while (false)
