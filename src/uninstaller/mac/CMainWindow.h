#pragma once

#include "failurecause.h"
#include "gui/dialogs/CMessageFrame.h"
#include "uninstaller/mac/UninstallMainWindowForm.h"

#include <QMainWindow>

class CUninstallThread;
class QShowEvent;

// The uninstaller's window and the controller of the whole removal. It decides nothing
// from remembered state: every check reads the file system again.
//
// The steps of a run work off the GUI thread (CUninstallThread); the window shows their
// progress and stays responsive, but takes no input and cannot be closed until the run
// has stopped.
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

    Ui_UninstallMainWindow m_Ui;
    CMessageFrame m_MessageFrame;
    CUninstallThread *m_Run = nullptr;
    // The error strip's height as the form sets it, for a message of two lines.
    int m_StripContentHeight = 0;
};
