#include "CMainWindow.h"
#include "CUninstallRun.h"
#include "startup.h"
#include "uninstallfootprint.h"

#include "system/linux/CPolkitEnvironment.h"

#include "BvTestSupport.h"

#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QLockFile>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTemporaryDir>
#include <QTimer>
#include <QToolButton>
#include <QTranslator>
#include <QTreeWidget>

#include <unistd.h>

// The window in this process, in the test's own HOME, reached as a user reaches it: through
// its widgets, found by their names. `ps` is a stand-in on PATH that prints the file named
// by BV_FAKE_PS, so the product's processes are whatever a test writes there and no real
// process is ever stopped. This program links its own CPolkitEnvironment::system(): the
// machine as it is, or one where the administrator prompt is declined.
namespace {
bool g_DeclinePrompt = false;
} // namespace

CPolkitEnvironment CPolkitEnvironment::system()
{
    CPolkitEnvironment machine;
    machine.isRoot = ::geteuid() == 0 && !g_DeclinePrompt;
    // As pkexec, false is a dismissed password dialog: it ends without starting anything.
    machine.pkexecLocations = g_DeclinePrompt ? QByteArrayList {"/bin/false"}
                                              : QByteArrayList {"/usr/bin/pkexec", "/bin/pkexec"};
    return machine;
}

class tst_CMainWindow : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void backupChoice_data();
    void backupChoice();
    void failedStep_data();
    void failedStep();
    void declinedPromptAndBusyLock();
    void keyboardAndBusyWindow();
    void longPath();
    void details_data();
    void details();
    void fromBundle_data();
    void fromBundle();

public:
    static int bundleChild(const QByteArray &mode);
};

namespace {

// A backup's time stamp, which differs from run to run.
const QRegularExpression C_TIME_STAMP(QStringLiteral("_\\d{4}\\.\\d\\d\\.\\d\\d_\\d\\d:\\d\\d:\\d\\d\\.\\d{3}"));

QString home(const QString &relative)
{
    return QDir::homePath() + '/' + relative;
}

bool sh(const QString &command)
{
    return BvTest::shell(QDir::homePath(), command).isEmpty();
}

qsizetype backupCount()
{
    return QDir(home("Documents")).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
}

// Writes the product's processes the ps stand-in reports.
bool productRuns(qint64 pid)
{
    return sh(QStringLiteral("echo %1 root Brisvane >\"$BV_FAKE_PS\"").arg(pid));
}

// The widgets a user sees and presses.
struct Window
{
    explicit Window(CMainWindow &window)
        : window(window)
        , box(window.findChild<QDialogButtonBox *>("dbbSubNaviButton"))
        , backupCheck(window.findChild<QCheckBox *>("ckbxKeysBackupCheck"))
        , stack(window.findChild<QStackedWidget *>("stackedWidget"))
        , progress(window.findChild<QProgressBar *>("progressBar"))
        , progressInfo(window.findChild<QLabel *>("lblProgressInfo"))
        , errorText(window.findChild<QLabel *>("lblErrorsText"))
        , keysText(window.findChild<QLabel *>("lblKeysBackupText"))
    { }
    QPushButton *ok() const { return box->button(QDialogButtonBox::Ok); }
    // Presses Uninstall and waits until the run has stopped.
    bool runToEnd() const
    {
        QSignalSpy finished(&window, &CMainWindow::runFinished);
        ok()->click();
        return finished.wait(60000) || (!window.isRunning() && finished.size() == 1);
    }
    // The error strip's message in full (a long one is shortened on screen).
    QString message() const
    {
        return errorText->toolTip().isEmpty() ? errorText->text() : errorText->toolTip();
    }

    CMainWindow &window;
    QDialogButtonBox *box;
    QCheckBox *backupCheck;
    QStackedWidget *stack;
    QProgressBar *progress;
    QLabel *progressInfo;
    QLabel *errorText;
    QLabel *keysText;
};

} // namespace

void tst_CMainWindow::initTestCase()
{
    QVERIFY2(QDir::homePath().contains(QLatin1String("sandbox")),
        "refusing to run outside the test sandbox HOME");
    qputenv("PATH", BV_SOURCE_DIR "/tests/uninstaller/data/bin:" + qgetenv("PATH"));
    qputenv("BV_FAKE_PS", QFile::encodeName(home("ps.out")));
}

