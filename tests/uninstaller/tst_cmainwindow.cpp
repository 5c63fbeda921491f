#include "CMainWindow.h"
#include "CUninstallActions.h"
#include "CUninstallRun.h"
#include "startup.h"

#include "system/linux/CPolkitEnvironment.h"
#include "threading/exceptions/CException.h"

#include "BvTestSupport.h"

#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QLockFile>
#include <QTemporaryDir>
#include <QTimer>
#include <QTranslator>

#include <unistd.h>

// The window runs in the test's own HOME. `ps` is a stand-in on PATH that prints the
// file named by BV_FAKE_PS (data/bin/ps), so the product's processes are whatever a test writes
// there and no real process on the machine is ever stopped. The window is reached as a user
// reaches it: through its widgets, found by their names.
//
// This program links its own CPolkitEnvironment::system(): by default the machine as it is,
// or one where the administrator prompt is declined.
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
    void declinedPrompt();
    void busyWindow();
    void keyboard();
    void longPath();
    void success();
    void translatedStartPage_data();
    void translatedStartPage();
    void resources_data();
    void resources();

public:
    static int successChild();
    static int startPageChild();
};

namespace {

// A backup's time stamp, which differs from run to run.
const QString C_TIME_STAMP = QStringLiteral("_\\d{4}\\.\\d\\d\\.\\d\\d_\\d\\d:\\d\\d:\\d\\d\\.\\d{3}");

QString home(const QString &relative)
{
    return QDir::homePath() + '/' + relative;
}

// Runs `command` in the sandbox HOME.
int sh(const QString &command)
{
    return QProcess::execute(QStringLiteral("/bin/sh"), {"-ec", "cd \"$HOME\"; " + command});
}

qsizetype backupCount()
{
    return QDir(home("Documents")).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
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
    bool runToEnd(int timeoutMs = 60000) const
    {
        QSignalSpy finished(&window, &CMainWindow::runFinished);
        ok()->click();
        return finished.wait(timeoutMs) || (!window.isRunning() && finished.size() == 1);
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
    QCOMPARE(sh("rm -rf .bv2 .config Documents; mkdir -p .bv2/pss .bv2/server_access_keys "
                ".config/Brisvane Documents; echo first key >.bv2/pss/id.key; echo second key "
                ">.bv2/server_access_keys/server.key; echo >.bv2/cache.db; echo "
                ">.config/Brisvane/Brisvane.conf; : >\"$BV_FAKE_PS\""),
        0);
}

// Whether a backup is offered, and what unticking it does.
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

    QCOMPARE(sh(layout), 0);
    CMainWindow window;
    const Window ui(window);
    QCOMPARE(window.windowTitle(), QStringLiteral("Brisvane Uninstaller"));
    QCOMPARE(ui.backupCheck->isChecked(), offered);
    QCOMPARE(ui.backupCheck->isEnabled(), offered);
    QVERIFY(ui.stack->isHidden());
    QPushButton *ok = ui.ok();
    QCOMPARE(ok->text(), QStringLiteral("Uninstall"));
    QVERIFY(ok->isDefault());
    QCOMPARE(ui.keysText->text(),
        QStringLiteral("This will uninstall Brisvane including all Spaces and user settings."));
    if (untick) {
        QString seen;
        QTimer::singleShot(0, &window, [&seen, untick] {
            if (auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget())) {
                seen = box->windowTitle() + '|' + box->text() + '|'
                    + QString::number(box->standardButtons());
                box->button(QMessageBox::StandardButton(untick))->click();
            }
        });
        ui.backupCheck->click();
        QCOMPARE(seen,
            "Backup|You will no be able to access your Spaces anymore|"
                + QString::number(QMessageBox::Ok | QMessageBox::Cancel));
        QCOMPARE(ui.backupCheck->isChecked(), untick == QMessageBox::Cancel);
    }

