// What ships with the uninstaller besides its code: the embedded resource tree and the
// staged catalogues and style sheet.

#include "uninstaller/mac/UninstallMainWindowForm.h"

#include "BvTestSupport.h"

#include <QApplication>
#include <QDir>
#include <QImage>
#include <QMainWindow>
#include <QTranslator>

int qInitResources_MacUnInstaller();
int qCleanupResources_MacUnInstaller();

namespace {
const QString C_STAGE_TRANSLATIONS = QStringLiteral(BV_STAGE_TRANSLATIONS_DIR);
const QString C_STAGE_RESOURCES = QStringLiteral(BV_STAGE_RESOURCES_DIR);

// Every text the workflow shows through translation, in the window's context.
const char *const C_WORKFLOW_TEXTS[] = {
    "Brisvane Uninstaller",
    "Uninstall",
    "This will uninstall Brisvane including all Spaces and user settings.",
    "Backup",
    "You will no be able to access your Spaces anymore",
    "quiting Brisvane ...",
    "backing up key file ...",
    "deleting configuration ...",
    "deleting application data ...",
    "removing application bundle ...",
    "Uninstall successful.",
    "https://www.brisvane.com/redirector.php?lang=en&page=uninstall",
    "Unable to quit Brisvane.",
    "Unable to backup key files",
    "Failed to delete %1.\nPlease delete by yourself.",
    "Unable to uninstall Brisvane",
};

// Records what the form passes through translation.
class RecordingTranslator : public QTranslator
{
public:
    mutable QStringList asked;
    bool isEmpty() const override { return false; }
    QString translate(const char *context, const char *source, const char *, int) const override
    {
        if (qstrcmp(context, "UninstallMainWindow") == 0 && *source)
            asked << QString::fromUtf8(source);
        return QString();
    }
};
} // namespace

class tst_UninstallerResources : public QObject
{
    Q_OBJECT

private slots:
    void entries_data();
    void entries();
    void registration();
    void catalogue_data();
    void catalogue();
    void styleSheetStaged();
};

void tst_UninstallerResources::entries_data()
{
    QTest::addColumn<QSize>("imageSize"); // empty: not an image

    QTest::newRow(":/scripts/scripts/uninstall.sh") << QSize();
    QTest::newRow(":/folders/icons/folders/trash.png") << QSize(256, 256);
    QTest::newRow(":/images/icons/images/error.png") << QSize(256, 256);
    QTest::newRow(":/images/icons/images/ok.png") << QSize(256, 256);
    QTest::newRow(":/images/icons/images/logo/brisvane_icon.png") << QSize(128, 128);
}

void tst_UninstallerResources::entries()
{
    QFETCH(QSize, imageSize);
    const QString path = QString::fromLatin1(QTest::currentDataTag());

    // Nothing here asks for the tree: it must have registered itself before main().
    QVERIFY(QFileInfo::exists(path));
    if (imageSize.isValid()) {
        QImage image(path);
        QCOMPARE(image.size(), imageSize);
        QVERIFY(image.hasAlphaChannel());
    }
}

void tst_UninstallerResources::registration()
{
    const QString script = QStringLiteral(":/scripts/scripts/uninstall.sh");
    QCOMPARE(qCleanupResources_MacUnInstaller(), 1);
    QVERIFY(!QFileInfo::exists(script));
    QCOMPARE(qInitResources_MacUnInstaller(), 1);
    QVERIFY(QFileInfo::exists(script));
}

void tst_UninstallerResources::catalogue_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("quitFailed"); // "Unable to quit Brisvane."
    QTest::addColumn<QString>("headline"); // "Brisvnae Uninstall"
    QTest::addColumn<QString>("qtCancel"); // Qt's own "Cancel" button

    QTest::newRow("German") << "de"
                            << "Brisvane konnte nicht beendet werden."
                            << "Brisvane deinstallieren"
                            << "Abbrechen";
    QTest::newRow("French") << "fr"
                            << "Impossible de quitter Brisvane."
                            << "Désinstaller Brisvane"
                            << "Annuler";
    QTest::newRow("Spanish") << "es"
                             << "No se pudo cerrar Brisvane."
                             << "Desinstalar Brisvane"
                             << "Cancelar";
    QTest::newRow("Italian") << "it"
                             << "Impossibile chiudere Brisvane."
                             << "Disinstalla Brisvane"
                             << "Annulla";
    QTest::newRow("Japanese") << "ja"
                              << "Brisvane を終了できませんでした。"
                              << "Brisvane のアンインストール"
                              << "キャンセル";
}

void tst_UninstallerResources::catalogue()
{
    QFETCH(QString, language);
    QFETCH(QString, quitFailed);
    QFETCH(QString, headline);
    QFETCH(QString, qtCancel);

    QTranslator ours;
    QVERIFY(ours.load(QStringLiteral("UnInstallerMac_") + language, C_STAGE_TRANSLATIONS));
    QCOMPARE(ours.translate("CMainWindow", "Unable to quit Brisvane."), quitFailed);
    QCOMPARE(ours.translate("UninstallMainWindow", "Brisvnae Uninstall"), headline);

    for (const char *text : C_WORKFLOW_TEXTS) {
        const QString translated = ours.translate("CMainWindow", text);
        QVERIFY2(!translated.isEmpty(), text);
        // Place markers and line breaks must survive translation.
        QCOMPARE(translated.count(QLatin1String("%1")),
            QString::fromUtf8(text).count(QLatin1String("%1")));
        QCOMPARE(translated.count(u'\n'), QString::fromUtf8(text).count(u'\n'));
    }

    // Every text the form passes through translation is in the catalogue.
    RecordingTranslator recorder;
    QCoreApplication::installTranslator(&recorder);
    QMainWindow window;
    Ui_UninstallMainWindow ui;
    ui.setupUi(&window);
    QCoreApplication::removeTranslator(&recorder);
    QCOMPARE(recorder.asked.size(), 4);
    for (const QString &source : std::as_const(recorder.asked)) {
        QVERIFY2(!ours.translate("UninstallMainWindow", source.toUtf8().constData()).isEmpty(),
            qPrintable(source));
    }

    // Qt's catalogue only loads when the module catalogues it names were staged too.
    QTranslator qt;
    QVERIFY(qt.load(QStringLiteral("qt_") + language, C_STAGE_TRANSLATIONS));
    QCOMPARE(qt.translate("QPlatformTheme", "Cancel"), qtCancel);
}

void tst_UninstallerResources::styleSheetStaged()
{
    QFile sheet(C_STAGE_RESOURCES + QStringLiteral("/mac_BSVN.css"));
    QVERIFY(sheet.open(QIODevice::ReadOnly | QIODevice::Text));
    const QString text = QString::fromLatin1(sheet.readAll());

    // The sheet parses, and it is what shapes the window: the headline, which the form
    // leaves plain, comes out large and bold.
    QMainWindow window;
    Ui_UninstallMainWindow ui;
    ui.setupUi(&window);
    const int plainSize = QFontInfo(ui.HeaderHeadline->font()).pixelSize();
    QVERIFY(!ui.HeaderHeadline->font().bold());

    BvTest::MessageCapture capture;
    qApp->setStyleSheet(text);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    const QFont styled = ui.HeaderHeadline->font();
    qApp->setStyleSheet(QString());
    QCOMPARE(capture.messages(), QStringList());
    QVERIFY(QFontInfo(styled).pixelSize() > plainSize);
    QVERIFY(styled.bold());
}

QTEST_MAIN(tst_UninstallerResources)
#include "tst_uninstallerresources.moc"
