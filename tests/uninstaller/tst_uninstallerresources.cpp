// What ships with the uninstaller besides its code: the embedded resource tree and the
// staged catalogues.

#include <QFileInfo>
#include <QImage>
#include <QTest>
#include <QTranslator>

namespace {
const QString C_STAGE_TRANSLATIONS = QStringLiteral(BV_STAGE_TRANSLATIONS_DIR);
} // namespace

class tst_UninstallerResources : public QObject
{
    Q_OBJECT

private slots:
    void entries_data();
    void entries();
    void catalogue_data();
    void catalogue();
};

void tst_UninstallerResources::entries_data()
{
    QTest::addColumn<bool>("image");
    QTest::addColumn<qint64>("size"); // -1: any

    // The removal script is kept exactly as it shipped: a rewrite for another shell once
    // changed how its redirections were read.
    QTest::newRow(":/scripts/scripts/uninstall.sh") << false << qint64(1077);
    QTest::newRow(":/folders/icons/folders/trash.png") << true << qint64(-1);
    QTest::newRow(":/images/icons/images/error.png") << true << qint64(-1);
    QTest::newRow(":/images/icons/images/ok.png") << true << qint64(-1);
    QTest::newRow(":/images/icons/images/logo/brisvane_icon.png") << true << qint64(-1);
}

// Nothing here asks for the tree: it must have registered itself before main().
void tst_UninstallerResources::entries()
{
    QFETCH(bool, image);
    QFETCH(qint64, size);
    const QString path = QString::fromLatin1(QTest::currentDataTag());
    QVERIFY(QFileInfo::exists(path));
    if (size >= 0)
        QCOMPARE(QFileInfo(path).size(), size);
    if (image)
        QVERIFY(!QImage(path).isNull());
}

void tst_UninstallerResources::catalogue_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("quitFailed"); // "Unable to quit Brisvane."
    QTest::addColumn<QString>("headline"); // the form's "Brisvnae Uninstall"
    QTest::addColumn<QString>("qtCancel"); // Qt's own "Cancel" button

    // clang-format off
    QTest::newRow("German") << "de" << "Brisvane konnte nicht beendet werden." << "Brisvane deinstallieren" << "Abbrechen";
    QTest::newRow("French") << "fr" << "Impossible de quitter Brisvane." << "Désinstaller Brisvane" << "Annuler";
    QTest::newRow("Spanish") << "es" << "No se pudo cerrar Brisvane." << "Desinstalar Brisvane" << "Cancelar";
    QTest::newRow("Italian") << "it" << "Impossibile chiudere Brisvane." << "Disinstalla Brisvane" << "Annulla";
    QTest::newRow("Japanese") << "ja" << "Brisvane を終了できませんでした。" << "Brisvane のアンインストール" << "キャンセル";
    // clang-format on
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
    // The program keeps only this catalogue in its translator: Qt's own button texts must
    // come with it, or Cancel and Close stay English.
    QCOMPARE(ours.translate("QPlatformTheme", "Cancel"), qtCancel);

    // Qt's catalogue only loads when the module catalogues it names were staged too.
    QTranslator qt;
    QVERIFY(qt.load(QStringLiteral("qt_") + language, C_STAGE_TRANSLATIONS));
    QCOMPARE(qt.translate("QPlatformTheme", "Cancel"), qtCancel);
}

QTEST_GUILESS_MAIN(tst_UninstallerResources)
#include "tst_uninstallerresources.moc"
