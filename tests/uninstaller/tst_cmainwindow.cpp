#include "CMainWindow.h"

#include "threading/exceptions/CException.h"

#include "BvTestSupport.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTimer>

#include <unistd.h>

// The window runs in the test's own HOME. `ps` is a stand-in on PATH that prints the
// file named by BV_FAKE_PS (data/bin/ps), so the product's processes are whatever a test writes
// there and no real process on the machine is ever stopped.
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
    void success();
    void resources_data();
    void resources();

public:
    static int successChild();
};

namespace {

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
    const Ui_UninstallMainWindow &ui = window.m_Ui;
    QCOMPARE(window.windowTitle(), QStringLiteral("Brisvane Uninstaller"));
    QCOMPARE(ui.ckbxKeysBackupCheck->isChecked(), offered);
    QCOMPARE(ui.ckbxKeysBackupCheck->isEnabled(), offered);
    QVERIFY(ui.stackedWidget->isHidden());
    QPushButton *ok = ui.dbbSubNaviButton->button(QDialogButtonBox::Ok);
    QCOMPARE(ok->text(), QStringLiteral("Uninstall"));
    QVERIFY(ok->isDefault());
    QCOMPARE(ui.lblKeysBackupText->text(),
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
        ui.ckbxKeysBackupCheck->click();
        QCOMPARE(seen,
            "Backup|You will no be able to access your Spaces anymore|"
                + QString::number(QMessageBox::Ok | QMessageBox::Cancel));
        QCOMPARE(ui.ckbxKeysBackupCheck->isChecked(), untick == QMessageBox::Cancel);
    }

    // The run stops at the bundle (this test is no bundle); by then the backup is done.
    ok->click();
    QCOMPARE(ui.lblErrorsText->text(), QStringLiteral("Unable to uninstall Brisvane"));
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
    QTest::newRow("backup target unusable") << "rmdir Documents; echo >Documents" << 10
        << "Unable to backup key files" << QStringList {"backupDir: Failed to  backupDir failed"} << true;
    QTest::newRow("configuration not a folder") << "rm -r .config/Brisvane; echo >.config/Brisvane" << 20
        << failedDelete.arg(config) << QStringList {deleteFailed, notAFolder.arg(config)} << true;
    QTest::newRow("data not a folder") << "rm -r .bv2; echo >.bv2" << 50
        << failedDelete.arg(data) << QStringList {deleteFailed, notAFolder.arg(data)} << false;
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
    const Ui_UninstallMainWindow &ui = window.m_Ui;
    QPushButton *ok = ui.dbbSubNaviButton->button(QDialogButtonBox::Ok);
    {
        BvTest::MessageCapture capture;
        ok->click();
        // How a copy fails is the file layer's business: only the window's first line counts.
        QStringList lines = capture.messages().filter(QStringLiteral("] [ CMainWindow : "));
        lines.replaceInStrings(
            QRegularExpression(
                QStringLiteral("^\\[ -1 : MainThread \\] \\[ CMainWindow : \\d+ : (\\w+) \\] ")),
            QStringLiteral("\\1: "));
        QCOMPARE(lines.mid(0, criticals.size()), criticals);
    }
    QCOMPARE(ui.stackedWidget->currentIndex(), int(CMainWindow::PageError));
    QVERIFY(ui.stackedWidget->isVisibleTo(&window));
    QCOMPARE(ui.lblErrorsText->text(), message);
    QCOMPARE(ui.progressBar->value(), progress);
    QVERIFY(ui.dbbSubNaviButton->isEnabled() && ok->isEnabled());
    QCOMPARE(ok->text(), QStringLiteral("Uninstall"));
    QCOMPARE(ui.ckbxKeysBackupCheck->isChecked(), offeredAfter);
    QCOMPARE(ui.ckbxKeysBackupCheck->isEnabled(), offeredAfter);
    // Nothing after the failed step was attempted.
    QCOMPARE(QFileInfo::exists(home(".config/Brisvane")), progress <= 20);
    QCOMPARE(QFileInfo::exists(home(".bv2")), progress <= 50);

    // Remove the cause and try again: the run starts over and gets to the bundle.
    QCOMPARE(sh(": >\"$BV_FAKE_PS\"; for f in Documents .config/Brisvane .bv2; do "
                "if [ -f $f ]; then rm $f; fi; done; mkdir -p Documents"),
        0);
    const qsizetype backupsBefore = backupCount();
    ok->click();
    QCOMPARE(ui.lblErrorsText->text(), QStringLiteral("Unable to uninstall Brisvane"));
    QCOMPARE(ui.progressBar->value(), 80);
    QVERIFY(!QFileInfo::exists(home(".config/Brisvane")) && !QFileInfo::exists(home(".bv2")));
    QCOMPARE(backupCount() - backupsBefore, offeredAfter ? 2 : 0);
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

    CMainWindow window;
    BvTest::MessageCapture capture;
    QStringList asserts;
    try {
        QCOMPARE(window.getResourceAsText(path), QString());
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
    const Ui_UninstallMainWindow &ui = window.m_Ui;
    ui.dbbSubNaviButton->button(QDialogButtonBox::Ok)->click();

    QStringList state {QString::number(ui.progressBar->value()), ui.lblProgressInfo->text(),
        QString::number(ui.stackedWidget->currentIndex())};
    for (QAbstractButton *button : ui.dbbSubNaviButton->buttons())
        state << button->text();
    QPushButton *close = ui.dbbSubNaviButton->button(QDialogButtonBox::Close);
    state << (close && close->isDefault() ? "default" : "");
    if (close)
        close->click();
    state << (window.isVisible() ? "open" : "closed");
    QTextStream(stdout) << state.join('|');
    return 0;
}

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    if (BvTest::childMode())
        return tst_CMainWindow::successChild();
    tst_CMainWindow tc;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&tc, argc, argv);
}

#include "tst_cmainwindow.moc"
