// The steps of an uninstall run: stop the product, back up the key folders, delete the
// per-user folders and hand the installation to the privileged removal script.

#include "CMainWindow.h"

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
#include <QFile>
#include <QProcess>
#include <QTextStream>

#include <exception>

#undef BV_SOURCE_FILE
#define BV_SOURCE_FILE "src/uninstaller/mac/CMainWindow"

namespace {

QString timeStamp()
{
    return QDateTime::currentDateTime().toString(QStringLiteral("yyyy.MM.dd_hh:mm:ss.zzz"));
}

// Logs one caught exception as two critical lines and owns (deletes) the exception
// objects of our own classes. `function` names the operation in the diagnostic prefix,
// `what` is the text of the first line.
template<typename Work> bool guarded(const char *function, const char *what, Work work)
{
    try {
        return work();
    } catch (CException *e) {
        getLogMessageTemplate(BV_SOURCE_FILE, function, __LINE__, QtCriticalMsg)
            << "Failed to " << what;
        getLogMessageTemplate(BV_SOURCE_FILE, function, __LINE__, QtCriticalMsg)
            << e->getTypeName() << e->getExceptionMessage();
        delete e;
    } catch (const std::exception &e) {
        getLogMessageTemplate(BV_SOURCE_FILE, function, __LINE__, QtCriticalMsg)
            << "Failed to " << what;
        getLogMessageTemplate(BV_SOURCE_FILE, function, __LINE__, QtCriticalMsg) << e.what();
    } catch (int value) {
        getLogMessageTemplate(BV_SOURCE_FILE, function, __LINE__, QtCriticalMsg)
            << "Failed to " << what;
        getLogMessageTemplate(BV_SOURCE_FILE, function, __LINE__, QtCriticalMsg)
            << "catched int:" << value;
    } catch (...) {
        getLogMessageTemplate(BV_SOURCE_FILE, function, __LINE__, QtCriticalMsg)
            << "Failed to " << what;
        getLogMessageTemplate(BV_SOURCE_FILE, function, __LINE__, QtCriticalMsg)
            << "! Unkown exception.";
    }
    return false;
}

} // namespace

bool CMainWindow::quitBrisvane()
{
    QList<qint64> pids;
    if (!CProcess::findProcess(QStringLiteral("Brisvane"), pids, QString(), QString())
        || pids.isEmpty())
        return true;

    // Only the first instance is stopped: the product runs once per machine.
    const qint64 pid = pids.first();
    if (!CProcess::stopProcess(pid)) {
        BV_CRITICAL() << "failed to shutdown Brisvane";
        return false;
    }
    return CProcess::waitForProcessFinished(pid, 30000);
}

bool CMainWindow::backup()
{
    if (!m_Ui.ckbxKeysBackupCheck->isChecked())
        return true;

    const QString documents = UninstallPaths::documentsDirectory();
    if (!backupDir(UninstallPaths::keyFolder1(), documents + QStringLiteral("/pss_") + timeStamp()))
        return false;
    return backupDir(UninstallPaths::keyFolder2(),
        documents + QStringLiteral("/server_access_keys_") + timeStamp());
}

bool CMainWindow::backupDir(const QString &source, const QString &target)
{
    return guarded("backupDir", "backupDir failed", [&] {
        CFSOperations fs;
        if (!fs.directoryExists(source))
            return true;
        if (!fs.copyDirectory(source, target))
            return false;
        // A copy that reports success can still have lost a file on the way; the key
        // folders are deleted right after this, so only a checked copy counts.
        return UninstallSafety::verifyCopy(source, target);
    });
}

bool CMainWindow::deleteDir(const QString &path)
{
    return guarded("deleteDir", "deleteData failed", [&] {
        CFSOperations fs;
        if (!fs.directoryExists(path))
            return true;
        return fs.deleteDirectory(path, true);
    });
}

bool CMainWindow::removeAppBundle()
{
    const QDir bundle(QCoreApplication::applicationDirPath() + QStringLiteral("/../../"));
    const QString bundlePath = QDir::cleanPath(bundle.absolutePath());
    if (!bundlePath.endsWith(QStringLiteral("/Brisvane.app"), Qt::CaseSensitive)) {
        BV_CRITICAL() << "unable to figure out the installation path";
        return false;
    }

    // A product folder goes whole only when it holds nothing but the bundle; anything
    // else the user keeps there survives.
    QDir parent(bundlePath);
    const bool wentUp = parent.cdUp();
    const bool holdsBundle = parent.exists(QStringLiteral("Brisvane.app"));
    const uint entries = parent.count();
    QString installDir;
    if (wentUp && parent.dirName() == QStringLiteral("Brisvane") && holdsBundle && entries <= 3) {
        installDir = QDir::cleanPath(parent.absolutePath());
    } else {
        BV_DEBUG() << parent.dirName() << entries << (holdsBundle ? "true" : "false");
        installDir = bundlePath;
    }
    if (installDir.isEmpty()) {
        bvPrintAssert("installDir.length()", BV_SOURCE_FILE, __LINE__);
        return false;
    }

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

    CAuthorization authorization;
    const QString rightName = CAuthorization::getRightNameSpace(QStringLiteral("admin"));
    QString output;
    if (!authorization.authorizeAsAdmin(rightName)
        || !authorization.shellExecuteWithPrivileges(script, output))
        return false;

    // The script always exits with 0; its last line is the status of the removal.
    return output.trimmed().endsWith(QLatin1Char('0'));
}

QString CMainWindow::getResourceAsText(const QString &resourcePath) const
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

bool CMainWindow::executeAppleScript(const QString &script) const
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
