#include "misc/CPathOperations.h"

#include <QtTest>

class tst_CPathOperations : public QObject
{
    Q_OBJECT

private slots:
    void clashName_data();
    void clashName();
    void separators_data();
    void separators();
    void concatPath_data();
    void concatPath();
    void makeAbsolutePath_data();
    void makeAbsolutePath();
    void makeSpaceRelativePath_data();
    void makeSpaceRelativePath();
    void hierarchy_data();
    void hierarchy();
    void splitPath_data();
    void splitPath();
    void emptyPathIsReported();
    void comparePathNameLength_data();
    void comparePathNameLength();
    void isPathTooLong_data();
    void isPathTooLong();
};

void tst_CPathOperations::clashName_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("expected");

    QTest::newRow("extension") << "report.txt"
                               << "report(alice-240131235959).txt";
    QTest::newRow("first dot counts") << "archive.tar.gz"
                                      << "archive(alice-240131235959).tar.gz";
    QTest::newRow("dot at index 1") << "a.txt"
                                    << "a.txt(alice-240131235959)";
    QTest::newRow("dot at index 2") << "ab.txt"
                                    << "ab(alice-240131235959).txt";
    QTest::newRow("leading dot") << ".profile"
                                 << ".profile(alice-240131235959)";
    QTest::newRow("leading dot, later dot") << ".profile.bak"
                                            << ".profile(alice-240131235959).bak";
    QTest::newRow("no dot") << "Makefile"
                            << "Makefile(alice-240131235959)";
    QTest::newRow("trailing dot") << "notes."
                                  << "notes(alice-240131235959).";
}

void tst_CPathOperations::clashName()
{
    QFETCH(QString, fileName);
    QFETCH(QString, expected);
    // Given in another zone: the stamp is always UTC.
    const QDateTime when(QDate(2024, 2, 1), QTime(1, 59, 59), QTimeZone(7200));
    QCOMPARE(CPathOperations::mkSynchronizerNameClashFileName(fileName, when, "alice"), expected);
    QCOMPARE(CPathOperations::mkArchiverNameClashFileName(fileName, when, "alice"), expected);
}

void tst_CPathOperations::separators_data()
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
    QTest::newRow("already") << "/a/b/"
                             << "/a/b/"
                             << "a/b";
    QTest::newRow("many") << "///a/b//"
                          << "///a/b//"
                          << "a/b";
}

void tst_CPathOperations::separators()
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
    QCOMPARE(CPathOperations::toNativeSeparators(path, false), QDir::toNativeSeparators(path));
}

void tst_CPathOperations::concatPath_data()
{
    QTest::addColumn<QString>("base");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("extension");
    QTest::addColumn<bool>("force");
    QTest::addColumn<QString>("expected");

    QTest::newRow("root name") << ""
                               << "/"
                               << "" << false << "/";
    QTest::newRow("empty base") << ""
                                << "a"
                                << "" << false << "/a";
    QTest::newRow("extension") << "/x/"
                               << "y"
                               << "txt" << false << "/x/y.txt";
    QTest::newRow("name separators stripped") << "/x"
                                              << "//y/"
                                              << "" << false << "/x/y";
    QTest::newRow("extension separators stripped") << "/x"
                                                   << "y"
                                                   << "/gz/" << false << "/x/y.gz";
    QTest::newRow("only one trailing slash dropped") << "/x//"
                                                     << "y"
                                                     << "" << false << "/x//y";
    QTest::newRow("no name") << "/x"
                             << ""
                             << "txt" << false << "/x.txt";
    QTest::newRow("forced") << "x"
                            << "y"
                            << "" << true << "/x/y/";
    QTest::newRow("template") << "/tmp/f"
                              << ""
                              << "brisvane" << false << "/tmp/f.brisvane";
}

void tst_CPathOperations::concatPath()
{
    QFETCH(QString, base);
    QFETCH(QString, name);
    QFETCH(QString, extension);
    QFETCH(bool, force);
    QFETCH(QString, expected);
    QCOMPARE(CPathOperations::concatPath(base, name, extension, false, force), expected);
}

