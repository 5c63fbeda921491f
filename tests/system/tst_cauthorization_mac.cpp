// CAuthorization over Authorization Services, run against the scripted stand-in of the
// Security framework: every branch of the sequence, with the exact calls and lines.

#include "system/mac/CAuthorization.h"

#include "AuthorizationStandIn.h"
#include "BvTestSupport.h"
#include "LogLines.h"

using AuthorizationStandIn::Answers;

namespace {

const QString C_CREATE = QStringLiteral("AuthorizationCreate rights=null environment=null flags=0");
const QString C_FREE = QStringLiteral("AuthorizationFree flags=8");
const QString C_EXECUTE = QStringLiteral(
    "AuthorizationExecuteWithPrivileges /bin/sh options=0 arguments=[/dev/stdin] pipe=set");

QString rightGet(const QString &right)
{
    return QStringLiteral("AuthorizationRightGet %1 definition=null").arg(right);
}

QString rightSet(const QString &right)
{
    return QStringLiteral("AuthorizationRightSet %1 rule=authenticate-admin descriptionKey=null "
                          "bundle=null localeTable=null")
        .arg(right);
}

QString copyRights(const QString &right)
{
    return QStringLiteral("AuthorizationCopyRights [%1 valueLength=0 value=null flags=0] "
                          "environment=null flags=0x13 authorizedRights=null")
        .arg(right);
}

QStringList criticals(const BvTest::MessageCapture &capture)
{
    return logLines(capture, QtCriticalMsg, QStringLiteral("CAuthorization"));
}

Answers answers(OSStatus create, OSStatus get, OSStatus set = 0, OSStatus copy = 0,
    OSStatus execute = 0, OSStatus free = 0)
{
    Answers result;
    result.create = create;
    result.rightGet = get;
    result.rightSet = set;
    result.copyRights = copy;
    result.execute = execute;
    result.free = free;
    return result;
}

} // namespace

class tst_CAuthorizationMac : public QObject
{
    Q_OBJECT

public:
    explicit tst_CAuthorizationMac(const QString &beforeApplication)
        : m_BeforeApplication(beforeApplication)
    { }

private slots:
    void reverseDomainName();
    void authorizeAsAdmin_data();
    void authorizeAsAdmin();
    void shellExecute_data();
    void shellExecute();
    void acquireWithoutSession();
    void finalizeFailure();

private:
    QString m_BeforeApplication;
};

void tst_CAuthorizationMac::reverseDomainName()
{
    QVERIFY(m_BeforeApplication.isEmpty());
    QCOMPARE(CAuthorization::getReverseDomainNameString(),
        QStringLiteral("com.brisvane.brisvane uninstaller"));
    QCOMPARE(CAuthorization::getRightNameSpace(QStringLiteral("admin")),
        QStringLiteral("com.brisvane.brisvane uninstaller.admin"));
    // Computed once per process.
    QCoreApplication::setOrganizationDomain(QStringLiteral("example.org"));
    QCOMPARE(CAuthorization::getReverseDomainNameString(),
        QStringLiteral("com.brisvane.brisvane uninstaller"));
}

void tst_CAuthorizationMac::authorizeAsAdmin_data()
{
    QTest::addColumn<Answers>("script");
    QTest::addColumn<QString>("nameSpace");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<QStringList>("calls");
    QTest::addColumn<QStringList>("messages");

    const QString space = QStringLiteral("com.brisvane.test");
    const QString right = QStringLiteral("com.brisvane.test.admin");
    const QString connectFailed
        = QStringLiteral("initialize: failed to connect to authorization services. Err: -60008");

    QTest::newRow("right exists") << answers(0, 0) << space << true
                                  << QStringList {C_CREATE, rightGet(right), C_FREE}
                                  << QStringList();
    QTest::newRow("right exists, no session")
        << answers(-60008, 0) << space << true << QStringList {C_CREATE, rightGet(right)}
        << QStringList {connectFailed};
    QTest::newRow("empty name space")
        << answers(0, 0) << QString() << true
        << QStringList {C_CREATE, rightGet(QStringLiteral("com.brisvane.brisvane.admin")), C_FREE}
        << QStringList();
    QTest::newRow("created and acquired")
        << answers(0, -60005, 0, 0) << space << true
        << QStringList {C_CREATE, rightGet(right), rightSet(right), copyRights(right), C_FREE}
        << QStringList();
    QTest::newRow("created, dialog cancelled")
        << answers(0, -60005, 0, -60006) << space << false
        << QStringList {C_CREATE, rightGet(right), rightSet(right), copyRights(right), C_FREE}
        << QStringList {
               QStringLiteral("acquireRight: failed to aquire right %1. Err: -60006").arg(right),
               QStringLiteral("authorizeAsAdmin: failed to authorize as admin. Err: 0")};
    QTest::newRow("creation refused")
        << answers(0, -60005, -60007) << space << false
        << QStringList {C_CREATE, rightGet(right), rightSet(right), C_FREE}
        << QStringList {
               QStringLiteral("authorizeAsAdmin: Could not create default right. Err: -60007")};
    QTest::newRow("not defined, no session")
        << answers(-60008, -60005) << space << false << QStringList {C_CREATE, rightGet(right)}
        << QStringList {connectFailed};
    QTest::newRow("database error")
        << answers(0, -60008) << space << false << QStringList {C_CREATE, rightGet(right), C_FREE}
        << QStringList {
               QStringLiteral("authorizeAsAdmin: failed to authorize as admin. Err: -60008")};
}

