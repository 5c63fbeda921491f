#include "misc/CPathOperations.h"

#include <QtTest>

class tst_CPathOperations : public QObject
{
    Q_OBJECT

private slots:
    void names_data()
    {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("expected");

        // clang-format off
        QTest::newRow("clash, first dot counts") << "clash" << QStringList {"archive.tar.gz"} << "archive(alice-240131235959).tar.gz";
        QTest::newRow("clash, dot at index 1") << "clash" << QStringList {"a.txt"} << "a.txt(alice-240131235959)";
        QTest::newRow("clash, dot at index 2") << "clash" << QStringList {"ab.txt"} << "ab(alice-240131235959).txt";
        QTest::newRow("clash, leading dot") << "clash" << QStringList {".profile.bak"} << ".profile(alice-240131235959).bak";
        QTest::newRow("clash, no dot") << "clash" << QStringList {"Makefile"} << "Makefile(alice-240131235959)";
        QTest::newRow("clash, trailing dot") << "clash" << QStringList {"notes."} << "notes(alice-240131235959).";
        QTest::newRow("force, empty") << "force" << QStringList {""} << "/";
        QTest::newRow("force, plain") << "force" << QStringList {"a/b"} << "/a/b/";
        QTest::newRow("force, many") << "force" << QStringList {"///a/b//"} << "///a/b//";
        QTest::newRow("strip, root") << "strip" << QStringList {"/"} << "";
        QTest::newRow("strip, plain") << "strip" << QStringList {"a/b"} << "a/b";
        QTest::newRow("strip, many") << "strip" << QStringList {"///a/b//"} << "a/b";
        QTest::newRow("concat, root name") << "concat" << QStringList {"", "/", ""} << "/";
        QTest::newRow("concat, empty base") << "concat" << QStringList {"", "a", ""} << "/a";
        QTest::newRow("concat, separators stripped") << "concat" << QStringList {"/x", "//y/", "/gz/"} << "/x/y.gz";
        QTest::newRow("concat, one trailing slash dropped") << "concat" << QStringList {"/x//", "y", ""} << "/x//y";
        QTest::newRow("concat, no name") << "concat" << QStringList {"/x", "", "txt"} << "/x.txt";
        QTest::newRow("concat, forced") << "concat forced" << QStringList {"x", "y", ""} << "/x/y/";
        QTest::newRow("space, inside") << "space" << QStringList {"/s", "/s/a/b", "/"} << "/a/b/";
        QTest::newRow("space, inside, plain") << "space" << QStringList {"/s/", "/s/a/b/", ""} << "a/b";
        QTest::newRow("space, the space itself") << "space" << QStringList {"/s", "/s", "/"} << "/s/";
        QTest::newRow("space, its root") << "space" << QStringList {"/s", "/s/", "/"} << "/";
        QTest::newRow("space, name prefix only") << "space" << QStringList {"/s", "/sx/a", ""} << "sx/a";
        QTest::newRow("space, outside") << "space" << QStringList {"/s", "/t/a", "/"} << "/t/a/";
        QTest::newRow("space, empty path") << "space" << QStringList {"/s", "", ""} << "/";
        QTest::newRow("space, no space") << "space" << QStringList {"", "/x//y", "/"} << "/x//y";
        // clang-format on
    }

    void names()
    {
        QFETCH(QString, operation);
        QFETCH(QStringList, arguments);
        QFETCH(QString, expected);

        QString result = arguments.first();
        if (operation == "clash") {
            // Given in another zone: the stamp is always UTC.
            const QDateTime when(QDate(2024, 2, 1), QTime(1, 59, 59), QTimeZone(7200));
            result = CPathOperations::mkSynchronizerNameClashFileName(result, when, "alice");
            QCOMPARE(CPathOperations::mkArchiverNameClashFileName(arguments.first(), when, "alice"),
                result);
        } else if (operation == "force") {
            CPathOperations::forceLeadingAndTrailingPathSeperators(result, false);
            QCOMPARE(CPathOperations::fromNativeSeparators(arguments.first(), true), result);
        } else if (operation == "strip") {
            CPathOperations::forceNoLeadingAndTrailingPathSeperators(result, false);
        } else if (operation == "space") {
            if (arguments.at(0).isEmpty())
                QTest::ignoreMessage(
                    QtCriticalMsg, QRegularExpression("\\] spacePath is empty !!!$"));
            result = CPathOperations::makeSpaceRelativePath(
                arguments.at(0), arguments.at(1), false, !arguments.at(2).isEmpty());
        } else {
            result = CPathOperations::concatPath(arguments.at(0), arguments.at(1), arguments.at(2),
                false, operation == "concat forced");
        }
        QCOMPARE(result, expected);
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
