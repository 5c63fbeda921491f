#include "CUninstallRun.h"

#include "uninstallpaths.h"

#include "system/mac/CAuthorization.h"

#include <QCoreApplication>
#include <QFileInfo>

namespace {

// The window shows these, translated in its own context; the command line reports them
// as they stand.
const char *const C_FAILURE_MESSAGES[] = {
    QT_TRANSLATE_NOOP("CMainWindow", "Unable to quit Brisvane."),
    QT_TRANSLATE_NOOP("CMainWindow", "Unable to backup key files"),
    QT_TRANSLATE_NOOP("CMainWindow", "Failed to delete %1.\nPlease delete by yourself."),
    QT_TRANSLATE_NOOP("CMainWindow", "Failed to delete %1.\nPlease delete by yourself."),
    QT_TRANSLATE_NOOP("CMainWindow", "Unable to uninstall Brisvane"),
};

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

    if (m_Options.dryRun) {
        // Every step is looked at, whatever an earlier one would have found.
        quit();
        for (const UninstallUser &user : qAsConst(m_Options.users)) {
            backup(user);
            deleteFolder(
                StepDeleteConfiguration, user, UninstallPaths::configurationDirectory(user.home));
            deleteFolder(StepDeleteData, user, UninstallPaths::dataDirectory(user.home));
        }
        removeInstallation(nullptr);
        return !m_Failed;
    }

    CAuthorization authorization;
    if (!obtainRights(authorization))
        return false;
    if (!quit())
        return false;
    for (const UninstallUser &user : qAsConst(m_Options.users)) {
        if (!backup(user)
            || !deleteFolder(
                StepDeleteConfiguration, user, UninstallPaths::configurationDirectory(user.home))
            || !deleteFolder(StepDeleteData, user, UninstallPaths::dataDirectory(user.home)))
            return false;
    }
    return removeInstallation(&authorization);
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
            return fail(StepQuit, QString());
    }
    return true;
}

bool CUninstallRun::backup(const UninstallUser &user)
{
    starting(StepBackup, user);
    bool folderReady = !user.createBackupDirectory || m_Options.dryRun;
    for (const QString &keyFolder :
        {UninstallPaths::keyFolder1(user.home), UninstallPaths::keyFolder2(user.home)}) {
        Record step;
        step.step = StepBackup;
        step.user = user.name;
        step.path = keyFolder;
        if (!m_Options.backup || !QFileInfo(keyFolder).isDir()) {
            step.result = ResultNothingToDo;
            if (!m_Options.backup)
                step.detail = QStringLiteral("no backup wanted");
            record(step);
            continue;
        }
        step.target = CUninstallActions::backupTarget(user, keyFolder);
        if (m_Options.dryRun) {
            step.result = ResultPlanned;
            record(step);
            continue;
        }
        if (!folderReady) {
            folderReady = CUninstallActions::makeBackupDirectory(user, &step.detail);
            if (!folderReady) {
                step.result = ResultFailed;
                record(step);
                return fail(StepBackup, keyFolder);
            }
        }
        const bool done = CUninstallActions::backupDir(keyFolder, step.target, user, &step.detail);
        step.result = done ? ResultDone : ResultFailed;
        record(step);
        if (!done)
            return fail(StepBackup, keyFolder);
    }
    return true;
}

bool CUninstallRun::deleteFolder(Step stepKind, const UninstallUser &user, const QString &path)
{
    starting(stepKind, user);
    Record step;
    step.step = stepKind;
    step.user = user.name;
    step.path = path;
    if (!exists(path)) {
        step.result = ResultNothingToDo;
        record(step);
        return true;
    }
    if (m_Options.dryRun) {
        step.result = ResultPlanned;
        record(step);
        return true;
    }
    const bool done = CUninstallActions::deleteDir(path, &step.detail);
    step.result = done ? ResultDone : ResultFailed;
    record(step);
    return done || fail(stepKind, path);
}

bool CUninstallRun::removeInstallation(CAuthorization *authorization)
{
    starting(StepRemoveInstallation, UninstallUser());
    Record step;
    step.step = StepRemoveInstallation;
    if (m_Options.dryRun) {
        step.path = CUninstallActions::installationDirectory();
        step.result = step.path.isEmpty() ? ResultFailed : ResultPlanned;
        if (step.path.isEmpty())
            step.detail = QStringLiteral("not run from inside Brisvane.app");
        record(step);
        return step.path.isEmpty() ? fail(StepRemoveInstallation, QString()) : true;
    }
    const bool done = CUninstallActions::removeAppBundle(*authorization, &step.detail, &step.path);
    step.result = done ? ResultDone : ResultFailed;
    record(step);
    return done || fail(StepRemoveInstallation, QString());
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

bool CUninstallRun::fail(Step step, const QString &path)
{
    if (!m_Failed) {
        m_Failed = true;
        m_FailedStep = step;
        m_FailedPath = path;
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

int CUninstallRun::exitCode() const
{
    return m_Failed ? 10 + int(m_FailedStep) : 0;
}

QString CUninstallRun::failureMessage() const
{
    return m_Failed ? failureMessage(m_FailedStep, m_FailedPath) : QString();
}

QString CUninstallRun::failureMessage(Step step, const QString &path)
{
    const QString text = QCoreApplication::translate("CMainWindow", C_FAILURE_MESSAGES[step]);
    return step == StepDeleteConfiguration || step == StepDeleteData ? text.arg(path) : text;
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
