#include "log/CLog.h"
#include "threading/assertions/assertion.h"
#include "threading/threads/CBasicThread.h"

#include "BvTestSupport.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>

class tst_CLog : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void threshold_data();
    void threshold();
    void channels_data();
    void channels();
    void routing_data();
    void routing();
    void strategies_data();
    void strategies();
    void freshNamesWithinOneMillisecond();
    void changeLogLevel_data();
    void changeLogLevel();
    void linesNeverInterleave_data();
    void linesNeverInterleave();

private:
    QString path() const { return m_Dir->path() + u'/'; }
    QStringList logLines(const QString &fileName) const;

    QScopedPointer<QTemporaryDir> m_Dir;
    QtMessageHandler m_TestHandler = nullptr;
};

namespace {
const QString kSeparator(80, u'-');

// "dd.MM.yy hh:mm:ss:zzz", blank, the tag (5 or 12 characters), blank, the text.
const QRegularExpression kLine(QStringLiteral(
    "^\\d\\d\\.\\d\\d\\.\\d\\d \\d\\d:\\d\\d:\\d\\d:\\d\\d\\d ( \\[\\w\\] | \\[\\w+\\] *) (.*)$"));

QStringList readLines(const QString &file)
{
    QFile f(file);
    if (!f.exists())
        return {};
    if (!f.open(QIODevice::ReadOnly))
        return {QStringLiteral("<cannot open %1>").arg(file)};
    QStringList lines = QString::fromLocal8Bit(f.readAll()).split(u'\n');
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

// Writes lines of the form "<tag>:<index>:<payload>" through the diagnostic prefix.
class Writer : public CBasicThread
{
public:
    Writer(const std::string &name, int count)
        : CBasicThread(name)
        , m_Count(count)
    { }

protected:
    void runMethod() override
    {
        const QByteArray payload(160, 'x');
        for (int i = 0; i < m_Count; ++i)
            BV_WARNING().noquote() << QStringLiteral("%1:%2:%3")
                                          .arg(getThreadName())
                                          .arg(i)
                                          .arg(QString::fromLatin1(payload));
    }

private:
    int m_Count;
};
} // namespace

void tst_CLog::init()
{
    m_Dir.reset(new QTemporaryDir);
    QVERIFY2(m_Dir->isValid(), qPrintable(m_Dir->errorString()));
    // Stopping the log restores Qt's default handler; the test library's own comes back
    // in cleanup().
    m_TestHandler = qInstallMessageHandler(nullptr);
    qInstallMessageHandler(m_TestHandler);
}

void tst_CLog::cleanup()
{
    qInstallMessageHandler(m_TestHandler);
    m_Dir.reset();
}

// The text of every log line of the file, headers left out; a malformed line is kept
// whole so that the comparison shows it.
QStringList tst_CLog::logLines(const QString &fileName) const
{
    QStringList texts;
    for (const QString &line : readLines(path() + fileName)) {
        if (line == kSeparator || line.startsWith(QLatin1String("Start logging: "))
            || line.startsWith(QLatin1String("Stop logging: ")))
            continue;
        const QRegularExpressionMatch match = kLine.match(line);
        texts << (match.hasMatch() ? match.captured(1) + u'|' + match.captured(2) : line);
    }
    return texts;
}

void tst_CLog::threshold_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<bool>("minimal");
    QTest::addColumn<QStringList>("expected");

    const QString w = QStringLiteral(" [Warning]  |warn");
    const QString c = QStringLiteral(" [Critical] |crit");
    const QString f = QStringLiteral(" [Fatal]    |fatal");
    QTest::newRow("default") << -1 << false << QStringList {w, c, f};
    QTest::newRow("debug") << 4 << false << QStringList {" [Debug]    |dbg", w, c, f};
    QTest::newRow("critical") << 2 << false << QStringList {c, f};
    QTest::newRow("none") << 0 << false << QStringList {};
    QTest::newRow("minimal tags") << 4 << true
                                  << QStringList {
                                         " [D] |dbg", " [W] |warn", " [C] |crit", " [F] |fatal"};
}

