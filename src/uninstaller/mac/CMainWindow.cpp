#include "CMainWindow.h"

#include "uninstallpaths.h"

#include "threading/assertions/assertion.h"

#include <QDesktopServices>
#include <QMessageBox>
#include <QPushButton>
#include <QUrl>

#undef BV_SOURCE_FILE
#define BV_SOURCE_FILE "src/uninstaller/mac/CMainWindow"

CMainWindow::CMainWindow(QWidget *parent)
    : QMainWindow(parent)
    , m_MessageFrame(nullptr, nullptr, this)
{
    m_Ui.setupUi(this);
    m_MessageFrame.setFrameAndLabel(m_Ui.frameErrorsUninstaller, m_Ui.lblErrorsText);

    setWindowTitle(tr("Brisvane Uninstaller"));

    bool result = connect(m_Ui.dbbSubNaviButton, SIGNAL(accepted()), this, SLOT(onOkayClicked()));
    BV_ASSERT_THROW(result);
    result = connect(m_Ui.dbbSubNaviButton, SIGNAL(rejected()), this, SLOT(onCancelClicked()));
    BV_ASSERT_THROW(result);
    result = connect(
        m_Ui.ckbxKeysBackupCheck, SIGNAL(toggled(bool)), this, SLOT(onBackupCheckChanged(bool)));
    BV_ASSERT_THROW(result);

    // The progress and error pages belong to a run; the start page shows neither.
    m_Ui.stackedWidget->hide();
    reset();
}

CMainWindow::~CMainWindow() = default;

void CMainWindow::showEvent(QShowEvent *)
{
    m_Ui.frameKeysBackup->activateWindow();
    raise();
    m_Ui.frameKeysBackup->setFocus(Qt::ActiveWindowFocusReason);
}

void CMainWindow::reset()
{
    const bool keyFilesExist = UninstallPaths::keyFilesExist();
    m_Ui.ckbxKeysBackupCheck->setEnabled(keyFilesExist);
    m_Ui.ckbxKeysBackupCheck->setChecked(keyFilesExist);

    m_Ui.dbbSubNaviButton->setEnabled(true);
    QPushButton *okButton = m_Ui.dbbSubNaviButton->button(QDialogButtonBox::Ok);
    if (!okButton) {
        bvPrintAssert("okButton", BV_SOURCE_FILE, __LINE__);
        return;
    }
    okButton->setText(tr("Uninstall"));
    okButton->setDefault(true);
    okButton->setEnabled(true);

    m_Ui.lblKeysBackupText->setText(
        tr("This will uninstall Brisvane including all Spaces and user settings."));
    m_Ui.lblProgressInfo->clear();
}

void CMainWindow::onCancelClicked()
{
    close();
}

void CMainWindow::onBackupCheckChanged(bool state)
{
    if (state || !UninstallPaths::keyFilesExist())
        return;

    const QMessageBox::StandardButton answer = QMessageBox::warning(this, tr("Backup"),
        tr("You will no be able to access your Spaces anymore"),
        QMessageBox::Ok | QMessageBox::Cancel, QMessageBox::NoButton);
    if (answer == QMessageBox::Cancel)
        m_Ui.ckbxKeysBackupCheck->setChecked(true);
}

void CMainWindow::setProgress(int value)
{
    m_Ui.progressBar->setValue(value);
    QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
}

void CMainWindow::setProgressText(const QString &text)
{
    m_Ui.lblProgressInfo->setText(text);
    QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
}

void CMainWindow::showFailure(const QString &message)
{
    m_Ui.stackedWidget->setCurrentIndex(PageError);
    m_MessageFrame.open(message, QPair<QString, QVariant>());
    reset();
}

void CMainWindow::onOkayClicked()
{
    m_Ui.dbbSubNaviButton->setEnabled(false);
    m_MessageFrame.forceClose();
    m_Ui.stackedWidget->show();
    m_Ui.stackedWidget->setCurrentIndex(PageProgress);
    m_Ui.ckbxKeysBackupCheck->setEnabled(false);

    setProgressText(QString());
    setProgress(0);

    setProgressText(tr("quiting Brisvane ..."));
    if (!quitBrisvane()) {
        showFailure(tr("Unable to quit Brisvane."));
        return;
    }

    setProgress(10);
    setProgressText(tr("backing up key file ..."));
    if (!backup()) {
        showFailure(tr("Unable to backup key files"));
        return;
    }

    setProgress(20);
    setProgressText(tr("deleting configuration ..."));
    const QString configuration = UninstallPaths::configurationDirectory();
    if (!deleteDir(configuration)) {
        showFailure(tr("Failed to delete %1.\nPlease delete by yourself.").arg(configuration));
        return;
    }

    setProgress(50);
    setProgressText(tr("deleting application data ..."));
    const QString data = UninstallPaths::dataDirectory();
    if (!deleteDir(data)) {
        showFailure(tr("Failed to delete %1.\nPlease delete by yourself.").arg(data));
        return;
    }

    setProgress(80);
    setProgressText(tr("removing application bundle ..."));
    if (!removeAppBundle()) {
        showFailure(tr("Unable to uninstall Brisvane"));
        return;
    }

    setProgress(100);
    m_Ui.dbbSubNaviButton->setEnabled(true);
    m_Ui.dbbSubNaviButton->setStandardButtons(QDialogButtonBox::Close);
    setProgressText(tr("Uninstall successful."));
    if (QPushButton *closeButton = m_Ui.dbbSubNaviButton->button(QDialogButtonBox::Close))
        closeButton->setDefault(true);
    QDesktopServices::openUrl(
        QUrl(tr("https://www.brisvane.com/redirector.php?lang=en&page=uninstall")));
}
