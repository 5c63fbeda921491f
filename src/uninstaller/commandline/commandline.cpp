#include "commandline.h"

#include "CUninstallRun.h"
#include "supportlog.h"
#include "uninstallpaths.h"
#include "uninstallreport.h"
#include "userdatabase.h"

#include "log/CLog.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QSet>
#include <QTextStream>

#include <cstring>
#include <memory>
#include <optional>

#include <unistd.h>

namespace CommandLine {

namespace {

struct Choice
{
    bool unattended = false;
    bool dryRun = false;
    bool backup = true;
    QString backupDir;
    QString user;
    bool allUsers = false;
    QString report;
    QString log;
};

// What went wrong before any step ran: an exit code and its message.
struct Refusal
{
    int exitCode = 0;
    QString message;
};

QTextStream &err()
{
    static QTextStream stream(stderr);
    return stream;
}

// The users a run works for, or why there are none.
std::optional<Refusal> chooseUsers(const Choice &choice, QList<UninstallUser> &users)
{
    const bool root = ::geteuid() == 0;
    if ((!choice.user.isEmpty() || choice.allUsers) && !root)
        return Refusal {
            C_EXIT_NOT_PERMITTED, QStringLiteral("--user and --all-users need root rights")};
    if (choice.unattended && !root)
        return Refusal {C_EXIT_NOT_PERMITTED,
            QStringLiteral("--unattended needs root rights: it never asks for a password")};

    QList<UserDatabase::Account> accounts;
    if (!root) {
        // A user works on the home Qt reports, as the window does.
        const std::optional<UserDatabase::Account> self = UserDatabase::byUid(::geteuid());
        UninstallUser user = UninstallUser::current();
        user.name = self ? self->name : QString();
        if (!choice.backupDir.isEmpty()) {
            user.backupDirectory = choice.backupDir;
            user.createBackupDirectory = true;
        }
        users = {user};
        return std::nullopt;
    }
    if (choice.user.isEmpty() && !choice.allUsers)
        return Refusal {C_EXIT_USAGE,
            QStringLiteral("as root, name the user with --user NAME or choose --all-users")};
    if (!choice.user.isEmpty()) {
        const std::optional<UserDatabase::Account> account = UserDatabase::byName(choice.user);
        if (!account)
            return Refusal {C_EXIT_USAGE, QStringLiteral("unknown user: %1").arg(choice.user)};
        accounts = {*account};
    } else {
        QStringList homes;
        for (const UserDatabase::Account &account : UserDatabase::all()) {
            // Root's own home is never a target by accident, nor a home shared by several
            // accounts twice.
            if (account.uid == 0 || account.home.isEmpty() || homes.contains(account.home))
                continue;
            const QFileInfo data(UninstallPaths::dataDirectory(account.home));
            const QFileInfo configuration(UninstallPaths::configurationDirectory(account.home));
            if (data.exists() || data.isSymLink() || configuration.exists()
                || configuration.isSymLink()) {
                accounts.append(account);
                homes.append(account.home);
            }
        }
    }
    for (const UserDatabase::Account &account : qAsConst(accounts)) {
        UninstallUser user;
        user.name = account.name;
        user.home = account.home;
        user.uid = account.uid;
        user.gid = account.gid;
        if (choice.backupDir.isEmpty()) {
            user.backupDirectory = UninstallPaths::documentsDirectory(account.home);
        } else {
            user.backupDirectory = choice.backupDir + QLatin1Char('/') + account.name;
            user.createBackupDirectory = true;
        }
        users.append(user);
    }
    return std::nullopt;
}

QString line(const CUninstallRun::Record &record)
{
    QString text = QStringLiteral("%1 %2 %3")
                       .arg(QLatin1String(CUninstallRun::resultName(record.result)), -13)
                       .arg(QLatin1String(CUninstallRun::stepName(record.step)), -19)
                       .arg(record.user.isEmpty() ? QStringLiteral("-") : record.user, -12);
    if (!record.path.isEmpty())
        text += QLatin1Char(' ') + record.path;
    if (!record.target.isEmpty())
        text += QStringLiteral(" -> ") + record.target;
    if (!record.detail.isEmpty())
        text += QStringLiteral("  (") + record.detail.simplified() + QLatin1Char(')');
    return text;
}

} // namespace

bool requested(int argc, char **argv)
{
    // Qt's own options for the window, which it accepts with one dash or two.
    static const QSet<QByteArray> windowOptions {"platform", "platformpluginpath", "platformtheme",
        "plugin", "qwindowgeometry", "qwindowicon", "qwindowtitle", "reverse", "session", "style",
        "stylesheet", "widgetcount", "display", "geometry", "title", "name", "visual", "nograb",
        "dograb", "sync", "qmljsdebugger"};
    for (int i = 1; i < argc; ++i) {
        const QByteArray argument(argv[i]);
        if (argument == "-h" || argument == "-v" || argument == "-?")
            return true;
        // Any other option of two dashes is ours, or a mistyped one of ours: better a usage
        // error than a window that no one on a managed machine will ever see.
        if (argument.startsWith("--")
            && !windowOptions.contains(argument.mid(2).split('=').first()))
            return true;
    }
    return false;
}

int run(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Brisvane Uninstaller"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("brisvane.com"));
    QCoreApplication::setOrganizationName(QStringLiteral("brisvane"));
    QCoreApplication::setApplicationVersion(QStringLiteral(BV_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Removes Brisvane from this Mac. Without --unattended or --dry-run the window opens.\n"
        "Exit codes: 0 done (also when nothing was installed), 10 the product could not be "
        "stopped, 11 the key backup failed, 12 a configuration folder could not be deleted, "
        "13 a data folder could not be deleted, 14 the privileged removal failed, 15 other "
        "files of Brisvane in a home could not be deleted, 64 bad command line, 75 another "
        "uninstall is running, 77 not permitted."));
    const QCommandLineOption unattended(QStringLiteral("unattended"),
        QStringLiteral("Remove Brisvane without a window and without questions (root only)."));
    const QCommandLineOption dryRun(
        QStringLiteral("dry-run"), QStringLiteral("Print what a run would do and change nothing."));
    const QCommandLineOption noBackup(QStringLiteral("no-backup"),
        QStringLiteral("Do not copy the key folders first (default: copy them when they exist, "
                       "as the window does)."));
    const QCommandLineOption backupDir(QStringLiteral("backup-dir"),
        QStringLiteral("Put the backups into DIR (as root: DIR/<user>) instead of the user's "
                       "Documents folder."),
        QStringLiteral("DIR"));
    const QCommandLineOption user(QStringLiteral("user"),
        QStringLiteral("(root only) Act on NAME's home folder."), QStringLiteral("NAME"));
    const QCommandLineOption allUsers(QStringLiteral("all-users"),
        QStringLiteral("(root only) Act on every account whose home holds .bv2 or "
                       ".config/Brisvane."));
    const QCommandLineOption report(QStringLiteral("report"),
        QStringLiteral("Write a JSON report of the run to FILE (\"-\": standard output)."),
        QStringLiteral("FILE"));
    const QCommandLineOption log(QStringLiteral("log"),
        QStringLiteral("Also append the diagnostic lines to FILE."), QStringLiteral("FILE"));
    parser.addOptions({unattended, dryRun, noBackup, backupDir, user, allUsers, report, log});
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();

    if (!parser.parse(QCoreApplication::arguments())) {
        err() << parser.errorText() << "\nTry '" << QFileInfo(argv[0]).fileName() << " --help'.\n";
        return C_EXIT_USAGE;
    }
    if (parser.isSet(help)) {
        QTextStream(stdout) << parser.helpText();
        return 0;
    }
    if (parser.isSet(version)) {
        QTextStream(stdout) << QCoreApplication::applicationName() << ' '
                            << QCoreApplication::applicationVersion() << '\n';
        return 0;
    }

    Choice choice;
    choice.unattended = parser.isSet(unattended);
    choice.dryRun = parser.isSet(dryRun);
    choice.backup = !parser.isSet(noBackup);
    choice.backupDir = parser.value(backupDir);
    if (!choice.backupDir.isEmpty())
        choice.backupDir = QDir::cleanPath(QDir::current().absoluteFilePath(choice.backupDir));
    choice.user = parser.value(user);
    choice.allUsers = parser.isSet(allUsers);
    choice.report = parser.value(report);
    choice.log = parser.value(log);

    const QDateTime started = QDateTime::currentDateTimeUtc();
    QTextStream out(choice.report == QLatin1String("-") ? stderr : stdout);
    auto finish = [&](int exitCode, const QString &message,
                      const QList<CUninstallRun::Record> &records,
                      const std::optional<QStringList> &remaining = std::nullopt) {
        if (exitCode == C_EXIT_USAGE || exitCode == C_EXIT_NOT_PERMITTED
            || exitCode == CUninstallRun::C_EXIT_BUSY)
            err() << message << '\n';
        else
            out << (message.isEmpty()
                    ? (choice.dryRun ? QStringLiteral("Dry run: nothing was changed.")
                                     : QStringLiteral("Brisvane was removed."))
                    : message)
                << Qt::endl;
        if (!choice.report.isEmpty()) {
            QString error;
            const QJsonObject json = UninstallReport::build(records, choice.dryRun, started,
                QDateTime::currentDateTimeUtc(), exitCode, message, remaining);
            if (!UninstallReport::write(choice.report, json, &error))
                err() << "could not write the report " << choice.report << ": " << error << '\n';
        }
        return exitCode;
    };

    QString problem;
    if (!parser.positionalArguments().isEmpty())
        problem
            = QStringLiteral("unexpected argument: %1").arg(parser.positionalArguments().first());
    else if (choice.unattended == choice.dryRun)
        problem = QStringLiteral("choose one of --unattended and --dry-run");
    else if (!choice.user.isEmpty() && choice.allUsers)
        problem = QStringLiteral("--user and --all-users exclude each other");
    else if (parser.isSet(backupDir) && choice.backupDir.isEmpty())
        problem = QStringLiteral("--backup-dir needs a folder");
    else if (parser.isSet(report) && choice.report.isEmpty())
        problem = QStringLiteral("--report needs a file");
    if (!problem.isEmpty())
        return finish(C_EXIT_USAGE, problem, {});

    CUninstallRun::Options options;
    if (const std::optional<Refusal> refusal = chooseUsers(choice, options.users))
        return finish(refusal->exitCode, refusal->message, {});
    options.backup = choice.backup;
    options.dryRun = choice.dryRun;
    options.everyInstance = true;
    // Root acts for other users: every root run, whoever started it, waits for the others.
    options.lockFile = CUninstallRun::lockFile(::geteuid() == 0);
    options.quitUsers.clear();
    if (choice.allUsers) {
        options.quitUsers = {QString()}; // every instance, whoever runs it
    } else {
        for (const UninstallUser &target : qAsConst(options.users))
            options.quitUsers.append(target.name);
    }

    std::unique_ptr<CLog> logFile;
    if (!choice.log.isEmpty()) {
        logFile = SupportLog::start(QDir::current().absoluteFilePath(choice.log));
        if (!logFile)
            err() << "could not open the log " << choice.log << ", going on without it\n";
    }

    CUninstallRun::Observer observer;
    observer.recorded = [&out](const CUninstallRun::Record &record) {
        out << line(record) << Qt::endl;
        // Every file, folder and receipt, so that a dry run shows exactly what goes.
        for (const QString &item : record.items)
            out << "    " << item << Qt::endl;
        for (const QString &receipt : record.receipts)
            out << "    receipt " << receipt << Qt::endl;
    };
    CUninstallRun uninstall(options, observer);
    const bool done = uninstall.run();
    if (done || choice.dryRun)
        out << (choice.dryRun ? "Would free " : "Freed ") << uninstall.bytesFreed() << " bytes."
            << Qt::endl;
    for (const QString &left : uninstall.remaining())
        out << "still there: " << left << Qt::endl;
    std::optional<QStringList> remaining;
    if (done && !choice.dryRun)
        remaining = uninstall.remaining();
    return finish(uninstall.exitCode(), uninstall.failureMessage(), uninstall.records(), remaining);
}

} // namespace CommandLine
