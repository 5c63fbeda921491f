#pragma once

#include "failurecause.h"
#include "gui/dialogs/CMessageFrame.h"
#include "uninstaller/mac/UninstallMainWindowForm.h"

#include <QMainWindow>

class CUninstallDetails;
class CUninstallThread;
class QLabel;
class QShowEvent;
class QToolButton;
class QTreeWidget;

// The uninstaller's window and the controller of the whole removal. It decides nothing
// from remembered state: every check reads the file system again.
//
// The steps of a run work off the GUI thread (CUninstallThread); the window shows their
// progress and stays responsive, but takes no input and cannot be closed until the run
// has stopped.
//
// Under the explanation a disclosure lists everything a run would remove, with the size
// of each item; the sizes are counted off the GUI thread (CUninstallDetails) and come in
// as they are known.
class CMainWindow : public QMainWindow
{
    Q_OBJECT

public:
    enum StackedPages { PageProgress = 0, PageError = 1 };

    explicit CMainWindow(QWidget *parent = nullptr);
    ~CMainWindow() override;

    // Whether a run is going on.
    bool isRunning() const { return m_Run != nullptr; }

signals:
    // A run has stopped, whether it succeeded or failed.
    void runFinished();

protected:
    void showEvent(QShowEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    bool event(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private slots:
    // Declared in this order on purpose: it is the slots' index order.
    void onOkayClicked();
    void onCancelClicked();
    void onBackupCheckChanged(bool state);

    void onStepStarting(int step);
    void onRunFinished();

private:
    void reset();
    void setProgress(int value);
    void setProgressText(const QString &text);
    void showFailure(const QString &message, const FailureCause &cause);
    void pressDefaultButton();
    void pressCancel();

    void setDetailsOpen(bool open);
    void onDetailsListed(const QStringList &paths, const QStringList &receipts);
    void onDetailsSized(int index, qint64 bytes);
    void stopDetails();
    // The texts that hold a size or depend on the details' state, in the current language.
    void showSizes();

    Ui_UninstallMainWindow m_Ui;
    CMessageFrame m_MessageFrame;
    CUninstallThread *m_Run = nullptr;
    // The error strip's height as the form sets it, for a message of two lines.
    int m_StripContentHeight = 0;

    // The start page's details: the toggle's row, and below it the list and its total.
    QWidget *m_DetailsRow = nullptr;
    QToolButton *m_DetailsButton = nullptr;
    QWidget *m_DetailsPanel = nullptr;
    QTreeWidget *m_DetailsList = nullptr;
    QLabel *m_DetailsTotal = nullptr;
    CUninstallDetails *m_Details = nullptr;
    // How many of the list's rows are paths (the receipts follow); -1 until it has come.
    int m_DetailsPaths = -1;
    // The window's height as the form fixes it, with the details closed.
    int m_ClosedHeight = 0;
    // The done page's line below the result; the bytes a successful run freed, or -1.
    QLabel *m_Freed = nullptr;
    qint64 m_FreedBytes = -1;
};
