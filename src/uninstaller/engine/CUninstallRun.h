#pragma once

#include "CUninstallActions.h"

#include <QList>
#include <QString>

#include <functional>

class CAuthorization;

// One uninstall run: the steps in their fixed order, for one user (the window) or
// several (the command line), stopping at the first failure.
//
//   administrator rights -> quit -> for each user: backup, configuration, data, the rest
//   of the product's files in the home -> removal (the installation, then the product's
//   files outside the homes and its receipts) -> a look at what is left
//
// The right to run the removal script is obtained before anything changes, so a user
// who declines the prompt keeps every file. A dry run asks for nothing and changes
// nothing: it reports what a real run would do.
class CUninstallRun
{
public:
    enum Step {
        StepQuit,
        StepBackup,
        StepDeleteConfiguration,
        StepDeleteData,
        StepRemoveInstallation,
        StepDeleteLeftovers, // runs after StepDeleteData; numbered last for its exit code
    };
    enum Result { ResultDone, ResultNothingToDo, ResultFailed, ResultSkipped, ResultPlanned };

    // What one step did, for one user and one path.
    struct Record
    {
        Step step = StepQuit;
        QString user; // empty: not about one user
        QString path;
        QString target; // backups: the copy
        Result result = ResultPlanned;
        QString detail; // the error text, the script's output, the stopped ids
        FailureCause cause; // a failure's entry and reason, when the system gave one
        // What the step removed (or would remove): every file, folder or link, and the
        // package receipts it forgot; the bytes that freed.
        QStringList items;
        QStringList receipts;
        qint64 bytes = 0;
    };

    struct Options
    {
        QList<UninstallUser> users;
        bool backup = true;
        // Whose running product is stopped, one quit step each (an empty name: anybody's).
        QStringList quitUsers {QString()};
        // Stop every instance found; otherwise only the first.
        bool everyInstance = false;
        bool dryRun = false;
        // Held for the whole run (not by a dry run); a run that finds it taken does
        // nothing and fails with C_EXIT_BUSY. Empty: no lock.
        QString lockFile;
    };

    static const int C_EXIT_BUSY = 75;
    // The lock a run takes: machine-wide in a folder only root may write to, or for the
    // user beside the support log.
    static QString lockFile(bool machineWide);

    // Told when a step begins (once for the quit step, once per user for the others)
    // and of every record as it is made. Called on the thread that runs the run.
    struct Observer
    {
        std::function<void(Step step, const UninstallUser &user)> stepStarting;
        std::function<void(const Record &record)> recorded;
    };

    explicit CUninstallRun(const Options &options, const Observer &observer = Observer());

    // True when every step succeeded (or, in a dry run, could be planned).
    bool run();

    const QList<Record> &records() const { return m_Records; }
    bool failed() const { return m_Failed; }
    Step failedStep() const { return m_FailedStep; }
    // 0, or 10 to 15 for the step that failed (quit, backup, configuration, data, removal,
    // the rest of the home), or C_EXIT_BUSY when another run holds the lock.
    int exitCode() const;
    bool busy() const { return m_Busy; }
    // The window's message for the failure, translated when a catalogue is installed;
    // empty after success.
    QString failureMessage() const;
    // The entry and the system's reason behind the failure; empty when there is none.
    FailureCause failureCause() const { return m_Failed ? m_FailedCause : FailureCause(); }
    // After a run that succeeded: what of the product is still there (paths and receipt
    // ids), each logged as a warning. Empty otherwise.
    const QStringList &remaining() const { return m_Remaining; }
    // The bytes the steps freed (or, in a dry run, would free).
    qint64 bytesFreed() const;

    static QString failureMessage(Step step, const QString &path);
    static const char *stepName(Step step);
    static const char *resultName(Result result);

private:
    bool obtainRights(CAuthorization &authorization);
    bool quit();
    bool forUser(const UninstallUser &user);
    int existingKeyFolders(const UninstallUser &user) const;
    Record userRecord(Step step, const UninstallUser &user, const QString &path) const;
    bool backup(const UninstallUser &user);
    bool deleteFolder(Step step, const UninstallUser &user, const QString &path);
    bool deleteLeftovers(const UninstallUser &user);
    bool removeInstallation(CAuthorization *authorization);
    void lookForRemains();
    void starting(Step step, const UninstallUser &user);
    void record(const Record &record);
    bool fail(const Record &failed);
    void skipRest();
    // Every record a run makes when nothing fails, in order, with nothing decided yet.
    QList<Record> plan() const;

    Options m_Options;
    Observer m_Observer;
    QList<Record> m_Records;
    bool m_Failed = false;
    Step m_FailedStep = StepQuit;
    QString m_FailedPath;
    FailureCause m_FailedCause;
    bool m_Busy = false;
    QStringList m_Remaining;
    QString m_MachineLibrary;
};
