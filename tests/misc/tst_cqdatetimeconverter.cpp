#include "misc/CQDateTimeConverter.h"

#include <QtTest>

static QDateTime utc(int y, int mo, int d, int h, int mi, int s, int ms)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s, ms), Qt::UTC);
}

class tst_CQDateTimeConverter : public QObject
{
    Q_OBJECT

private slots:
    void convert_data()
    {
        QTest::addColumn<bool>("integer");
        QTest::addColumn<double>("msecs");
        QTest::addColumn<QDateTime>("expected");

        // clang-format off
        QTest::newRow("integer") << true << 1500.0 << utc(1970, 1, 1, 0, 0, 1, 500);
        QTest::newRow("last 32-bit second") << true << 4294967295999.0 << utc(2106, 2, 7, 6, 28, 15, 999);
        // Seconds travel as 32 bits: one second further wraps to the epoch.
        QTest::newRow("wraps") << true << 4294967296000.0 + 2500 << utc(1970, 1, 1, 0, 0, 2, 500);
        QTest::newRow("fraction truncated") << false << 1234.9 << utc(1970, 1, 1, 0, 0, 1, 234);
        QTest::newRow("negative") << false << -5000.0 << utc(1970, 1, 1, 0, 0, 0, 0);
        QTest::newRow("not a number") << false << qQNaN() << utc(1970, 1, 1, 0, 0, 0, 0);
        // Clamped to the last second, then the (clamped) remainder is still added.
        QTest::newRow("clamped") << false << 4294967295000.0 + 86400000.0
                                 << utc(2106, 2, 7, 6, 28, 15, 0).addMSecs(86400000);
        // clang-format on
    }

    void convert()
    {
        QFETCH(bool, integer);
        QFETCH(double, msecs);
        QFETCH(QDateTime, expected);
        const QDateTime result = integer
            ? CQDateTimeConverter::convertInt64ToQDateTime(quint64(msecs))
            : CQDateTimeConverter::convertDoubleToQDateTime(msecs);
        QCOMPARE(result, expected);
        QCOMPARE(result.timeSpec(), Qt::UTC);
    }
};

QTEST_GUILESS_MAIN(tst_CQDateTimeConverter)
#include "tst_cqdatetimeconverter.moc"
