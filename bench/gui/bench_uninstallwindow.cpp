// How responsive the uninstaller window stays while a run deletes a large ~/.bv2, or while
// its details count a large cache.
//
//   bench_uninstallwindow [--details] [--files N] [--folders N] [--bytes N] [--root DIR]
//
// Makes a throw-away HOME under DIR (default /dev/shm when it has room, else /tmp) whose
// ~/.bv2 holds N small files (default 1,000,000) in folders of their own, shows the real
// CMainWindow (offscreen unless QT_QPA_PLATFORM says otherwise), presses its Uninstall
// button and waits for CMainWindow::runFinished. Meanwhile a 1 ms timer on the GUI thread
// notes the time between its ticks: the longest of those gaps is the longest the event
// loop went without running, which is what a user sees as a frozen window.
//
// With --details the N files (default 100,000) go into ~/Library/Caches/Brisvane instead,
// and Show Details is pressed: the same timer runs until the details' total is shown,
// which is when every size has arrived. Nothing is deleted.
//
// The run works as in the program, with two differences kept out of the way:
//   - `ps` is a stand-in that lists nothing, so no process on the machine is stopped;
//   - the administrator prompt is answered by this program (its own CPolkitEnvironment:
//     the shell starts without pkexec, as the user running the benchmark). The removal
//     script never gets to it: this program is not inside Brisvane.app, so the last step
//     fails with "Unable to uninstall Brisvane" after ~/.bv2 has been deleted.

#include "CMainWindow.h"

#include "system/linux/CPolkitEnvironment.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QLabel>
#include <QLoggingCategory>
#include <QProgressBar>
#include <QPushButton>
#include <QTextStream>
#include <QTimer>
#include <QToolButton>
#include <QTreeWidget>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

CPolkitEnvironment CPolkitEnvironment::system()
{
    CPolkitEnvironment machine;
    machine.isRoot = true;
    return machine;
}

namespace {

const double C_TARGET_MS = 100.0;

struct Options
{
    bool details = false;
    long files = 0; // 0: the mode's own default

    long folders = 1000;
    long bytes = 16;
    std::string root;
};

[[noreturn]] void fail(const std::string &what)
{
    const int savedErrno = errno;
    std::fprintf(
        stderr, "bench_uninstallwindow: %s: %s\n", what.c_str(), std::strerror(savedErrno));
    std::exit(1);
}

bool parse(int argc, char *argv[], Options &options)
{
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--details") {
            options.details = true;
            continue;
        }
        if (i + 1 >= argc)
            return false;
        const char *value = argv[++i];
        if (arg == "--files")
            options.files = std::strtol(value, nullptr, 10);
        else if (arg == "--folders")
            options.folders = std::strtol(value, nullptr, 10);
        else if (arg == "--bytes")
            options.bytes = std::strtol(value, nullptr, 10);
        else if (arg == "--root")
            options.root = value;
        else
            return false;
    }
    if (options.files == 0)
        options.files = options.details ? 100000 : 1000000;
    return options.files > 0 && options.folders > 0 && options.bytes >= 0;
}

// /dev/shm when it has room for the files (a page each on tmpfs, inodes) with a margin.
std::string chooseRoot(const Options &options)
{
    if (!options.root.empty())
        return options.root;
    struct statvfs fs
    {
    };
    const unsigned long long page = 4096;
    const unsigned long long needed = (options.files + options.folders) * (page + 1024) * 3 / 2;
    if (::statvfs("/dev/shm", &fs) == 0 && (unsigned long long)fs.f_bavail * fs.f_frsize > needed
        && (fs.f_favail == 0
            || fs.f_favail > (unsigned long long)(options.files + options.folders) * 2))
        return "/dev/shm";
    return "/tmp";
}

void makeDir(const std::string &path)
{
    if (::mkdir(path.c_str(), 0755) != 0 && errno != EEXIST)
        fail("mkdir " + path);
}

void writeFile(const std::string &path, const std::string &content)
{
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        fail("open " + path);
    if (!content.empty() && ::write(fd, content.data(), content.size()) != ssize_t(content.size()))
        fail("write " + path);
    ::close(fd);
}

// Where the many files go: the data a run deletes, or the cache the details count.
const char *bulkFolder(const Options &options)
{
    return options.details ? "/Library/Caches/Brisvane" : "/.bv2/spaces";
}

