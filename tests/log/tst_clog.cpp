#include "log/CLog.h"
#include "threading/assertions/assertion.h"
#include "threading/threads/CBasicThread.h"

#include "BvTestSupport.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <atomic>
#include <cstdio>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
// Writes lines "<name>:<index>:<payload>" through the diagnostic prefix.
class Writer : public CBasicThread
{
public:
    explicit Writer(int index)
        : CBasicThread("W" + std::to_string(index))
    { }

protected:
    void runMethod() override
    {
        for (int i = 0; i < 1500; ++i)
            BV_WARNING().noquote()
                << getThreadName() + ':' + QString::number(i) + ':' + QString(160, u'x');
    }
};

// Logs without a pause until told to stop.
class Chatter : public CBasicThread
{
public:
    Chatter()
        : CBasicThread(std::string("Chatter"))
    { }
    ~Chatter() override
    {
        stop = true;
        wait();
    }
    std::atomic<int> lines {0};
    std::atomic<bool> stop {false};

protected:
    void runMethod() override
    {
        // Through a QDebug, as the library's own lines go: written from its destructor.
        while (!stop) {
            BV_WARNING() << "tick" << lines.load();
            ++lines;
        }
    }
};

// The shape of a log: "Start" and "Stop" for the headers, the text of each line.
QStringList skeleton(const QByteArray &content)
{
    static const QRegularExpression header("^(Start|Stop) logging: ");
    static const QRegularExpression line(
        "^\\d\\d\\.\\d\\d\\.\\d\\d \\d\\d:\\d\\d:\\d\\d:\\d{3}  \\[\\w+\\] *(.*)$");
    QStringList shape;
    for (const QString &text : QString::fromLocal8Bit(content).split(u'\n')) {
        const QRegularExpressionMatch start = header.match(text);
        if (start.hasMatch())
            shape << start.captured(1);
        else if (!text.isEmpty() && text != QString(80, u'-'))
            shape << line.match(text).captured(1);
    }
    return shape;
}

QByteArray contentOf(const QString &fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
} // namespace

class tst_CLog : public QObject
{
    Q_OBJECT

    QScopedPointer<QTemporaryDir> m_Dir;
    QtMessageHandler m_TestHandler = nullptr;

    QString path() const { return m_Dir->path() + u'/'; }

    // "<tag>|<text>" of every log line of the file, headers left out; a malformed line
    // is kept whole so that the comparison shows it.
    QStringList logLines(const QString &fileName) const
    {
        static const QRegularExpression header("^(-{80}|Start logging: .*|Stop logging: .*|)$");
        static const QRegularExpression line(
            "^\\d\\d\\.\\d\\d\\.\\d\\d \\d\\d:\\d\\d:\\d\\d:\\d{3} ( \\[\\w+\\] *) (.*)$");
        QFile file(path() + fileName);
        QStringList texts;
        if (file.open(QIODevice::ReadOnly))
            for (const QString &text : QString::fromLocal8Bit(file.readAll()).split(u'\n'))
                if (!header.match(text).hasMatch())
                    texts << QString(text).replace(line, "\\1|\\2");
        return texts;
    }

private slots:
    void init()
    {
        m_Dir.reset(new QTemporaryDir);
        QVERIFY2(m_Dir->isValid(), qPrintable(m_Dir->errorString()));
        // Stopping the log restores Qt's default handler; the test library's own comes
        // back in cleanup().
        m_TestHandler = qInstallMessageHandler(nullptr);
        qInstallMessageHandler(m_TestHandler);
    }

    void cleanup() { qInstallMessageHandler(m_TestHandler); }

    void threshold_data()
    {
        QTest::addColumn<int>("level");
        QTest::addColumn<bool>("minimal");
        QTest::addColumn<QStringList>("expected");

        const QString w = " [Warning]  |warn", c = " [Critical] |crit", f = " [Fatal]    |fatal";
        // clang-format off
        QTest::newRow("default") << -1 << false << QStringList {w, c, f};
        QTest::newRow("debug") << 4 << false << QStringList {" [Debug]    |dbg", w, c, f};
        QTest::newRow("critical") << 2 << false << QStringList {c, f};
        QTest::newRow("minimal tags") << 4 << true << QStringList {" [D] |dbg", " [W] |warn", " [C] |crit", " [F] |fatal"};
        // clang-format on
    }

