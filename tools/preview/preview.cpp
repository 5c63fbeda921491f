// Shows the uninstaller window, styled, in one chosen state, without running the
// uninstall: for looking at the design and for the screenshots in docs/.
//
//   bv_uninstaller_preview [--page start|progress|error|done] [--message TEXT]
//                          [--arg TEXT] [--kind error|warning|info|success] [--progress N]
//                          [--lang de] [--no-keys] [--style FILE] [--quit-after MS]
//
// Prints "ready <window id>" on standard output once the state is shown.

#include "gui/dialogs/CMessageFrame.h"
#include "uninstaller/mac/UninstallMainWindowForm.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QFile>
#include <QMainWindow>
#include <QPushButton>
#include <QTextStream>
#include <QTimer>
#include <QTranslator>

#include <cstdio>

namespace {
QString tr(const char *text)
{
    return QCoreApplication::translate("CMainWindow", text);
}

void announce(QMainWindow &window)
{
    std::printf("ready %llu\n", static_cast<unsigned long long>(window.winId()));
    std::fflush(stdout);
}
} // namespace

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);

    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addOption({"page", "start, progress, error or done.", "page", "start"});
    parser.addOption({"message", "The error strip's text.", "text",
        QStringLiteral("Unable to uninstall Brisvane")});
    parser.addOption({"arg", "Fills the message's %1.", "text"});
    parser.addOption({"kind", "The strip's messageType property.", "kind"});
    parser.addOption({"progress", "The progress bar's value.", "value", "50"});
    parser.addOption({"lang", "Language of the staged catalogues.", "code"});
    parser.addOption({"no-keys", "No key files to back up."});
    parser.addOption({"style", "The style sheet.", "file", QStringLiteral(BV_STAGE_STYLE_SHEET)});
    parser.addOption({"quit-after", "Quit after this many ms.", "ms"});
    parser.process(app);

    QTranslator ours;
    QTranslator qt;
    if (parser.isSet("lang")) {
        const QString dir = QStringLiteral(BV_STAGE_TRANSLATIONS_DIR);
        const QString lang = parser.value("lang");
        if (!ours.load("UnInstallerMac_" + lang, dir) || !qt.load("qt_" + lang, dir))
            qWarning("no catalogues for %s in %s", qPrintable(lang), qPrintable(dir));
        app.installTranslator(&qt);
        app.installTranslator(&ours);
    }

    QFile sheet(parser.value("style"));
    if (sheet.open(QIODevice::ReadOnly | QIODevice::Text))
        app.setStyleSheet(QString::fromLatin1(sheet.readAll()));
    else
        qWarning("no style sheet at %s", qPrintable(sheet.fileName()));

    QMainWindow window;
    Ui_UninstallMainWindow ui;
    ui.setupUi(&window);
    CMessageFrame strip(ui.frameErrorsUninstaller, ui.lblErrorsText, &window);

    // The start page as the program sets it up.
    window.setWindowTitle(tr("Brisvane Uninstaller"));
    ui.stackedWidget->hide();
    const bool keys = !parser.isSet("no-keys");
    ui.ckbxKeysBackupCheck->setEnabled(keys);
    ui.ckbxKeysBackupCheck->setChecked(keys);
    QPushButton *ok = ui.dbbSubNaviButton->button(QDialogButtonBox::Ok);
    ok->setText(tr("Uninstall"));
    ok->setDefault(true);
    ui.lblKeysBackupText->setText(
        tr("This will uninstall Brisvane including all Spaces and user settings."));
    ui.lblProgressInfo->clear();

    const QString page = parser.value("page");
    bool waitForStrip = false;
    if (page == QLatin1String("progress") || page == QLatin1String("done")) {
        ui.stackedWidget->show();
        ui.stackedWidget->setCurrentIndex(0);
        ui.ckbxKeysBackupCheck->setEnabled(false);
        if (page == QLatin1String("done")) {
            ui.progressBar->setValue(100);
            ui.lblProgressInfo->setText(tr("Uninstall successful."));
            ui.dbbSubNaviButton->setStandardButtons(QDialogButtonBox::Close);
            ui.dbbSubNaviButton->button(QDialogButtonBox::Close)->setDefault(true);
        } else {
            ui.progressBar->setValue(parser.value("progress").toInt());
            ui.lblProgressInfo->setText(tr("deleting configuration ..."));
            ui.dbbSubNaviButton->setEnabled(false);
        }
    } else if (page == QLatin1String("error")) {
        ui.stackedWidget->show();
        ui.stackedWidget->setCurrentIndex(1);
        waitForStrip = true;
    }

    window.show();
    if (waitForStrip) {
        QObject::connect(&strip, &CMessageFrame::animationFinished, &window,
            [&window] { QTimer::singleShot(100, &window, [&window] { announce(window); }); });
        QPair<QString, QVariant> property;
        if (parser.isSet("kind"))
            property = {QStringLiteral("messageType"), parser.value("kind")};
        QString message = tr(parser.value("message").toUtf8().constData());
        if (parser.isSet("arg"))
            message = message.arg(parser.value("arg"));
        strip.open(message, property);
    } else {
        QTimer::singleShot(300, &window, [&window] { announce(window); });
    }
    if (parser.isSet("quit-after"))
        QTimer::singleShot(parser.value("quit-after").toInt(), &app, &QApplication::quit);
    return app.exec();
}
