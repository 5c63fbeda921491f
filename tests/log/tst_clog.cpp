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
const auto kWarning = CLog::LOG_LEVEL_WARNING;
const auto kFile = CLog::LOG_CHANNEL_FILE;
const auto kAppend = CLog::FILE_LOGGING_APPEND;

// Logs `count` lines through the diagnostic prefix, or until told to stop when count is 0.
class Writer : public CBasicThread
{
public:
    Writer(const std::string &name, int count)
        : CBasicThread(name)
        , m_Count(count)
    { }
    ~Writer() override
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
        for (; !stop && (m_Count == 0 || lines < m_Count); ++lines)
            BV_WARNING().noquote()
                << getThreadName() + ':' + QString::number(lines) + ':' + QString(160, u'x');
    }

private:
    const int m_Count;
};

// The lines of a log file: "Start" and "Stop" for the headers, "<tag>|<text>" for the
// others; a malformed line is kept whole, so that a comparison shows it.
QStringList lines(const QString &fileName)
{
    static const QRegularExpression header("^(Start|Stop) logging: .*$");
    static const QRegularExpression line(
        "^\\d\\d\\.\\d\\d\\.\\d\\d \\d\\d:\\d\\d:\\d\\d:\\d{3} ( \\[\\w+\\] *) ");
    QFile file(fileName);
    QStringList texts;
    if (file.open(QIODevice::ReadOnly))
        for (const QString &text : QString::fromLocal8Bit(file.readAll()).split(u'\n'))
            if (!text.isEmpty() && text != QString(80, u'-'))
                texts << QString(text).replace(header, "\\1").replace(line, "\\1|");
    return texts;
}
} // namespace

class tst_CLog : public QObject
{
    Q_OBJECT

    QScopedPointer<QTemporaryDir> m_Dir;
    QtMessageHandler m_TestHandler = nullptr;
    QString path() const { return m_Dir->path() + u'/'; }

private slots:
    void init()
    {
        m_Dir.reset(new QTemporaryDir);
        QVERIFY2(m_Dir->isValid(), qPrintable(m_Dir->errorString()));
        // Stopping the log restores Qt's default handler; the test library's comes back.
        m_TestHandler = qInstallMessageHandler(nullptr);
        qInstallMessageHandler(m_TestHandler);
    }
    void cleanup() { qInstallMessageHandler(m_TestHandler); }

    void logging_data()
    {
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<int>("level"); // -1: the default
        QTest::addColumn<int>("channel");
        QTest::addColumn<bool>("perThread");
        QTest::addColumn<bool>("minimal");
        QTest::addColumn<QString>("message"); // logged as debug, warning, critical and fatal
        QTest::addColumn<QStringList>("expected"); // "<file>|<tag>|<text>", then "announced|<text>"
        using L = QStringList;
        const QString main = "[ -1 : MainThread ] [ f.cpp : 1 : fn ] hello";
        const auto all = [](const QString &prefix, const QString &text, int level = 3) {
            const L tags {" [Fatal]    ", " [Critical] ", " [Warning]  ", " [Debug]    "};
            L lines, announced;
            for (int i = 3; i >= 0; --i)
                if (i < level)
                    lines << prefix + tags[i] + '|' + text, announced << "announced|" + text;
            return lines + announced;
        };
        // clang-format off
        QTest::newRow("default level")   << "" << -1 << 3 << false << false << "x" << all("log.txt|", "x");
        QTest::newRow("debug")           << "" << 4 << 3 << false << false << "x" << all("log.txt|", "x", 4);
        QTest::newRow("critical")        << "" << 2 << 3 << false << false << "x" << all("log.txt|", "x", 2);
        QTest::newRow("minimal tags")    << "" << 4 << 3 << false << true << "x" << L {"log.txt| [D] |x", "log.txt| [W] |x", "log.txt| [C] |x", "log.txt| [F] |x", "announced|x", "announced|x", "announced|x", "announced|x"};
        QTest::newRow("main thread file")       << "run.log" << 3 << 3 << true << false << main << all("MainThread_run.log|", main);
        QTest::newRow("scoped name routes by its first part") << "run.log" << 3 << 3 << true << false << "[ 4 : a::b ] x" << all("a_run.log|", "[ 4 : a::b ] x");
        QTest::newRow("no prefix, per thread")  << "run.log" << 3 << 3 << true << false << "plain" << all("run.log|", "plain");
        QTest::newRow("per-thread off")         << "run.log" << 3 << 3 << false << false << main << all("run.log|", main);
        QTest::newRow("channel beyond the last only announces") << "" << 3 << 5 << false << false << "x" << L {"announced|x", "announced|x", "announced|x"};
        // clang-format on
    }