    // The run stops at the bundle (this test is no bundle); by then the backup is done.
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
    QTest::addColumn<QStringList>("criticals");
    QTest::addColumn<bool>("offeredAfter");

    const QString config = home(".config/Brisvane");
    const QString data = home(".bv2");
    const QString failedDelete = QStringLiteral("Failed to delete %1.\nPlease delete by yourself.");
    const QString deleteFailed = QStringLiteral("deleteDir: Failed to  deleteData failed");
    const QString notAFolder
        = QStringLiteral("deleteDir: FileSystemException %1 is not a directory");
    // clang-format off
    // A pid no system hands out: the stop signal cannot be delivered.
    QTest::newRow("product does not stop") << "echo 2147480000 root Brisvane >\"$BV_FAKE_PS\"" << 0
        << "Unable to quit Brisvane." << QStringList {"quitBrisvane: failed to shutdown Brisvane"} << true;
    // The message stays the step's; the system's reason follows on a line of its own.
    QTest::newRow("backup target unusable") << "rmdir Documents; echo >Documents" << 10
        << "Unable to backup key files\n" + home("Documents/pss_<time>: Not a directory")
        << QStringList {"backupDir: could not copy \"" + home("Documents/pss_<time>") + "\" \"Not a directory\""} << true;
    // A pipe cannot be copied faithfully, and reading it would block the run.
    QTest::newRow("key folder holds a pipe") << "mkfifo .bv2/pss/pipe" << 10
        << "Unable to backup key files\n" + home(".bv2/pss/pipe: not a folder, file or link")
        << QStringList {"backupDir: could not copy \"" + home(".bv2/pss/pipe") + "\" \"not a folder, file or link\""} << true;
    QTest::newRow("configuration not a folder") << "rm -r .config/Brisvane; echo >.config/Brisvane" << 20
        << failedDelete.arg(config) + "\n" + config + ": Not a directory" << QStringList {deleteFailed, notAFolder.arg(config)} << true;
    QTest::newRow("data not a folder") << "rm -r .bv2; echo >.bv2" << 50
        << failedDelete.arg(data) + "\n" + data + ": Not a directory" << QStringList {deleteFailed, notAFolder.arg(data)} << false;
    QTest::newRow("not inside Brisvane.app") << "" << 80 << "Unable to uninstall Brisvane"
        << QStringList {"removeAppBundle: unable to figure out the installation path"} << false;
    // clang-format on
}

void tst_CMainWindow::failedStep()
{
    QFETCH(QString, cause);
    QFETCH(int, progress);
    QFETCH(QString, message);
    QFETCH(QStringList, criticals);
    QFETCH(bool, offeredAfter);

    QCOMPARE(sh(cause), 0);
    CMainWindow window;
    const Window ui(window);
    QPushButton *ok = ui.ok();
    {
        BvTest::MessageCapture capture;
        QVERIFY(ui.runToEnd());
        // How a copy fails is the file layer's business: only the window's first line counts.
        // The steps work on a thread of their own, which the prefix names.
        QStringList lines = capture.messages().filter(QStringLiteral("] [ CMainWindow : "));
        lines.replaceInStrings(
            QRegularExpression(
                QStringLiteral("^\\[ \\d+ : Uninstall \\] \\[ CMainWindow : \\d+ : (\\w+) \\] ")),
            QStringLiteral("\\1: "));
        lines.replaceInStrings(QRegularExpression(C_TIME_STAMP), QStringLiteral("_<time>"));
        QCOMPARE(lines.mid(0, criticals.size()), criticals);
        QCOMPARE(lines.removeDuplicates(), 0); // each thing is said once
    }
    QCOMPARE(ui.stack->currentIndex(), int(CMainWindow::PageError));
    QVERIFY(ui.stack->isVisibleTo(&window));
    QCOMPARE(ui.message().replace(QRegularExpression(C_TIME_STAMP), QStringLiteral("_<time>")),
        message);
    QCOMPARE(ui.progress->value(), progress);
    QVERIFY(ui.box->isEnabled() && ok->isEnabled());
    QCOMPARE(ok->text(), QStringLiteral("Uninstall"));
    QCOMPARE(ui.backupCheck->isChecked(), offeredAfter);
    QCOMPARE(ui.backupCheck->isEnabled(), offeredAfter);
    // Nothing after the failed step was attempted.
    QCOMPARE(QFileInfo::exists(home(".config/Brisvane")), progress <= 20);
    QCOMPARE(QFileInfo::exists(home(".bv2")), progress <= 50);

    // Remove the cause and try again: the run starts over and gets to the bundle.
    if (progress == 10) // nothing of a refused backup was left behind
        QCOMPARE(backupCount(), 0);
    QCOMPARE(sh(": >\"$BV_FAKE_PS\"; rm -f .bv2/pss/pipe; for f in Documents .config/Brisvane "
                ".bv2; do "
                "if [ -f $f ]; then rm $f; fi; done; mkdir -p Documents"),
        0);
    const qsizetype backupsBefore = backupCount();
    QVERIFY(ui.runToEnd());
    QCOMPARE(ui.message(), QStringLiteral("Unable to uninstall Brisvane"));
    QCOMPARE(ui.progress->value(), 80);
    QVERIFY(!QFileInfo::exists(home(".config/Brisvane")) && !QFileInfo::exists(home(".bv2")));
    QCOMPARE(backupCount() - backupsBefore, offeredAfter ? 2 : 0);
}