    void threshold()
    {
        QFETCH(int, level);
        QFETCH(bool, minimal);
        QFETCH(QStringList, expected);

        CLog log(QString {});
        log.setMinimalOutput(minimal);
        QVERIFY(log.startLogging(path(), level < 0 ? log.getLogLevel() : CLog::_Log_Level_(level),
            CLog::LOG_CHANNEL_FILE, CLog::FILE_LOGGING_APPEND, false));
        qDebug("dbg");
        qWarning("warn");
        qCritical("crit");
        // Called directly: through qFatal the process would end.
        CLog::globalMessageHandler(QtFatalMsg, "fatal");
        log.stopLogging();
        QCOMPARE(logLines("log.txt"), expected);
    }

    void channelBeyondTheLastOnlyAnnounces()
    {
        CLog log(QString {});
        QSignalSpy announced(&log, &CLog::newLogMessage);
        QVERIFY(log.startLogging(path(), CLog::LOG_LEVEL_WARNING, CLog::_Log_Channel_(5),
            CLog::FILE_LOGGING_APPEND, false));
        qWarning("only announced");
        qDebug("dropped");
        log.stopLogging();
        QCOMPARE(announced.count(), 1);
        QCOMPARE(announced.first().first().toString(), "only announced");
        QCOMPARE(QDir(path()).entryList(QDir::Files), QStringList {});
    }

    void routing_data()
    {
        QTest::addColumn<bool>("perThread");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("file");

        const QString main = "[ -1 : MainThread ] [ f.cpp : 1 : fn ] hello";
        // clang-format off
        QTest::newRow("main thread prefix") << true << main << "MainThread_run.log";
        QTest::newRow("scoped name routes by its first part") << true << "[ 4 : a::b ] x" << "a_run.log";
        QTest::newRow("no prefix") << true << "plain text" << "run.log";
        QTest::newRow("per-thread off") << false << main << "run.log";
        // clang-format on
    }

    void routing()
    {
        QFETCH(bool, perThread);
        QFETCH(QString, message);
        QFETCH(QString, file);

        CLog log("run.log");
        QVERIFY(log.startLogging(path(), CLog::LOG_LEVEL_WARNING, CLog::LOG_CHANNEL_FILE,
            CLog::FILE_LOGGING_APPEND, perThread));
        qWarning("%s", qPrintable(message));
        qWarning("%s", qPrintable(message));
        log.stopLogging();
        QCOMPARE(logLines(file), QStringList(2, " [Warning]  |" + message));
        if (file != "run.log")
            QCOMPARE(logLines("run.log"), QStringList {});
    }

    void strategies_data()
    {
        QTest::addColumn<int>("strategy");
        QTest::addColumn<int>("files");
        QTest::addColumn<int>("startsInFile");

        // Back to back, most of these starts fall into the same millisecond.
        QTest::newRow("new file") << 0 << 5 << 1;
        QTest::newRow("append") << 1 << 1 << 5;
        QTest::newRow("overwrite") << 2 << 1 << 1;
    }