    void logging()
    {
        QFETCH(QString, fileName);
        QFETCH(int, level);
        QFETCH(int, channel);
        QFETCH(bool, perThread);
        QFETCH(bool, minimal);
        QFETCH(QString, message);
        QFETCH(QStringList, expected);
        QStringList got;
        {
            CLog log(fileName);
            QSignalSpy announced(&log, &CLog::newLogMessage);
            log.setMinimalOutput(minimal);
            QVERIFY(
                log.startLogging(path(), level < 0 ? log.getLogLevel() : CLog::_Log_Level_(level),
                    CLog::_Log_Channel_(channel), kAppend, perThread));
            qDebug("%s", qPrintable(message));
            qWarning("%s", qPrintable(message));
            qCritical("%s", qPrintable(message));
            CLog::globalMessageHandler(QtFatalMsg, qPrintable(message)); // through qFatal the process would end
            log.stopLogging();
            for (const QString &file : QDir(path()).entryList(QDir::Files))
                for (const QString &line : lines(path() + file))
                    if (line != "Start" && line != "Stop")
                        got << file + '|' + line;
            for (const QList<QVariant> &arguments : announced)
                got << "announced|" + arguments.first().toString();
        }
        QCOMPARE(got, expected);
    }

    void strategies_data()
    {
        QTest::addColumn<int>("strategy");
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("files");
        QTest::addColumn<int>("startsInFile");
        // Back to back, most of these starts fall into the same millisecond.
        QTest::newRow("new file") << 0 << "^\\d{17}_app\\.log$" << 5 << 1;
        QTest::newRow("append") << 1 << "^app\\.log$" << 1 << 5;
        QTest::newRow("overwrite") << 2 << "^app\\.log$" << 1 << 1;
    }

    void strategies()
    {
        QFETCH(int, strategy);
        QFETCH(QString, name);
        QFETCH(int, files);
        QFETCH(int, startsInFile);
        for (int run = 0; run < 5; ++run)
            QVERIFY(CLog("app.log").initLogging(
                path(), kWarning, kFile, CLog::_File_Logging_Strategy_(strategy), false));
        const QStringList names = QDir(path()).entryList(QDir::Files);
        QCOMPARE(names.filter(QRegularExpression(name)).size(), files);
        QCOMPARE(names.size(), files);
        QCOMPARE(lines(path() + names.first()).count("Start"), startsInFile);
    }

    void restartEndsTheOldRun()
    {
        QVERIFY(QDir(path()).mkpath("a") && QDir(path()).mkpath("b"));
        CLog log(QString {});
        QVERIFY(log.startLogging(path() + "a/", kWarning, kFile, kAppend, false));
        qWarning("first");
        QVERIFY(log.startLogging(path() + "b/", kWarning, kFile, kAppend, false));
        qWarning("second");
        log.stopLogging();
        QCOMPARE(lines(path() + "a/log.txt"), QStringList({"Start", " [Warning]  |first", "Stop"}));
        QCOMPARE(
            lines(path() + "b/log.txt"), QStringList({"Start", " [Warning]  |second", "Stop"}));
    }

    void changeLogLevel()
    {
        CLog log(QString {});
        QSignalSpy changed(&log, &CLog::logLevelChanged);
        log.changeLogLevel(5); // beyond debug
        log.changeLogLevel(3); // the current level
        log.changeLogLevel(4);
        QCOMPARE(log.getLogLevel(), CLog::LOG_LEVEL_DEBUG);
        QCOMPARE(changed.count(), 1);
    }

    // In a child, so that a deadlock or a crash fails instead of hanging. "restart": Qt
    // warns from inside initLogging(), while the log holds its mutex, that a file on a
    // character device cannot seek; with the log installed that warning comes back to it.
    // "chatter": a thread ended by force while it logs must leave the log's mutex free.
    void inChild_data()
    {
        QTest::addColumn<QString>("output"); // of the child; "restart" counts the warnings
        QTest::newRow("restart") << "2";
        QTest::newRow("chatter") << "ended 1, state 4, last line \" [Warning]  |after the end\"\n";
    }

