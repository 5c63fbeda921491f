#include "misc/CPathOperations.h"

#include <QtTest>

class tst_CPathOperations : public QObject
{
    Q_OBJECT

private slots:
    void clashName_data()
    {
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<QString>("expected");

        // clang-format off
        QTest::newRow("first dot counts") << "archive.tar.gz" << "archive(alice-240131235959).tar.gz";
        QTest::newRow("dot at index 1") << "a.txt" << "a.txt(alice-240131235959)";
        QTest::newRow("dot at index 2") << "ab.txt" << "ab(alice-240131235959).txt";
        QTest::newRow("leading dot, later dot") << ".profile.bak" << ".profile(alice-240131235959).bak";
        QTest::newRow("no dot") << "Makefile" << "Makefile(alice-240131235959)";
        QTest::newRow("trailing dot") << "notes." << "notes(alice-240131235959).";
        // clang-format on
    }

    void clashName()
    {
        QFETCH(QString, fileName);
        QFETCH(QString, expected);
        // Given in another zone: the stamp is always UTC.
        const QDateTime when(QDate(2024, 2, 1), QTime(1, 59, 59), QTimeZone(7200));
        QCOMPARE(
            CPathOperations::mkSynchronizerNameClashFileName(fileName, when, "alice"), expected);
        QCOMPARE(CPathOperations::mkArchiverNameClashFileName(fileName, when, "alice"), expected);
    }

    void separators_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("forced");
        QTest::addColumn<QString>("stripped");

        QTest::newRow("empty") << ""
                               << "/"
                               << "";
        QTest::newRow("root") << "/"
                              << "/"
                              << "";
        QTest::newRow("plain") << "a/b"
                               << "/a/b/"
                               << "a/b";
        QTest::newRow("many") << "///a/b//"
                              << "///a/b//"
                              << "a/b";
    }

    void separators()
    {
        QFETCH(QString, path);
        QFETCH(QString, forced);
        QFETCH(QString, stripped);

        QString p = path;
        CPathOperations::forceLeadingAndTrailingPathSeperators(p, false);
        QCOMPARE(p, forced);
        p = path;
        CPathOperations::forceNoLeadingAndTrailingPathSeperators(p, false);
        QCOMPARE(p, stripped);
        QCOMPARE(CPathOperations::fromNativeSeparators(path, true), forced);
    }

    void concatPath_data()
    {
        QTest::addColumn<QString>("base");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("extension");
        QTest::addColumn<bool>("force");
        QTest::addColumn<QString>("expected");

        // clang-format off
        QTest::newRow("root name") << "" << "/" << "" << false << "/";
        QTest::newRow("empty base") << "" << "a" << "" << false << "/a";
        QTest::newRow("separators stripped") << "/x" << "//y/" << "/gz/" << false << "/x/y.gz";
        QTest::newRow("only one trailing slash dropped") << "/x//" << "y" << "" << false << "/x//y";
        QTest::newRow("no name") << "/x" << "" << "txt" << false << "/x.txt";
        QTest::newRow("forced") << "x" << "y" << "" << true << "/x/y/";
        // clang-format on
    }

    void concatPath()
    {
        QFETCH(QString, base);
        QFETCH(QString, name);
        QFETCH(QString, extension);
        QFETCH(bool, force);
        QFETCH(QString, expected);
        QCOMPARE(CPathOperations::concatPath(base, name, extension, false, force), expected);
    }

    void hierarchy_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("withSeparators");
        QTest::addColumn<QStringList>("hierarchy");
        QTest::addColumn<QStringList>("components");

        // clang-format off
        QTest::newRow("dir style") << "/a/b/c" << true << QStringList {"", "/", "/a/", "/a/b/"} << QStringList {"/", "a", "b", "c"};
        QTest::newRow("plain") << "/a/b/c" << false << QStringList {"", "", "a", "a/b"} << QStringList {"/", "a", "b", "c"};
        QTest::newRow("doubled separators") << "//a//b/" << false << QStringList {"", "", "a"} << QStringList {"/", "a", "b"};
        QTest::newRow("root alone") << "/" << true << QStringList {""} << QStringList {"/"};
        // clang-format on
    }

    void hierarchy()
    {
        QFETCH(QString, path);
        QFETCH(bool, withSeparators);
        QFETCH(QStringList, hierarchy);
        QFETCH(QStringList, components);

        QStringList gotHierarchy {"stale"}, gotComponents {"stale"};
        QVERIFY(CPathOperations::generateScatteredPathHierarchy(
            path, gotHierarchy, gotComponents, false, withSeparators));
        QCOMPARE(gotHierarchy, hierarchy);
        QCOMPARE(gotComponents, components);
        QCOMPARE(CPathOperations::parentPath(path, false, withSeparators), hierarchy.last());
    }

    void isPathTooLong_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("expected");

        const QString n255(255, 'n'), n256(256, 'n');
        QTest::newRow("name 255") << "/a" << n255 << false;
        QTest::newRow("name 256") << "/a" << n256 << true;
        QTest::newRow("256 bytes, 128 letters") << "/a" << QString(128, QChar(0xe4)) << true;
        QTest::newRow("component 255") << "/a/" + n255 + "/b"
                                       << "b" << false;
        QTest::newRow("component 256") << "/a/" + n256 + "/b"
                                       << "b" << true;
        QTest::newRow("long path, short names") << QString("/abc").repeated(200) << "x" << false;
    }

    void isPathTooLong()
    {
        QFETCH(QString, path);
        QFETCH(QString, name);
        QFETCH(bool, expected);
        if (expected)
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("\\] path too long \""));
        QCOMPARE(CPathOperations::isPathTooLong("ignored", path, name, false), expected);
    }
};

QTEST_GUILESS_MAIN(tst_CPathOperations)
#include "tst_cpathoperations.moc"
