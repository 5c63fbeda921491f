#include "CUninstallRun.h"

#include "supportlog.h"
#include "uninstallfootprint.h"
#include "uninstallpaths.h"

#include "system/CActAsUser.h"
#include "system/mac/CAuthorization.h"
#include "threading/assertions/assertion.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLockFile>

#include <memory>

#include <unistd.h>

namespace {

// The window shows these, translated in its own context; the command line reports them
// as they stand.
const char *const C_FAILURE_MESSAGES[] = {
    QT_TRANSLATE_NOOP("CMainWindow", "Unable to quit Brisvane."),
    QT_TRANSLATE_NOOP("CMainWindow", "Unable to backup key files"),
    QT_TRANSLATE_NOOP("CMainWindow", "Failed to delete %1.\nPlease delete by yourself."),
    QT_TRANSLATE_NOOP("CMainWindow", "Failed to delete %1.\nPlease delete by yourself."),
    QT_TRANSLATE_NOOP("CMainWindow", "Unable to uninstall Brisvane"),
    QT_TRANSLATE_NOOP("CMainWindow", "Failed to delete %1.\nPlease delete by yourself."),
};

const char C_BUSY_MESSAGE[] = QT_TRANSLATE_NOOP("CMainWindow", "Another uninstall is running.");

// The execute right of Authorization Services; over polkit, acquiring it starts the
// privileged shell, which then waits for the script.
const char C_EXECUTE_RIGHT[] = "system.privilege.admin";

// A link where a folder is expected is something to delete as well (as a link).
bool exists(const QString &path)
{
    return QFileInfo::exists(path) || QFileInfo(path).isSymLink();
}

} // namespace

CUninstallRun::CUninstallRun(const Options &options, const Observer &observer)
    : m_Options(options)
    , m_Observer(observer)
{ }

bool CUninstallRun::run()
{
    m_Records.clear();
    m_Failed = false;
    m_Busy = false;
    m_FailedCause = FailureCause();
    m_Remaining.clear();
    // Found from where the program runs, which the removal deletes: looked up once.
    m_MachineLibrary = UninstallFootprint::machineLibrary();

    if (m_Options.dryRun) {
        // Every step is looked at, whatever an earlier one would have found.
        quit();
        for (const UninstallUser &user : qAsConst(m_Options.users))
            forUser(user);
        removeInstallation(nullptr);
        return !m_Failed;
    }

    // One run at a time: a second one would stop, copy and delete under the first.
    std::unique_ptr<QLockFile> lock;
    if (!m_Options.lockFile.isEmpty()) {
        QDir().mkpath(QFileInfo(m_Options.lockFile).absolutePath());
        lock = std::make_unique<QLockFile>(m_Options.lockFile);
        // A run may take long (a stubborn product, a large tree); only a lock whose
        // process has gone is stale.
        lock->setStaleLockTime(0);
        if (!lock->tryLock(0)) {
            if (lock->error() == QLockFile::LockFailedError) {
                BV_WARNING() << "another uninstall is running:" << m_Options.lockFile;
                m_Failed = true;
                m_Busy = true;
                return false;
            }
            BV_WARNING() << "cannot take the lock" << m_Options.lockFile << "going on without it";
        }
    }

    CAuthorization authorization;
    if (!obtainRights(authorization))
        return false;
    if (!quit())
        return false;
    for (const UninstallUser &user : qAsConst(m_Options.users)) {
        if (!forUser(user))
            return false;
    }
    if (!removeInstallation(&authorization))
        return false;
    lookForRemains();
    return true;
}

bool CUninstallRun::forUser(const UninstallUser &user)
{
    // The backup folder root chooses is made with root's rights, before the user's are
    // taken, and only when there is something to put there.
    if (m_Options.backup && user.createBackupDirectory && !m_Options.dryRun
        && existingKeyFolders(user) > 0) {
        FailureCause cause;
        if (!CUninstallActions::makeBackupDirectory(user, &cause)) {
            starting(StepBackup, user);
            Record step = userRecord(StepBackup, user, UninstallPaths::keyFolder1(user.home));
            step.result = ResultFailed;
            step.cause = cause;
            step.detail = QStringLiteral("could not create %1").arg(cause.text());
            record(step);
            return fail(step);
        }
    }

    // Everything in the user's home and backup folder happens with the user's rights:
    // the kernel refuses what the user could not do, and nothing retries as root.
    const CActAsUser rights(user.uid, user.gid, user.name);
    if (!rights.isValid()) {
        starting(StepBackup, user);
        Record step = userRecord(StepBackup, user, UninstallPaths::keyFolder1(user.home));
        step.result = ResultFailed;
        step.detail = rights.errorString();
        BV_CRITICAL() << step.detail;
        record(step);
        return fail(step);
    }
    // A dry run looks at every step, whatever an earlier one found.
    bool done = backup(user);
    if (done || m_Options.dryRun)
        done = deleteFolder(StepDeleteConfiguration, user,
                   UninstallPaths::configurationDirectory(user.home))
            && done;
    if (done || m_Options.dryRun)
        done = deleteFolder(StepDeleteData, user, UninstallPaths::dataDirectory(user.home)) && done;
    if (done || m_Options.dryRun)
        done = deleteLeftovers(user) && done;
    return done;
}

