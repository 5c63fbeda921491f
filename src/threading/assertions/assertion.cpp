#include "assertion.h"

#include "threading/exceptions/CException.h"
#include "threading/threads/CBasicThread.h"

#include <QDir>
#include <QThread>

const char C_ASSERT_TEMPLATE_PRINTF[] = "ASSERT: \"%s\" in file %s, line %d";
const char C_ASSERT_RETURN_TEMPLATE_PRINTF[]
    = "ASSERT: \"%s\" in file %s, line %d. will return \"%s\"";
const char C_ASSERT_TEMPLATE[] = "ASSERT: \"%1\" in file %2, line %3";
const char C_ASSERT_MSG_TEMPLATE[] = "ASSERT: \"%1\" in file %2, line %3, msg %4";

// Exceptions thrown by the assertions name this module, not the caller: the caller's
// position is in the message.
static const char C_ASSERTION_MODULE[] = "src/threading/assertions/assertion";

namespace {
QByteArray shortFileName(const char *file)
{
    const QStringList parts
        = QString::fromLocal8Bit(file ? file : "").split(QDir::separator(), Qt::SkipEmptyParts);
    return parts.isEmpty() ? QByteArray() : parts.last().toLatin1();
}
} // namespace

qint32 bvCurrentThreadNumber()
{
    const CBasicThread *thread = qobject_cast<const CBasicThread *>(QThread::currentThread());
    return thread ? thread->getThreadNumber() : -1;
}

QString bvCurrentThreadName()
{
    const CBasicThread *thread = qobject_cast<const CBasicThread *>(QThread::currentThread());
    return thread ? thread->getThreadName() : QStringLiteral("MainThread");
}

QDebug getLogMessageTemplate(const char *file, const char *function, quint32 line, QtMsgType type)
{
    QDebug stream(type);
    // Filled one value after the other: a name holding "%4" gets substituted into, as it
    // always has.
    const QString prefix = QStringLiteral("[ %1 : %2 ] [ %3 : %4 : %5 ]")
                               .arg(bvCurrentThreadNumber())
                               .arg(bvCurrentThreadName())
                               .arg(QString::fromLatin1(shortFileName(file)))
                               .arg(line)
                               .arg(QString::fromLatin1(function ? function : ""));
    stream.noquote() << QString::fromLatin1(prefix.toLatin1());
    stream.quote();
    return stream;
}

void printFatalMessage(const char *file, const char *function, quint32 line, const char *message)
{
    qFatal("[ %i : %s ] [ %s : %i : %s ] %s", bvCurrentThreadNumber(),
        bvCurrentThreadName().toLatin1().constData(), shortFileName(file).constData(), int(line),
        function ? function : "", message ? message : "");
}

void bvPrintAssert(const char *condition, const char *file, qint32 line)
{
    qCritical(C_ASSERT_TEMPLATE_PRINTF, condition, file, line);
}

void bvReturnAssertMsg(const char *condition, const char *file, qint32 line, const char *returnText)
{
    qCritical(C_ASSERT_RETURN_TEMPLATE_PRINTF, condition, file, line, returnText);
}

void bvCoreDump(const char *condition, const char *file, qint32 line)
{
    qFatal(C_ASSERT_TEMPLATE_PRINTF, condition, file, line);
}

void bvThrowAssert(const char *condition, const char *file, qint32 line)
{
    const QByteArray message = QString::fromLatin1(C_ASSERT_TEMPLATE)
                                   .arg(QString::fromLatin1(condition))
                                   .arg(QString::fromLatin1(file))
                                   .arg(line)
                                   .toLatin1();
    const CCallStack stack;
    throw new CException("bvThrowAssert", C_ASSERTION_MODULE, __LINE__, message.constData(), stack,
        nullptr, -1, -1, nullptr);
}

void bvThrowAssertMsg(const char *condition, const char *file, qint32 line, const char *message)
{
    const QByteArray text = QString::fromLatin1(C_ASSERT_MSG_TEMPLATE)
                                .arg(QString::fromLatin1(condition))
                                .arg(QString::fromLatin1(file))
                                .arg(line)
                                .arg(QString::fromLatin1(message))
                                .toLatin1();
    const CCallStack stack;
    throw new CException("bvThrowAssertMsg", C_ASSERTION_MODULE, __LINE__, text.constData(), stack,
        nullptr, -1, -1, nullptr);
}
