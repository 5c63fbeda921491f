#pragma once

#include "failurecause.h"

#include <QList>
#include <QString>

class CAuthorization;

// Whose files a run works on.
struct UninstallUser
{
    QString name; // empty: whoever runs the program
    QString home;
    // Where the key backups go: the Documents folder in the home unless chosen otherwise.
    QString backupDirectory;
    // The account whose rights the per-user steps take; -1: whoever runs the program.
    qint64 uid = -1;
    qint64 gid = -1;
    // Whether a missing backup folder is made (for the user) or fails the backup.
    bool createBackupDirectory = false;

    // The user running the program, in the home Qt reports.
    static UninstallUser current();
};

// The work behind each step of an uninstall run: stop the product, back up the key
// folders, delete the per-user folders and hand the installation to the privileged
// removal script. Each step answers true for done or nothing to do and false to stop the
// run; exceptions of the file layer never leave a step. Nothing is remembered between
// calls: every step reads the file system afresh.
//
// Shared by the window and the command line, so both write the same diagnostic lines.
class CUninstallActions
{
public:
    // Stops a running product and waits up to 30 s for it to end. Only the first
    // instance found (of any user when `userName` is empty) unless `everyInstance`.
    // `stopped` receives the ids that were stopped.
    static bool quitBrisvane(const QString &userName = QString(), bool everyInstance = false,
        QList<qint64> *stopped = nullptr);
    // The running product's ids, as the stop would find them.
    static QList<qint64> findBrisvane(const QString &userName = QString());

    // Makes the backup folder of `user` when it is not the Documents folder: as root, the
    // chosen folder and in it one that belongs to the user (see UninstallSafety).
    static bool makeBackupDirectory(const UninstallUser &user, FailureCause *cause = nullptr);

    enum KeyFolder { KeyFolderMissing, KeyFolderPresent, KeyFolderUnreadable };
    // Whether a key folder is there to back up, links followed; a folder that cannot be
    // looked at (permission, a loop) is not taken for a missing one.
    static KeyFolder lookAtKeyFolder(const QString &path, FailureCause *cause = nullptr);
    // Copies a key folder and checks the copy. A copy that failed either way is removed
    // again. `detail` says why it failed, `cause` names the entry and the reason.
    static bool backupDir(const QString &source, const QString &target,
        QString *detail = nullptr, FailureCause *cause = nullptr);
    // The backup folder a key folder gets now.
    static QString backupTarget(const UninstallUser &user, const QString &keyFolder);

    // Deletes a folder tree; a link in its place is removed as a link.
    static bool deleteDir(
        const QString &path, QString *detail = nullptr, FailureCause *cause = nullptr);
    // Deletes a file, a link (as a link) or a folder tree; nothing there is done as well.
    static bool deleteEntry(
        const QString &path, QString *detail = nullptr, FailureCause *cause = nullptr);
    // Unloads the launch agent `plist` from the login session of `uid`. One that is not
    // loaded (or cannot be unloaded) only gets a warning: its file goes anyway.
    static void bootOut(qint64 uid, const QString &plist);

    // The installation to remove: the product folder when it holds nothing but the
    // bundle, otherwise the bundle the program runs from. Empty (with a critical line)
    // when the program does not run from inside Brisvane.app.
    static QString installationDirectory();
    // Runs the removal script for `installation` (as installationDirectory() found it)
    // with the rights held by `authorization` (asked for now when it holds none).
    // `output` gets what it printed.
    static bool removeAppBundle(
        CAuthorization &authorization, const QString &installation, QString *output = nullptr);
    // Right after it, with the same rights: removes `paths` (the product's files outside
    // the homes, links as links), then forgets the package `receipts`. `output` gets what
    // the script printed.
    static bool removeMachineLeftovers(CAuthorization &authorization, const QStringList &paths,
        const QStringList &receipts, QString *output = nullptr);

    static QString getResourceAsText(const QString &resourcePath);
    static bool executeAppleScript(const QString &script);
};
