#include "CUninstallActions.h"

#include "uninstallpaths.h"
#include "uninstallsafety.h"

#include "fsapi/fsoperationsapi.h"
#include "system/CProcess.h"
#include "system/mac/CAuthorization.h"
#include "threading/assertions/assertion.h"
#include "threading/exceptions/CException.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QTextStream>

#include <exception>

#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

// These steps were the window's own and their diagnostic lines have always named it;
// support reads the lines by that name, so they keep it.
#undef BV_SOURCE_FILE
#define BV_SOURCE_FILE "src/uninstaller/mac/CMainWindow"

namespace {

QString timeStamp()
{
    return QDateTime::currentDateTime().toString(QStringLiteral("yyyy.MM.dd_hh:mm:ss.zzz"));
}

// Logs one caught exception as two critical lines and owns (deletes) the exception
// objects of our own classes. `function` names the operation in the diagnostic prefix,
// `what` is the text of the first line; `detail` receives the exception's own text.
template<typename Work>
bool guarded(const char *function, const char *what, QString *detail, Work work)
{
    auto failed = [&](const QString &text) {
        getLogMessageTemplate(BV_SOURCE_FILE, function, __LINE__, QtCriticalMsg)
            << "Failed to " << what;
        if (detail)
            *detail = text;
    };
    try {
        return work();
    } catch (CException *e) {
        failed(QString::fromLocal8Bit(e->getExceptionMessage()));
        getLogMessageTemplate(BV_SOURCE_FILE, function, __LINE__, QtCriticalMsg)
            << e->getTypeName() << e->getExceptionMessage();
        delete e;
    } catch (const std::exception &e) {
        failed(QString::fromLocal8Bit(e.what()));
        getLogMessageTemplate(BV_SOURCE_FILE, function, __LINE__, QtCriticalMsg) << e.what();
    } catch (int value) {
        failed(QStringLiteral("catched int: %1").arg(value));
        getLogMessageTemplate(BV_SOURCE_FILE, function, __LINE__, QtCriticalMsg)
            << "catched int:" << value;
    } catch (...) {
        failed(QStringLiteral("Unkown exception."));
        getLogMessageTemplate(BV_SOURCE_FILE, function, __LINE__, QtCriticalMsg)
            << "! Unkown exception.";
    }
    return false;
}

// Removes what a deletion left of `path`, deepest entries first, and `path` itself; the
// first entry that cannot be removed and why, or nothing when all went.
FailureCause removeRemains(const QString &path)
{
    QStringList remains;
    QDirIterator it(path, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
        QDirIterator::Subdirectories);
    while (it.hasNext())
        remains.append(it.next());
    remains.append(path);
    for (auto entry = remains.crbegin(); entry != remains.crend(); ++entry) {
        const QByteArray bytes = QFile::encodeName(*entry);
        struct stat info;
        if (::lstat(bytes.constData(), &info) != 0)
            continue;
        if ((S_ISDIR(info.st_mode) ? ::rmdir(bytes.constData()) : ::unlink(bytes.constData())) != 0)
            return FailureCause::system(*entry, errno);
    }
    return FailureCause();
}

} // namespace

UninstallUser UninstallUser::current()
{
    UninstallUser user;
    user.home = QDir::homePath();
    user.backupDirectory = UninstallPaths::documentsDirectory(user.home);
    return user;
}

QList<qint64> CUninstallActions::findBrisvane(const QString &userName)
{
    QList<qint64> pids;
    CProcess::findProcess(QStringLiteral("Brisvane"), pids, userName, QString());
    return pids;
}

bool CUninstallActions::quitBrisvane(
    const QString &userName, bool everyInstance, QList<qint64> *stopped)
{
    QList<qint64> pids;
    if (!CProcess::findProcess(QStringLiteral("Brisvane"), pids, userName, QString())
        || pids.isEmpty())
        return true;

    // The window stops the first instance only: the product runs once per desktop.
    if (!everyInstance)
        pids = pids.mid(0, 1);
    for (const qint64 pid : qAsConst(pids)) {
        if (!CProcess::stopProcess(pid)) {
            BV_CRITICAL() << "failed to shutdown Brisvane";
            return false;
        }
        if (stopped)
            stopped->append(pid);
    }
    for (const qint64 pid : qAsConst(pids)) {
        if (!CProcess::waitForProcessFinished(pid, 30000))
            return false;
    }
    return true;
}

QString CUninstallActions::backupTarget(const UninstallUser &user, const QString &keyFolder)
{
    return user.backupDirectory + QLatin1Char('/') + QFileInfo(keyFolder).fileName()
        + QLatin1Char('_') + timeStamp();
}

bool CUninstallActions::makeBackupDirectory(const UninstallUser &user, FailureCause *cause)
{
    FailureCause why;
    // Root makes the chosen folder, and in it one for the user, who fills it with the
    // user's own rights; anybody else makes the folder for themselves.
    const QString parent
        = user.uid >= 0 ? QFileInfo(user.backupDirectory).absolutePath() : user.backupDirectory;
    if (!QDir().mkpath(parent)) {
        why = FailureCause::system(parent, errno);
    } else if (user.uid < 0
        || UninstallSafety::makeUserFolder(user.backupDirectory, user.uid, user.gid, &why)) {
        return true;
    }
    BV_CRITICAL() << "could not create" << user.backupDirectory << why.reason();
    if (cause)
        *cause = why;
    return false;
}