int CUninstallRun::existingKeyFolders(const UninstallUser &user) const
{
    const CActAsUser rights(user.uid, user.gid, user.name);
    int count = 0;
    for (const QString &keyFolder :
        {UninstallPaths::keyFolder1(user.home), UninstallPaths::keyFolder2(user.home)}) {
        if (!rights.isValid()
            || CUninstallActions::lookAtKeyFolder(keyFolder) == CUninstallActions::KeyFolderPresent)
            ++count;
    }
    return count;
}

CUninstallRun::Record CUninstallRun::userRecord(
    Step step, const UninstallUser &user, const QString &path) const
{
    Record made;
    made.step = step;
    made.user = user.name;
    made.path = path;
    return made;
}

bool CUninstallRun::obtainRights(CAuthorization &authorization)
{
    if (authorization.authorizeAsAdmin(CAuthorization::getRightNameSpace(QStringLiteral("admin")))
        && authorization.acquireRight(QLatin1String(C_EXECUTE_RIGHT)))
        return true;
    // Nothing was attempted; the removal is the step that could not be done.
    QList<Record> steps = plan();
    Record refused = steps.takeLast();
    for (Record &step : steps) {
        step.result = ResultSkipped;
        record(step);
    }
    refused.result = ResultFailed;
    refused.detail = QStringLiteral("administrator rights were not granted");
    record(refused);
    m_Failed = true;
    m_FailedStep = StepRemoveInstallation;
    m_FailedPath.clear();
    m_FailedCause = FailureCause();
    return false;
}

bool CUninstallRun::quit()
{
    starting(StepQuit, UninstallUser());
    for (const QString &owner : qAsConst(m_Options.quitUsers)) {
        Record step;
        step.step = StepQuit;
        step.user = owner;
        if (m_Options.dryRun) {
            QList<qint64> running = CUninstallActions::findBrisvane(owner);
            if (!m_Options.everyInstance)
                running = running.mid(0, 1);
            QStringList ids;
            for (const qint64 pid : running)
                ids << QString::number(pid);
            step.result = running.isEmpty() ? ResultNothingToDo : ResultPlanned;
            step.detail = ids.join(QLatin1Char(' '));
            record(step);
            continue;
        }
        QList<qint64> stopped;
        const bool done = CUninstallActions::quitBrisvane(owner, m_Options.everyInstance, &stopped);
        QStringList ids;
        for (const qint64 pid : qAsConst(stopped))
            ids << QString::number(pid);
        step.detail = ids.join(QLatin1Char(' '));
        step.result = !done ? ResultFailed : stopped.isEmpty() ? ResultNothingToDo : ResultDone;
        record(step);
        if (!done)
            return fail(step);
    }
    return true;
}

bool CUninstallRun::backup(const UninstallUser &user)
{
    starting(StepBackup, user);
    for (const QString &keyFolder :
        {UninstallPaths::keyFolder1(user.home), UninstallPaths::keyFolder2(user.home)}) {
        Record step = userRecord(StepBackup, user, keyFolder);
        const CUninstallActions::KeyFolder found = m_Options.backup
            ? CUninstallActions::lookAtKeyFolder(keyFolder, &step.cause)
            : CUninstallActions::KeyFolderMissing;
        if (found == CUninstallActions::KeyFolderMissing) {
            step.result = ResultNothingToDo;
            if (!m_Options.backup)
                step.detail = QStringLiteral("no backup wanted");
            record(step);
            continue;
        }
        if (found == CUninstallActions::KeyFolderPresent)
            step.target = CUninstallActions::backupTarget(user, keyFolder);
        if (found == CUninstallActions::KeyFolderUnreadable) {
            step.result = ResultFailed;
            step.detail = QStringLiteral("cannot look at %1").arg(step.cause.text());
        } else if (m_Options.dryRun) {
            step.result = ResultPlanned;
        } else {
            step.result = CUninstallActions::backupDir(
                              keyFolder, step.target, &step.detail, &step.cause)
                ? ResultDone
                : ResultFailed;
        }
        record(step);
        if (step.result == ResultFailed)
            return fail(step);
    }
    return true;
}

