// What ships with the uninstaller besides its code: the embedded resource tree, and a staged
// catalogue for each language that translates every text the program asks for.

#include <QFileInfo>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTranslator>
#include <QXmlStreamReader>

class tst_UninstallerResources : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void entries();
    void catalogue_data();
    void catalogue();

private:
    QList<QPair<QByteArray, QByteArray>> m_Texts; // context, source
};

// Every text of the program's sources, as lupdate finds them.
void tst_UninstallerResources::initTestCase()
{
    QTemporaryDir dir;
    const QString ts = dir.filePath("found.ts");
    QCOMPARE(QProcess::execute(BV_LUPDATE, {"-silent", BV_SOURCE_DIR "/src/uninstaller", "-ts", ts}), 0);
    QFile file(ts);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QXmlStreamReader xml(&file);
    QByteArray context;
    while (xml.readNextStartElement() || !xml.atEnd()) {
        if (xml.isStartElement() && xml.name() == u"name")
            context = xml.readElementText().toUtf8();
        else if (xml.isStartElement() && xml.name() == u"source")
            m_Texts.append({context, xml.readElementText().toUtf8()});
        else
            xml.readNext();
    }
    QVERIFY2(m_Texts.size() > 30, qPrintable(QString::number(m_Texts.size())));
}

// Nothing here asks for the tree: it must have registered itself before main(). The
// removal script is kept exactly as it shipped: a rewrite for another shell once changed
// how its redirections were read.
void tst_UninstallerResources::entries()
{
    QCOMPARE(QFileInfo(":/scripts/scripts/uninstall.sh").size(), 1077);
    for (const char *image : {":/folders/icons/folders/trash.png", ":/images/icons/images/error.png",
             ":/images/icons/images/ok.png", ":/images/icons/images/logo/brisvane_icon.png"})
        QVERIFY2(!QImage(QString::fromLatin1(image)).isNull(), image);
}

void tst_UninstallerResources::catalogue_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("qtCancel"); // Qt's own "Cancel" button
    QTest::newRow("German") << "de" << "Abbrechen";
    QTest::newRow("French") << "fr" << "Annuler";
    QTest::newRow("Spanish") << "es" << "Cancelar";
    QTest::newRow("Italian") << "it" << "Annulla";
    QTest::newRow("Japanese") << "ja" << "キャンセル";
}

void tst_UninstallerResources::catalogue()
{
    QFETCH(QString, language);
    QFETCH(QString, qtCancel);

    QTranslator ours;
    QVERIFY(ours.load("UnInstallerMac_" + language, BV_STAGE_TRANSLATIONS_DIR));
    // A text not in the catalogue, or left in English, shows in English on screen. The
    // address stays as it is; Italian says "Backup" too.
    for (const auto &[context, source] : qAsConst(m_Texts)) {
        const QString translated = ours.translate(context.constData(), source.constData());
        const bool same = source.startsWith("https:") || (language == "it" && source == "Backup");
        QVERIFY2(!translated.isEmpty() && (translated != source || same),
            qPrintable(language + ": " + context + ": " + source));
    }
    // The program keeps only this catalogue in its translator: Qt's own button texts must
    // come with it, or Cancel and Close stay English.
    QCOMPARE(ours.translate("QPlatformTheme", "Cancel"), qtCancel);
    // Qt's catalogue only loads when the module catalogues it names were staged too.
    QTranslator qt;
    QVERIFY(qt.load("qt_" + language, BV_STAGE_TRANSLATIONS_DIR));
    QCOMPARE(qt.translate("QPlatformTheme", "Cancel"), qtCancel);
}

QTEST_GUILESS_MAIN(tst_UninstallerResources)
#include "tst_uninstallerresources.moc"
