#include "uninstallsafety.h"

#include "BvTestSupport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <unistd.h>

class tst_UninstallSafety : public QObject
{
    Q_OBJECT

private slots:
    void escapeForDoubleQuotes_data();
    void escapeForDoubleQuotes();
    void escapedNameSurvivesTheShell_data();
    void escapedNameSurvivesTheShell();
    void verifyCopy_data();
    void verifyCopy();
};

void tst_UninstallSafety::escapeForDoubleQuotes_data()
{
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("expected");

    QTest::newRow("plain") << "/Applications/Brisvane"
                           << "/Applications/Brisvane";
    QTest::newRow("blank and semicolon") << "/a b;c"
                                         << "/a b;c";
    QTest::newRow("double quote") << "/a\"b"
                                  << "/a\\\"b";
    QTest::newRow("dollar") << "/$(id)"
                            << "/\\$(id)";
    QTest::newRow("back quote") << "/`id`"
                                << "/\\`id\\`";
    QTest::newRow("backslash first") << "/a\\\""
                                     << "/a\\\\\\\"";
    QTest::newRow("single quote and newline") << "/it's\nx"
                                              << "/it's\nx";
    QTest::newRow("empty") << ""
                           << "";
}

void tst_UninstallSafety::escapeForDoubleQuotes()
{
    QFETCH(QString, input);
    QFETCH(QString, expected);
    QCOMPARE(UninstallSafety::escapeForDoubleQuotes(input), expected);
}

void tst_UninstallSafety::escapedNameSurvivesTheShell_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("command substitution") << "x $(touch PWNED) y";
    QTest::newRow("back quotes") << "x `touch PWNED` y";
    QTest::newRow("closing quote and semicolon") << "x\"; touch PWNED; echo \"y";
    QTest::newRow("trailing backslash") << "x\\";
    QTest::newRow("variable") << "$HOME ${HOME}";
    QTest::newRow("newline") << "a\nb ; touch PWNED";
    QTest::newRow("percent marker") << "%1 %2";
}

// The escaped text goes into a script between double quotes, the way the removal
// script receives the installation folder; the shell must see exactly the name.
void tst_UninstallSafety::escapedNameSurvivesTheShell()
{
    QFETCH(QString, name);
    QTemporaryDir dir;
    QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));

    const QString script
        = QStringLiteral("INSTALL_FOLDER=\"%1\"\nprintf '%s' \"$INSTALL_FOLDER\"\n")
              .arg(UninstallSafety::escapeForDoubleQuotes(name));
    QProcess shell;
    shell.setWorkingDirectory(dir.path());
    shell.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), script});
    QVERIFY(shell.waitForFinished());
    QCOMPARE(shell.exitCode(), 0);
    QCOMPARE(QString::fromLocal8Bit(shell.readAllStandardOutput()), name);
    QVERIFY(!QFile::exists(dir.filePath(QStringLiteral("PWNED"))));
}

namespace {
void writeFile(const QString &path, const QByteArray &data)
{
    QFile f(path);
    QVERIFY2(f.open(QIODevice::WriteOnly), qPrintable(path));
    f.write(data);
}
} // namespace

void tst_UninstallSafety::verifyCopy_data()
{
    QTest::addColumn<QString>("damage");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<QString>("logged");

    QTest::newRow("faithful copy") << "" << true << "";
    QTest::newRow("file missing in a subfolder") << "remove sub/b.key" << false << "is a file";
    QTest::newRow("hidden file missing") << "remove .hidden" << false << "is a file";
    QTest::newRow("empty folder missing") << "remove empty" << false << "is a folder";
    QTest::newRow("file shorter") << "truncate a.key" << false << "size differs";
    QTest::newRow("same size, other bytes") << "flip a.key" << false << "contents differ";
    QTest::newRow("link copied as file") << "unlink link" << false << "is a symbolic link";
    QTest::newRow("extra file in copy") << "add extra" << true << "";
}

void tst_UninstallSafety::verifyCopy()
{
    QFETCH(QString, damage);
    QFETCH(bool, expected);
    QFETCH(QString, logged);

    QTemporaryDir dir;
    QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
    const QString source = dir.filePath(QStringLiteral("pss"));
    const QString copy = dir.filePath(QStringLiteral("pss_copy"));
    for (const QString &root : {source, copy}) {
        QVERIFY(QDir().mkpath(root + QStringLiteral("/sub")));
        QVERIFY(QDir().mkpath(root + QStringLiteral("/empty")));
        writeFile(root + QStringLiteral("/a.key"), "secret-a");
        writeFile(root + QStringLiteral("/sub/b.key"), QByteArray(100000, 'b'));
        writeFile(root + QStringLiteral("/.hidden"), "h");
        QCOMPARE(
            ::symlink("a.key", QFile::encodeName(root + QStringLiteral("/link")).constData()), 0);
    }

    const QString verb = damage.section(QLatin1Char(' '), 0, 0);
    const QString target = copy + QLatin1Char('/') + damage.section(QLatin1Char(' '), 1);
    if (verb == QLatin1String("remove")) {
        QVERIFY(
            QFileInfo(target).isDir() ? QDir(target).removeRecursively() : QFile::remove(target));
    } else if (verb == QLatin1String("truncate")) {
        QVERIFY(QFile::resize(target, 3));
    } else if (verb == QLatin1String("flip")) {
        writeFile(target, "secret-b");
    } else if (verb == QLatin1String("unlink")) {
        QVERIFY(QFile::remove(target));
        writeFile(target, "a.key");
    } else if (verb == QLatin1String("add")) {
        writeFile(target, "more");
    }

    BvTest::MessageCapture capture;
    QCOMPARE(UninstallSafety::verifyCopy(source, copy), expected);
    if (expected) {
        QVERIFY2(capture.messages().isEmpty(), qPrintable(capture.messages().join('\n')));
    } else {
        QCOMPARE(capture.messages().size(), 1);
        QVERIFY2(
            capture.messages().first().contains(logged), qPrintable(capture.messages().first()));
        QVERIFY(capture.messages().first().startsWith(
            QStringLiteral("[ -1 : MainThread ] [ uninstallsafety : ")));
    }
}

QTEST_GUILESS_MAIN(tst_UninstallSafety)
#include "tst_uninstallsafety.moc"