// The user's files: two small key folders (so the backup step has work) and the data.
void fillHome(const std::string &home, const Options &options)
{
    for (const char *dir : {"", "/Documents", "/.config", "/.config/Brisvane", "/.bv2", "/.bv2/pss",
             "/.bv2/server_access_keys", "/.bv2/spaces", "/bin", "/Library", "/Library/Caches",
             "/Library/Caches/Brisvane"})
        makeDir(home + dir);
    writeFile(home + "/.bv2/pss/id.key", "first key\n");
    writeFile(home + "/.bv2/server_access_keys/server.key", "second key\n");
    writeFile(home + "/.config/Brisvane/Brisvane.conf", "[General]\n");
    const std::string content(size_t(options.bytes), 'x');
    const long perFolder = (options.files + options.folders - 1) / options.folders;
    char name[64];
    for (long made = 0, folder = 0; made < options.files; ++folder) {
        std::snprintf(name, sizeof name, "/s%05ld", folder);
        const std::string dir = home + bulkFolder(options) + name;
        makeDir(dir);
        for (long i = 0; i < perFolder && made < options.files; ++i, ++made) {
            std::snprintf(name, sizeof name, "/f%07ld.dat", made);
            writeFile(dir + name, content);
        }
    }
    // The product's processes are found through ps: this one finds none.
    writeFile(home + "/bin/ps", "#!/bin/sh\nexit 0\n");
    if (::chmod((home + "/bin/ps").c_str(), 0755) != 0)
        fail("chmod ps");
}

} // namespace

