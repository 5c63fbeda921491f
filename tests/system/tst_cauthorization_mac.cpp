// CAuthorization over Authorization Services, run against the scripted stand-in of the
// Security framework in tests/platform.

#include "system/mac/CAuthorization.h"

#include "LogLines.h"

#include <Security/Authorization.h>

using AuthorizationStandIn::Answers;
Q_DECLARE_METATYPE(Answers)

class tst_CAuthorizationMac : public QObject
{
    Q_OBJECT

public:
    explicit tst_CAuthorizationMac(const QString &beforeApplication)
        : m_BeforeApplication(beforeApplication)
    { }

private slots:
    void reverseDomainName();
    void authorizeAndRun_data();
    void authorizeAndRun();

private:
    QString m_BeforeApplication;
};

namespace {

const QString C_CONNECT_FAILED
    = QStringLiteral("initialize: failed to connect to authorization services. Err: -60008");

} // namespace

void tst_CAuthorizationMac::reverseDomainName()
{
    QVERIFY(m_BeforeApplication.isEmpty());
    QCOMPARE(CAuthorization::getRightNameSpace(QStringLiteral("admin")),
        QStringLiteral("com.brisvane.brisvane uninstaller.admin"));
    // Computed once per process.
    QCoreApplication::setOrganizationDomain(QStringLiteral("example.org"));
    QCOMPARE(CAuthorization::getReverseDomainNameString(),
        QStringLiteral("com.brisvane.brisvane uninstaller"));
}

void tst_CAuthorizationMac::authorizeAndRun_data()
{
    QTest::addColumn<Answers>("answers");
    QTest::addColumn<QString>("nameSpace");
    QTest::addColumn<QString>("script");
    QTest::addColumn<bool>("authorized");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QStringList>("calls");
    QTest::addColumn<QStringList>("messages");

    const QString space = QStringLiteral("com.brisvane.test");
    const QString echo = QStringLiteral("echo hello");
    const QString hello = QStringLiteral("hello\n");
    const QString create = QStringLiteral("Create");
    const QString get = QStringLiteral("RightGet com.brisvane.test.admin");
    const QString set = QStringLiteral("RightSet com.brisvane.test.admin");
    const QString copy = QStringLiteral("CopyRights com.brisvane.test.admin");
    const QString free = QStringLiteral("Free");
    const QString failed = QStringLiteral("authorizeAsAdmin: failed to authorize as admin. Err: ");
    const QStringList plain {create, get, free};
    QString longScript;
    QString longOutput;
    for (int i = 0; i < 60; ++i) {
        longScript += QStringLiteral("echo 'line %1 of the removal'\n").arg(i);
        longOutput += QStringLiteral("line %1 of the removal\n").arg(i);
    }
    // The shell stops reading long before this is written: the write fails, quietly.
    const QString unread = QStringLiteral("exit 3\n") + QString(4 << 20, QLatin1Char('#'));
    // Answers: create, rightGet, rightSet, copyRights, execute, free. A null output: the
    // script did not run.
    // clang-format off
    QTest::newRow("right exists") << Answers {} << space << echo << true << hello << plain << QStringList();
    QTest::newRow("right exists, no session") << Answers {-60008} << space << echo << true << QString() << QStringList {create, get} << QStringList {C_CONNECT_FAILED};
    QTest::newRow("product's own right") << Answers {} << QString() << echo << true << hello << QStringList {create, "RightGet com.brisvane.brisvane.admin", free} << QStringList();
    QTest::newRow("created and acquired") << Answers {0, -60005} << space << echo << true << hello << QStringList {create, get, set, copy, free} << QStringList();
    QTest::newRow("created, dialog cancelled") << Answers {0, -60005, 0, -60006} << space << echo << false << QString() << QStringList {create, get, set, copy, free}
        << QStringList {"acquireRight: failed to aquire right com.brisvane.test.admin. Err: -60006", failed + "0"};
    QTest::newRow("creation refused") << Answers {0, -60005, -60007} << space << echo << false << QString() << QStringList {create, get, set, free}
        << QStringList {"authorizeAsAdmin: Could not create default right. Err: -60007"};
    QTest::newRow("not defined, no session") << Answers {-60008, -60005} << space << echo << false << QString() << QStringList {create, get} << QStringList {C_CONNECT_FAILED};
    QTest::newRow("database error") << Answers {0, -60008} << space << echo << false << QString() << plain << QStringList {failed + "-60008"};
    QTest::newRow("freeing fails") << Answers {0, 0, 0, 0, 0, -60008} << space << echo << true << hello << plain
        << QStringList {"finalize: failed to free authorization reference. Err: -60008"};
    QTest::newRow("last line without line feed") << Answers {} << space << "echo one\necho two" << true << "one\ntwo\n" << plain << QStringList();
    QTest::newRow("output beyond one chunk") << Answers {} << space << longScript << true << longOutput << plain << QStringList();
    QTest::newRow("shell quits before reading the script") << Answers {} << space << unread << true << QString() << plain << QStringList();
    QTest::newRow("execution refused") << Answers {0, 0, 0, 0, -60031} << space << echo << true << QString() << plain
        << QStringList {"shellExecuteWithPrivileges: failed to shell execute with privileges. Err: -60031"};
    // clang-format on
}

void tst_CAuthorizationMac::authorizeAndRun()
{
    QFETCH(Answers, answers);
    QFETCH(QString, nameSpace);
    QFETCH(QString, script);
    QFETCH(bool, authorized);
    QFETCH(QString, output);
    QFETCH(QStringList, calls);
    QFETCH(QStringList, messages);

    AuthorizationStandIn::reset(answers);
    BvTest::MessageCapture capture;
    QString collected = QStringLiteral("left over");
    {
        CAuthorization authorization;
        QCOMPARE(authorization.authorizeAsAdmin(nameSpace), authorized);
        if (authorized)
            QCOMPARE(authorization.shellExecuteWithPrivileges(script, collected), !output.isNull());
    }
    QCOMPARE(collected, authorized ? output : QStringLiteral("left over"));
    QCOMPARE(AuthorizationStandIn::calls(), calls);
    QCOMPARE(logLines(capture, QtCriticalMsg, QStringLiteral("CAuthorization")), messages);
}

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