CUninstallActions::KeyFolder CUninstallActions::lookAtKeyFolder(
    const QString &path, FailureCause *cause)
{
    // Followed, as the window's check box looks at it: a key folder may be a link to the
    // user's own folder elsewhere. What cannot be looked at with the user's rights is
    // no reason to go on as if it were not there.
    struct stat info;
    if (::stat(QFile::encodeName(path).constData(), &info) == 0)
        return S_ISDIR(info.st_mode) ? KeyFolderPresent : KeyFolderMissing;
    const int savedErrno = errno;
    if (savedErrno == ENOENT || savedErrno == ENOTDIR)
        return KeyFolderMissing;
    BV_CRITICAL() << "cannot look at" << path << FailureCause::system(path, savedErrno).reason();
    if (cause)
        *cause = FailureCause::system(path, savedErrno);
    return KeyFolderUnreadable;
}

bool CUninstallActions::backupDir(
    const QString &source, const QString &target, QString *detail, FailureCause *cause)
{
    FailureCause why;
    QString thrown;
    bool created = false;
    const bool done = guarded("backupDir", "backupDir failed", &thrown, [&] {
        if (lookAtKeyFolder(source, &why) != KeyFolderPresent)
            return why.isEmpty();
        // Folders, files and links as they are; the copy belongs to whoever runs this
        // thread, which for another user is that user.
        if (!UninstallSafety::copyTree(source, target, &why, &created)) {
            getLogMessageTemplate(BV_SOURCE_FILE, "backupDir", __LINE__, QtCriticalMsg)
                << "could not copy" << why.entry << why.reason();
            return false;
        }
        // A copy that reports success can still have lost a file on the way; the key
        // folders are deleted right after this, so only a checked copy counts.
        if (!UninstallSafety::verifyCopy(source, target)) {
            why.entry = target;
            why.ownReason = FailureCause::C_COPY_DIFFERS;
            return false;
        }
        return true;
    });
    if (done)
        return true;
    if (why.isEmpty())
        why = FailureCause::fromExceptionText(thrown, source);
    QString text = why.isEmpty() ? thrown : why.text();
    // Nothing may look like a backup that is not one. Only what this call made goes.
    if (created) {
        QString leftover;
        if (deleteDir(target, &leftover))
            text += QStringLiteral("; the incomplete copy %1 was removed").arg(target);
        else
            text += QStringLiteral("; the incomplete copy %1 could not be removed: %2")
                        .arg(target, leftover);
    }
    if (detail)
        *detail = text;
    if (cause)
        *cause = why;
    return false;
}

bool CUninstallActions::deleteDir(const QString &path, QString *detail, FailureCause *cause)
{
    FailureCause why;
    QString thrown;
    const bool done = guarded("deleteDir", "deleteData failed", &thrown, [&] {
        CFSOperations fs;
        // A link where the folder should be goes as a link; what it points to is not ours.
        if (QFileInfo(path).isSymbolicLink())
            return fs.deleteFile(path, true);
        if (!fs.directoryExists(path))
            return true;
        if (fs.deleteDirectory(path, true))
            return true;
        // The walk reports only its last entry, and a folder it could not remove only
        // as a folder that is not empty: a second pass over what stays names the entry.
        why = removeRemains(path);
        if (why.isEmpty())
            return true;
        getLogMessageTemplate(BV_SOURCE_FILE, "deleteDir", __LINE__, QtCriticalMsg)
            << "Failed to delete" << path << why.reason();
        return false;
    });
    if (done)
        return true;
    if (why.isEmpty())
        why = FailureCause::fromExceptionText(thrown, path);
    if (detail)
        *detail = why.isEmpty() ? thrown : why.text();
    if (cause)
        *cause = why;
    return false;
}

bool CUninstallActions::deleteEntry(const QString &path, QString *detail, FailureCause *cause)
{
    const QFileInfo info(path);
    if (info.isDir() && !info.isSymLink())
        return deleteDir(path, detail, cause);
    if (::unlink(QFile::encodeName(path).constData()) == 0 || errno == ENOENT)
        return true;
    const FailureCause why = FailureCause::system(path, errno);
    getLogMessageTemplate(BV_SOURCE_FILE, "deleteDir", __LINE__, QtCriticalMsg)
        << "Failed to delete" << path << why.reason();
    if (detail)
        *detail = why.text();
    if (cause)
        *cause = why;
    return false;
}

void CUninstallActions::bootOut(qint64 uid, const QString &plist)
{
    QProcess launchctl;
    launchctl.setProcessChannelMode(QProcess::MergedChannels);
    launchctl.start(QStringLiteral("launchctl"),
        {QStringLiteral("bootout"), QStringLiteral("gui/%1").arg(uid), plist});
    if (launchctl.waitForStarted() && launchctl.waitForFinished(30000)
        && launchctl.exitStatus() == QProcess::NormalExit && launchctl.exitCode() == 0)
        return;
    BV_WARNING() << "could not unload" << plist
                 << QString::fromLocal8Bit(launchctl.readAll()).trimmed();
}

