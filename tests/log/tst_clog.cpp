#include "log/CLog.h"
#include "threading/assertions/assertion.h"
#include "threading/threads/CBasicThread.h"

#include "BvTestSupport.h"

#include <QDir>
#include <QTemporaryDir>

#include <atomic>

namespace {
const auto kWarning = CLog::LOG_LEVEL_WARNING;
const auto kFile = CLog::LOG_CHANNEL_FILE;
const auto kAppend = CLog::FILE_LOGGING_APPEND;

// Logs `count` lines through the diagnostic prefix, or until stopped when count is 0.
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
        for (; !stop && (m_Count == 0 || lines < m_Count); ++lines)
            BV_WARNING().noquote() << getThreadName() + ":" + QString(160, u'x');
    }

private:
    const int m_Count;
};

// The lines of a log file without the start and stop headers.
QStringList lines(const QString &fileName)
{
    static const QRegularExpression header("^(-{80}|(Start|Stop) logging: .*)$");
    QFile file(fileName);
    QStringList texts;
    if (file.open(QIODevice::ReadOnly))
        for (const QString &text : QString::fromLocal8Bit(file.readAll()).split(u'\n'))
            if (!text.isEmpty() && !header.match(text).hasMatch())
                texts << text;
    return texts;
}
} // namespace

class tst_CLog : public QObject
{
    Q_OBJECT

private slots:
    // Eight threads and the main one log at once: every line whole, with its tag and its
    // own thread's prefix and text, in that thread's file when each has one.
    void busyThreads_data()
    {
        QTest::addColumn<bool>("perThread");
        QTest::newRow("one file") << false;
        QTest::newRow("a file per thread") << true;
    }

    void busyThreads()
    {
        QFETCH(bool, perThread);
        QTemporaryDir dir;
        QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
        const QString path = dir.path() + u'/';
        {
            CLog log("busy.log");
            QVERIFY(log.startLogging(path, kWarning, kFile, kAppend, perThread));
            std::vector<std::unique_ptr<Writer>> writers;
            for (int t = 0; t < 8; ++t)
                writers.emplace_back(new Writer("W" + std::to_string(t), 1500))->startThread();
            BV_WARNING().noquote() << "MainThread:" + QString(160, u'x');
            for (const auto &w : writers)
                QVERIFY(w->wait(60000));
            log.stopLogging();
        }
        static const QRegularExpression whole(
            "^\\d\\d\\.\\d\\d\\.\\d\\d \\d\\d:\\d\\d:\\d\\d:\\d{3}  \\[Warning\\]   "
            "\\[ -?\\d+ : (\\w+) \\] \\[ tst_clog\\.cpp : \\d+ : \\w+ \\] \\1:x{160}$");
        QHash<QString, int> seen;
        for (const QString &file : QDir(path).entryList(QDir::Files)) {
            for (const QString &text : lines(path + file)) {
                const QRegularExpressionMatch match = whole.match(text);
                QVERIFY2(match.hasMatch(), qPrintable(file + ": " + text.left(300)));
                if (file == (perThread ? match.captured(1) + "_busy.log" : "busy.log"))
                    ++seen[match.captured(1)];
            }
        }
        QCOMPARE(seen.value("MainThread"), 1);
        for (int t = 0; t < 8; ++t)
            QCOMPARE(seen.value(QStringLiteral("W%1").arg(t)), 1500);
    }

    void appendOrOverwrite_data()
    {
        QTest::addColumn<int>("strategy");
        QTest::addColumn<int>("starts"); // in the file after two runs
        QTest::newRow("append") << int(CLog::FILE_LOGGING_APPEND) << 2;
        QTest::newRow("overwrite") << int(CLog::FILE_LOGGING_OVERWRITE) << 1;
    }

    void appendOrOverwrite()
    {
        QFETCH(int, strategy);
        QFETCH(int, starts);
        QTemporaryDir dir;
        QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
        for (int run = 0; run < 2; ++run)
            QVERIFY(CLog("app.log").initLogging(dir.path() + u'/', kWarning, kFile,
                CLog::_File_Logging_Strategy_(strategy), false));
        QFile file(dir.filePath("app.log"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll().count("Start logging: "), starts);
    }

    // A thread ended by force while it logs must leave the log's mutex free. In a child,
    // which a mutex left taken hangs until it is killed.
    void forcedEndLeavesLogFree()
    {
        const BvTest::ChildResult child = BvTest::runChild("chatter", 30000);
        QVERIFY2(child.status == QProcess::NormalExit && child.exitCode == 0,
            child.standardError.right(3000).constData());
    }
};

static int childMain(const QByteArray &)
{
    QTemporaryDir dir;
    CLog log("chatter.log");
    if (!log.startLogging(dir.path() + u'/', kWarning, kFile, kAppend, false))
        return 2;
    {
        Writer thread("Chatter", 0);
        thread.startThread();
        while (thread.lines < 100)
            QThread::msleep(1);
        thread.exitThread(0, 50, true);
        if (!thread.QThread::wait(5000) || !thread.isTerminated())
            return 3;
    }
    qWarning("after the end");
    log.stopLogging();
    return lines(dir.filePath("chatter.log")).join(u'\n').endsWith("after the end") ? 0 : 4;
}

BV_TEST_MAIN_WITH_CHILD(tst_CLog, QCoreApplication)
#include "tst_clog.moc"