    void strategies()
    {
        QFETCH(int, strategy);
        QFETCH(int, files);
        QFETCH(int, startsInFile);

        for (int run = 0; run < 5; ++run)
            QVERIFY(CLog("app.log").initLogging(path(), CLog::LOG_LEVEL_WARNING,
                CLog::LOG_CHANNEL_FILE, CLog::_File_Logging_Strategy_(strategy), false));
        const QStringList names = QDir(path()).entryList(QDir::Files);
        QCOMPARE(names.size(), files);
        const QRegularExpression name(strategy == 0 ? "^\\d{17}_app\\.log$" : "^app\\.log$");
        QVERIFY2(names.filter(name) == names, qPrintable(names.join(' ')));
        QFile file(path() + names.first());
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll().count("\nStart logging: "), startsInFile);
    }

    void restartEndsTheOldRun()
    {
        QVERIFY(QDir(path()).mkpath("a") && QDir(path()).mkpath("b"));
        CLog log(QString {});
        QVERIFY(log.startLogging(path() + "a/", CLog::LOG_LEVEL_WARNING, CLog::LOG_CHANNEL_FILE,
            CLog::FILE_LOGGING_APPEND, false));
        qWarning("first");
        QVERIFY(log.startLogging(path() + "b/", CLog::LOG_LEVEL_WARNING, CLog::LOG_CHANNEL_FILE,
            CLog::FILE_LOGGING_APPEND, false));
        qWarning("second");
        log.stopLogging();
        QCOMPARE(
            skeleton(contentOf(path() + "a/log.txt")), (QStringList {"Start", "first", "Stop"}));
        QCOMPARE(
            skeleton(contentOf(path() + "b/log.txt")), (QStringList {"Start", "second", "Stop"}));
    }

    // Qt warns from inside initLogging() while the log holds its mutex: a file on a
    // character device cannot seek. With the log installed that warning comes back to
    // it. Run in a child, so that a deadlock fails instead of hanging.
    void restartOnCharacterDevice()
    {
        const BvTest::ChildResult result = BvTest::runChild("restart", 20000);
        QVERIFY2(result.status == QProcess::NormalExit && result.exitCode == 0,
            result.standardError.constData());
        // Once through Qt's own handler, once written as it came while inside the log.
        static const QRegularExpression warning(
            "^QIODevice::seek \\(QFile, \".*/dev\\.log\"\\): Cannot call seek on a sequential "
            "device$",
            QRegularExpression::MultilineOption);
        QCOMPARE(QString::fromLocal8Bit(result.standardError).count(warning), 2);
    }

    // A log on its way out takes no message: while its stop header waits for a full
    // pipe, the logger is gone already.
    void destructionLetsGoOfMessagesFirst()
    {
        const QByteArray fifo = QFile::encodeName(path() + "log.txt");
        QVERIFY(::mkfifo(fifo.constData(), 0600) == 0);
        const int reader = ::open(fifo.constData(), O_RDONLY | O_NONBLOCK);
        QVERIFY(reader >= 0);
        auto *log = new CLog("log.txt");
        QVERIFY(log->startLogging(path(), CLog::LOG_LEVEL_WARNING, CLog::LOG_CHANNEL_FILE,
            CLog::FILE_LOGGING_APPEND, false));
        QCOMPARE(CLog::s_Logger.loadAcquire(), log);

        const int filler = ::open(fifo.constData(), O_WRONLY | O_NONBLOCK);
        QVERIFY(filler >= 0);
        while (::write(filler, "-", 1) == 1) { }
        ::close(filler);

        std::atomic<bool> goneBeforeStopped {false};
        std::thread drainer([&] {
            const QDeadlineTimer limit(5000);
            while (CLog::s_Logger.loadAcquire() && !limit.hasExpired())
                QThread::msleep(1);
            goneBeforeStopped = !CLog::s_Logger.loadAcquire();
            ::fcntl(reader, F_SETFL, 0);
            char buffer[4096];
            while (::read(reader, buffer, sizeof buffer) > 0) { }
        });
        delete log;
        drainer.join();
        ::close(reader);
        QVERIFY(goneBeforeStopped);
    }

    // A thread ended by force while it logs must not take the process or the log's
    // mutex with it. Run in a child, whose exit status tells.
    void threadEndedWhileLogging()
    {
        const BvTest::ChildResult result = BvTest::runChild("chatter", 60000);
        QVERIFY2(result.status == QProcess::NormalExit && result.exitCode == 0,
            qPrintable(QStringLiteral("exit code %1, %2")
                           .arg(result.exitCode)
                           .arg(QString::fromLocal8Bit(result.standardError.right(3000)))));
        QCOMPARE(QString::fromLocal8Bit(result.standardOutput),
            "ended 1, state 4, last line \"after the end\"\n");
    }

    void changeLogLevel()
    {
        CLog log(QString {});
        QSignalSpy changed(&log, &CLog::logLevelChanged);
        log.changeLogLevel(5); // beyond debug
        log.changeLogLevel(3); // the current level
        QCOMPARE(changed.count(), 0);
        QCOMPARE(log.getLogLevel(), CLog::LOG_LEVEL_WARNING);
        log.changeLogLevel(4);
        QCOMPARE(log.getLogLevel(), CLog::LOG_LEVEL_DEBUG);
        QCOMPARE(changed.count(), 1);
    }

    void linesNeverInterleave_data()
    {
        QTest::addColumn<bool>("perThread");
        QTest::newRow("one file") << false;
        QTest::newRow("a file per thread") << true;
    }

    void linesNeverInterleave()
    {
        QFETCH(bool, perThread);

        CLog log("busy.log");
        QVERIFY(log.startLogging(path(), CLog::LOG_LEVEL_WARNING, CLog::LOG_CHANNEL_FILE,
            CLog::FILE_LOGGING_APPEND, perThread));
        std::vector<std::unique_ptr<Writer>> writers;
        for (int t = 0; t < 8; ++t)
            writers.emplace_back(new Writer(t))->startThread();
        for (const auto &w : writers)
            QVERIFY(w->wait(60000));
        log.stopLogging();

        // Every line whole: the prefix of its own thread, then its own text.
        QHash<QString, int> seen;
        for (const auto &w : writers) {
            const QString file = perThread ? w->getThreadName() + "_busy.log" : "busy.log";
            const QRegularExpression whole(
                QStringLiteral("^ \\[Warning\\]  \\|\\[ %1 : (%2) \\] \\[ tst_clog\\.cpp : \\d+ : "
                               "runMethod \\] \\1:\\d+:x{160}$")
                    .arg(perThread ? QString::number(w->getThreadNumber()) : "\\d+",
                        perThread ? w->getThreadName() : "W\\d"));
            for (const QString &text : logLines(file)) {
                const QRegularExpressionMatch match = whole.match(text);
                QVERIFY2(match.hasMatch(), qPrintable(text.left(300)));
                ++seen[match.captured(1)];
            }
            if (!perThread)
                break;
        }
        for (const auto &w : writers)
            QCOMPARE(seen.value(w->getThreadName()), 1500);
    }
};

