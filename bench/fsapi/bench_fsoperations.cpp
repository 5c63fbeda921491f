// Times the library's tree deletion and tree copy against rm -rf and cp -r on the same
// trees, alternating which goes first, and prints the median ratios.
//
//   bench_fsoperations [--root DIR] [--runs N] [--files N] [--folders N] [--copy-files N]
//
// DIR defaults to a fresh folder under /dev/shm (tmpfs), so the figures measure the
// code path rather than a disk.

#include "fsapi/CFSOperations.h"
#include "fsapi/FSExceptions.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QRandomGenerator>
#include <QStringList>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char **environ;

namespace {

struct Options
{
    QString root;
    int runs = 5;
    int files = 100000;
    int folders = 100;
    int copyFiles = 10000;
};

[[noreturn]] void die(const char *what, const std::string &path)
{
    std::fprintf(stderr, "bench: %s %s: %s\n", what, path.c_str(), std::strerror(errno));
    std::exit(2);
}

void makeFolder(const std::string &path)
{
    if (::mkdir(path.c_str(), 0755) != 0)
        die("mkdir", path);
}

void writeFile(const std::string &path, const std::vector<char> &data, size_t size)
{
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
    if (fd < 0)
        die("open", path);
    if (size > 0 && ::write(fd, data.data(), size) != ssize_t(size))
        die("write", path);
    ::close(fd);
}

// `files` empty files spread evenly over `folders` folders.
void buildEmptyTree(const std::string &root, int folders, int files)
{
    makeFolder(root);
    const std::vector<char> none;
    for (int d = 0; d < folders; ++d) {
        const std::string folder = root + "/dir" + std::to_string(d);
        makeFolder(folder);
        for (int f = d; f < files; f += folders)
            writeFile(folder + "/file" + std::to_string(f), none, 0);
    }
}

// `files` files of 100 B to 8 KiB, always the same sizes and bytes.
void buildSizedTree(const std::string &root, int folders, int files)
{
    makeFolder(root);
    QRandomGenerator random(20240131);
    std::vector<char> data(8192);
    for (char &c : data)
        c = char(random.bounded(256));
    for (int d = 0; d < folders; ++d) {
        const std::string folder = root + "/dir" + std::to_string(d);
        makeFolder(folder);
        for (int f = d; f < files; f += folders)
            writeFile(folder + "/file" + std::to_string(f) + ".dat", data,
                size_t(random.bounded(100, 8193)));
    }
}

double runTool(const std::vector<std::string> &argv)
{
    std::vector<char *> args;
    for (const std::string &a : argv)
        args.push_back(const_cast<char *>(a.c_str()));
    args.push_back(nullptr);
    QElapsedTimer timer;
    timer.start();
    pid_t pid;
    if (posix_spawnp(&pid, args[0], nullptr, nullptr, args.data(), environ) != 0)
        die("spawn", argv[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    const double seconds = timer.nsecsElapsed() / 1e9;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "bench: %s failed\n", argv[0].c_str());
        std::exit(2);
    }
    return seconds;
}

double timeLibrary(bool (*operation)(CFSOperations &, const QString &, const QString &),
    const QString &a, const QString &b)
{
    CFSOperations fs;
    QElapsedTimer timer;
    timer.start();
    bool done = false;
    try {
        done = operation(fs, a, b);
    } catch (CException *e) {
        std::fprintf(stderr, "bench: %s\n", e->what());
        delete e;
    }
    const double seconds = timer.nsecsElapsed() / 1e9;
    if (!done) {
        std::fprintf(stderr, "bench: the library operation failed\n");
        std::exit(2);
    }
    return seconds;
}

bool deleteTree(CFSOperations &fs, const QString &path, const QString &)
{
    return fs.deleteDirectory(path, true) && !QFileInfo::exists(path);
}

bool copyTree(CFSOperations &fs, const QString &src, const QString &dst)
{
    return fs.copyDirectory(src, dst);
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

void report(const char *what, const char *tool, const std::vector<double> &ours,
    const std::vector<double> &theirs, double target)
{
    const double ratio = median(ours) / median(theirs);
    std::printf("%-28s library %8.1f ms   %-7s %8.1f ms   ratio %.2f (target <= %.2f) %s\n", what,
        median(ours) * 1e3, tool, median(theirs) * 1e3, ratio, target,
        ratio <= target ? "ok" : "MISSED");
}

Options parse(const QStringList &args)
{
    Options o;
    o.root = QStringLiteral("/dev/shm/bv-fsapi-bench-%1").arg(::getpid());
    for (int i = 1; i + 1 < args.size(); i += 2) {
        const QString &key = args[i];
        const QString &value = args[i + 1];
        if (key == QLatin1String("--root"))
            o.root = value;
        else if (key == QLatin1String("--runs"))
            o.runs = std::max(1, value.toInt());
        else if (key == QLatin1String("--files"))
            o.files = value.toInt();
        else if (key == QLatin1String("--folders"))
            o.folders = std::max(1, value.toInt());
        else if (key == QLatin1String("--copy-files"))
            o.copyFiles = value.toInt();
    }
    return o;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    // The tree copy writes two debug lines per file; they measure the log, not the copy.
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    const Options o = parse(app.arguments());

    const std::string root = o.root.toStdString();
    makeFolder(root);
    std::printf("root %s, %d runs\n", root.c_str(), o.runs);

    std::vector<double> ours;
    std::vector<double> theirs;
    const std::string victim = root + "/victim";
    const QString victimPath = QString::fromStdString(victim);
    for (int run = 0; run < o.runs; ++run) {
        for (int turn = 0; turn < 2; ++turn) {
            buildEmptyTree(victim, o.folders, o.files);
            ::sync();
            if ((run + turn) % 2 == 0)
                ours.push_back(timeLibrary(deleteTree, victimPath, QString()));
            else
                theirs.push_back(runTool({"rm", "-rf", victim}));
        }
    }
    std::printf("delete %d empty files in %d folders\n", o.files, o.folders);
    report("  deleteDirectory(force)", "rm -rf", ours, theirs, 1.15);

    ours.clear();
    theirs.clear();
    const std::string source = root + "/source";
    const std::string copy = root + "/copy";
    const QString sourcePath = QString::fromStdString(source);
    const QString copyPath = QString::fromStdString(copy);
    buildSizedTree(source, o.folders, o.copyFiles);
    for (int run = 0; run < o.runs; ++run) {
        for (int turn = 0; turn < 2; ++turn) {
            if ((run + turn) % 2 == 0)
                ours.push_back(timeLibrary(copyTree, sourcePath, copyPath));
            else
                theirs.push_back(runTool({"cp", "-r", source, copy}));
            runTool({"rm", "-rf", copy});
        }
    }
    std::printf("copy %d files of 100 B - 8 KiB in %d folders\n", o.copyFiles, o.folders);
    report("  copyDirectory", "cp -r", ours, theirs, 1.2);

    runTool({"rm", "-rf", root});
    return 0;
}