QString CUninstallActions::installationDirectory()
{
    const QDir bundle(QCoreApplication::applicationDirPath() + QStringLiteral("/../../"));
    const QString bundlePath = QDir::cleanPath(bundle.absolutePath());
    if (!bundlePath.endsWith(QStringLiteral("/Brisvane.app"), Qt::CaseSensitive)) {
        getLogMessageTemplate(BV_SOURCE_FILE, "removeAppBundle", __LINE__, QtCriticalMsg)
            << "unable to figure out the installation path";
        return QString();
    }

    // A product folder goes whole only when it holds nothing but the bundle; anything
    // else the user keeps there survives.
    QDir parent(bundlePath);
    const bool wentUp = parent.cdUp();
    const bool holdsBundle = parent.exists(QStringLiteral("Brisvane.app"));
    const uint entries = parent.count();
    if (wentUp && parent.dirName() == QStringLiteral("Brisvane") && holdsBundle && entries <= 3)
        return QDir::cleanPath(parent.absolutePath());
    getLogMessageTemplate(BV_SOURCE_FILE, "removeAppBundle", __LINE__, QtDebugMsg)
        << parent.dirName() << entries << (holdsBundle ? "true" : "false");
    return bundlePath;
}

bool CUninstallActions::removeAppBundle(
    CAuthorization &authorization, const QString &installation, QString *output)
{
    // Only a bundle of the wrong name has none; the path itself is never empty.
    if (installation.isEmpty())
        return false;
    QString installDir = installation;

    BV_DEBUG() << "will now delete" << installDir;
    if (installDir.endsWith(QLatin1Char('/')))
        installDir.chop(1);

    // The script runs as root: the path goes in escaped, so that no folder name can
    // leave the double quotes it stands in or run a command of its own.
    const QString scriptTemplate
        = getResourceAsText(QStringLiteral(":/scripts/scripts/uninstall.sh"));
    if (scriptTemplate.isEmpty())
        return false;
    const QString script = scriptTemplate.arg(UninstallSafety::escapeForDoubleQuotes(installDir));

    const QString rightName = CAuthorization::getRightNameSpace(QStringLiteral("admin"));
    QString printed;
    const bool ran = authorization.authorizeAsAdmin(rightName)
        && authorization.shellExecuteWithPrivileges(script, printed);
    if (output)
        *output = printed.trimmed();
    if (!ran)
        return false;

    // The script always exits with 0; its last line is the status of the removal.
    return printed.trimmed().endsWith(QLatin1Char('0'));
}

bool CUninstallActions::removeMachineLeftovers(CAuthorization &authorization,
    const QStringList &paths, const QStringList &receipts, QString *output)
{
    if (paths.isEmpty() && receipts.isEmpty())
        return true;
    // Each word stands in double quotes, escaped as the installation path is.
    auto words = [](const QStringList &list) {
        QStringList quoted;
        for (const QString &word : list)
            quoted << QLatin1Char('"') + UninstallSafety::escapeForDoubleQuotes(word)
                    + QLatin1Char('"');
        return quoted.join(QLatin1Char(' '));
    };
    const QString scriptTemplate
        = getResourceAsText(QStringLiteral(":/scripts/scripts/uninstall-leftovers.sh"));
    if (scriptTemplate.isEmpty())
        return false;
    BV_DEBUG() << "will now delete" << paths << "and forget" << receipts;
    const QString script = scriptTemplate.arg(words(paths), words(receipts));
    QString printed;
    const bool ran = authorization.shellExecuteWithPrivileges(script, printed);
    if (output)
        *output = printed.trimmed();
    return ran && printed.trimmed().endsWith(QLatin1Char('0'));
}

QString CUninstallActions::getResourceAsText(const QString &resourcePath)
{
    if (!resourcePath.startsWith(QStringLiteral(":/"), Qt::CaseSensitive))
        bvThrowAssert("resourcePath.startsWith(\":/\")", BV_SOURCE_FILE, __LINE__);

    QFile res(resourcePath);
    if (!res.open(QIODevice::ReadOnly | QIODevice::Text)) {
        bvPrintAssert("res", BV_SOURCE_FILE, __LINE__);
        return QString();
    }
    QTextStream stream(&res);
    const QString content = stream.readAll();
    if (content.isEmpty()) {
        bvPrintAssert("!content.isEmpty()", BV_SOURCE_FILE, __LINE__);
        return QString();
    }
    return content;
}

bool CUninstallActions::executeAppleScript(const QString &script)
{
    BV_ASSERT_THROW(!script.isEmpty());

    BV_DEBUG() << "osascript -e" << script;
    QProcess process;
    process.start(QStringLiteral("osascript"), {QStringLiteral("-e"), script});
    // Where there is no osascript the start fails and the exit code means nothing.
    if (!process.waitForStarted() || !process.waitForFinished(-1))
        return false;
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}