void tst_CMainWindow::init()
{
    QVERIFY(sh("rm -rf .bv2 .config Documents; mkdir -p .bv2/pss .bv2/server_access_keys .config/Brisvane Documents;"
               " echo first key >.bv2/pss/id.key; echo second key >.bv2/server_access_keys/server.key;"
               " echo >.bv2/cache.db; echo >.config/Brisvane/Brisvane.conf; : >\"$BV_FAKE_PS\""));
}

// Whether a backup is offered, and what unticking it does. The run stops at the bundle
// (this test is no bundle); by then the backup is done.
void tst_CMainWindow::backupChoice_data()
{
    QTest::addColumn<QString>("layout");
    QTest::addColumn<bool>("offered");
    QTest::addColumn<int>("untick"); // answer to the warning; 0 = left alone
    QTest::addColumn<int>("backups");

    // clang-format off
    QTest::newRow("both key folders") << "" << true << 0 << 2;
    QTest::newRow("neither key folder") << "rm -r .bv2/pss .bv2/server_access_keys" << false << 0 << 0;
    QTest::newRow("only key folder 2") << "rm -r .bv2/pss" << true << 0 << 1;
    QTest::newRow("key folder 1 a plain file") << "rm -r .bv2/pss .bv2/server_access_keys; echo >.bv2/pss" << false << 0 << 0;
    QTest::newRow("unticked, Ok: no backup") << "" << true << int(QMessageBox::Ok) << 0;
    QTest::newRow("unticked, Cancel: ticked again") << "" << true << int(QMessageBox::Cancel) << 2;
    // clang-format on
}

void tst_CMainWindow::backupChoice()
{
    QFETCH(QString, layout);
    QFETCH(bool, offered);
    QFETCH(int, untick);
    QFETCH(int, backups);

    QVERIFY(sh(layout));
    CMainWindow window;
    const Window ui(window);
    QCOMPARE(window.windowTitle(), QStringLiteral("Brisvane Uninstaller"));
    QCOMPARE(ui.backupCheck->isChecked(), offered);
    QCOMPARE(ui.backupCheck->isEnabled(), offered);
    QVERIFY(ui.stack->isHidden() && ui.ok()->isDefault());
    QCOMPARE(ui.ok()->text(), QStringLiteral("Uninstall"));
    QCOMPARE(ui.keysText->text(),
        QStringLiteral("This will uninstall Brisvane including all Spaces and user settings."));
    if (untick) {
        QString seen;
        QTimer::singleShot(0, &window, [&seen, untick] {
            if (auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget())) {
                seen = box->windowTitle() + '|' + box->text();
                box->button(QMessageBox::StandardButton(untick))->click();
            }
        });
        ui.backupCheck->click();
        QCOMPARE(seen, "Backup|You will no be able to access your Spaces anymore");
        QCOMPARE(ui.backupCheck->isChecked(), untick == QMessageBox::Cancel);
    }
    QVERIFY(ui.runToEnd());
    QCOMPARE(ui.message(), QStringLiteral("Unable to uninstall Brisvane"));
    QVERIFY(!QFileInfo::exists(home(".bv2")));
    QCOMPARE(backupCount(), backups);
}

void tst_CMainWindow::failedStep_data()
{
    QTest::addColumn<QString>("cause");
    QTest::addColumn<int>("progress");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("critical"); // the window's first critical line
    QTest::addColumn<bool>("offeredAfter");

    const QString config = home(".config/Brisvane");
    const QString data = home(".bv2");
    const QString failedDelete = QStringLiteral("Failed to delete %1.\nPlease delete by yourself.\n%1: Not a directory");
    // clang-format off
    // A pid no system hands out: the stop signal cannot be delivered.
    QTest::newRow("product does not stop") << "echo 2147480000 root Brisvane >\"$BV_FAKE_PS\"" << 0
        << "Unable to quit Brisvane." << "quitBrisvane: failed to shutdown Brisvane" << true;
    // The message stays the step's; the system's reason follows on a line of its own.
    QTest::newRow("backup target unusable") << "rmdir Documents; echo >Documents" << 10
        << "Unable to backup key files\n" + home("Documents/pss_<time>: Not a directory")
        << "backupDir: could not copy \"" + home("Documents/pss_<time>") + "\" \"Not a directory\"" << true;
    // A pipe cannot be copied faithfully, and reading it would block the run.
    QTest::newRow("key folder holds a pipe") << "mkfifo .bv2/pss/pipe" << 10
        << "Unable to backup key files\n" + home(".bv2/pss/pipe: not a folder, file or link")
        << "backupDir: could not copy \"" + home(".bv2/pss/pipe") + "\" \"not a folder, file or link\"" << true;
    QTest::newRow("configuration not a folder") << "rm -r .config/Brisvane; echo >.config/Brisvane" << 20
        << failedDelete.arg(config) << "deleteDir: Failed to  deleteData failed" << true;
    QTest::newRow("data not a folder") << "rm -r .bv2; echo >.bv2" << 50
        << failedDelete.arg(data) << "deleteDir: Failed to  deleteData failed" << false;
    QTest::newRow("not inside Brisvane.app") << "" << 80 << "Unable to uninstall Brisvane"
        << "removeAppBundle: unable to figure out the installation path" << false;
    // clang-format on
}

