#include "CMainWindow.h"

#include "CUninstallDetails.h"
#include "CUninstallThread.h"
#include "uninstallpaths.h"

#include "threading/assertions/assertion.h"

#include <QCloseEvent>
#include <QDesktopServices>
#include <QGridLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QMessageBox>
#include <QPushButton>
#include <QShortcut>
#include <QToolButton>
#include <QTreeWidget>
#include <QUrl>
#include <QVBoxLayout>

#undef BV_SOURCE_FILE
#define BV_SOURCE_FILE "src/uninstaller/mac/CMainWindow"

namespace {

// How much taller the window grows with the details open.
const int C_DETAILS_HEIGHT = 190;

enum DetailsColumn { ColumnPath = 0, ColumnSize = 1 };

// A size in the format of the language the window speaks. That is its catalogue's, which
// need not be the system's: on a system in a language without a catalogue the window is
// English, and a size written the system's way would stand out in it.
QString formatSize(qint64 bytes)
{
    //: The language of this catalogue as a locale name: sizes are written in its format.
    const QLocale locale(CMainWindow::tr("en"));
    return locale.formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat);
}

} // namespace

CMainWindow::CMainWindow(QWidget *parent)
    : QMainWindow(parent)
    , m_MessageFrame(nullptr, nullptr, this)
{
    m_Ui.setupUi(this);
    m_MessageFrame.setFrameAndLabel(m_Ui.frameErrorsUninstaller, m_Ui.lblErrorsText);
    m_StripContentHeight = m_Ui.UIErrorsContent->minimumHeight();

    setWindowTitle(tr("Brisvane Uninstaller"));

    bool result = connect(m_Ui.dbbSubNaviButton, SIGNAL(accepted()), this, SLOT(onOkayClicked()));
    BV_ASSERT_THROW(result);
    result = connect(m_Ui.dbbSubNaviButton, SIGNAL(rejected()), this, SLOT(onCancelClicked()));
    BV_ASSERT_THROW(result);
    result = connect(
        m_Ui.ckbxKeysBackupCheck, SIGNAL(toggled(bool)), this, SLOT(onBackupCheckChanged(bool)));
    BV_ASSERT_THROW(result);

    // A main window has no dialog keys of its own: Return and Enter press the default
    // button, Escape presses Cancel.
    for (const int key : {int(Qt::Key_Return), int(Qt::Key_Enter)})
        connect(new QShortcut(QKeySequence(key), this), &QShortcut::activated, this,
            &CMainWindow::pressDefaultButton);
    connect(new QShortcut(QKeySequence(Qt::Key_Escape), this), &QShortcut::activated, this,
        &CMainWindow::pressCancel);

    // The details take room the start page leaves free between the check box and the
    // buttons: with them closed, nothing of the form moves.
    m_ClosedHeight = m_Ui.UninstallContent->minimumHeight();
    m_DetailsRow = new QWidget(m_Ui.UninstallContent);
    m_DetailsRow->setObjectName(QStringLiteral("detailsRow"));
    auto *rowLayout = new QHBoxLayout(m_DetailsRow);
    rowLayout->setContentsMargins(10, 4, 10, 0);
    m_DetailsButton = new QToolButton(m_DetailsRow);
    m_DetailsButton->setObjectName(QStringLiteral("btnDetails"));
    m_DetailsButton->setCheckable(true);
    m_DetailsButton->setAutoRaise(true);
    m_DetailsButton->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_DetailsButton->setArrowType(Qt::RightArrow);
    rowLayout->addWidget(m_DetailsButton);
    rowLayout->addStretch();
    m_Ui.verticalLayout->insertWidget(2, m_DetailsRow);

    m_DetailsPanel = new QWidget(m_Ui.UninstallContent);
    m_DetailsPanel->setObjectName(QStringLiteral("detailsPanel"));
    m_DetailsPanel->setFixedHeight(C_DETAILS_HEIGHT);
    auto *panelLayout = new QVBoxLayout(m_DetailsPanel);
    panelLayout->setContentsMargins(10, 4, 10, 4);
    panelLayout->setSpacing(4);
    m_DetailsList = new QTreeWidget(m_DetailsPanel);
    m_DetailsList->setObjectName(QStringLiteral("treeDetails"));
    m_DetailsList->setColumnCount(2);
    m_DetailsList->setHeaderHidden(true);
    m_DetailsList->setRootIsDecorated(false);
    m_DetailsList->setUniformRowHeights(true);
    m_DetailsList->setSelectionMode(QAbstractItemView::NoSelection);
    m_DetailsList->setFocusPolicy(Qt::NoFocus);
    m_DetailsList->setTextElideMode(Qt::ElideMiddle);
    m_DetailsList->header()->setStretchLastSection(false);
    m_DetailsList->header()->setSectionResizeMode(ColumnPath, QHeaderView::Stretch);
    m_DetailsList->header()->setSectionResizeMode(ColumnSize, QHeaderView::ResizeToContents);
    panelLayout->addWidget(m_DetailsList);
    m_DetailsTotal = new QLabel(m_DetailsPanel);
    m_DetailsTotal->setObjectName(QStringLiteral("lblDetailsTotal"));
    m_DetailsTotal->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    panelLayout->addWidget(m_DetailsTotal);
    m_DetailsPanel->hide();
    m_Ui.verticalLayout->insertWidget(3, m_DetailsPanel);
    connect(m_DetailsButton, &QToolButton::toggled, this, &CMainWindow::setDetailsOpen);

    // The button strip's left end is free once a run is done.
    m_Freed = new QLabel(m_Ui.SubNavi);
    m_Freed->setObjectName(QStringLiteral("lblFreed"));
    m_Freed->hide();
    if (auto *strip = qobject_cast<QGridLayout *>(m_Ui.SubNavi->layout()))
        strip->addWidget(m_Freed, 0, 0);

    // The progress and error pages belong to a run; the start page shows neither.
    m_Ui.stackedWidget->hide();
    reset();
    showSizes();
}