bool CUninstallRun::deleteFolder(Step stepKind, const UninstallUser &user, const QString &path)
{
    starting(stepKind, user);
    Record step = userRecord(stepKind, user, path);
    if (!exists(path)) {
        step.result = ResultNothingToDo;
        record(step);
        return true;
    }
    step.items << path;
    const qint64 bytes = UninstallFootprint::size(path);
    if (m_Options.dryRun) {
        step.result = ResultPlanned;
        step.bytes = bytes;
        record(step);
        return true;
    }
    const bool done = CUninstallActions::deleteDir(path, &step.detail, &step.cause);
    step.result = done ? ResultDone : ResultFailed;
    step.bytes = done ? bytes : 0;
    record(step);
    return done || fail(step);
}

bool CUninstallRun::deleteLeftovers(const UninstallUser &user)
{
    starting(StepDeleteLeftovers, user);
    Record step = userRecord(StepDeleteLeftovers, user, user.home + QStringLiteral("/Library"));
    const QList<UninstallFootprint::Item> found
        = UninstallFootprint::inHome(user.home, {UninstallFootprint::PartLeftovers});
    for (const UninstallFootprint::Item &item : found)
        step.items << item.path;
    if (found.isEmpty() || m_Options.dryRun) {
        for (const UninstallFootprint::Item &item : found)
            step.bytes += UninstallFootprint::size(item.path);
        step.result = found.isEmpty() ? ResultNothingToDo : ResultPlanned;
        record(step);
        return true;
    }
    const qint64 uid = user.uid >= 0 ? user.uid : qint64(::getuid());
    for (const UninstallFootprint::Item &item : found) {
        const qint64 bytes = UninstallFootprint::size(item.path);
        // A loaded agent would be started again, or keep its program running.
        if (item.launchAgent)
            CUninstallActions::bootOut(uid, item.path);
        if (!CUninstallActions::deleteEntry(item.path, &step.detail, &step.cause)) {
            step.result = ResultFailed;
            step.path = item.path;
            record(step);
            return fail(step);
        }
        step.bytes += bytes;
    }
    step.result = ResultDone;
    record(step);
    return true;
}

bool CUninstallRun::removeInstallation(CAuthorization *authorization)
{
    starting(StepRemoveInstallation, UninstallUser());
    Record step;
    step.step = StepRemoveInstallation;
    // The removal script takes the installation and the daemon; a second script the
    // rest outside the homes, then the receipts.
    const QString installation = CUninstallActions::installationDirectory();
    step.path = installation;
    QStringList machine;
    if (!installation.isEmpty()) {
        step.items << installation;
        step.bytes += UninstallFootprint::size(installation);
    }
    for (const UninstallFootprint::Item &item :
        UninstallFootprint::onMachine(m_MachineLibrary)) {
        step.items << item.path;
        step.bytes += UninstallFootprint::size(item.path);
        if (item.part == UninstallFootprint::PartMachine)
            machine << item.path;
    }
    step.receipts = UninstallFootprint::receipts();
    if (m_Options.dryRun) {
        step.result = installation.isEmpty() ? ResultFailed : ResultPlanned;
        if (installation.isEmpty())
            step.detail = QStringLiteral("not run from inside Brisvane.app");
        record(step);
        return installation.isEmpty() ? fail(step) : true;
    }
    // Not run from inside the bundle (said once, above): removeAppBundle refuses.
    QString leftovers;
    const bool done = CUninstallActions::removeAppBundle(*authorization, installation, &step.detail)
        && CUninstallActions::removeMachineLeftovers(
            *authorization, machine, step.receipts, &leftovers);
    if (!leftovers.isEmpty())
        step.detail += QLatin1Char('\n') + leftovers;
    step.result = done ? ResultDone : ResultFailed;
    if (!done)
        step.bytes = 0;
    record(step);
    if (done)
        return true;
    step.path.clear(); // the message names no folder
    return fail(step);
}