void tst_CPathOperations::makeAbsolutePath_data()
{
    QTest::addColumn<QString>("base");
    QTest::addColumn<QString>("relative");
    QTest::addColumn<QString>("expected");

    QTest::newRow("plain") << "/a"
                           << "b"
                           << "/a/b/";
    QTest::newRow("separators everywhere") << "/a/"
                                           << "/b/c/"
                                           << "/a/b/c/";
    QTest::newRow("relative base") << "a"
                                   << "b"
                                   << "/a/b/";
    QTest::newRow("empty relative") << "/a"
                                    << ""
                                    << "/a/";
    QTest::newRow("empty base") << ""
                                << "b"
                                << "/b/";
}

void tst_CPathOperations::makeAbsolutePath()
{
    QFETCH(QString, base);
    QFETCH(QString, relative);
    QFETCH(QString, expected);
    QCOMPARE(CPathOperations::makeAbsolutePath(base, relative, false), expected);
}

void tst_CPathOperations::makeSpaceRelativePath_data()
{
    QTest::addColumn<QString>("space");
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("withSeparators");
    QTest::addColumn<QString>("expected");

    QTest::newRow("inside") << "/s"
                            << "/s/a/b" << false << "a/b";
    QTest::newRow("inside, dir style") << "/s/"
                                       << "/s/a/b" << true << "/a/b/";
    QTest::newRow("space root") << "/s"
                                << "/s" << true << "/";
    QTest::newRow("outside") << "/s"
                             << "/t/a" << false << "t/a";
    QTest::newRow("prefix is not a parent") << "/s"
                                            << "/sx/a" << false << "sx/a";
    QTest::newRow("empty path") << "/s"
                                << "" << false << "/";
}

void tst_CPathOperations::makeSpaceRelativePath()
{
    QFETCH(QString, space);
    QFETCH(QString, path);
    QFETCH(bool, withSeparators);
    QFETCH(QString, expected);
    QCOMPARE(CPathOperations::makeSpaceRelativePath(space, path, false, withSeparators), expected);
}

void tst_CPathOperations::hierarchy_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("withSeparators");
    QTest::addColumn<QStringList>("hierarchy");
    QTest::addColumn<QStringList>("components");

    QTest::newRow("dir style") << "/a/b/c" << true << QStringList {"", "/", "/a/", "/a/b/"}
                               << QStringList {"/", "a", "b", "c"};
    QTest::newRow("plain") << "/a/b/c" << false << QStringList {"", "", "a", "a/b"}
                           << QStringList {"/", "a", "b", "c"};
    QTest::newRow("doubled separators")
        << "//a//b/" << false << QStringList {"", "", "a"} << QStringList {"/", "a", "b"};
    QTest::newRow("root alone") << "/" << true << QStringList {""} << QStringList {"/"};
}

void tst_CPathOperations::hierarchy()
{
    QFETCH(QString, path);
    QFETCH(bool, withSeparators);
    QFETCH(QStringList, hierarchy);
    QFETCH(QStringList, components);

    QStringList gotHierarchy {"stale"};
    QStringList gotComponents {"stale"};
    QVERIFY(CPathOperations::generateScatteredPathHierarchy(
        path, gotHierarchy, gotComponents, false, withSeparators));
    QCOMPARE(gotHierarchy, hierarchy);
    QCOMPARE(gotComponents, components);
    QCOMPARE(CPathOperations::parentPath(path, false, withSeparators), hierarchy.last());
}