void tst_CLog::threshold()
{
    QFETCH(int, level);
    QFETCH(bool, minimal);
    QFETCH(QStringList, expected);

    CLog log(QString {});
    QCOMPARE(log.getLogFileName(), QStringLiteral("log.txt"));
    QCOMPARE(log.getLogLevel(), CLog::LOG_LEVEL_WARNING);
    const auto threshold = level < 0 ? log.getLogLevel() : CLog::_Log_Level_(level);
    log.setMinimalOutput(minimal);
    QVERIFY(log.startLogging(
        path(), threshold, CLog::LOG_CHANNEL_FILE, CLog::FILE_LOGGING_APPEND, false));
    QCOMPARE(log.checklogLevel(QtDebugMsg), threshold >= CLog::LOG_LEVEL_DEBUG);

    qDebug("dbg");
    qWarning("warn");
    qCritical("crit");
    // Called directly: through qFatal the process would end.
    CLog::globalMessageHandler(QtFatalMsg, "fatal");
    log.stopLogging();
    QCOMPARE(logLines(QStringLiteral("log.txt")), expected);
}

void tst_CLog::channels_data()
{
    QTest::addColumn<int>("channel");
    QTest::addColumn<bool>("toStdout");
    QTest::addColumn<bool>("toStderr");
    QTest::addColumn<bool>("toFile");

    QTest::newRow("console") << 0 << true << false << false;
    QTest::newRow("error console") << 1 << false << true << false;
    QTest::newRow("output console") << 2 << true << false << false;
    QTest::newRow("file") << 3 << false << false << true;
    QTest::newRow("file and console") << 4 << true << false << true;
    QTest::newRow("beyond the last") << 5 << false << false << false;
}

void tst_CLog::channels()
{
    QFETCH(int, channel);
    QFETCH(bool, toStdout);
    QFETCH(bool, toStderr);
    QFETCH(bool, toFile);

    // The consoles belong to the process: look at them from a child.
    QProcess child;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("BV_TEST_CHILD"), QStringLiteral("channel"));
    env.insert(QStringLiteral("BV_LOG_CHANNEL"), QString::number(channel));
    env.insert(QStringLiteral("BV_LOG_PATH"), path());
    child.setProcessEnvironment(env);
    child.start(QCoreApplication::applicationFilePath(), {});
    QVERIFY(child.waitForFinished(30000));
    QCOMPARE(child.exitCode(), 0);

    const QRegularExpression line(QStringLiteral(
        "(^|\\n)\\d\\d\\.\\d\\d\\.\\d\\d [\\d:]{12}  \\[Warning\\]   to channel\\n"));
    QCOMPARE(
        line.match(QString::fromLocal8Bit(child.readAllStandardOutput())).hasMatch(), toStdout);
    QCOMPARE(line.match(QString::fromLocal8Bit(child.readAllStandardError())).hasMatch(), toStderr);
    QCOMPARE(logLines(QStringLiteral("log.txt")),
        toFile ? QStringList {" [Warning]  |to channel"} : QStringList {});
    QCOMPARE(QFile::exists(path() + QStringLiteral("log.txt")), toFile);

    // The signal carries every accepted message, whatever the channel.
    CLog log(QString {});
    QSignalSpy announced(&log, &CLog::newLogMessage);
    QVERIFY(log.startLogging(
        path(), CLog::LOG_LEVEL_WARNING, CLog::_Log_Channel_(5), CLog::FILE_LOGGING_APPEND, false));
    qWarning("only announced");
    qDebug("dropped");
    log.stopLogging();
    QCOMPARE(announced.count(), 1);
    QCOMPARE(announced.first().first().toString(), QStringLiteral("only announced"));
}

void tst_CLog::routing_data()
{
    QTest::addColumn<bool>("perThread");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QStringList>("threadFiles");

    const QString main = QStringLiteral("[ -1 : MainThread ] [ f.cpp : 1 : fn ] hello");
    QTest::newRow("main thread prefix")
        << true << main << "MainThread_run.log" << QStringList {"MainThread_run.log"};
    QTest::newRow("scoped name routes by its first part")
        << true << "[ 4 : a::b ] [ f.cpp : 1 : fn ] hi"
        << "a_run.log" << QStringList {"a_run.log"};
    QTest::newRow("prefix further into the line")
        << true << "note [ 12 : Worker ] x"
        << "Worker_run.log" << QStringList {"Worker_run.log"};
    QTest::newRow("no prefix") << true << "plain text"
                               << "run.log" << QStringList {};
    QTest::newRow("two blanks before the bracket") << true << "[ 4 : Worker  ] x"
                                                   << "run.log" << QStringList {};
    QTest::newRow("per-thread off") << false << main << "run.log" << QStringList {};
}