void CUninstallRun::lookForRemains()
{
    // Every entry of the footprint again, each home with its user's rights.
    for (const UninstallUser &user : qAsConst(m_Options.users)) {
        const CActAsUser rights(user.uid, user.gid, user.name);
        if (!rights.isValid())
            continue;
        for (const UninstallFootprint::Item &item : UninstallFootprint::inHome(user.home))
            m_Remaining << item.path;
    }
    for (const UninstallFootprint::Item &item :
        UninstallFootprint::onMachine(m_MachineLibrary))
        m_Remaining << item.path;
    const QString installation = m_Records.isEmpty() ? QString() : m_Records.constLast().path;
    if (!installation.isEmpty() && exists(installation))
        m_Remaining << installation;
    m_Remaining << UninstallFootprint::receipts();
    for (const QString &left : qAsConst(m_Remaining))
        BV_WARNING() << "still there after the uninstall:" << left;
}

qint64 CUninstallRun::bytesFreed() const
{
    qint64 total = 0;
    for (const Record &made : m_Records)
        total += made.bytes;
    return total;
}

void CUninstallRun::starting(Step step, const UninstallUser &user)
{
    if (m_Observer.stepStarting)
        m_Observer.stepStarting(step, user);
}

void CUninstallRun::record(const Record &made)
{
    m_Records.append(made);
    if (m_Observer.recorded)
        m_Observer.recorded(made);
}

bool CUninstallRun::fail(const Record &failed)
{
    if (!m_Failed) {
        m_Failed = true;
        m_FailedStep = failed.step;
        m_FailedPath = failed.path;
        m_FailedCause = failed.cause;
    }
    if (!m_Options.dryRun)
        skipRest();
    return false;
}

QList<CUninstallRun::Record> CUninstallRun::plan() const
{
    QList<Record> steps;
    auto add = [&steps](Step step, const QString &user, const QString &path) {
        Record planned;
        planned.step = step;
        planned.user = user;
        planned.path = path;
        steps.append(planned);
    };
    for (const QString &owner : qAsConst(m_Options.quitUsers))
        add(StepQuit, owner, QString());
    for (const UninstallUser &user : qAsConst(m_Options.users)) {
        add(StepBackup, user.name, UninstallPaths::keyFolder1(user.home));
        add(StepBackup, user.name, UninstallPaths::keyFolder2(user.home));
        add(StepDeleteConfiguration, user.name, UninstallPaths::configurationDirectory(user.home));
        add(StepDeleteData, user.name, UninstallPaths::dataDirectory(user.home));
        add(StepDeleteLeftovers, user.name, user.home + QStringLiteral("/Library"));
    }
    add(StepRemoveInstallation, QString(), QString());
    return steps;
}

void CUninstallRun::skipRest()
{
    // Every step records once, in the order of the plan: what is left was not attempted.
    const QList<Record> steps = plan();
    for (qsizetype i = m_Records.size(); i < steps.size(); ++i) {
        Record skipped = steps.at(i);
        skipped.result = ResultSkipped;
        record(skipped);
    }
}

QString CUninstallRun::lockFile(bool machineWide)
{
    if (machineWide)
        return QStringLiteral("/var/run/com.brisvane.uninstaller.lock");
    return QFileInfo(SupportLog::defaultPath()).absolutePath() + QStringLiteral("/Uninstaller.lock");
}

int CUninstallRun::exitCode() const
{
    if (m_Busy)
        return C_EXIT_BUSY;
    return m_Failed ? 10 + int(m_FailedStep) : 0;
}

QString CUninstallRun::failureMessage() const
{
    if (m_Busy)
        return QCoreApplication::translate("CMainWindow", C_BUSY_MESSAGE);
    return m_Failed ? failureMessage(m_FailedStep, m_FailedPath) : QString();
}

QString CUninstallRun::failureMessage(Step step, const QString &path)
{
    const QString text = QCoreApplication::translate("CMainWindow", C_FAILURE_MESSAGES[step]);
    return step == StepDeleteConfiguration || step == StepDeleteData || step == StepDeleteLeftovers
        ? text.arg(path)
        : text;
}

const char *CUninstallRun::stepName(Step step)
{
    switch (step) {
    case StepQuit:
        return "quit";
    case StepBackup:
        return "backup";
    case StepDeleteConfiguration:
        return "deleteConfiguration";
    case StepDeleteData:
        return "deleteData";
    case StepRemoveInstallation:
        return "removeInstallation";
    case StepDeleteLeftovers:
        return "deleteLeftovers";
    }
    return "";
}

const char *CUninstallRun::resultName(Result result)
{
    switch (result) {
    case ResultDone:
        return "done";
    case ResultNothingToDo:
        return "nothing-to-do";
    case ResultFailed:
        return "failed";
    case ResultSkipped:
        return "skipped";
    case ResultPlanned:
        return "planned";
    }
    return "";
}
