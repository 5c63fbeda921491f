#include "CLog.h"

#include "threading/threads/CBasicThread.h"

#include <QMutexLocker>
#include <QRegularExpression>

#include <cstdio>

QAtomicPointer<CLog> CLog::s_Logger;
QMutex CLog::s_LoggerMutex;

namespace {
// How many log mutexes the calling thread holds.
thread_local int tl_InsideLog = 0;

// A log's mutex, taken with hard termination of the thread held back (a thread ended
// by force never leaves it locked) and known to the thread as held: Qt may speak while
// the log works - a file it cannot seek, say - and that must not wait for the mutex.
class LogLocker
{
public:
    explicit LogLocker(QMutex *mutex)
        : m_Locker(mutex)
    {
        ++tl_InsideLog;
    }
    ~LogLocker() { --tl_InsideLog; }
    Q_DISABLE_COPY_MOVE(LogLocker)

private:
    // Declared first: taken before the mutex, given back after it.
    const CBasicThread::CTerminationGuard m_Guard;
    QMutexLocker<QMutex> m_Locker;
};

const QString cLineTimeFormat = QStringLiteral("dd.MM.yy hh:mm:ss:zzz");
const QString cNameTimeFormat = QStringLiteral("yyyyMMddhhmmsszzz");

const QByteArray &separator()
{
    static const QByteArray line(80, '-');
    return line;
}

// Qt 6 hands over a QString with a context; the log works on the local 8-bit text.
void messageAdapter(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    CLog::globalMessageHandler(type, message.toLocal8Bit().constData());
}

// The thread prefix of a diagnostic line, "[ 3 : Worker ]"; capture 3 is the name
// without any "::" part.
const QRegularExpression &threadPrefix()
{
    static const QRegularExpression pattern(
        QStringLiteral("(\\[\\s*(\\-\\d+|\\d+)\\s*\\:\\s*(?:(\\w*)(?:\\:\\:\\w*){0,1})\\s\\])"));
    return pattern;
}

CLog::_Log_Level_ levelOf(QtMsgType type)
{
    switch (type) {
    case QtFatalMsg:
        return CLog::LOG_LEVEL_FATAL;
    case QtCriticalMsg:
        return CLog::LOG_LEVEL_CRITICAL;
    case QtWarningMsg:
        return CLog::LOG_LEVEL_WARNING;
    case QtDebugMsg:
    case QtInfoMsg:
        break;
    }
    return CLog::LOG_LEVEL_DEBUG;
}
} // namespace

CLog::CLog(const QString &logFileName)
    : m_LogLevel(LOG_LEVEL_WARNING)
    , m_LogChannel(LOG_CHANNEL_OUTPUT_CONSOLE)
    , m_FileLoggingStrategy(FILE_LOGGING_NEW_FILE)
    , m_LogFileName(logFileName.isEmpty() ? QStringLiteral("log.txt") : logFileName)
    , m_PerThreadLogging(false)
    , m_MinimalOutput(false)
{ }

CLog::~CLog()
{
    // Messages from now on go to standard error, not into a log on its way out.
    {
        const CBasicThread::CTerminationGuard guard;
        QMutexLocker lock(&s_LoggerMutex);
        s_Logger.testAndSetOrdered(this, nullptr);
    }
    stopLogging();
}

bool CLog::initLogging(const QString &logPath, _Log_Level_ level, _Log_Channel_ channel,
    _File_Logging_Strategy_ strategy, bool perThreadLogging)
{
    LogLocker lock(&m_Mutex);
    m_LogPath = logPath;
    m_LogLevel = level;
    m_LogChannel = channel;
    m_FileLoggingStrategy = strategy;
    m_PerThreadLogging = perThreadLogging;
    if (channel == LOG_CHANNEL_FILE || channel == LOG_CHANNEL_FILE_AND_CONSOLE)
        return initLogFile(QString());
    return true;
}

bool CLog::startLogging(const QString &logPath, _Log_Level_ level, _Log_Channel_ channel,
    _File_Logging_Strategy_ strategy, bool perThreadLogging)
{
    if (!initLogging(logPath, level, channel, strategy, perThreadLogging))
        return false;
    installHandler();
    return true;
}

void CLog::start()
{
    installHandler();
}

void CLog::installHandler()
{
    const CBasicThread::CTerminationGuard guard;
    QMutexLocker lock(&s_LoggerMutex);
    qInstallMessageHandler(nullptr);
    s_Logger.storeRelease(this);
    qInstallMessageHandler(&messageAdapter);
}

