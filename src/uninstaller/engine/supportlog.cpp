#include "supportlog.h"

#include "log/CLog.h"

#include <QDir>
#include <QFileInfo>

#include <cstdio>

namespace SupportLog {

namespace {

QtMessageHandler g_LogHandler = nullptr;

// The log writes to its file; standard error keeps what Qt's own handler wrote there.
void toLogAndStandardError(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (g_LogHandler)
        g_LogHandler(type, context, text);
    const QByteArray line = text.toLocal8Bit() + '\n';
    std::fwrite(line.constData(), 1, size_t(line.size()), stderr);
    std::fflush(stderr);
}

} // namespace

QString defaultPath()
{
#ifdef Q_OS_MACOS
    const QString folder = QDir::homePath() + QStringLiteral("/Library/Logs/Brisvane");
#else
    QString state = QFile::decodeName(qgetenv("XDG_STATE_HOME"));
    // Relative base directories are to be ignored, as the XDG rules say.
    if (state.isEmpty() || QDir::isRelativePath(state))
        state = QDir::homePath() + QStringLiteral("/.local/state");
    const QString folder = state + QStringLiteral("/Brisvane");
#endif
    return folder + QStringLiteral("/Uninstaller.log");
}

std::unique_ptr<CLog> start(const QString &path)
{
    const QFileInfo file(path);
    if (!QDir().mkpath(file.absolutePath()))
        return nullptr;
    auto log = std::make_unique<CLog>(file.fileName());
    if (!log->startLogging(file.absolutePath() + QLatin1Char('/'), CLog::LOG_LEVEL_DEBUG,
            CLog::LOG_CHANNEL_FILE, CLog::FILE_LOGGING_APPEND, false))
        return nullptr;
    g_LogHandler = qInstallMessageHandler(toLogAndStandardError);
    return log;
}

} // namespace SupportLog