void tst_CMainWindow::failedStep()
{
    QFETCH(QString, cause);
    QFETCH(int, progress);
    QFETCH(QString, message);
    QFETCH(QString, critical);
    QFETCH(bool, offeredAfter);

    QVERIFY(sh(cause));
    CMainWindow window;
    const Window ui(window);
    {
        BvTest::MessageCapture capture;
        QVERIFY(ui.runToEnd());
        // The steps work on a thread of their own, which the prefix names; each thing is
        // said once.
        QStringList lines = capture.messages().filter("] [ CMainWindow : ");
        lines.replaceInStrings(QRegularExpression("^\\[ \\d+ : Uninstall \\] \\[ CMainWindow : \\d+ : (\\w+) \\] "), "\\1: ");
        lines.replaceInStrings(C_TIME_STAMP, "_<time>");
        QCOMPARE(lines.value(0), critical);
        QCOMPARE(lines.removeDuplicates(), 0);
    }
    QCOMPARE(ui.stack->currentIndex(), int(CMainWindow::PageError));
    QVERIFY(ui.stack->isVisibleTo(&window));
    QCOMPARE(ui.message().replace(C_TIME_STAMP, "_<time>"), message);
    QCOMPARE(ui.progress->value(), progress);
    QVERIFY(ui.box->isEnabled() && ui.ok()->isEnabled());
    QCOMPARE(ui.ok()->text(), QStringLiteral("Uninstall"));
    QCOMPARE(ui.backupCheck->isChecked(), offeredAfter);
    QCOMPARE(ui.backupCheck->isEnabled(), offeredAfter);
    // Nothing after the failed step was attempted, nothing of a refused backup stays.
    QCOMPARE(QFileInfo::exists(home(".config/Brisvane")), progress <= 20);
    QCOMPARE(QFileInfo::exists(home(".bv2")), progress <= 50);
    if (progress == 10)
        QCOMPARE(backupCount(), 0);

    // Remove the cause and try again: the run starts over and gets to the bundle.
    QVERIFY(sh(": >\"$BV_FAKE_PS\"; rm -f .bv2/pss/pipe; for f in Documents .config/Brisvane .bv2; do"
               " if [ -f $f ]; then rm $f; fi; done; mkdir -p Documents"));
    const qsizetype backupsBefore = backupCount();
    QVERIFY(ui.runToEnd());
    QCOMPARE(ui.message(), QStringLiteral("Unable to uninstall Brisvane"));
    QCOMPARE(ui.progress->value(), 80);
    QVERIFY(!QFileInfo::exists(home(".config/Brisvane")) && !QFileInfo::exists(home(".bv2")));
    QCOMPARE(backupCount() - backupsBefore, offeredAfter ? 2 : 0);
}

// A declined administrator prompt, or another run of this user holding the lock, is known
// before anything is touched: every file stays, the product keeps running, and Uninstall
// can be pressed again.
void tst_CMainWindow::declinedPromptAndBusyLock()
{
    QProcess product;
    product.start("sleep", {"60"});
    QVERIFY(product.waitForStarted() && productRuns(product.processId()));
    const auto stopProduct = qScopeGuard([&] {
        product.kill();
        product.waitForFinished();
    });
    QLockFile other(CUninstallRun::lockFile(false));
    CMainWindow window;
    const Window ui(window);
    for (const bool decline : {true, false}) {
        g_DeclinePrompt = decline;
        const auto restore = qScopeGuard([] { g_DeclinePrompt = false; });
        QVERIFY(decline || other.tryLock(0));
        BvTest::MessageCapture capture;
        QVERIFY(ui.runToEnd());
        QCOMPARE(ui.message(), decline ? "Unable to uninstall Brisvane" : "Another uninstall is running.");
        QCOMPARE(capture.contains("acquireRight ] failed to aquire right system.privilege.admin. Err: -60006"), decline);
        QVERIFY(sh("[ -f .bv2/pss/id.key ] && [ -f .bv2/server_access_keys/server.key ] && [ -f .bv2/cache.db ]"
                   " && [ -f .config/Brisvane/Brisvane.conf ]"));
        QCOMPARE(backupCount(), 0);
        QCOMPARE(product.state(), QProcess::Running);
        QVERIFY(ui.box->isEnabled() && ui.ok()->isEnabled() && ui.backupCheck->isChecked());
        QCOMPARE(ui.ok()->text(), QStringLiteral("Uninstall"));
    }
}

