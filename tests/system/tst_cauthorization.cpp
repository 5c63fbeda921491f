// CAuthorization over polkit: real shells, started directly or through a stand-in pkexec.

#include "system/linux/CPolkitEnvironment.h"
#include "system/mac/CAuthorization.h"

#include "BvTestSupport.h"
#include "LogLines.h"

#include <QTemporaryDir>

#include <unistd.h>

class tst_CAuthorization : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void runScript_data();
    void runScript();
    void realRootShell();

private:
    QByteArray writeTool(const QString &name, const QByteArray &body);

    QTemporaryDir m_Dir;
};

void tst_CAuthorization::initTestCase()
{
    QVERIFY2(m_Dir.isValid(), qPrintable(m_Dir.errorString()));
}

void tst_CAuthorization::cleanup()
{
    overridePolkitEnvironment(std::nullopt);
}

QByteArray tst_CAuthorization::writeTool(const QString &name, const QByteArray &body)
{
    QFile file(m_Dir.filePath(name));
    if (!file.open(QIODevice::WriteOnly) || file.write("#!/bin/sh\n" + body) < 0)
        return QByteArray();
    file.close();
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return QFile::encodeName(file.fileName());
}

void tst_CAuthorization::runScript_data()
{
    QTest::addColumn<bool>("isRoot");
    QTest::addColumn<QByteArrayList>("pkexecLocations");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QStringList>("messages");

    // The stand-in announces itself, then runs what it was given, as pkexec would.
    const QByteArray pkexec
        = writeTool(QStringLiteral("pkexec"), "echo \"pkexec $*\"\nexec \"$@\"\n");
    // A dismissed password dialog: pkexec ends without starting anything.
    const QByteArray dismissed = writeTool(QStringLiteral("pkexec-dismissed"), "exit 126\n");
    QVERIFY(!pkexec.isEmpty() && !dismissed.isEmpty());
    const QByteArray missing = QFile::encodeName(m_Dir.filePath(QStringLiteral("missing")));

    QTest::newRow("root runs the shell itself")
        << true << QByteArrayList {pkexec} << true << "hello\nline two\n"
        << QStringList();
    QTest::newRow("root without pkexec")
        << true << QByteArrayList {missing} << true << "hello\nline two\n"
        << QStringList();
    QTest::newRow("user goes through pkexec") << false << QByteArrayList {missing, pkexec} << true
                                              << "pkexec /bin/sh /dev/stdin\nhello\nline two\n"
                                              << QStringList();
    QTest::newRow("password dialog dismissed")
        << false << QByteArrayList {dismissed} << true << QString() << QStringList();
    QTest::newRow("no pkexec")
        << false << QByteArrayList {missing} << false << QString()
        << QStringList {QStringLiteral(
               "initialize: failed to connect to authorization services. Err: -60008")};
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
        QVERIFY(authorization.authorizeAsAdmin(
            CAuthorization::getRightNameSpace(QStringLiteral("admin"))));
        QCOMPARE(authorization.shellExecuteWithPrivileges(
                     QStringLiteral("echo hello\necho 'line two'"), collected),
            expected);
    }
    QCOMPARE(collected, output);
    QCOMPARE(logLines(capture, QtCriticalMsg, QStringLiteral("CAuthorization")), messages);
}

void tst_CAuthorization::realRootShell()
{
    if (::geteuid() != 0)
        QSKIP("without root the real path asks a polkit agent for a password");
    CAuthorization authorization;
    QVERIFY(authorization.authorizeAsAdmin(QString()));
    QString output;
    QVERIFY(authorization.shellExecuteWithPrivileges(QStringLiteral("id -u"), output));
    QCOMPARE(output, QStringLiteral("0\n"));
}

QTEST_GUILESS_MAIN(tst_CAuthorization)
#include "tst_cauthorization.moc"