// Ends a thread that logs without a pause by force, then logs once more.
static int chatterChild()
{
    QTemporaryDir dir;
    const QString path = dir.path() + u'/';
    CLog log("chatter.log");
    if (!log.startLogging(path, CLog::LOG_LEVEL_WARNING, CLog::LOG_CHANNEL_FILE,
            CLog::FILE_LOGGING_APPEND, false))
        return 2;
    bool ended = false;
    int state = 0;
    {
        Chatter thread;
        thread.startThread();
        while (thread.lines < 100)
            QThread::msleep(1);
        thread.exitThread(0, 50, true);
        ended = thread.QThread::wait(5000);
        state = thread.getState();
    }
    qWarning("after the end");
    log.stopLogging();
    const QStringList shape = skeleton(contentOf(path + "chatter.log"));
    std::printf("ended %d, state %d, last line \"%s\"\n", ended, state,
        qPrintable(shape.value(shape.size() - 2)));
    return 0;
}

// "restart": starts the log twice with a link to /dev/null as its file.
// "chatter": see chatterChild().
static int childMain(const QByteArray &mode)
{
    if (mode == "chatter")
        return chatterChild();
    QTemporaryDir dir;
    const QString path = dir.path() + u'/';
    if (!QFile::link(QStringLiteral("/dev/null"), path + "dev.log"))
        return 2;
    CLog log("dev.log");
    for (int run = 0; run < 2; ++run) {
        if (!log.startLogging(path, CLog::LOG_LEVEL_WARNING, CLog::LOG_CHANNEL_FILE,
                CLog::FILE_LOGGING_APPEND, false))
            return 3;
        qWarning("run %d", run);
    }
    log.stopLogging();
    return 0;
}

BV_TEST_MAIN_WITH_CHILD(tst_CLog, QCoreApplication)
#include "tst_clog.moc"