CMainWindow::~CMainWindow()
{
    stopDetails();
    // Only reached with a run going when the program is torn down around it: the run
    // finishes its step rather than leaving a half-deleted folder.
    if (m_Run) {
        m_Run->wait();
        delete m_Run;
    }
}

void CMainWindow::showEvent(QShowEvent *)
{
    // The toggle stands under the check box, wherever the style has put that.
    if (auto *row = m_DetailsRow->layout()) {
        QMargins margins = row->contentsMargins();
        margins.setLeft(m_Ui.ckbxKeysBackupCheck->mapTo(m_Ui.UninstallContent, QPoint()).x());
        row->setContentsMargins(margins);
    }
    m_Ui.frameKeysBackup->activateWindow();
    raise();
    m_Ui.frameKeysBackup->setFocus(Qt::ActiveWindowFocusReason);
}

void CMainWindow::closeEvent(QCloseEvent *event)
{
    // A run stopped halfway would leave the product without its data, or the other way
    // round: the window stays until the run has stopped.
    if (m_Run)
        event->ignore();
    else
        QMainWindow::closeEvent(event);
}

bool CMainWindow::event(QEvent *event)
{
    const bool handled = QMainWindow::event(event);
    // A change of language relabels the button box's standard buttons after this window
    // has seen the event (children get it later): give the Ok button its own label back.
    if (event->type() == QEvent::LanguageChange) {
        setWindowTitle(tr("Brisvane Uninstaller"));
        if (QPushButton *okButton = m_Ui.dbbSubNaviButton->button(QDialogButtonBox::Ok))
            okButton->setText(tr("Uninstall"));
        m_Ui.lblKeysBackupText->setText(
            tr("This will uninstall Brisvane including all Spaces and user settings."));
        showSizes();
    }
    return handled;
}