// Declining the administrator prompt is known before anything is touched: every file
// stays, the product keeps running, and Uninstall can be pressed again.
void tst_CMainWindow::declinedPrompt()
{
    QProcess product;
    product.start(QStringLiteral("sleep"), {QStringLiteral("60")});
    QVERIFY(product.waitForStarted());
    const auto stopProduct = qScopeGuard([&] {
        product.kill();
        product.waitForFinished();
    });
    QCOMPARE(
        sh(QStringLiteral("echo %1 root Brisvane >\"$BV_FAKE_PS\"").arg(product.processId())), 0);
    const QStringList before = QStringList {".bv2/pss/id.key", ".bv2/server_access_keys/server.key",
        ".bv2/cache.db", ".config/Brisvane/Brisvane.conf"};

    g_DeclinePrompt = true;
    const auto restore = qScopeGuard([] { g_DeclinePrompt = false; });
    CMainWindow window;
    const Window ui(window);
    BvTest::MessageCapture capture;
    QVERIFY(ui.runToEnd());

    QCOMPARE(ui.message(), QStringLiteral("Unable to uninstall Brisvane"));
    QVERIFY(capture.contains(QStringLiteral(
        "acquireRight ] failed to aquire right system.privilege.admin. Err: -60006")));
    for (const QString &file : before)
        QVERIFY2(QFileInfo::exists(home(file)), qPrintable(file));
    QCOMPARE(backupCount(), 0);
    QCOMPARE(product.state(), QProcess::Running);
    QVERIFY(ui.box->isEnabled() && ui.ok()->isEnabled());
    QCOMPARE(ui.ok()->text(), QStringLiteral("Uninstall"));
    QVERIFY(ui.backupCheck->isEnabled() && ui.backupCheck->isChecked());

    // Another run of this user holds the lock: this one touches nothing either.
    g_DeclinePrompt = false;
    QLockFile other(CUninstallRun::lockFile(false));
    QVERIFY(other.tryLock(0));
    QVERIFY(ui.runToEnd());
    QCOMPARE(ui.message(), QStringLiteral("Another uninstall is running."));
    for (const QString &file : before)
        QVERIFY2(QFileInfo::exists(home(file)), qPrintable(file));
    QCOMPARE(product.state(), QProcess::Running);
    QCOMPARE(ui.ok()->text(), QStringLiteral("Uninstall"));
}

