#include "misc/CQDateTimeConverter.h"

#include <QtTest>

class tst_CQDateTimeConverter : public QObject
{
    Q_OBJECT

private slots:
    void convert()
    {
        const QDateTime epoch = QDateTime::fromMSecsSinceEpoch(0, Qt::UTC);
        QCOMPARE(CQDateTimeConverter::convertInt64ToQDateTime(1500), epoch.addMSecs(1500));
        QCOMPARE(CQDateTimeConverter::convertDoubleToQDateTime(-5000.0), epoch);
        // Clamped to the last 32-bit second, then the (clamped) remainder is still added.
        QCOMPARE(CQDateTimeConverter::convertDoubleToQDateTime(4294967295000.0 + 86400000.0),
            epoch.addSecs(4294967295).addMSecs(86400000));
    }
};

QTEST_GUILESS_MAIN(tst_CQDateTimeConverter)
#include "tst_cqdatetimeconverter.moc"
