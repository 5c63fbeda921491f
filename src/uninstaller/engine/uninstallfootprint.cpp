#include "uninstallfootprint.h"

#include "threading/assertions/assertion.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace UninstallFootprint {

namespace {

const char C_PREFIX[] = "com.brisvane.";
const char C_PLIST[] = ".plist";

// Adds the bytes of the folder open as `fd` (which this closes) to `total`.
void addFolder(int fd, qint64 &total, const std::atomic_bool *stop)
{
    DIR *folder = ::fdopendir(fd);
    if (!folder) {
        ::close(fd);
        return;
    }
    while (const dirent *entry = ::readdir(folder)) {
        if (stop && stop->load(std::memory_order_relaxed))
            break;
        const char *name = entry->d_name;
        if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))
            continue;
        struct stat info;
        if (::fstatat(::dirfd(folder), name, &info, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        if (!S_ISDIR(info.st_mode)) {
            total += info.st_size;
            continue;
        }
        const int child = ::openat(
            ::dirfd(folder), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (child >= 0)
            addFolder(child, total, stop);
    }
    ::closedir(folder);
}

QList<Item> find(bool inHome, const QString &base, const QList<Part> &parts)
{
    QList<Item> found;
    for (const Entry &entry : entries()) {
        if (entry.inHome != inHome || (!parts.isEmpty() && !parts.contains(entry.part)))
            continue;
        QString folder = base;
        if (*entry.folder)
            folder += QLatin1Char('/') + QLatin1String(entry.folder);
        QStringList names;
        if (!entry.suffix) {
            names << QLatin1String(entry.name);
        } else {
            // No name filter of QDir: its wildcards fold case on some systems.
            names = QDir(folder).entryList(
                QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                QDir::Name);
        }
        for (const QString &name : qAsConst(names)) {
            const QString path = folder + QLatin1Char('/') + name;
            const QFileInfo info(path);
            if (!matches(entry, name) || (!info.exists() && !info.isSymLink()))
                continue;
            if (entry.keepsOwnLog && info.isDir() && !info.isSymLink()) {
                // The folder stays for the log; everything else in it goes.
                const QStringList inside = QDir(path).entryList(
                    QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDir::Name);
                for (const QString &child : inside) {
                    if (!isOwnLog(child))
                        found.append({path + QLatin1Char('/') + child, entry.part, false});
                }
                continue;
            }
            found.append({path, entry.part, entry.launchAgent});
        }
    }
    return found;
}

} // namespace

const QList<Entry> &entries()
{
    // clang-format off
    static const QList<Entry> table {
        // in home, folder,                           name,                               suffix,  part,              agent, log
        {true,  ".config",                            "Brisvane",                         nullptr, PartConfiguration, false, false},
        {true,  "",                                   ".bv2",                             nullptr, PartData,          false, false},
        {true,  "Library/Preferences",                C_PREFIX,                           C_PLIST, PartLeftovers,     false, false},
        {true,  "Library/Caches",                     "com.brisvane.Brisvane",            nullptr, PartLeftovers,     false, false},
        {true,  "Library/Caches",                     "Brisvane",                         nullptr, PartLeftovers,     false, false},
        {true,  "Library/Application Support",        "Brisvane",                         nullptr, PartLeftovers,     false, false},
        {true,  "Library/Saved Application State",    "com.brisvane.Brisvane.savedState", nullptr, PartLeftovers,     false, false},
        {true,  "Library/HTTPStorages",               "com.brisvane.Brisvane",            nullptr, PartLeftovers,     false, false},
        {true,  "Library/WebKit",                     "com.brisvane.Brisvane",            nullptr, PartLeftovers,     false, false},
        {true,  "Library/LaunchAgents",               C_PREFIX,                           C_PLIST, PartLeftovers,     true,  false},
        {true,  "Library/Logs",                       "Brisvane",                         nullptr, PartLeftovers,     false, true},
        {false, "LaunchDaemons",                      "com.brisvane.fseventsdaemon.plist", nullptr, PartInstallation, false, false},
        {false, "LaunchDaemons",                      "FSEventsDeamon.plist",             nullptr, PartInstallation,  false, false},
        {false, "Application Support",                "Brisvane",                         nullptr, PartInstallation,  false, false},
        {false, "LaunchAgents",                       C_PREFIX,                           C_PLIST, PartMachine,       false, false},
        {false, "PrivilegedHelperTools",              C_PREFIX,                           "",      PartMachine,       false, false},
        {false, "Preferences",                        C_PREFIX,                           C_PLIST, PartMachine,       false, false},
    };
    // clang-format on
    return table;
}

bool matches(const Entry &entry, const QString &fileName)
{
    const QLatin1String name(entry.name);
    if (!entry.suffix)
        return fileName == name;
    const QLatin1String suffix(entry.suffix);
    // Something must stand between the prefix and the ending: "com.brisvane..plist" and
    // "com.brisvane." are nobody's names.
    return fileName.size() > name.size() + suffix.size()
        && fileName.startsWith(name, Qt::CaseSensitive)
        && fileName.endsWith(suffix, Qt::CaseSensitive);
}

QList<Item> inHome(const QString &home, const QList<Part> &parts)
{
    return find(true, home, parts);
}

QList<Item> onMachine(const QString &library, const QList<Part> &parts)
{
    return library.isEmpty() ? QList<Item>() : find(false, library, parts);
}

QString machineLibrary()
{
#ifdef Q_OS_MACOS
    return QStringLiteral("/Library");
#else
    // <Applications>/Brisvane/Brisvane.app/Contents/MacOS/UnInstallerMac
    QDir bundle(QCoreApplication::applicationDirPath() + QStringLiteral("/../.."));
    if (QDir::cleanPath(bundle.absolutePath()).section(QLatin1Char('/'), -1)
        != QStringLiteral("Brisvane.app"))
        return QString();
    bundle.cdUp();
    if (bundle.dirName() == QStringLiteral("Brisvane"))
        bundle.cdUp();
    return QDir::cleanPath(bundle.absolutePath() + QStringLiteral("/../Library"));
#endif
}

QStringList receipts(const std::atomic_bool *stop)
{
    QProcess pkgutil;
    pkgutil.start(QStringLiteral("pkgutil"), {QStringLiteral("--pkgs")});
    if (!pkgutil.waitForStarted())
        return QStringList();
    // A window that no longer wants the answer must not wait for it.
    QElapsedTimer waited;
    waited.start();
    while (pkgutil.state() != QProcess::NotRunning && !pkgutil.waitForFinished(100)) {
        if ((stop && stop->load()) || waited.hasExpired(30000)) {
            pkgutil.kill();
            pkgutil.waitForFinished();
            if (!stop || !stop->load())
                BV_WARNING() << "pkgutil --pkgs gave no answer in 30 s: receipts not looked at";
            return QStringList();
        }
    }
    QStringList ours;
    const QList<QByteArray> lines = pkgutil.readAllStandardOutput().split('\n');
    for (const QByteArray &line : lines) {
        const QString id = QString::fromUtf8(line.trimmed());
        if (id.size() > int(sizeof C_PREFIX) - 1 && id.startsWith(QLatin1String(C_PREFIX)))
            ours.append(id);
    }
    return ours;
}

qint64 size(const QString &path, const std::atomic_bool *stop)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat info;
    if (::lstat(name.constData(), &info) != 0)
        return 0;
    if (!S_ISDIR(info.st_mode))
        return info.st_size;
    qint64 total = 0;
    const int fd = ::open(name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd >= 0)
        addFolder(fd, total, stop);
    return total;
}

bool isOwnLog(const QString &fileName)
{
    return fileName == QStringLiteral("Uninstaller.log")
        || fileName == QStringLiteral("Uninstaller.lock");
}

} // namespace UninstallFootprint
