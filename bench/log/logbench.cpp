// The log under contention: several threads write diagnostic lines at once, through
// CLog into one file, through CLog into a file per thread, and through Qt's default
// handler into a file (standard error redirected). Prints lines per second for each.
//
//   bench_log [threads] [lines per thread]        defaults: 4 100000

#include "log/CLog.h"
#include "threading/assertions/assertion.h"
#include "threading/threads/CBasicThread.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {
class Writer : public CBasicThread
{
public:
    Writer(const std::string &name, int lines)
        : CBasicThread(name)
        , m_Lines(lines)
    { }

protected:
    void runMethod() override
    {
        for (int i = 0; i < m_Lines; ++i)
            BV_WARNING() << "bench line" << i << "of" << m_Lines;
    }

private:
    int m_Lines;
};

// Runs the load and answers the seconds it took.
double runLoad(int threads, int lines)
{
    QList<Writer *> writers;
    for (int t = 0; t < threads; ++t)
        writers << new Writer("Writer" + std::to_string(t + 1), lines);
    QElapsedTimer clock;
    clock.start();
    for (Writer *w : std::as_const(writers))
        w->startThread();
    for (Writer *w : std::as_const(writers))
        w->wait();
    const double seconds = clock.nsecsElapsed() / 1e9;
    qDeleteAll(writers);
    return seconds;
}

qint64 countLines(const QString &dir)
{
    qint64 count = 0;
    for (const QFileInfo &info : QDir(dir).entryInfoList(QDir::Files)) {
        QFile file(info.filePath());
        if (!file.open(QIODevice::ReadOnly))
            continue;
        while (!file.atEnd())
            count += file.readLine().startsWith("--") ? 0 : 1;
    }
    return count;
}

void report(const char *mode, int threads, int lines, double seconds, qint64 written)
{
    std::printf("%-34s %10.0f lines/s  (%.3f s, %lld lines in the files)\n", mode,
        threads * double(lines) / seconds, seconds, static_cast<long long>(written));
    std::fflush(stdout);
}

double benchLog(const char *mode, bool perThread, int threads, int lines)
{
    QTemporaryDir dir;
    CLog log(QStringLiteral("bench.log"));
    log.startLogging(dir.path() + u'/', CLog::LOG_LEVEL_WARNING, CLog::LOG_CHANNEL_FILE,
        CLog::FILE_LOGGING_OVERWRITE, perThread);
    const double seconds = runLoad(threads, lines);
    log.stopLogging();
    report(
        mode, threads, lines, seconds, countLines(dir.path()) - 2 * (perThread ? threads + 1 : 1));
    return seconds;
}

double benchDefaultHandler(int threads, int lines)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("stderr.log"));
    std::fflush(stderr);
    const int saved = ::dup(2);
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(fd, 2);
    ::close(fd);
    qInstallMessageHandler(nullptr);
    const double seconds = runLoad(threads, lines);
    std::fflush(stderr);
    ::dup2(saved, 2);
    ::close(saved);
    report("Qt default handler, stderr to file", threads, lines, seconds, countLines(dir.path()));
    return seconds;
}
} // namespace

int main(int argc, char *argv[])
{
    // Qt may send its default output elsewhere when stderr is not a terminal.
    qputenv("QT_FORCE_STDERR_LOGGING", "1");
    // Only the benchmark lines: the thread class's own debug lines stay out.
    qputenv("QT_LOGGING_RULES", "*.debug=false");
    QCoreApplication app(argc, argv);
    const int threads = argc > 1 ? std::atoi(argv[1]) : 4;
    const int lines = argc > 2 ? std::atoi(argv[2]) : 100000;
    std::printf("%d threads x %d lines\n", threads, lines);

    const double single = benchLog("CLog, one file", false, threads, lines);
    const double perThread = benchLog("CLog, a file per thread", true, threads, lines);
    const double qt = benchDefaultHandler(threads, lines);
    std::printf(
        "CLog one file / Qt default:        %.2f (time ratio, >1 = CLog slower)\n", single / qt);
    std::printf("CLog per thread / Qt default:      %.2f\n", perThread / qt);
    return 0;
}