// Return starts a run. While a step runs the window takes no input and cannot be closed or
// quit; afterwards Uninstall is the default button again and Escape closes the window.
void tst_CMainWindow::keyboardAndBusyWindow()
{
    // A product that takes its time to end after being asked to, and a second instance,
    // which the window leaves alone: the product runs once per desktop.
    QProcess product, second;
    product.start("/bin/sh", {"-c", "trap '' TERM; sleep 2"});
    second.start("sleep", {"60"});
    QVERIFY(product.waitForStarted() && second.waitForStarted());
    QVERIFY(sh(QStringLiteral("printf '%1 root Brisvane\\n%2 root Brisvane\\n' >\"$BV_FAKE_PS\"")
                   .arg(product.processId())
                   .arg(second.processId())));
    const auto stopSecond = qScopeGuard([&] {
        second.kill();
        second.waitForFinished();
    });

    CMainWindow window;
    window.show();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    const Window ui(window);
    QSignalSpy finished(&window, &CMainWindow::runFinished);
    QTest::keyClick(&window, Qt::Key_Return);
    QTRY_COMPARE(ui.progressInfo->text(), QStringLiteral("quiting Brisvane ..."));
    QVERIFY(window.isRunning());
    QVERIFY(!window.close());
    QCoreApplication::quit();
    QTest::keyClick(&window, Qt::Key_Escape);
    QTest::keyClick(&window, Qt::Key_Return);
    QVERIFY(!ui.box->isEnabled() && !ui.backupCheck->isEnabled() && window.isVisible());

    QVERIFY(finished.wait(30000));
    QCOMPARE(product.state(), QProcess::NotRunning);
    QCOMPARE(second.state(), QProcess::Running);
    QCOMPARE(ui.message(), QStringLiteral("Unable to uninstall Brisvane"));
    QTest::keyClick(&window, Qt::Key_Enter, Qt::KeypadModifier);
    QVERIFY(finished.wait(30000));
    QCOMPARE(finished.size(), 2);
    QTest::keyClick(&window, Qt::Key_Escape);
    QVERIFY(!window.isVisible());
}

// The error strip has room for two lines: a long home folder must not push the end of the
// message out of sight, in any language the program ships. The reason below it is read
// whole; the entry it names gives way, in the middle.
void tst_CMainWindow::longPath()
{
    const QByteArray realHome = qgetenv("HOME");
    const QString deep = home("Users/" + QString(60, u'a') + "/" + QString(60, u'b'));
    // A file where the folder should be.
    QVERIFY(QDir().mkpath(deep + "/.config") && BvTest::shell(deep, "echo >.config/Brisvane").isEmpty());
    qputenv("HOME", QFile::encodeName(deep));
    const auto restore = qScopeGuard([&] { qputenv("HOME", realHome); });

    for (const QString language : {"en", "de", "fr", "es", "it", "ja"}) {
        QTranslator translator;
        QVERIFY(language == "en" || translator.load("UnInstallerMac_" + language, BV_STAGE_TRANSLATIONS_DIR));
        QCoreApplication::installTranslator(&translator);
        const auto remove = qScopeGuard([&] { QCoreApplication::removeTranslator(&translator); });
        CMainWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        const Window ui(window);
        QVERIFY(ui.runToEnd());
        const QString reason = QCoreApplication::translate("CMainWindow", "Not a directory");
        const QString first = QCoreApplication::translate("CMainWindow", "Failed to delete %1.\nPlease delete by yourself.")
                                  .arg(deep + "/.config/Brisvane");
        QCOMPARE(ui.message(), first + '\n' + deep + "/.config/Brisvane: " + reason);
        QTRY_VERIFY(ui.errorText->isVisible());
        const QFontMetrics metrics(ui.errorText->font());
        const QStringList lines = ui.errorText->text().split('\n');
        QCOMPARE(lines.size(), 3);
        QTRY_VERIFY2(ui.errorText->contentsRect().height() >= 3 * metrics.height(), qPrintable(language));
        for (const QString &line : lines)
            QVERIFY2(metrics.horizontalAdvance(line) <= ui.errorText->contentsRect().width(),
                qPrintable(language + ": " + line));
        QVERIFY2(lines.last().endsWith(": " + reason), qPrintable(lines.last()));
        QVERIFY2(lines.first().contains(u'\u2026'), qPrintable(lines.first()));
        QCOMPARE(lines.first().left(3), first.left(3));
        QCOMPARE(lines.first().right(6), first.split('\n').first().right(6));
    }
}