// While a step runs the window takes no input and cannot be closed or quit; it shows how
// the run ends.
void tst_CMainWindow::busyWindow()
{
    // A product that takes its time to end after being asked to.
    QProcess product;
    product.start(QStringLiteral("/bin/sh"), {"-c", "trap '' TERM; sleep 2"});
    QVERIFY(product.waitForStarted());
    QCOMPARE(
        sh(QStringLiteral("echo %1 root Brisvane >\"$BV_FAKE_PS\"").arg(product.processId())), 0);

    CMainWindow window;
    window.show();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    const Window ui(window);
    QSignalSpy finished(&window, &CMainWindow::runFinished);
    ui.ok()->click();
    QTRY_COMPARE(ui.progressInfo->text(), QStringLiteral("quiting Brisvane ..."));
    QVERIFY(window.isRunning());

    QVERIFY(!window.close());
    QCoreApplication::quit();
    QTest::keyClick(&window, Qt::Key_Escape);
    QTest::keyClick(&window, Qt::Key_Return);
    QVERIFY(!ui.box->isEnabled() && !ui.backupCheck->isEnabled());
    QVERIFY(window.isVisible());

    QVERIFY(finished.wait(30000));
    QCOMPARE(finished.size(), 1);
    QVERIFY(window.isVisible());
    QCOMPARE(product.state(), QProcess::NotRunning);
    QCOMPARE(ui.message(), QStringLiteral("Unable to uninstall Brisvane"));
    // After the run the window closes as before.
    QVERIFY(window.close());
}

void tst_CMainWindow::keyboard()
{
    CMainWindow window;
    window.show();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    const Window ui(window);

    QSignalSpy finished(&window, &CMainWindow::runFinished);
    QTest::keyClick(&window, Qt::Key_Return);
    QVERIFY(finished.wait(30000));
    QCOMPARE(ui.message(), QStringLiteral("Unable to uninstall Brisvane"));
    // Uninstall is the default button again: Enter on the keypad starts the next run.
    QTest::keyClick(&window, Qt::Key_Enter, Qt::KeypadModifier);
    QVERIFY(finished.wait(30000));
    QCOMPARE(finished.size(), 2);

    QTest::keyClick(&window, Qt::Key_Escape);
    QVERIFY(!window.isVisible());
}

// The error strip has room for two lines: a long home folder must not push the end of the
// message out of sight, in any language the program ships.
void tst_CMainWindow::longPath()
{
    const QByteArray realHome = qgetenv("HOME");
    const QString deep
        = home(QStringLiteral("Users/") + QString(60, u'a') + "/" + QString(60, u'b'));
    QVERIFY(QDir().mkpath(deep + "/.config"));
    QFile blocker(deep + "/.config/Brisvane"); // a file where the folder should be
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    qputenv("HOME", QFile::encodeName(deep));
    const auto restore = qScopeGuard([&] { qputenv("HOME", realHome); });

    const QStringList languages {"en", "de", "fr", "es", "it", "ja"};
    for (const QString &language : languages) {
        QTranslator translator;
        if (language != "en")
            QVERIFY(translator.load("UnInstallerMac_" + language, BV_STAGE_TRANSLATIONS_DIR));
        QCoreApplication::installTranslator(&translator);
        {
            CMainWindow window;
            window.show();
            QVERIFY(QTest::qWaitForWindowExposed(&window));
            const Window ui(window);
            QVERIFY(ui.runToEnd());
            const QString expected = QCoreApplication::translate(
                "CMainWindow", "Failed to delete %1.\nPlease delete by yourself.")
                                         .arg(deep + "/.config/Brisvane")
                + '\n' + deep + "/.config/Brisvane: "
                + QCoreApplication::translate("CMainWindow", "Not a directory");
            QCOMPARE(ui.message(), expected);
            QTRY_VERIFY(ui.errorText->isVisible());
            const int room = ui.errorText->contentsRect().width();
            const QFontMetrics metrics(ui.errorText->font());
            const QStringList lines = ui.errorText->text().split('\n');
            QCOMPARE(lines.size(), 3);
            // The strip grows to show the reason below the two lines of the message.
            QTRY_VERIFY2(ui.errorText->contentsRect().height() >= 3 * metrics.height(),
                qPrintable(language + ": " + QString::number(ui.errorText->height())));
            for (const QString &line : lines)
                QVERIFY2(
                    metrics.horizontalAdvance(line) <= room, qPrintable(language + ": " + line));
            // The entry gives way, the reason is read whole.
            QVERIFY2(lines.last().endsWith(
                         ": " + QCoreApplication::translate("CMainWindow", "Not a directory")),
                qPrintable(lines.last()));
            // What is cut is the middle: both ends of the line still show.
            const QString full = expected.split('\n').first();
            QVERIFY2(lines.first().contains(u'\u2026'), qPrintable(lines.first()));
            QCOMPARE(lines.first().left(3), full.left(3));
            QCOMPARE(lines.first().right(6), full.right(6));
        }
        QCoreApplication::removeTranslator(&translator);
    }
}

