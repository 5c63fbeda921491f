#include "startup.h"

#include "BvTestSupport.h"

#include <QApplication>
#include <QLibraryInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTranslator>

#include <unistd.h>

// Start-up reads everything relative to the executable, so each case runs this test
// binary again from inside a throw-away bundle (a hard link, so that the executable's
// own path is the bundle's) and reports what it loaded on standard output.
class tst_Startup : public QObject
{
    Q_OBJECT

private slots:
    void translations_data();
    void translations();
    void stylesheet_data();
    void stylesheet();
    void noApplicationObject();
};

namespace {

struct Bundle
{
    QTemporaryDir dir;
    QString macOS() const { return dir.filePath(QStringLiteral("Brisvane.app/Contents/MacOS")); }
    QString translations() const
    {
        return dir.filePath(QStringLiteral("Brisvane.app/Contents/Translations"));
    }
    QString resources() const
    {
        return dir.filePath(QStringLiteral("Brisvane.app/Contents/Resources"));
    }
    QString executable() const { return macOS() + QStringLiteral("/tst_startup"); }

    bool create()
    {
        if (!dir.isValid() || !QDir().mkpath(macOS()))
            return false;
        const QByteArray self = QFile::encodeName(QCoreApplication::applicationFilePath());
        if (::link(self.constData(), QFile::encodeName(executable()).constData()) == 0)
            return true;
        return QFile::copy(QCoreApplication::applicationFilePath(), executable())
            && QFile::setPermissions(executable(), QFile::ReadOwner | QFile::ExeOwner);
    }

    // Runs the copy in `mode`; answers its standard output lines.
    QStringList run(
        const QByteArray &mode, const QString &locale, const QStringList &arguments = {}) const
    {
        QProcess child;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("BV_TEST_CHILD"), QString::fromLatin1(mode));
        env.insert(QStringLiteral("LC_ALL"), locale);
        env.remove(QStringLiteral("QT_QPA_PLATFORMTHEME"));
        child.setProcessEnvironment(env);
        child.start(executable(), arguments);
        if (!child.waitForFinished(30000)) {
            child.kill();
            child.waitForFinished();
            return {QStringLiteral("timed out")};
        }
        QStringList lines = QString::fromUtf8(child.readAllStandardOutput())
                                .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        lines << QStringLiteral("exit=%1").arg(child.exitCode());
        return lines;
    }
};

// The diagnostic lines start with a prefix whose line number moves with the code.
QString withoutLineNumber(QString line)
{
    static const QRegularExpression number(QStringLiteral(" : \\d+ : "));
    return line.replace(number, QStringLiteral(" : # : "));
}

} // namespace

void tst_Startup::translations_data()
{
    QTest::addColumn<QString>("locale");
    QTest::addColumn<QStringList>("catalogues");
    QTest::addColumn<QString>("uninstallText");
    QTest::addColumn<QString>("loadedFile");
    QTest::addColumn<QStringList>("failures");

    const QString german = QStringLiteral("Deinstallieren (Testkatalog)");
    QTest::newRow("de_DE, only our German catalogue")
        << "de_DE.UTF-8" << QStringList {"UnInstallerMac_de.qm"} << german << "UnInstallerMac_de.qm"
        << QStringList {"qt_en"};
    QTest::newRow("de_DE, both German catalogues")
        << "de_DE.UTF-8" << QStringList {"UnInstallerMac_de.qm", "qt_de.qm"} << german
        << "UnInstallerMac_de.qm" << QStringList {};
    // The failed second load empties the shared translator again.
    QTest::newRow("de_DE, only the toolkit catalogue")
        << "de_DE.UTF-8" << QStringList {"qt_de.qm"} << "Uninstall"
        << "" << QStringList {"UnInstallerMac_en"};
    QTest::newRow("C locale: no language part to strip")
        << "C" << QStringList {"UnInstallerMac_de.qm", "qt_de.qm"} << "Uninstall"
        << "" << QStringList {"qt_en", "UnInstallerMac_en"};
    QTest::newRow("no translations folder")
        << "de_DE.UTF-8" << QStringList {"(none)"} << "Uninstall"
        << "" << QStringList {"qt_en", "UnInstallerMac_en"};
}