// The details list what a run removes and nothing else, however alike a name or however
// large the folder a link points to, in the window's language; a run closes them for good.
void tst_CMainWindow::details_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("expected");
    const QString items("~/.config/Brisvane %1|~/.bv2 %2|~/Library/Preferences/com.brisvane.Brisvane.plist %3|"
                        "~/Library/Caches/Brisvane %4|~/Library/LaunchAgents/com.brisvane.helper.plist %5|com.brisvane.pkg.Brisvane|");
    QTest::newRow("English") << "en" << "Hide Details|" + items.arg("10 bytes", "22 bytes", "2.5 kB", "9 bytes", "500 bytes") + "3.0 kB will be freed";
    QTest::newRow("German") << "de" << "Details ausblenden|" + items.arg("10 Bytes", "22 Bytes", "2,5 kB", "9 Bytes", "500 Bytes") + "3,0 kB werden freigegeben";
}

void tst_CMainWindow::details()
{
    QFETCH(QString, language);
    QFETCH(QString, expected);
    const QByteArray path = qgetenv("PATH");
    const auto restore = qScopeGuard([&] {
        qputenv("PATH", path);
        sh("rm -rf big bin Library");
    });
    qputenv("PATH", QFile::encodeName(home("bin:")) + path);
    QVERIFY(sh("mkdir -p big bin Library/Preferences Library/Caches/BrisvaneTools Library/LaunchAgents; head -c 1000000 /dev/zero >big/blob;"
               " echo '[General]' >.config/Brisvane/Brisvane.conf; ln -s ../../big Library/Caches/Brisvane; cd Library; head -c 2500 /dev/zero >Preferences/com.brisvane.Brisvane.plist;"
               " head -c 500 /dev/zero >LaunchAgents/com.brisvane.helper.plist; for decoy in Preferences/com.brisvaneapps.plist"
               " Preferences/com.other.Brisvane.plist Caches/BrisvaneTools/cache.db; do head -c 9000 /dev/zero >$decoy; done;"
               " printf '#!/bin/sh\necho com.brisvane.pkg.Brisvane; echo com.other.pkg\n' >../bin/pkgutil; chmod +x ../bin/pkgutil"));
    QTranslator translator;
    QVERIFY(language == "en" || translator.load("UnInstallerMac_" + language, BV_STAGE_TRANSLATIONS_DIR));
    QCoreApplication::installTranslator(&translator);
    const auto remove = qScopeGuard([&] { QCoreApplication::removeTranslator(&translator); });

    CMainWindow window;
    const Window ui(window);
    auto *toggle = window.findChild<QToolButton *>("btnDetails");
    auto *list = window.findChild<QTreeWidget *>("treeDetails");
    auto *total = window.findChild<QLabel *>("lblDetailsTotal");
    toggle->click();
    QVERIFY(window.height() > 332);
    QTRY_VERIFY2(!total->text().endsWith(u'…'), qPrintable(total->text()));
    QStringList shown {toggle->text()};
    for (int row = 0; row < list->topLevelItemCount(); ++row)
        shown << (list->topLevelItem(row)->text(0) + ' ' + list->topLevelItem(row)->text(1)).trimmed();
    QCOMPARE(shown.join('|') + '|' + total->text(), expected);
    toggle->click();
    QCOMPARE(window.height(), 332);
    toggle->click();
    QVERIFY(ui.runToEnd());
    QVERIFY(!toggle->isVisibleTo(&window) && window.height() == 332);
}