void tst_CPathOperations::splitPath_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("parent");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("extension");

    QTest::newRow("file") << "/a/b/report.txt"
                          << "/a/b/"
                          << "report"
                          << ".txt";
    QTest::newRow("double extension") << "/a/xy.tar.gz"
                                      << "/a/"
                                      << "xy"
                                      << ".tar.gz";
    QTest::newRow("dot at index 1") << "/a/x.tar.gz"
                                    << "/a/"
                                    << "x.tar.gz"
                                    << "";
    QTest::newRow("one-letter name") << "/a/b.c"
                                     << "/a/"
                                     << "b.c"
                                     << "";
    QTest::newRow("hidden") << "/h/.profile"
                            << "/h/"
                            << ".profile"
                            << "";
    QTest::newRow("top level") << "/f"
                               << "/"
                               << "f"
                               << "";
}

void tst_CPathOperations::splitPath()
{
    QFETCH(QString, path);
    QFETCH(QString, parent);
    QFETCH(QString, name);
    QFETCH(QString, extension);

    QString gotParent, gotName, gotExtension;
    QVERIFY(CPathOperations::splitPath(path, gotParent, gotName, gotExtension, false, true));
    QCOMPARE(gotParent, parent);
    QCOMPARE(gotName, name);
    QCOMPARE(gotExtension, extension);

    QVERIFY(CPathOperations::splitPath(path, gotParent, gotName, false, true));
    QCOMPARE(gotName, name + extension);
}

void tst_CPathOperations::emptyPathIsReported()
{
    const QRegularExpression line(
        "^\\[ -1 : MainThread \\] \\[ CPathOperations : \\d+ : \\w+ \\] path is empty !!!$");
    QString parent = "p", name = "n";
    QTest::ignoreMessage(QtCriticalMsg, line);
    QVERIFY(!CPathOperations::splitPath("", parent, name, false, true));
    QTest::ignoreMessage(QtCriticalMsg, line);
    QCOMPARE(CPathOperations::parentPath("", false, true), QString());
    QTest::ignoreMessage(QtCriticalMsg, line);
    QCOMPARE(CPathOperations::splitPathComponents("", false), QStringList());

    QTest::ignoreMessage(QtCriticalMsg,
        QRegularExpression("^\\[ -1 : MainThread \\] \\[ CPathOperations : \\d+ "
                           ": makeSpaceRelativePath \\] spacePath is empty !!!$"));
    QCOMPARE(CPathOperations::makeSpaceRelativePath("", "/a/b", false, true), QString("/a/b"));
}

void tst_CPathOperations::comparePathNameLength_data()
{
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<int>("expected");

    QTest::newRow("shorter") << "ab"
                             << "abc" << -1;
    QTest::newRow("equal") << "abc"
                           << "xyz" << 0;
    QTest::newRow("longer") << "abcd"
                            << "abc" << 1;
    // Bytes, not characters: three two-byte letters outweigh five ASCII ones.
    QTest::newRow("bytes count") << QString::fromUtf8("äöü") << "abcde" << 1;
}

void tst_CPathOperations::comparePathNameLength()
{
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(int, expected);
    QCOMPARE(CPathOperations::comparePathNameLength(a, b), expected);
}

void tst_CPathOperations::isPathTooLong_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("expected");

    const QString n255(255, 'n');
    const QString n256(256, 'n');
    const QString umlauts128(128, QChar(0xe4)); // 256 bytes in UTF-8

    QTest::newRow("name 255") << "/a" << n255 << false;
    QTest::newRow("name 256") << "/a" << n256 << true;
    QTest::newRow("name 256 bytes, 128 letters") << "/a" << umlauts128 << true;
    QTest::newRow("component 255") << "/a/" + n255 + "/b"
                                   << "b" << false;
    QTest::newRow("component 256") << "/a/" + n256 + "/b"
                                   << "b" << true;
    QTest::newRow("long path, short names") << QString("/abc").repeated(200) << "x" << false;
}

void tst_CPathOperations::isPathTooLong()
{
    QFETCH(QString, path);
    QFETCH(QString, name);
    QFETCH(bool, expected);
    if (expected)
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("\\] path too long \""));
    QCOMPARE(CPathOperations::isPathTooLong("ignored", path, name, false), expected);
}

QTEST_GUILESS_MAIN(tst_CPathOperations)
#include "tst_cpathoperations.moc"