// A run without its removal script must stop; a path outside the resources is a bug.
void tst_CMainWindow::resources_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("assertion");

    // clang-format off
    QTest::newRow("missing resource") << ":/scripts/none.sh" << "res";
    QTest::newRow("empty resource") << ":/testdata/empty.txt" << "!content.isEmpty()";
    QTest::newRow("not a resource path") << "/etc/hostname" << "resourcePath.startsWith(\":/\")";
    QTest::newRow("relative path") << "scripts/uninstall.sh" << "resourcePath.startsWith(\":/\")";
    // clang-format on
}

void tst_CMainWindow::resources()
{
    QFETCH(QString, path);
    QFETCH(QString, assertion);

    BvTest::MessageCapture capture;
    QStringList asserts;
    try {
        QCOMPARE(CUninstallActions::getResourceAsText(path), QString());
        asserts = capture.messages();
    } catch (CException *e) {
        asserts << QString::fromLocal8Bit(e->getExceptionMessage());
        delete e;
    }
    QCOMPARE(asserts.size(), 1);
    QVERIFY2(asserts.first().startsWith(
                 "ASSERT: \"" + assertion + "\" in file src/uninstaller/mac/CMainWindow, line "),
        qPrintable(asserts.first()));
}

// Success needs the window to run from inside Brisvane.app: this test binary runs again
// from a throw-away installation (hard-linked, so its own path is inside the bundle),
// with the sandbox stand-ins first on PATH so that the removal script can delete
// nothing outside the sandbox, and reports the window's final state.
void tst_CMainWindow::success()
{
    if (::geteuid() != 0)
        QSKIP("The privileged step asks polkit for a password when not run as root");

    QTemporaryDir sandbox(QDir::homePath() + QStringLiteral("/../run-XXXXXX"));
    QVERIFY2(sandbox.isValid(), qPrintable(sandbox.errorString()));
    QProcess child;
    child.start(QStringLiteral("/bin/sh"),
        {"-ec",
            "cd \"$0\"; root=$(pwd -P); product=\"$root/Applications/Brisvane\";"
            " mkdir -p home \"$product/Brisvane.app/Contents/MacOS\";"
            " ln \"$1\" \"$product/Brisvane.app/Contents/MacOS/tst\";"
            " HOME=\"$root/home\" BV_SANDBOX=\"$root\" BV_TEST_CHILD=success"
            " PATH=\"$2/tools/sandbox-bin:$PATH\" \"$product/Brisvane.app/Contents/MacOS/tst\";"
            " if [ -e \"$product\" ]; then echo '|product folder left'; fi",
            sandbox.path(), QCoreApplication::applicationFilePath(), BV_SOURCE_DIR});
    QVERIFY(child.waitForFinished(60000));
    QVERIFY2(child.exitCode() == 0, child.readAllStandardError().constData());
    QCOMPARE(child.readAllStandardOutput(), "100|Uninstall successful.|0|Close|default|closed");
}

