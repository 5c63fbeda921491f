// CAuthorization over polkit: real shells, started directly or through a program that
// stands in for pkexec.

#include "system/linux/CPolkitEnvironment.h"
#include "system/mac/CAuthorization.h"

#include "LogLines.h"

class tst_CAuthorization : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { overridePolkitEnvironment(std::nullopt); }
    void runScript_data();
    void runScript();
};

void tst_CAuthorization::runScript_data()
{
    QTest::addColumn<bool>("isRoot");
    QTest::addColumn<QByteArrayList>("pkexecLocations");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QStringList>("messages");

    // As pkexec, env runs what it is given and false is a dismissed password dialog: it
    // ends without starting anything.
    const QByteArray pkexec = "/usr/bin/env", dismissed = "/bin/false", missing = "/nonexistent";
    // clang-format off
    QTest::newRow("root runs the shell itself") << true << QByteArrayList {dismissed} << true << "hello\n" << QStringList();
    QTest::newRow("root without pkexec") << true << QByteArrayList {missing} << true << "hello\n" << QStringList();
    QTest::newRow("user goes through pkexec") << false << QByteArrayList {missing, pkexec} << true << "hello\n" << QStringList();
    QTest::newRow("password dialog dismissed") << false << QByteArrayList {dismissed, pkexec} << true << QString() << QStringList();
    QTest::newRow("no pkexec") << false << QByteArrayList {missing} << false << QString()
        << QStringList {"initialize: failed to connect to authorization services. Err: -60008"};
    // clang-format on
}

void tst_CAuthorization::runScript()
{
    QFETCH(bool, isRoot);
    QFETCH(QByteArrayList, pkexecLocations);
    QFETCH(bool, expected);
    QFETCH(QString, output);
    QFETCH(QStringList, messages);

    CPolkitEnvironment environment;
    environment.isRoot = isRoot;
    environment.pkexecLocations = pkexecLocations;
    overridePolkitEnvironment(environment);
    BvTest::MessageCapture capture;
    QString collected;
    {
        CAuthorization authorization;
        // polkit decides when the shell starts: the right itself always counts as given.
        QVERIFY(authorization.authorizeAsAdmin(QStringLiteral("com.brisvane.test")));
        QCOMPARE(authorization.shellExecuteWithPrivileges(QStringLiteral("echo hello"), collected),
            expected);
    }
    QCOMPARE(collected, output);
    QCOMPARE(logLines(capture, QtCriticalMsg, QStringLiteral("CAuthorization")), messages);
}

QTEST_GUILESS_MAIN(tst_CAuthorization)
#include "tst_cauthorization.moc"