void tst_CLog::routing()
{
    QFETCH(bool, perThread);
    QFETCH(QString, message);
    QFETCH(QString, file);
    QFETCH(QStringList, threadFiles);

    CLog log(QStringLiteral("run.log"));
    QVERIFY(log.startLogging(path(), CLog::LOG_LEVEL_WARNING, CLog::LOG_CHANNEL_FILE,
        CLog::FILE_LOGGING_APPEND, perThread));
    qWarning("%s", qPrintable(message));
    qWarning("%s", qPrintable(message));
    QCOMPARE(log.getPerThreadLogFileNames(), threadFiles);
    log.stopLogging();
    QVERIFY(log.getPerThreadLogFileNames().isEmpty());

    QCOMPARE(logLines(file), QStringList(2, QStringLiteral(" [Warning]  |") + message));
    if (file != QLatin1String("run.log"))
        QCOMPARE(logLines(QStringLiteral("run.log")), QStringList {});
}

void tst_CLog::strategies_data()
{
    QTest::addColumn<int>("strategy");
    QTest::addColumn<int>("files");
    QTest::addColumn<int>("runsInFile");

    QTest::newRow("new file") << 0 << 2 << 1;
    QTest::newRow("append") << 1 << 1 << 2;
    QTest::newRow("overwrite") << 2 << 1 << 1;
}

void tst_CLog::strategies()
{
    QFETCH(int, strategy);
    QFETCH(int, files);
    QFETCH(int, runsInFile);

    for (int run = 0; run < 2; ++run) {
        CLog log(QStringLiteral("app.log"));
        QVERIFY(log.startLogging(path(), CLog::LOG_LEVEL_WARNING, CLog::LOG_CHANNEL_FILE,
            CLog::_File_Logging_Strategy_(strategy), false));
        qWarning("run %d", run);
    }
    const QStringList names = QDir(path()).entryList(QDir::Files, QDir::Name);
    QCOMPARE(names.size(), files);
    const QRegularExpression stamped(QStringLiteral("^\\d{17}_app\\.log$"));
    for (const QString &name : names)
        QVERIFY2(
            strategy == 0 ? stamped.match(name).hasMatch() : name == "app.log", qPrintable(name));

    // Every run is bracketed by its headers: hyphens, start, hyphens ... hyphens, stop, hyphens.
    const QStringList lines = readLines(path() + names.last());
    QCOMPARE(lines.size(), runsInFile * 7);
    for (int run = 0; run < runsInFile; ++run) {
        const QStringList block = lines.mid(run * 7, 7);
        QCOMPARE(block.at(0), kSeparator);
        QVERIFY2(QRegularExpression(QStringLiteral("^Start logging: \\d\\d\\.\\d\\d\\.\\d\\d "
                                                   "\\d\\d:\\d\\d:\\d\\d:\\d\\d\\d$"))
                     .match(block.at(1))
                     .hasMatch(),
            qPrintable(block.at(1)));
        QCOMPARE(block.at(2), kSeparator);
        // Only appending keeps the first run; a fresh file per run sorts last.
        const int expectedRun = runsInFile == 2 ? run : 1;
        QVERIFY2(block.at(3).endsWith(QStringLiteral("  [Warning]   run %1").arg(expectedRun)),
            qPrintable(block.at(3)));
        QCOMPARE(block.at(4), kSeparator);
        QVERIFY(block.at(5).startsWith(QLatin1String("Stop logging: ")));
        QCOMPARE(block.at(6), kSeparator);
    }
}

void tst_CLog::freshNamesWithinOneMillisecond()
{
    // Back to back, most of these starts fall into the same millisecond.
    QList<CLog *> logs;
    for (int i = 0; i < 5; ++i) {
        logs << new CLog(QStringLiteral("burst.log"));
        QVERIFY(logs.last()->initLogging(path(), CLog::LOG_LEVEL_WARNING, CLog::LOG_CHANNEL_FILE,
            CLog::FILE_LOGGING_NEW_FILE, false));
    }
    qDeleteAll(logs);
    QCOMPARE(QDir(path()).entryList(QDir::Files).size(), 5);
}

void tst_CLog::changeLogLevel_data()
{
    QTest::addColumn<quint32>("level");
    QTest::addColumn<bool>("changes");

    QTest::newRow("beyond debug") << 5u << false;
    QTest::newRow("the current level") << 3u << false;
    QTest::newRow("debug") << 4u << true;
    QTest::newRow("none") << 0u << true;
}