int main(int argc, char *argv[])
{
    Options options;
    if (!parse(argc, argv, options)) {
        std::fprintf(stderr,
            "usage: bench_uninstallwindow [--details] [--files N] [--folders N] [--bytes N]"
            " [--root DIR]\n");
        return 2;
    }

    // Everything the run touches lives in the sandbox, set up before Qt reads the
    // environment.
    std::string sandbox = chooseRoot(options) + "/bv-window-bench.XXXXXX";
    if (!::mkdtemp(sandbox.data()))
        fail("mkdtemp " + sandbox);
    const std::string home = sandbox + "/home";
    ::setenv("HOME", home.c_str(), 1);
    for (const auto &[name, relative] :
        {std::pair {"XDG_CONFIG_HOME", "/.config"}, {"XDG_CACHE_HOME", "/.cache"},
            {"XDG_DATA_HOME", "/.local/share"}, {"XDG_STATE_HOME", "/.local/state"}})
        ::setenv(name, (home + relative).c_str(), 1);
    ::setenv("XDG_RUNTIME_DIR", sandbox.c_str(), 1);
    const char *path = std::getenv("PATH");
    ::setenv("PATH", (home + "/bin:" + (path ? path : "/usr/bin:/bin")).c_str(), 1);
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);

    std::printf("sandbox           %s\n", sandbox.c_str());
    std::fflush(stdout);
    QElapsedTimer clock;
    clock.start();
    fillHome(home, options);
    const double fillSeconds = clock.nsecsElapsed() / 1e9;

    QApplication app(argc, argv);
    // The steps' own diagnostics are not what is measured.
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));

    CMainWindow window;
    window.show();
    auto *box = window.findChild<QDialogButtonBox *>(QStringLiteral("dbbSubNaviButton"));
    auto *progress = window.findChild<QProgressBar *>(QStringLiteral("progressBar"));
    auto *errorText = window.findChild<QLabel *>(QStringLiteral("lblErrorsText"));
    auto *detailsButton = window.findChild<QToolButton *>(QStringLiteral("btnDetails"));
    auto *detailsList = window.findChild<QTreeWidget *>(QStringLiteral("treeDetails"));
    auto *detailsTotal = window.findChild<QLabel *>(QStringLiteral("lblDetailsTotal"));
    QPushButton *ok = box ? box->button(QDialogButtonBox::Ok) : nullptr;
    if (!ok || !progress || !errorText || !detailsButton || !detailsList || !detailsTotal) {
        std::fprintf(stderr, "bench_uninstallwindow: the window lacks a widget it should have\n");
        return 1;
    }
    const char *const pressed = options.details ? "Show Details" : "Uninstall";

    // Ticks of a 1 ms timer: the gaps between them are the event loop's. Each gap is kept
    // with the time it ended, counted from the press of the button.
    QEventLoop loop;
    qint64 totalShownNs = -1;
    std::vector<std::pair<qint64, qint64>> gapsNs;
    gapsNs.reserve(1 << 20);
    QElapsedTimer run;
    QElapsedTimer tick;
    QTimer ticker;
    ticker.setTimerType(Qt::PreciseTimer);
    ticker.setInterval(1);
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        gapsNs.emplace_back(tick.nsecsElapsed(), run.nsecsElapsed());
        tick.restart();
        // The total is shown once every size has arrived.
        if (options.details && totalShownNs < 0
            && detailsTotal->text().endsWith(QLatin1String(" will be freed"))) {
            totalShownNs = run.nsecsElapsed();
            loop.quit();
        }
    });

    // The data step starts at 50 %, the removal at 80 %.
    qint64 dataStartNs = -1;
    qint64 dataEndNs = -1;
    QObject::connect(progress, &QProgressBar::valueChanged, [&](int value) {
        if (value == 50)
            dataStartNs = run.nsecsElapsed();
        else if (value == 80)
            dataEndNs = run.nsecsElapsed();
    });

    // The first show, activation and paint of the window are not the run's: let them
    // pass before the button is pressed.
    QEventLoop settle;
    QTimer::singleShot(500, &settle, &QEventLoop::quit);
    settle.exec();

    QObject::connect(&window, &CMainWindow::runFinished, &loop, &QEventLoop::quit);
    QTimer::singleShot(0, [&] {
        run.start();
        tick.start();
        ticker.start();
        (options.details ? static_cast<QAbstractButton *>(detailsButton) : ok)->click();
    });
    QTimer::singleShot(30 * 60 * 1000, &loop, [&loop] { loop.exit(1); });
    const bool finished = loop.exec() == 0;
    const double runSeconds = run.nsecsElapsed() / 1e9;
    ticker.stop();
    gapsNs.emplace_back(tick.nsecsElapsed(), run.nsecsElapsed());

    const bool dataGone = !QFileInfo::exists(QDir::homePath() + QStringLiteral("/.bv2"));
    const QString message
        = errorText->toolTip().isEmpty() ? errorText->text() : errorText->toolTip();
    std::sort(gapsNs.begin(), gapsNs.end());
    const double longestMs = gapsNs.back().first / 1e6;
    const double longestAtS = gapsNs.back().second / 1e9;
    const double p99Ms = gapsNs[std::min(gapsNs.size() - 1, gapsNs.size() * 99 / 100)].first / 1e6;
    const auto over16 = std::count_if(gapsNs.begin(), gapsNs.end(),
        [](const std::pair<qint64, qint64> &gap) { return gap.first > 16 * 1000 * 1000; });

    QTextStream out(stdout);
    out.setRealNumberNotation(QTextStream::FixedNotation);
    out.setRealNumberPrecision(1);
    out << "files in ~" << bulkFolder(options) << "   " << options.files << " (" << options.bytes
        << " B each, in " << options.folders << " folders), written in " << fillSeconds << " s\n";
    bool measured = finished && dataGone;
    if (options.details) {
        // What the list says of the cache, against what was written.
        QString cacheSize;
        for (int row = 0; row < detailsList->topLevelItemCount(); ++row) {
            const QTreeWidgetItem *item = detailsList->topLevelItem(row);
            if (item->text(0) == QStringLiteral("~/Library/Caches/Brisvane"))
                cacheSize = item->text(1);
        }
        const QString written = QLocale(QStringLiteral("en"))
                                    .formattedDataSize(qint64(options.files) * options.bytes, 1,
                                        QLocale::DataSizeSIFormat);
        measured = finished && totalShownNs >= 0 && cacheSize == written;
        out << "details           " << totalShownNs / 1e9 << " s from Show Details to \""
            << detailsTotal->text() << "\", " << detailsList->topLevelItemCount() << " items\n";
        out << "the cache's size  " << cacheSize << " listed, " << written << " written\n";
    } else {
        out << "run               " << runSeconds << " s from Uninstall to runFinished";
        if (dataStartNs >= 0 && dataEndNs >= dataStartNs)
            out << ", of which deleting ~/.bv2 " << (dataEndNs - dataStartNs) / 1e9 << " s";
        out << "\n";
        out << "run ended with    \"" << message << "\"";
        if (message == QStringLiteral("Unable to uninstall Brisvane"))
            out << " (expected: the removal script needs the program inside Brisvane.app;"
                   " the steps before it ran in full)";
        out << "\n~/.bv2 deleted    " << (dataGone ? "yes" : "NO") << "\n";
    }
    out.setRealNumberPrecision(2);
    out << "event loop        longest gap " << longestMs << " ms (target <= " << C_TARGET_MS
        << " ms): " << (longestMs <= C_TARGET_MS ? "met" : "MISSED") << ", ended " << longestAtS
        << " s after " << pressed << "\n";
    out << "                  99th percentile " << p99Ms << " ms, " << gapsNs.size()
        << " ticks of a 1 ms timer, " << over16 << " gaps over 16 ms\n";
    out.flush();

    // Whatever is left (the backups, the configuration on a failed run).
    QDir(QString::fromStdString(sandbox)).removeRecursively();
    return measured ? 0 : 1;
}
