#include "misc/CPathOperations.h"

#include <QtTest>

class tst_CPathOperations : public QObject
{
    Q_OBJECT

private slots:
    // The stamp goes before the extension, never between a one-letter name and its dot;
    // the time comes in another zone, the stamp is in UTC.
    void clashName_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("expected");
        QTest::newRow("dot at index 1") << "a.txt"
                                        << "a.txt(alice-240131235959)";
        QTest::newRow("dot at index 2") << "ab.txt"
                                        << "ab(alice-240131235959).txt";
    }

    void clashName()
    {
        QFETCH(QString, name);
        QFETCH(QString, expected);
        const QDateTime when(QDate(2024, 2, 1), QTime(1, 59, 59), QTimeZone(7200));
        QCOMPARE(CPathOperations::mkSynchronizerNameClashFileName(name, when, "alice"), expected);
    }

    void paths()
    {
        // One trailing slash of the base is dropped, not all of them.
        QCOMPARE(CPathOperations::concatPath("/x//", "y", "", false, false), "/x//y");
        // "/sx/a" is not inside the space "/s".
        QCOMPARE(CPathOperations::makeSpaceRelativePath("/s", "/sx/a", false, false), "sx/a");
        QStringList hierarchy, components;
        QVERIFY(CPathOperations::generateScatteredPathHierarchy(
            "/a/b/c", hierarchy, components, false, true));
        QCOMPARE(hierarchy, QStringList({"", "/", "/a/", "/a/b/"}));
        QCOMPARE(components, QStringList({"/", "a", "b", "c"}));
    }

    // A name may have 255 bytes, counted as the file system stores them.
    void isPathTooLong_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("expected");
        QTest::newRow("255 bytes") << QString(255, 'n') << false;
        QTest::newRow("256 bytes, 128 letters") << QString(128, QChar(0xe4)) << true;
    }

    void isPathTooLong()
    {
        QFETCH(QString, name);
        QFETCH(bool, expected);
        if (expected)
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("\\] path too long \""));
        QCOMPARE(CPathOperations::isPathTooLong("ignored", "/a", name, false), expected);
    }
};

QTEST_GUILESS_MAIN(tst_CPathOperations)
#include "tst_cpathoperations.moc"