void tst_CLog::changeLogLevel()
{
    QFETCH(quint32, level);
    QFETCH(bool, changes);

    CLog log(QString {});
    QSignalSpy spy(&log, &CLog::logLevelChanged);
    log.changeLogLevel(level);
    QCOMPARE(quint32(log.getLogLevel()), changes ? level : 3u);
    QCOMPARE(spy.count(), changes ? 1 : 0);
    if (changes)
        QCOMPARE(spy.first().first().toUInt(), level);

    // The setters answer the previous value and announce nothing.
    QCOMPARE(log.setLogLevel(CLog::LOG_LEVEL_CRITICAL), CLog::_Log_Level_(log.getLogLevel()));
    QCOMPARE(log.setLogLevel(CLog::LOG_LEVEL_DEBUG), CLog::LOG_LEVEL_CRITICAL);
    QCOMPARE(log.setLogChannel(CLog::LOG_CHANNEL_FILE), CLog::LOG_CHANNEL_OUTPUT_CONSOLE);
    QCOMPARE(log.setFileLoggingStrategy(CLog::FILE_LOGGING_APPEND), CLog::FILE_LOGGING_NEW_FILE);
    QCOMPARE(log.setPerThreadLogging(true), false);
    QCOMPARE(log.getPerThreadLogging(), true);
    QCOMPARE(spy.count(), changes ? 1 : 0);
}

void tst_CLog::linesNeverInterleave_data()
{
    QTest::addColumn<bool>("perThread");
    QTest::newRow("one file") << false;
    QTest::newRow("a file per thread") << true;
}

void tst_CLog::linesNeverInterleave()
{
    QFETCH(bool, perThread);
    const int threads = 8;
    const int lines = 1500;

    CLog log(QStringLiteral("busy.log"));
    QVERIFY(log.startLogging(path(), CLog::LOG_LEVEL_WARNING, CLog::LOG_CHANNEL_FILE,
        CLog::FILE_LOGGING_APPEND, perThread));
    QList<Writer *> writers;
    for (int t = 0; t < threads; ++t)
        writers << new Writer("W" + std::to_string(t), lines);
    for (Writer *w : std::as_const(writers))
        QVERIFY(w->startThread());
    for (Writer *w : std::as_const(writers))
        QVERIFY(w->wait(60000));
    log.stopLogging();

    // Every line whole: the diagnostic prefix of its own thread, then its own text.
    const QString payload(160, u'x');
    QHash<QString, int> seen;
    for (Writer *w : std::as_const(writers)) {
        const QString name = w->getThreadName();
        const QString file
            = perThread ? name + QStringLiteral("_busy.log") : QStringLiteral("busy.log");
        const QRegularExpression whole(QStringLiteral(
            "^ \\[Warning\\]  \\|\\[ (\\d+) : (W\\d) \\] \\[ tst_clog\\.cpp : \\d+ : "
            "runMethod \\] (W\\d):(\\d+):x{160}$"));
        const QStringList texts = logLines(file);
        for (const QString &text : texts) {
            const QRegularExpressionMatch match = whole.match(text);
            QVERIFY2(match.hasMatch(), qPrintable(text.left(300)));
            QCOMPARE(match.captured(2), match.captured(3));
            if (perThread) {
                QCOMPARE(match.captured(2), name);
                QCOMPARE(match.captured(1).toInt(), w->getThreadNumber());
            }
            ++seen[match.captured(3)];
        }
        if (!perThread)
            break;
    }
    for (Writer *w : std::as_const(writers))
        QCOMPARE(seen.value(w->getThreadName()), lines);
    qDeleteAll(writers);
}

static int childMain(const QByteArray &mode)
{
    if (mode != "channel")
        return 2;
    CLog log(QString {});
    const auto channel = CLog::_Log_Channel_(qEnvironmentVariableIntValue("BV_LOG_CHANNEL"));
    if (!log.startLogging(qEnvironmentVariable("BV_LOG_PATH"), CLog::LOG_LEVEL_WARNING, channel,
            CLog::FILE_LOGGING_APPEND, false))
        return 3;
    qWarning("to channel");
    qDebug("below the threshold");
    log.stopLogging();
    return 0;
}

BV_TEST_MAIN_WITH_CHILD(tst_CLog, QCoreApplication)
#include "tst_clog.moc"