void tst_Startup::translations()
{
    QFETCH(QString, locale);
    QFETCH(QStringList, catalogues);
    QFETCH(QString, uninstallText);
    QFETCH(QString, loadedFile);
    QFETCH(QStringList, failures);

    Bundle bundle;
    QVERIFY(bundle.create());
    if (catalogues != QStringList {QStringLiteral("(none)")}) {
        QVERIFY(QDir().mkpath(bundle.translations()));
        const QHash<QString, QString> sources {
            {QStringLiteral("UnInstallerMac_de.qm"), QStringLiteral(BV_TEST_GERMAN_QM)},
            {QStringLiteral("qt_de.qm"),
                QLibraryInfo::path(QLibraryInfo::TranslationsPath) + QStringLiteral("/qt_de.qm")},
        };
        for (const QString &name : catalogues) {
            if (!QFile::exists(sources.value(name)))
                QSKIP("The toolkit's German catalogue is not installed (qt6-translations-l10n)");
            QVERIFY(QFile::copy(sources.value(name), bundle.translations() + '/' + name));
        }
        // The toolkit catalogue only names the per-module catalogues it pulls in.
        if (catalogues.contains(QStringLiteral("qt_de.qm"))) {
            const QDir installed(QLibraryInfo::path(QLibraryInfo::TranslationsPath));
            for (const QString &module : installed.entryList({QStringLiteral("qt?*_de.qm")}))
                QVERIFY(
                    QFile::copy(installed.filePath(module), bundle.translations() + '/' + module));
        }
    }

    const QStringList out = bundle.run("translations", locale);
    QCOMPARE(out.last(), QStringLiteral("exit=0"));
    QCOMPARE(out.value(0), QStringLiteral("result=true"));
    QCOMPARE(out.value(1), QStringLiteral("text=") + uninstallText);
    QCOMPARE(out.value(2).section(QLatin1Char('/'), -1),
        loadedFile.isEmpty() ? QStringLiteral("file=") : loadedFile);

    // The translations folder exactly as the program spells it, trailing "/" included.
    const QString dir = bundle.macOS() + QStringLiteral("/../Translations/");
    QStringList expected;
    for (const QString &name : failures)
        expected << QStringLiteral("critical: [ -1 : MainThread ] [ main : # : loadTranslations ] "
                                   "failed loading \"%1%2\"")
                        .arg(dir, name);
    QStringList criticals;
    for (const QString &line : out)
        if (line.startsWith(QLatin1String("critical: ")))
            criticals << withoutLineNumber(line);
    QCOMPARE(criticals, expected);
}

void tst_Startup::stylesheet_data()
{
    QTest::addColumn<bool>("present");
    QTest::addColumn<bool>("onCommandLine");
    QTest::addColumn<QString>("result");
    QTest::addColumn<QString>("sheet");

    // Latin-1 on purpose: the file is read as Latin-1, not UTF-8.
    QTest::newRow("sheet beside the executable")
        << true << false << "true" << QString::fromLatin1("QLabel { color: red; } /* \xe9 */");
    QTest::newRow("sheet missing") << false << false << "false"
                                   << "";
    QTest::newRow("sheet already given on the command line") << true << true << "true"
                                                             << "file:////dev/null";
}

void tst_Startup::stylesheet()
{
    QFETCH(bool, present);
    QFETCH(bool, onCommandLine);
    QFETCH(QString, result);
    QFETCH(QString, sheet);

    Bundle bundle;
    QVERIFY(bundle.create());
    const QString file = bundle.resources() + QStringLiteral("/mac_BSVN.css");
    if (present) {
        QVERIFY(QDir().mkpath(bundle.resources()));
        QFile css(file);
        QVERIFY(css.open(QIODevice::WriteOnly));
        css.write("QLabel { color: red; } /* \xe9 */");
    }

    const QStringList arguments = onCommandLine
        ? QStringList {QStringLiteral("-stylesheet"), QStringLiteral("/dev/null")}
        : QStringList {};
    const QStringList out = bundle.run("stylesheet", QStringLiteral("C"), arguments);
    QCOMPARE(out.last(), QStringLiteral("exit=0"));
    QCOMPARE(out.value(0), QStringLiteral("result=") + result);
    QCOMPARE(out.value(1), QStringLiteral("sheet=") + sheet);
    QStringList criticals;
    for (const QString &line : out)
        if (line.startsWith(QLatin1String("critical: ")))
            criticals << withoutLineNumber(line);
    if (present) {
        QCOMPARE(criticals, QStringList());
    } else {
        QCOMPARE(criticals,
            QStringList {
                QStringLiteral("critical: [ -1 : MainThread ] [ main : # : loadStylesheet ] "
                               "unable to open sylesheet \"%1\"")
                    .arg(bundle.macOS() + QStringLiteral("/../Resources/mac_BSVN.css"))});
    }
}

void tst_Startup::noApplicationObject()
{
    Bundle bundle;
    QVERIFY(bundle.create());
    QCOMPARE(bundle.run("noapp", QStringLiteral("C")).last(), QStringLiteral("exit=0"));
}

namespace {
QStringList s_Lines;
void collect(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type == QtCriticalMsg)
        s_Lines << QStringLiteral("critical: ") + message;
}

int childMain(const QByteArray &mode, int argc, char **argv)
{
    if (mode == "noapp") {
        QTranslator translator;
        return loadTranslations(&translator) ? 1 : 0;
    }
    QApplication app(argc, argv);
    qInstallMessageHandler(collect);
    QTextStream out(stdout);
    if (mode == "translations") {
        QTranslator translator;
        const bool result = loadTranslations(&translator);
        out << "result=" << (result ? "true" : "false") << '\n'
            << "text=" << QCoreApplication::translate("CMainWindow", "Uninstall") << '\n'
            << "file=" << translator.filePath() << '\n';
    } else {
        const bool result = loadStylesheet();
        out << "result=" << (result ? "true" : "false") << '\n'
            << "sheet=" << app.styleSheet() << '\n';
    }
    for (const QString &line : s_Lines)
        out << QString(line).replace(QLatin1Char('\n'), QLatin1String("\\n")) << '\n';
    return 0;
}
} // namespace

int main(int argc, char *argv[])
{
    if (const char *mode = BvTest::childMode())
        return childMain(QByteArray(mode), argc, argv);
    QApplication app(argc, argv);
    tst_Startup tc;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&tc, argc, argv);
}

#include "tst_startup.moc"