bool CMainWindow::eventFilter(QObject *watched, QEvent *event)
{
    // Quitting the application (Cmd-Q, the dock) while a run goes on is refused like
    // closing the window.
    if (watched == QCoreApplication::instance() && event->type() == QEvent::Quit && m_Run)
        return true;
    return QMainWindow::eventFilter(watched, event);
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

void CMainWindow::pressDefaultButton()
{
    if (!m_Ui.dbbSubNaviButton->isEnabled())
        return;
    for (QAbstractButton *button : m_Ui.dbbSubNaviButton->buttons()) {
        auto *push = qobject_cast<QPushButton *>(button);
        if (push && push->isDefault() && push->isEnabled() && push->isVisible()) {
            push->click();
            return;
        }
    }
}

void CMainWindow::pressCancel()
{
    QPushButton *cancel = m_Ui.dbbSubNaviButton->button(QDialogButtonBox::Cancel);
    if (cancel && m_Ui.dbbSubNaviButton->isEnabled() && cancel->isEnabled())
        cancel->click();
}

void CMainWindow::setDetailsOpen(bool open)
{
    // Counted when first opened, not at start-up: a user who never looks pays nothing for
    // the count, and the window opens without asking pkgutil first.
    if (open && !m_Details && m_DetailsPaths < 0) {
        m_Details = new CUninstallDetails(UninstallUser::current().home, this);
        connect(m_Details, &CUninstallDetails::listed, this, &CMainWindow::onDetailsListed,
            Qt::QueuedConnection);
        connect(m_Details, &CUninstallDetails::sized, this, &CMainWindow::onDetailsSized,
            Qt::QueuedConnection);
        m_Details->startThread(nullptr, QThread::LowPriority);
    }
    m_DetailsButton->setArrowType(open ? Qt::DownArrow : Qt::RightArrow);
    // The window is fixed in size; it grows before the panel shows and shrinks after it
    // has gone, so the layout never squeezes the form.
    if (open) {
        m_Ui.UninstallContent->setFixedHeight(m_ClosedHeight + C_DETAILS_HEIGHT);
        setFixedHeight(m_ClosedHeight + C_DETAILS_HEIGHT);
    }
    m_DetailsPanel->setVisible(open);
    if (!open) {
        m_Ui.UninstallContent->setFixedHeight(m_ClosedHeight);
        setFixedHeight(m_ClosedHeight);
    }
    showSizes();
}

void CMainWindow::onDetailsListed(const QStringList &paths, const QStringList &receipts)
{
    const QString home = UninstallUser::current().home + QLatin1Char('/');
    for (const QString &path : paths) {
        QString shown = path;
        if (shown.startsWith(home))
            shown.replace(0, home.size() - 1, QStringLiteral("~"));
        auto *item = new QTreeWidgetItem(m_DetailsList, {shown, QString()});
        item->setToolTip(ColumnPath, path);
        item->setTextAlignment(ColumnSize, Qt::AlignRight | Qt::AlignVCenter);
    }
    // A receipt is a record of the system's, not a file: it has no size of its own.
    for (const QString &receipt : receipts)
        new QTreeWidgetItem(m_DetailsList, {receipt, QString()});
    m_DetailsPaths = int(paths.size());
    showSizes();
}

void CMainWindow::onDetailsSized(int index, qint64 bytes)
{
    if (QTreeWidgetItem *item
        = index < m_DetailsPaths ? m_DetailsList->topLevelItem(index) : nullptr) {
        item->setData(ColumnSize, Qt::UserRole, bytes);
        showSizes();
    }
}

void CMainWindow::stopDetails()
{
    if (!m_Details)
        return;
    m_Details->stop();
    m_Details->wait();
    delete m_Details;
    m_Details = nullptr;
}

void CMainWindow::showSizes()
{
    m_DetailsButton->setText(
        m_DetailsButton->isChecked() ? tr("Hide Details") : tr("Show Details"));
    // Until every path has its size the total would be a guess.
    bool complete = m_DetailsPaths >= 0;
    qint64 total = 0;
    for (int index = 0; index < m_DetailsPaths; ++index) {
        QTreeWidgetItem *item = m_DetailsList->topLevelItem(index);
        const QVariant bytes = item->data(ColumnSize, Qt::UserRole);
        item->setText(
            ColumnSize, bytes.isValid() ? formatSize(bytes.toLongLong()) : QString(QChar(0x2026)));
        complete = complete && bytes.isValid();
        total += bytes.toLongLong();
    }
    m_DetailsTotal->setText(
        complete ? tr("%1 will be freed").arg(formatSize(total)) : tr("Calculating…"));
    if (m_FreedBytes >= 0)
        m_Freed->setText(tr("%1 freed.").arg(formatSize(m_FreedBytes)));
}

void CMainWindow::setProgress(int value)
{
    m_Ui.progressBar->setValue(value);
}

void CMainWindow::setProgressText(const QString &text)
{
    m_Ui.lblProgressInfo->setText(text);
}

void CMainWindow::showFailure(const QString &message, const FailureCause &cause)
{
    m_Ui.stackedWidget->setCurrentIndex(PageError);

    // The strip has room for two lines at the window's fixed width. A long line (a deep
    // home folder) loses its middle instead of its end; the whole text is the tool tip.
    // The label's room is worked out from the layout, which has not placed the closed
    // strip yet.
    const QFontMetrics metrics(m_Ui.lblErrorsText->font());
    const QMargins outer = m_Ui.verticalLayout_4->contentsMargins();
    const QMargins inner = m_Ui.horizontalLayout_6->contentsMargins();
    const int spacing = qMax(0, m_Ui.horizontalLayout_6->spacing());
    const int width = m_Ui.UninstallContent->width() - outer.left() - outer.right()
        - 2 * m_Ui.frameErrorsUninstaller->frameWidth() - 2 * m_Ui.UIErrorsContent->frameWidth()
        - inner.left() - inner.right() - m_Ui.lblErrorsIcon->maximumWidth() - 5 - 2 * spacing
        - 2 * m_Ui.lblErrorsText->margin() - 2 * m_Ui.lblErrorsText->frameWidth();
    QStringList lines = message.split(QLatin1Char('\n'));
    for (QString &line : lines)
        line = metrics.elidedText(line, Qt::ElideMiddle, width);
    // The system's reason goes on a line of its own below the message; the entry it names
    // gives way to it, the reason is read whole.
    QString whole = message;
    if (!cause.isEmpty()) {
        whole += QLatin1Char('\n') + cause.translatedText();
        const QString reason = cause.translatedReason();
        if (cause.entry.isEmpty()) {
            lines.append(metrics.elidedText(reason, Qt::ElideRight, width));
        } else {
            const QString separator = QStringLiteral(": ");
            // A character to spare: the parts measured apart may come out a pixel wider
            // together.
            const int room = width - metrics.horizontalAdvance(separator + reason)
                - metrics.averageCharWidth();
            lines.append(metrics.elidedText(cause.entry, Qt::ElideMiddle, qMax(room, width / 3))
                + separator + reason);
            lines.last() = metrics.elidedText(lines.last(), Qt::ElideRight, width);
        }
    }
    const QString shown = lines.join(QLatin1Char('\n'));
    m_Ui.lblErrorsText->setToolTip(shown == whole ? QString() : whole);
    // The strip holds two lines; a reason below a two-line message makes it a line taller.
    const int extra = qMax(0, int(lines.size()) - 2) * metrics.lineSpacing();
    m_Ui.UIErrorsContent->setFixedHeight(m_StripContentHeight + extra);

    m_MessageFrame.open(shown, QPair<QString, QVariant>());
    reset();
}

void CMainWindow::onOkayClicked()
{
    if (m_Run)
        return;

    m_Ui.dbbSubNaviButton->setEnabled(false);
    // The details belong to the start page and are not offered again: a run changes what
    // they would list, and the progress and error pages take their room.
    m_DetailsButton->setChecked(false);
    m_DetailsRow->hide();
    stopDetails();
    m_MessageFrame.forceClose();
    m_Ui.lblErrorsText->setToolTip(QString());
    m_Ui.stackedWidget->show();
    m_Ui.stackedWidget->setCurrentIndex(PageProgress);
    m_Ui.ckbxKeysBackupCheck->setEnabled(false);

    setProgressText(QString());
    setProgress(0);

    CUninstallRun::Options options;
    options.users = {UninstallUser::current()};
    options.backup = m_Ui.ckbxKeysBackupCheck->isChecked();
    options.lockFile = CUninstallRun::lockFile(false);
    m_Run = new CUninstallThread(options);
    connect(m_Run, &CUninstallThread::stepStarting, this, &CMainWindow::onStepStarting,
        Qt::QueuedConnection);
    connect(m_Run, &QThread::finished, this, &CMainWindow::onRunFinished, Qt::QueuedConnection);
    QCoreApplication::instance()->installEventFilter(this);
    m_Run->startThread();
}

void CMainWindow::onStepStarting(int step)
{
    switch (CUninstallRun::Step(step)) {
    case CUninstallRun::StepQuit:
        setProgressText(tr("quiting Brisvane ..."));
        break;
    case CUninstallRun::StepBackup:
        setProgress(10);
        setProgressText(tr("backing up key file ..."));
        break;
    case CUninstallRun::StepDeleteConfiguration:
        setProgress(20);
        setProgressText(tr("deleting configuration ..."));
        break;
    case CUninstallRun::StepDeleteData:
        setProgress(50);
        setProgressText(tr("deleting application data ..."));
        break;
    case CUninstallRun::StepDeleteLeftovers:
        setProgress(65);
        setProgressText(tr("deleting other files of Brisvane ..."));
        break;
    case CUninstallRun::StepRemoveInstallation:
        setProgress(80);
        setProgressText(tr("removing application bundle ..."));
        break;
    }
}

void CMainWindow::onRunFinished()
{
    if (!m_Run)
        return;
    m_Run->wait();
    const bool failed = m_Run->result().failed();
    const QString message = m_Run->result().failureMessage();
    const FailureCause cause = m_Run->result().failureCause();
    const qint64 freed = m_Run->result().bytesFreed();
    m_Run->deleteLater();
    m_Run = nullptr;
    QCoreApplication::instance()->removeEventFilter(this);

    if (failed) {
        showFailure(message, cause);
        emit runFinished();
        return;
    }

    setProgress(100);
    m_Ui.dbbSubNaviButton->setEnabled(true);
    m_Ui.dbbSubNaviButton->setStandardButtons(QDialogButtonBox::Close);
    setProgressText(tr("Uninstall successful."));
    m_FreedBytes = freed;
    showSizes();
    m_Freed->show();
    if (QPushButton *closeButton = m_Ui.dbbSubNaviButton->button(QDialogButtonBox::Close))
        closeButton->setDefault(true);
    QDesktopServices::openUrl(
        QUrl(tr("https://www.brisvane.com/redirector.php?lang=en&page=uninstall")));
    emit runFinished();
}