void CLog::stopLogging()
{
    LogLocker lock(&m_Mutex);
    qInstallMessageHandler(nullptr);
    closeWithHeader(m_LogFile);
    for (QFile *file : std::as_const(m_PerThreadLogFiles)) {
        closeWithHeader(*file);
        delete file;
    }
    m_PerThreadLogFiles.clear();
    m_PerThreadLogFileNames.clear();
}

void CLog::closeWithHeader(QFile &file)
{
    if (!file.isOpen())
        return;
    logHeaderToStream(QStringLiteral("\nStop logging: %1\n")
                          .arg(QDateTime::currentDateTime().toString(cLineTimeFormat)),
        &file);
    file.close();
}

CLog::_Log_Level_ CLog::getLogLevel() const
{
    LogLocker lock(&m_Mutex);
    return m_LogLevel;
}

CLog::_Log_Level_ CLog::setLogLevel(_Log_Level_ level)
{
    LogLocker lock(&m_Mutex);
    return std::exchange(m_LogLevel, level);
}

CLog::_Log_Channel_ CLog::getLogChannel() const
{
    LogLocker lock(&m_Mutex);
    return m_LogChannel;
}

CLog::_Log_Channel_ CLog::setLogChannel(_Log_Channel_ channel)
{
    LogLocker lock(&m_Mutex);
    return std::exchange(m_LogChannel, channel);
}

CLog::_File_Logging_Strategy_ CLog::getFileLoggingStrategy() const
{
    LogLocker lock(&m_Mutex);
    return m_FileLoggingStrategy;
}

CLog::_File_Logging_Strategy_ CLog::setFileLoggingStrategy(_File_Logging_Strategy_ strategy)
{
    LogLocker lock(&m_Mutex);
    return std::exchange(m_FileLoggingStrategy, strategy);
}

bool CLog::getPerThreadLogging() const
{
    LogLocker lock(&m_Mutex);
    return m_PerThreadLogging;
}

bool CLog::setPerThreadLogging(bool perThreadLogging)
{
    LogLocker lock(&m_Mutex);
    return std::exchange(m_PerThreadLogging, perThreadLogging);
}

bool CLog::setMinimalOutput(bool minimalOutput)
{
    LogLocker lock(&m_Mutex);
    return std::exchange(m_MinimalOutput, minimalOutput);
}

QString CLog::getLogFileName() const
{
    LogLocker lock(&m_Mutex);
    return m_LogFileName;
}

QStringList CLog::getPerThreadLogFileNames() const
{
    LogLocker lock(&m_Mutex);
    return m_PerThreadLogFileNames;
}

void CLog::changeLogLevel(quint32 level)
{
    LogLocker lock(&m_Mutex);
    if (level > LOG_LEVEL_DEBUG || level == m_LogLevel)
        return;
    m_LogLevel = _Log_Level_(level);
    emit logLevelChanged(level);
}

bool CLog::acceptsType(_Log_Level_ threshold, QtMsgType type)
{
    return threshold != LOG_LEVEL_NONE && levelOf(type) <= threshold;
}

bool CLog::checklogLevel(QtMsgType type) const
{
    LogLocker lock(&m_Mutex);
    return acceptsType(m_LogLevel, type);
}

QString CLog::getLogLevelString(_Log_Level_ level) const
{
    static const char *const shortTags[] = {" [N] ", " [F] ", " [C] ", " [W] ", " [D] "};
    static const char *const longTags[]
        = {" [None]     ", " [Fatal]    ", " [Critical] ", " [Warning]  ", " [Debug]    "};
    if (level > LOG_LEVEL_DEBUG)
        return QString();
    return QString::fromLatin1(m_MinimalOutput ? shortTags[level] : longTags[level]);
}

void CLog::globalMessageHandler(QtMsgType type, const char *message)
{
    // Raised while this thread works inside a log, which holds its mutex: written as Qt
    // writes what its handler says about itself.
    if (tl_InsideLog > 0) {
        std::fprintf(stderr, "%s\n", message);
        return;
    }
    if (CLog *logger = s_Logger.loadAcquire()) {
        logger->messageHandler(type, message);
        return;
    }
    // Only between a logger's destruction and Qt noticing: keep the line.
    std::fprintf(stderr, "%s\n", message);
}

void CLog::messageHandler(QtMsgType type, const char *message)
{
    LogLocker lock(&m_Mutex);
    const QString text = QString::fromLocal8Bit(message);
    if (acceptsType(m_LogLevel, type))
        logMessage(levelOf(type), text);
}

QIODevice *CLog::console(FILE *stream, QFile &device)
{
    if (!device.isOpen())
        device.open(
            stream, QIODevice::WriteOnly | QIODevice::Unbuffered, QFileDevice::DontCloseHandle);
    return device.isOpen() ? &device : nullptr;
}