void tst_CAuthorizationMac::authorizeAsAdmin()
{
    QFETCH(Answers, script);
    QFETCH(QString, nameSpace);
    QFETCH(bool, expected);
    QFETCH(QStringList, calls);
    QFETCH(QStringList, messages);

    AuthorizationStandIn::reset(script);
    BvTest::MessageCapture capture;
    {
        CAuthorization authorization;
        QCOMPARE(authorization.authorizeAsAdmin(nameSpace), expected);
    }
    QCOMPARE(AuthorizationStandIn::calls(), calls);
    QCOMPARE(criticals(capture), messages);
}

void tst_CAuthorizationMac::shellExecute_data()
{
    QTest::addColumn<Answers>("script");
    QTest::addColumn<QString>("shellScript");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QStringList>("calls");
    QTest::addColumn<QStringList>("messages");

    const QStringList ran {C_CREATE, C_EXECUTE, C_FREE, QStringLiteral("tool exited 0")};
    QTest::newRow("output collected") << answers(0, 0) << "echo hello" << true << "hello\n"
                                      << ran << QStringList();
    // Without a line of its own, "exit 0" would not run and the shell would end with 1.
    QTest::newRow("last line without line feed")
        << answers(0, 0) << "echo one\nfalse" << true << "one\n"
        << ran << QStringList();

    QString longScript;
    QString longOutput;
    for (int i = 0; i < 60; ++i) {
        longScript += QStringLiteral("echo 'line %1 of the removal'\n").arg(i);
        longOutput += QStringLiteral("line %1 of the removal\n").arg(i);
    }
    QTest::newRow("output beyond one chunk")
        << answers(0, 0) << longScript << true << longOutput << ran << QStringList();
    QTest::newRow("output in pieces")
        << answers(0, 0) << "printf 'first '; sleep 0.2; echo second" << true << "first second\n"
        << ran << QStringList();

    // The shell stops reading long before the script is written: the write fails, quietly.
    const QString unread = QStringLiteral("exit 3\n") + QString(4 << 20, QLatin1Char('#'));
    QTest::newRow("shell quits before reading the script")
        << answers(0, 0) << unread << false << QString()
        << QStringList {C_CREATE, C_EXECUTE, C_FREE, QStringLiteral("tool exited 3")}
        << QStringList();
    QTest::newRow("execution refused")
        << answers(0, 0, 0, 0, -60031) << "echo hello" << false << QString()
        << QStringList {C_CREATE, C_EXECUTE, C_FREE}
        << QStringList {QStringLiteral(
               "shellExecuteWithPrivileges: failed to shell execute with privileges. Err: -60031")};
    QTest::newRow("no session")
        << answers(-60008, 0) << "echo hello" << false << QString() << QStringList {C_CREATE}
        << QStringList {QStringLiteral(
               "initialize: failed to connect to authorization services. Err: -60008")};
}

void tst_CAuthorizationMac::shellExecute()
{
    QFETCH(Answers, script);
    QFETCH(QString, shellScript);
    QFETCH(bool, expected);
    QFETCH(QString, output);
    QFETCH(QStringList, calls);
    QFETCH(QStringList, messages);

    AuthorizationStandIn::reset(script);
    BvTest::MessageCapture capture;
    QString collected = QStringLiteral("left over");
    {
        CAuthorization authorization;
        QCOMPARE(authorization.shellExecuteWithPrivileges(shellScript, collected), expected);
    }
    QCOMPARE(collected, output);
    QCOMPARE(collected.isNull(), output.isNull());
    QCOMPARE(AuthorizationStandIn::calls(), calls);
    QCOMPARE(criticals(capture), messages);
}

void tst_CAuthorizationMac::acquireWithoutSession()
{
    AuthorizationStandIn::reset(answers(-60008, 0));
    BvTest::MessageCapture capture;
    CAuthorization authorization;
    QVERIFY(!authorization.acquireRight(QLatin1String("com.brisvane.test.admin")));
    QCOMPARE(AuthorizationStandIn::calls(), QStringList {C_CREATE});
    QCOMPARE(criticals(capture).size(), 1);
}

void tst_CAuthorizationMac::finalizeFailure()
{
    AuthorizationStandIn::reset(answers(0, 0, 0, 0, 0, -60008));
    BvTest::MessageCapture capture;
    {
        CAuthorization authorization;
        authorization.finalize();
        QVERIFY(!authorization.acquireRight(QLatin1String("com.brisvane.test.admin")));
    }
    QCOMPARE(AuthorizationStandIn::calls(), (QStringList {C_CREATE, C_FREE}));
    QCOMPARE(criticals(capture),
        QStringList {
            QStringLiteral("finalize: failed to free authorization reference. Err: -60008")});
}

Q_DECLARE_METATYPE(Answers)

int main(int argc, char *argv[])
{
    // Asked before the application object exists, the identifier is not known yet.
    const QString beforeApplication = CAuthorization::getReverseDomainNameString();
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Brisvane Uninstaller"));
    QCoreApplication::setOrganizationDomain(QStringLiteral(".Brisvane..COM."));
    tst_CAuthorizationMac test(beforeApplication);
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_cauthorization_mac.moc"