int tst_CMainWindow::successChild()
{
    CMainWindow window;
    window.show();
    const Window ui(window);
    if (!ui.runToEnd())
        return 1;

    QStringList state {QString::number(ui.progress->value()), ui.progressInfo->text(),
        QString::number(ui.stack->currentIndex())};
    for (QAbstractButton *button : ui.box->buttons())
        state << button->text();
    QPushButton *close = ui.box->button(QDialogButtonBox::Close);
    state << (close && close->isDefault() ? "default" : "");
    if (close)
        close->click();
    state << (window.isVisible() ? "open" : "closed");
    QTextStream(stdout) << state.join('|');
    return 0;
}

// The start page as the program shows it in the language of the environment: catalogues
// and style sheet found beside the executable by the program's own start-up code, the
// window constructed and shown, the event loop let run. Loading the catalogues posts a
// language-change event that the button box answers by relabelling its standard buttons
// when it finally arrives, after the window has set its texts: the page is read after it.
void tst_CMainWindow::translatedStartPage_data()
{
    QTest::addColumn<QString>("locale");
    QTest::addColumn<QString>("expected"); // title|Ok|Cancel|warning

    // Cancel is the toolkit's own text, from its catalogue merged into ours.
    // clang-format off
    QTest::newRow("German") << "de_DE.UTF-8" << "Brisvane-Deinstallation|Deinstallieren|Abbrechen|"
        "Brisvane wird mitsamt allen Spaces und Benutzereinstellungen deinstalliert.";
    QTest::newRow("Japanese") << "ja_JP.UTF-8" << "Brisvane アンインストーラ|"
        "アンインストール|キャンセル|"
        "Brisvane を、すべての Spaces とユーザー設定を含めて"
        "アンインストールします。";
    // clang-format on
}

void tst_CMainWindow::translatedStartPage()
{
    QFETCH(QString, locale);
    QFETCH(QString, expected);

    QTemporaryDir sandbox(QDir::homePath() + QStringLiteral("/../run-XXXXXX"));
    QVERIFY2(sandbox.isValid(), qPrintable(sandbox.errorString()));
    QProcess child;
    child.start(QStringLiteral("/bin/sh"),
        {"-ec",
            "cd \"$0\"; contents=\"$(pwd -P)/Applications/Brisvane/Brisvane.app/Contents\";"
            " mkdir -p \"$contents/MacOS\"; ln \"$1\" \"$contents/MacOS/tst\";"
            " cp -al \"$2/../Translations\" \"$2/../Resources\" \"$contents/\";"
            " LANG=\"$3\" LC_ALL=\"$3\" BV_TEST_CHILD=startPage \"$contents/MacOS/tst\"",
            sandbox.path(), QCoreApplication::applicationFilePath(), BV_STAGE_TRANSLATIONS_DIR,
            locale});
    QVERIFY(child.waitForFinished(30000));
    QVERIFY2(child.exitCode() == 0, child.readAllStandardError().constData());
    QCOMPARE(QString::fromUtf8(child.readAllStandardOutput()), expected);
}

int tst_CMainWindow::startPageChild()
{
    QTranslator translator;
    if (!loadTranslations(&translator) || !loadStylesheet())
        return 1;
    CMainWindow window;
    window.show();
    QTest::qWait(300);

    const Window ui(window);
    QPushButton *cancel = ui.box->button(QDialogButtonBox::Cancel);
    QTextStream(stdout) << window.windowTitle() << '|' << ui.ok()->text() << '|'
                        << (cancel ? cancel->text() : QString()) << '|' << ui.keysText->text();
    return 0;
}

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    if (const char *mode = BvTest::childMode())
        return qstrcmp(mode, "startPage") == 0 ? tst_CMainWindow::startPageChild()
                                               : tst_CMainWindow::successChild();
    tst_CMainWindow tc;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&tc, argc, argv);
}

#include "tst_cmainwindow.moc"