void CLog::logMessage(_Log_Level_ level, const QString &message)
{
    emit newLogMessage(message);
    const QDateTime now = QDateTime::currentDateTime();
    switch (m_LogChannel) {
    case LOG_CHANNEL_CONSOLE:
    case LOG_CHANNEL_OUTPUT_CONSOLE:
        logMessageToStream(level, now, message, console(stdout, m_StandardOutput));
        break;
    case LOG_CHANNEL_ERROR_CONSOLE:
        logMessageToStream(level, now, message, console(stderr, m_StandardError));
        break;
    case LOG_CHANNEL_FILE:
        logMessageToFile(level, now, message);
        break;
    case LOG_CHANNEL_FILE_AND_CONSOLE:
        logMessageToFile(level, now, message);
        logMessageToStream(level, now, message, console(stdout, m_StandardOutput));
        break;
    }
}

bool CLog::logMessageToFile(_Log_Level_ level, const QDateTime &time, const QString &message)
{
    QFile *target = getThreadLogFileByMsg(message);
    if (!target)
        target = &m_LogFile;
    if (!target->isOpen())
        return false;
    logMessageToStream(level, time, message, target);
    return true;
}

void CLog::logMessageToStream(
    _Log_Level_ level, const QDateTime &time, const QString &message, QIODevice *stream)
{
    if (!stream)
        return;
    QByteArray line = QStringLiteral("%1 %2 %3")
                          .arg(time.toString(cLineTimeFormat), getLogLevelString(level), message)
                          .toLocal8Bit();
    line += '\n';
    // One write per line: the file never holds half a line, even if the process dies.
    stream->write(line);
    if (auto *file = qobject_cast<QFileDevice *>(stream))
        file->flush();
}

void CLog::logHeaderToStream(const QString &text, QIODevice *stream)
{
    if (!stream)
        return;
    QByteArray header = separator();
    header += text.toLocal8Bit();
    header += separator();
    header += '\n';
    stream->write(header);
    if (auto *file = qobject_cast<QFileDevice *>(stream))
        file->flush();
}

bool CLog::initLogFile(const QString &threadName)
{
    QString fileName;
    if (m_FileLoggingStrategy == FILE_LOGGING_NEW_FILE) {
        // Formed again until free, so two starts within one millisecond get two files.
        do {
            const QString stamp = QDateTime::currentDateTime().toString(cNameTimeFormat);
            fileName = threadName.isEmpty()
                ? QStringLiteral("%1_%2").arg(stamp, m_LogFileName)
                : QStringLiteral("%1_%2_%3").arg(stamp, threadName, m_LogFileName);
        } while (QFile::exists(m_LogPath + fileName));
    } else {
        fileName = threadName.isEmpty() ? m_LogFileName : threadName + u'_' + m_LogFileName;
    }

    QIODevice::OpenMode mode = QIODevice::WriteOnly | QIODevice::Text;
    mode |= m_FileLoggingStrategy == FILE_LOGGING_OVERWRITE ? QIODevice::Truncate
                                                            : QIODevice::Append;
    const QString path = m_LogPath + fileName;

    QFile *file = nullptr;
    if (threadName.isEmpty()) {
        // Started again while running: the run in the old file ends as every run does.
        closeWithHeader(m_LogFile);
        m_LogFile.setFileName(path);
        if (!m_LogFile.open(mode))
            return false;
        file = &m_LogFile;
    } else {
        file = new (std::nothrow) QFile(path);
        if (!file)
            return false;
        // A file that does not open is not kept: the thread's next line tries again and,
        // meanwhile, its lines go to the main file.
        if (!file->open(mode)) {
            delete file;
            return false;
        }
        m_PerThreadLogFiles.insert(static_cast<unsigned int>(qHash(threadName)), file);
        m_PerThreadLogFileNames.append(fileName);
    }
    logHeaderToStream(QStringLiteral("\nStart logging: %1\n")
                          .arg(QDateTime::currentDateTime().toString(cLineTimeFormat)),
        file);
    return true;
}

QFile *CLog::getThreadLogFileByMsg(const QString &message)
{
    if (!m_PerThreadLogging)
        return nullptr;
    const QRegularExpressionMatch match = threadPrefix().match(message);
    if (!match.hasMatch() || match.lastCapturedIndex() < 3)
        return nullptr;
    const QString name = match.captured(3);
    // An empty name would stand for the main file itself.
    if (name.isEmpty())
        return nullptr;
    const unsigned int key = static_cast<unsigned int>(qHash(name));
    if (QFile *file = m_PerThreadLogFiles.value(key))
        return file;
    if (!initLogFile(name))
        return nullptr;
    return m_PerThreadLogFiles.value(key);
}
