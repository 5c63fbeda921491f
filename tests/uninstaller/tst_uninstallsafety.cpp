#include "uninstallsafety.h"

#include "BvTestSupport.h"

#include <QFile>
#include <QTemporaryDir>

class tst_UninstallSafety : public QObject
{
    Q_OBJECT

private slots:
    void escapedNameSurvivesTheShell_data();
    void escapedNameSurvivesTheShell();
    void verifyCopy_data();
    void verifyCopy();
};

void tst_UninstallSafety::escapedNameSurvivesTheShell_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("command substitution") << "x $(touch PWNED) y";
    QTest::newRow("back quotes") << "x `touch PWNED` y";
    QTest::newRow("closing quote and semicolon") << "x\"; touch PWNED; echo \"y";
    QTest::newRow("backslash before a quote") << "x\\\"; touch PWNED; \\";
    QTest::newRow("variables") << "$HOME ${HOME}";
    QTest::newRow("single quote and newline") << "it's\nb ; touch PWNED";
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

void tst_UninstallSafety::verifyCopy_data()
{
    QTest::addColumn<QString>("damage"); // run in the copy
    QTest::addColumn<QString>("logged"); // %1 = key folder, %2 = its copy; empty = copy good

    // clang-format off
    QTest::newRow("faithful copy") << "" << "";
    QTest::newRow("extra file in copy") << "echo >extra" << "";
    QTest::newRow("file missing in a subfolder") << "rm sub/b.key" << "sameEntry ] backup check: \"%1/sub/b.key\" is a file but \"%2/sub/b.key\" is missing";
    QTest::newRow("hidden file missing") << "rm .hidden" << "sameEntry ] backup check: \"%1/.hidden\" is a file but \"%2/.hidden\" is missing";
    QTest::newRow("empty folder missing") << "rmdir empty" << "sameEntry ] backup check: \"%1/empty\" is a folder but \"%2/empty\" is missing";
    QTest::newRow("file shorter") << "truncate -s 3 a.key" << "sameEntry ] backup check: size differs \"%1/a.key\" 8 \"%2/a.key\" 3";
    QTest::newRow("same size, other bytes") << "printf secret-b >a.key" << "sameContents ] backup check: contents differ \"%1/a.key\" \"%2/a.key\"";
    QTest::newRow("link copied as file") << "rm link; printf a.key >link" << "sameEntry ] backup check: \"%1/link\" is a symbolic link but \"%2/link\" is file";
    QTest::newRow("link to another target") << "ln -sfn b.key link" << "sameEntry ] backup check: link target differs \"%1/link\" \"%2/link\"";
    QTest::newRow("special file in key folder") << "mkfifo pipe ../pss/pipe" << "sameEntry ] backup check: \"%1/pipe\" is a special file but \"%2/pipe\" is special file";
    // clang-format on
}

void tst_UninstallSafety::verifyCopy()
{
    QFETCH(QString, damage);
    QFETCH(QString, logged);

    QTemporaryDir dir;
    QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
    const QString source = dir.filePath(QStringLiteral("pss"));
    const QString copy = dir.filePath(QStringLiteral("pss_copy"));
    QCOMPARE(QProcess::execute(QStringLiteral("/bin/sh"),
                 {"-ec",
                     "cd \"$0\"; mkdir -p pss/sub pss/empty; cd pss; printf secret-a >a.key; "
                     "echo >.hidden; head -c 100000 /dev/zero >sub/b.key; ln -s a.key link; "
                     "cp -a ../pss ../pss_copy; cd ../pss_copy; "
                         + damage,
                     dir.path()}),
        0);

    BvTest::MessageCapture capture;
    QCOMPARE(UninstallSafety::verifyCopy(source, copy), logged.isEmpty());
    QStringList expected;
    if (!logged.isEmpty())
        expected << "[ -1 : MainThread ] [ uninstallsafety : # : " + logged.arg(source, copy);
    QStringList messages = capture.messages();
    messages.replaceInStrings(QRegularExpression(QStringLiteral(" : \\d+ : ")), " : # : ");
    QCOMPARE(messages, expected);
}

QTEST_GUILESS_MAIN(tst_UninstallSafety)
#include "tst_uninstallsafety.moc"
