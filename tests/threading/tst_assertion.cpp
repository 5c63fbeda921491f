// Diagnostic prefixes, assertions and the library's exception reports.

#include "threading/assertions/assertion.h"
#include "threading/exceptions/CException.h"

#include <QtTest>

class tst_Assertion : public QObject
{
    Q_OBJECT

private slots:
    void mainThreadPrefix()
    {
        QTest::ignoreMessage(QtWarningMsg, "[ -1 : MainThread ] [ main.cpp : 66 : load ] gone");
        getLogMessageTemplate("../src/main.cpp", "load", 66, QtWarningMsg) << "gone";
    }

    void failedThrowAssertThrows()
    {
        const int left = 0;
        QScopedPointer<CException> e;
        try {
            BV_ASSERT_THROW(left > 0);
        } catch (CException *caught) {
            e.reset(caught);
        }
        QVERIFY(e);
        QVERIFY(QString::fromStdString(e->getMessage()).contains("\"left > 0\""));
    }

    void reportNamesTheCause()
    {
        const CException e("load", "src/io.cpp", 12, "outer", CCallStack(),
            new CException(
                "read", "src/io.cpp", 40, "inner", CCallStack(), nullptr, 7, -1, nullptr),
            -1, -1, nullptr);
        const QString report = QString::fromLocal8Bit(e.what());
        QVERIFY2(report.contains("caused by\tCException:\tThis is a CxException\n\tthrown at "
                                 "[src/io.cpp:40]\tread\nDetails:\ninner\nPrimaryErrorCode:\t7\n"),
            qPrintable(report));
    }
};

QTEST_MAIN(tst_Assertion)
#include "tst_assertion.moc"
