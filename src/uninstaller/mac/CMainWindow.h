#pragma once

#include "gui/dialogs/CMessageFrame.h"
#include "uninstaller/mac/UninstallMainWindowForm.h"

#include <QMainWindow>

class QShowEvent;

// The uninstaller's window and the controller of the whole removal. It decides nothing
// from remembered state: every check reads the file system again.
class CMainWindow : public QMainWindow
{
    Q_OBJECT

public:
    enum StackedPages { PageProgress = 0, PageError = 1 };

    explicit CMainWindow(QWidget *parent = nullptr);
    ~CMainWindow() override;

protected:
    void showEvent(QShowEvent *event) override;

private slots:
    // Declared in this order on purpose: it is the slots' index order.
    void onOkayClicked();
    void onCancelClicked();
    void onBackupCheckChanged(bool state);

private:
    friend class tst_CMainWindow;

    void reset();
    void setProgress(int value);
    void setProgressText(const QString &text);
    void showFailure(const QString &message);

    // The steps of a run: true = done or nothing to do, false = stop the run.
    bool quitBrisvane();
    bool backup();
    bool backupDir(const QString &source, const QString &target);
    bool deleteDir(const QString &path);
    bool removeAppBundle();
    QString getResourceAsText(const QString &resourcePath) const;
    bool executeAppleScript(const QString &script) const;

    Ui_UninstallMainWindow m_Ui;
    CMessageFrame m_MessageFrame;
};