// The program's start-up and its end need it to run from inside Brisvane.app: this test
// binary runs again from a throw-away bundle (hard-linked, so that its own path is inside
// it) with the staged catalogues and style sheet beside it, and reports what it shows.
// Loading the catalogues posts a language change that the button box answers by
// relabelling its standard buttons after the window has set its texts: the start page is
// read once it has arrived. The removal script's stand-ins go first on PATH, so that it
// can delete nothing outside the sandbox.
void tst_CMainWindow::fromBundle_data()
{
    QTest::addColumn<QString>("locale");
    QTest::addColumn<QString>("expected");

    // Cancel is the toolkit's own text, from its catalogue merged into ours.
    // clang-format off
    QTest::newRow("German start page") << "de_DE.UTF-8" << "Brisvane-Deinstallation|Deinstallieren|Abbrechen|"
        "Brisvane wird mitsamt allen Spaces und Benutzereinstellungen deinstalliert.";
    QTest::newRow("Japanese start page") << "ja_JP.UTF-8" << "Brisvane アンインストーラ|アンインストール|キャンセル|"
        "Brisvane を、すべての Spaces とユーザー設定を含めてアンインストールします。";
    QTest::newRow("a run to its end") << "C" << "100|Uninstall successful.|0|freed|Close|default|closed|product folder gone";
    // clang-format on
}

void tst_CMainWindow::fromBundle()
{
    QFETCH(QString, locale);
    QFETCH(QString, expected);
    const bool run = locale == "C";
    if (run && ::geteuid() != 0)
        QSKIP("The privileged step asks polkit for a password when not run as root");

    QTemporaryDir sandbox(QDir::homePath() + "/../run-XXXXXX");
    QVERIFY2(sandbox.isValid(), qPrintable(sandbox.errorString()));
    QProcess child;
    child.start("/bin/sh", {"-ec",
        "cd \"$0\"; root=$(pwd -P); product=\"$root/Applications/Brisvane\"; contents=\"$product/Brisvane.app/Contents\";"
        " mkdir -p home \"$contents/MacOS\"; ln \"$1\" \"$contents/MacOS/tst\"; cp -al \"$2/../Translations\" \"$2/../Resources\" \"$contents/\";"
        " HOME=\"$root/home\" BV_SANDBOX=\"$root\" PATH=\"$4/tools/sandbox-bin:$PATH\" LANG=\"$3\" LC_ALL=\"$3\""
        " BV_TEST_CHILD=\"$5\" \"$contents/MacOS/tst\"; if [ ! -e \"$product\" ]; then echo '|product folder gone'; fi",
        sandbox.path(), QCoreApplication::applicationFilePath(), BV_STAGE_TRANSLATIONS_DIR, locale, BV_SOURCE_DIR,
        run ? "run" : "startPage"});
    QVERIFY(child.waitForFinished(60000));
    QVERIFY2(child.exitCode() == 0, child.readAllStandardError().constData());
    QCOMPARE(QString::fromUtf8(child.readAllStandardOutput()).simplified(), expected);
}

int tst_CMainWindow::bundleChild(const QByteArray &mode)
{
    QTranslator translator;
    if (!loadTranslations(&translator) || !loadStylesheet())
        return 1;
    CMainWindow window;
    window.show();
    const Window ui(window);
    QStringList state;
    if (mode == "startPage") {
        QTest::qWait(300);
        QPushButton *cancel = ui.box->button(QDialogButtonBox::Cancel);
        state << window.windowTitle() << ui.ok()->text() << (cancel ? cancel->text() : QString()) << ui.keysText->text();
    } else {
        // The sandbox's home holds nothing of the product: the run frees the product folder.
        const qint64 bytes = UninstallFootprint::size(CUninstallActions::installationDirectory());
        const QString freed = QLocale("en").formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat) + " freed.";
        if (!ui.runToEnd())
            return 1;
        state << QString::number(ui.progress->value()) << ui.progressInfo->text() << QString::number(ui.stack->currentIndex());
        auto *freedText = window.findChild<QLabel *>("lblFreed");
        state << (freedText->isVisible() && freedText->text() == freed ? "freed" : freedText->text());
        for (QAbstractButton *button : ui.box->buttons())
            state << button->text();
        QPushButton *close = ui.box->button(QDialogButtonBox::Close);
        state << (close && close->isDefault() ? "default" : "");
        if (close)
            close->click();
        state << (window.isVisible() ? "open" : "closed");
    }
    QTextStream(stdout) << state.join('|');
    return 0;
}

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    if (const char *mode = BvTest::childMode())
        return tst_CMainWindow::bundleChild(mode);
    tst_CMainWindow tc;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&tc, argc, argv);
}

#include "tst_cmainwindow.moc"
