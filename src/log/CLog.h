#pragma once

#include "ILogProducer.h"

#include <QAtomicPointer>
#include <QDateTime>
#include <QFile>
#include <QHash>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QStringList>

class QIODevice;

// The process-wide receiver of Qt's message output. Once started it filters every
// message by a threshold, stamps it with date, time and a level tag and writes it to
// standard output, standard error or log files - with per-thread logging, to a file
// per thread, recognised by the thread prefix at the start of diagnostic lines.
// Every accepted message is also announced with newLogMessage().
//
// One mutex is held for the whole handling of a message, so lines of different
// threads never interleave. Signals are emitted with it held. A message raised while a
// thread holds it - Qt warning about a log file, a receiver connected directly that
// logs - cannot wait for it: it goes to standard error as it is.
class CLog : public QObject, public ILogProducer
{
    Q_OBJECT

public:
    enum _Log_Level_ : quint32 {
        LOG_LEVEL_NONE = 0,
        LOG_LEVEL_FATAL = 1,
        LOG_LEVEL_CRITICAL = 2,
        LOG_LEVEL_WARNING = 3,
        LOG_LEVEL_DEBUG = 4,
    };

    enum _Log_Channel_ : quint32 {
        LOG_CHANNEL_CONSOLE = 0,
        LOG_CHANNEL_ERROR_CONSOLE = 1,
        LOG_CHANNEL_OUTPUT_CONSOLE = 2,
        LOG_CHANNEL_FILE = 3,
        LOG_CHANNEL_FILE_AND_CONSOLE = 4,
    };

    enum _File_Logging_Strategy_ : quint32 {
        FILE_LOGGING_NEW_FILE = 0,
        FILE_LOGGING_APPEND = 1,
        FILE_LOGGING_OVERWRITE = 2,
    };

    // An empty name means "log.txt".
    explicit CLog(const QString &logFileName);
    ~CLog() override;

    QObject *getILogProducer() override { return this; }

    // Stores the settings; opens the main log file when the channel writes to files and
    // answers whether that worked.
    bool initLogging(const QString &logPath, _Log_Level_ level, _Log_Channel_ channel,
        _File_Logging_Strategy_ strategy, bool perThreadLogging);
    // initLogging(), then installs this object as Qt's message handler.
    bool startLogging(const QString &logPath, _Log_Level_ level, _Log_Channel_ channel,
        _File_Logging_Strategy_ strategy, bool perThreadLogging);
    // Gives Qt back its default handler and closes every file with a stop header.
    void stopLogging();
    void initialize() { }
    void finalize() { stopLogging(); }

    // The setters answer the previous value.
    _Log_Level_ getLogLevel() const;
    _Log_Level_ setLogLevel(_Log_Level_ level);
    _Log_Channel_ getLogChannel() const;
    _Log_Channel_ setLogChannel(_Log_Channel_ channel);
    _File_Logging_Strategy_ getFileLoggingStrategy() const;
    _File_Logging_Strategy_ setFileLoggingStrategy(_File_Logging_Strategy_ strategy);
    bool getPerThreadLogging() const;
    bool setPerThreadLogging(bool perThreadLogging);
    bool setMinimalOutput(bool minimalOutput);
    QString getLogFileName() const;
    QStringList getPerThreadLogFileNames() const;

    // Whether the current threshold accepts a message of this type.
    bool checklogLevel(QtMsgType type) const;
    // The level tag: short with minimal output, else padded to 12 characters.
    QString getLogLevelString(_Log_Level_ level) const;

    static void globalMessageHandler(QtMsgType type, const char *message);

    static QAtomicPointer<CLog> s_Logger;
    static QMutex s_LoggerMutex;

signals:
    void newLogMessage(QString message);
    void logLevelChanged(quint32 level);

public slots:
    // Re-installs this object as the handler without touching the files.
    void start();
    void stop() { stopLogging(); }
    void changeLogLevel(quint32 level);

protected:
    virtual void messageHandler(QtMsgType type, const char *message);

    // The rest expects the mutex to be held.
    void logMessage(_Log_Level_ level, const QString &message);
    bool logMessageToFile(_Log_Level_ level, const QDateTime &time, const QString &message);
    void logMessageToStream(
        _Log_Level_ level, const QDateTime &time, const QString &message, QIODevice *stream);
    void logHeaderToStream(const QString &text, QIODevice *stream);
    bool initLogFile(const QString &threadName);
    QFile *getThreadLogFileByMsg(const QString &message);

private:
    void installHandler();
    static bool acceptsType(_Log_Level_ threshold, QtMsgType type);
    QIODevice *console(FILE *stream, QFile &device);
    void closeWithHeader(QFile &file);

    _Log_Level_ m_LogLevel;
    _Log_Channel_ m_LogChannel;
    _File_Logging_Strategy_ m_FileLoggingStrategy;
    mutable QMutex m_Mutex;
    QString m_LogFileName;
    QStringList m_PerThreadLogFileNames;
    QFile m_LogFile;
    QHash<unsigned int, QFile *> m_PerThreadLogFiles;
    bool m_PerThreadLogging;
    QString m_LogPath;
    bool m_MinimalOutput;

    QFile m_StandardOutput;
    QFile m_StandardError;
};
