#include "misc/CQDateTimeConverter.h"

#include <QtTest>

class tst_CQDateTimeConverter : public QObject
{
    Q_OBJECT

private slots:
    void integer_data();
    void integer();
    void floating_data();
    void floating();
};

static QDateTime utc(int y, int mo, int d, int h, int mi, int s, int ms)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s, ms), Qt::UTC);
}

void tst_CQDateTimeConverter::integer_data()
{
    QTest::addColumn<quint64>("msecs");
    QTest::addColumn<QDateTime>("expected");

    QTest::newRow("epoch") << quint64(0) << utc(1970, 1, 1, 0, 0, 0, 0);
    QTest::newRow("1500") << quint64(1500) << utc(1970, 1, 1, 0, 0, 1, 500);
    QTest::newRow("last 32-bit second")
        << quint64(4294967295999ULL) << utc(2106, 2, 7, 6, 28, 15, 999);
    // One second further wraps to the epoch: seconds travel as 32 bits.
    QTest::newRow("wraps") << quint64(4294967296000ULL + 2500) << utc(1970, 1, 1, 0, 0, 2, 500);
}

void tst_CQDateTimeConverter::integer()
{
    QFETCH(quint64, msecs);
    QFETCH(QDateTime, expected);
    const QDateTime result = CQDateTimeConverter::convertInt64ToQDateTime(msecs);
    QCOMPARE(result, expected);
    QCOMPARE(result.timeSpec(), Qt::UTC);
}

void tst_CQDateTimeConverter::floating_data()
{
    QTest::addColumn<double>("msecs");
    QTest::addColumn<QDateTime>("expected");

    QTest::newRow("epoch") << 0.0 << utc(1970, 1, 1, 0, 0, 0, 0);
    QTest::newRow("1500") << 1500.0 << utc(1970, 1, 1, 0, 0, 1, 500);
    QTest::newRow("fraction truncated") << 1234.9 << utc(1970, 1, 1, 0, 0, 1, 234);
    QTest::newRow("negative") << -5000.0 << utc(1970, 1, 1, 0, 0, 0, 0);
    QTest::newRow("not a number") << qQNaN() << utc(1970, 1, 1, 0, 0, 0, 0);
    // Clamped to the last second, then the (clamped) remainder is still added.
    QTest::newRow("clamped") << 4294967295000.0 + 86400000.0
                             << utc(2106, 2, 7, 6, 28, 15, 0).addMSecs(86400000);
}

void tst_CQDateTimeConverter::floating()
{
    QFETCH(double, msecs);
    QFETCH(QDateTime, expected);
    const QDateTime result = CQDateTimeConverter::convertDoubleToQDateTime(msecs);
    QCOMPARE(result, expected);
    QCOMPARE(result.timeSpec(), Qt::UTC);
}

QTEST_GUILESS_MAIN(tst_CQDateTimeConverter)
#include "tst_cqdatetimeconverter.moc"