    void inChild()
    {
        QFETCH(QString, output);
        const BvTest::ChildResult child = BvTest::runChild(QTest::currentDataTag(), 60000);
        const QString err = QString::fromLocal8Bit(child.standardError);
        QVERIFY2(child.status == QProcess::NormalExit && child.exitCode == 0,
            qPrintable(err.right(3000)));
        // Once through Qt's own handler, once written as it came while inside the log.
        static const QRegularExpression warning("^QIODevice::seek \\(QFile, \".*/dev\\.log\"\\): "
                                                "Cannot call seek on a sequential device$",
            QRegularExpression::MultilineOption);
        QCOMPARE(QTest::currentDataTag() == QByteArray("restart")
                ? QString::number(err.count(warning))
                : QString::fromLocal8Bit(child.standardOutput),
            output);
    }

    // A log on its way out takes no message: while its stop header waits for a full pipe,
    // the logger is gone already.
    void destructionLetsGoOfMessagesFirst()
    {
        const QByteArray fifo = QFile::encodeName(path() + "log.txt");
        QVERIFY(::mkfifo(fifo.constData(), 0600) == 0);
        const int reader = ::open(fifo.constData(), O_RDONLY | O_NONBLOCK);
        auto *log = new CLog("log.txt");
        QVERIFY(reader >= 0 && log->startLogging(path(), kWarning, kFile, kAppend, false));
        const int filler = ::open(fifo.constData(), O_WRONLY | O_NONBLOCK);
        while (filler >= 0 && ::write(filler, "-", 1) == 1) { }
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

    // Every line whole: the prefix of its own thread, then its own text.
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
        QVERIFY(log.startLogging(path(), kWarning, kFile, kAppend, perThread));
        std::vector<std::unique_ptr<Writer>> writers;
        for (int t = 0; t < 8; ++t)
            writers.emplace_back(new Writer("W" + std::to_string(t), 1500))->startThread();
        for (const auto &w : writers)
            QVERIFY(w->wait(60000));
        log.stopLogging();
        QHash<QString, int> seen;
        for (const QString &file : QDir(path()).entryList(QDir::Files)) {
            for (const QString &text : lines(path() + file)) {
                static const QRegularExpression whole(
                    "^ \\[Warning\\]  \\|\\[ (\\d+) : (W\\d) \\] \\[ tst_clog\\.cpp : \\d+ : "
                    "runMethod \\] \\2:\\d+:x{160}$");
                const QRegularExpressionMatch match = whole.match(text);
                QVERIFY2(match.hasMatch() || text == "Start" || text == "Stop",
                    qPrintable(text.left(300)));
                if (match.hasMatch() && (!perThread || file == match.captured(2) + "_busy.log"))
                    ++seen[match.captured(2)];
            }
        }
        for (const auto &w : writers)
            QCOMPARE(seen.value(w->getThreadName()), 1500);
    }
};

static int childMain(const QByteArray &mode)
{
    QTemporaryDir dir;
    const QString path = dir.path() + u'/';
    CLog log(mode == "chatter" ? "chatter.log" : "dev.log");
    if (mode == "restart") { // twice, with a link to /dev/null as its file
        for (int run = 0; run < 2; ++run) {
            if (run == 0 && !QFile::link("/dev/null", path + "dev.log"))
                return 2;
            if (!log.startLogging(path, kWarning, kFile, kAppend, false))
                return 3;
            qWarning("run %d", run);
        }
        log.stopLogging();
        return 0;
    }
    // Ends a thread that logs without a pause by force, then logs once more.
    if (!log.startLogging(path, kWarning, kFile, kAppend, false))
        return 2;
    bool ended = false;
    int state = 0;
    {
        Writer thread("Chatter", 0);
        thread.startThread();
        while (thread.lines < 100)
            QThread::msleep(1);
        thread.exitThread(0, 50, true);
        ended = thread.QThread::wait(5000);
        state = thread.getState();
    }
    qWarning("after the end");
    log.stopLogging();
    const QStringList shape = lines(path + "chatter.log");
    std::printf("ended %d, state %d, last line \"%s\"\n", ended, state,
        qPrintable(shape.value(shape.size() - 2)));
    return 0;
}

BV_TEST_MAIN_WITH_CHILD(tst_CLog, QCoreApplication)
#include "tst_clog.moc"
