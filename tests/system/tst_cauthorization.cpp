// CAuthorization over polkit: real shells, started directly or through a program that
// stands in for pkexec. This program links its own CPolkitEnvironment::system(), so each
// row plays the machine it needs.

#include "system/linux/CPolkitEnvironment.h"
#include "system/mac/CAuthorization.h"

#include "LogLines.h"

namespace {
CPolkitEnvironment g_Machine;
} // namespace

CPolkitEnvironment CPolkitEnvironment::system()
{
    return g_Machine;
}

class tst_CAuthorization : public QObject
{
    Q_OBJECT

private slots:
    void runScript_data();
    void runScript();
};

void tst_CAuthorization::runScript_data()
{
    QTest::addColumn<bool>("isRoot");
    QTest::addColumn<QByteArrayList>("pkexecLocations");
    QTest::addColumn<bool>("upFront"); // acquire the execute right before the script
    QTest::addColumn<bool>("acquired");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QStringList>("messages");

    // As pkexec, env runs what it is given and false is a dismissed password dialog: it
    // ends without starting anything.
    const QByteArray pkexec = "/usr/bin/env", dismissed = "/bin/false", missing = "/nonexistent";
    const QString declined = QStringLiteral(
        "acquireRight: failed to aquire right system.privilege.admin. Err: -60006");
    // clang-format off
    QTest::newRow("root runs the shell itself") << true << QByteArrayList {dismissed} << false << true << true << "hello\n" << QStringList();
    QTest::newRow("root without pkexec") << true << QByteArrayList {missing} << false << true << true << "hello\n" << QStringList();
    QTest::newRow("user goes through pkexec") << false << QByteArrayList {missing, pkexec} << false << true << true << "hello\n" << QStringList();
    QTest::newRow("password dialog dismissed") << false << QByteArrayList {dismissed, pkexec} << false << true << true << QString() << QStringList();
    QTest::newRow("no pkexec") << false << QByteArrayList {missing} << false << true << false << QString()
        << QStringList {"initialize: failed to connect to authorization services. Err: -60008"};
    QTest::newRow("up front, root") << true << QByteArrayList {dismissed} << true << true << true << "hello\n" << QStringList();
    QTest::newRow("up front, through pkexec") << false << QByteArrayList {pkexec} << true << true << true << "hello\n" << QStringList();
    // The question comes before the script: a refusal is known while nothing has been done.
    QTest::newRow("up front, dialog dismissed") << false << QByteArrayList {dismissed} << true << false << false << QString()
        << QStringList {declined};
    // clang-format on
}

void tst_CAuthorization::runScript()
{
    QFETCH(bool, isRoot);
    QFETCH(QByteArrayList, pkexecLocations);
    QFETCH(bool, upFront);
    QFETCH(bool, acquired);
    QFETCH(bool, expected);
    QFETCH(QString, output);
    QFETCH(QStringList, messages);

    g_Machine.isRoot = isRoot;
    g_Machine.pkexecLocations = pkexecLocations;
    BvTest::MessageCapture capture;
    QString collected;
    {
        CAuthorization authorization;
        // polkit decides when the shell starts: the right itself always counts as given.
        QVERIFY(authorization.authorizeAsAdmin(QStringLiteral("com.brisvane.test")));
        if (upFront)
            QCOMPARE(authorization.acquireRight(QLatin1String("system.privilege.admin")), acquired);
        // The removal script is written for bash: a POSIX-only shell fails on both lines.
        if (acquired)
            QCOMPARE(authorization.shellExecuteWithPrivileges(
                         QStringLiteral("function greet { [ x == x ] && echo hello; }\ngreet"),
                         collected),
                expected);
    }
    QCOMPARE(collected, output);
    QCOMPARE(logLines(capture, QtCriticalMsg, QStringLiteral("CAuthorization")), messages);
}

QTEST_GUILESS_MAIN(tst_CAuthorization)
#include "tst_cauthorization.moc"
