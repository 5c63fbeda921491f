#include "startup.h"

#include "BvTestSupport.h"

#include <QApplication>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTranslator>

#include <cstdio>
#include <unistd.h>

// Start-up reads everything relative to the executable, so each case runs this test
// binary again from inside a throw-away bundle (a hard link, so that the executable's
// own path is the bundle's) and compares what it reports on standard output.
class tst_Startup : public QObject
{
    Q_OBJECT

private slots:
    void startup_data();
    void startup();
};

void tst_Startup::startup_data()
{
    QTest::addColumn<QString>("locale");
    QTest::addColumn<QStringList>("catalogues"); // "-" = no translations folder at all
    QTest::addColumn<QString>("sheetArgument"); // "-" = no style sheet in the bundle
    QTest::addColumn<QStringList>("expected");

    const QString de = QStringLiteral("de_DE.UTF-8");
    const QString german
        = QStringLiteral("translations=false,true text=Deinstallieren (Testkatalog) file=");
    const QString english = QStringLiteral("translations=false,true text=Uninstall file=");
    const QStringList both {"UnInstallerMac_de.qm", "qt_de.qm"};
    const QString css = QStringLiteral("stylesheet=true QLabel { color: red; } /* \u00e9 */");
    const QString prefix = QStringLiteral("[ -1 : MainThread ] [ main : # : ");
    const QString noCss
        = prefix + "loadStylesheet ] unable to open sylesheet \"MacOS/../Resources/mac_BSVN.css\"";
    const auto failedLoading = [&prefix](const QString &name) {
        return prefix + "loadTranslations ] failed loading \"MacOS/../Translations/" + name + '"';
    };
    // clang-format off
    QTest::newRow("de_DE, our German catalogue") << de << both.mid(0, 1) << ""
        << QStringList {failedLoading("qt_en"), german + both.at(0), css};
    // The toolkit's catalogue goes first: the one translator ends up holding ours.
    QTest::newRow("de_DE, both German catalogues") << de << both << "/dev/null"
        << QStringList {german + both.at(0), "stylesheet=true file:////dev/null"};
    QTest::newRow("C locale") << "C" << both << ""
        << QStringList {failedLoading("qt_en"), failedLoading("UnInstallerMac_en"), english, css};
    QTest::newRow("no translations folder, no style sheet") << de << QStringList {"-"} << "-"
        << QStringList {failedLoading("qt_en"), failedLoading("UnInstallerMac_en"), english, noCss, "stylesheet=false "};
    // clang-format on
}

void tst_Startup::startup()
{
    QFETCH(QString, locale);
    QFETCH(QStringList, catalogues);
    QFETCH(QString, sheetArgument);
    QFETCH(QStringList, expected);

    // Latin-1 on purpose in the style sheet: it is read as Latin-1, not UTF-8.
    QTemporaryDir dir;
    const QString contents = dir.filePath(QStringLiteral("Brisvane.app/Contents"));
    QCOMPARE(BvTest::shell(dir.path(),
                 "mkdir -p \"$1/MacOS\" \"$1/Resources\"; cd \"$1\"; ln \"$2\" MacOS/tst_startup;"
                 " if [ \"$3\" != - ]; then mkdir Translations; for name in $3; do cp \"$5/$name\" Translations; done; fi;"
                 " if [ \"$4\" != - ]; then printf 'QLabel { color: red; } /* \\351 */' >Resources/mac_BSVN.css; fi",
                 {contents, QCoreApplication::applicationFilePath(), catalogues.join(' '), sheetArgument, BV_TEST_QM_DIR}),
        "");

    QProcess child;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("BV_TEST_CHILD"), QStringLiteral("startup"));
    env.insert(QStringLiteral("LC_ALL"), locale);
    env.remove(QStringLiteral("QT_QPA_PLATFORMTHEME"));
    child.setProcessEnvironment(env);
    child.start(contents + "/MacOS/tst_startup",
        sheetArgument.startsWith('/') ? QStringList {"-stylesheet", sheetArgument}
                                      : QStringList {});
    QVERIFY(child.waitForFinished(30000));
    QCOMPARE(child.exitCode(), 0);
    QCOMPARE(QString::fromUtf8(child.readAllStandardOutput()), expected.join('\n') + '\n');
}

namespace {
void print(const QString &line)
{
    std::fputs(qPrintable(line + '\n'), stdout);
}

// Moving line numbers and the bundle's place are left out of the comparison.
void printCritical(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    static const QRegularExpression number(QStringLiteral(" : \\d+ : "));
    if (type == QtCriticalMsg)
        print(QString(message)
                  .replace(number, QStringLiteral(" : # : "))
                  .replace(QCoreApplication::applicationDirPath(), QStringLiteral("MacOS")));
}

int childMain(int argc, char **argv)
{
    const auto yesNo = [](bool value) {
        return QString::fromLatin1(value ? "true" : "false");
    };
    QTranslator translator;
    const bool withoutApplication = loadTranslations(&translator);
    QApplication app(argc, argv);
    qInstallMessageHandler(printCritical);
    const bool loaded = loadTranslations(&translator);
    print("translations=" + yesNo(withoutApplication) + ',' + yesNo(loaded)
        + " text=" + QCoreApplication::translate("CMainWindow", "Uninstall")
        + " file=" + QFileInfo(translator.filePath()).fileName());
    const bool sheet = loadStylesheet();
    print("stylesheet=" + yesNo(sheet) + ' ' + app.styleSheet());
    return 0;
}
} // namespace

int main(int argc, char *argv[])
{
    if (BvTest::childMode())
        return childMain(argc, argv);
    QApplication app(argc, argv);
    tst_Startup tc;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&tc, argc, argv);
}

#include "tst_startup.moc"
