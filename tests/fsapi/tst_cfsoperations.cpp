#include "fsapi/CFSOperations.h"

#include "fstestsupport.h"

#include <QTemporaryDir>

#include <functional>

using namespace FsTest;
using Thrower = std::function<void(const CException *cause)>;
Q_DECLARE_METATYPE(Thrower)

class tst_CFSOperations : public QObject
{
    Q_OBJECT

private slots:
    void exceptions_data();
    void exceptions();
    void exchange_data();
    void exchange();
    void emptyArguments();
};

void tst_CFSOperations::exceptions_data()
{
    using namespace Exceptions;
    QTest::addColumn<Thrower>("thrower");
    QTest::addColumn<QString>("header"); // what()'s first line, also of a clone
    const CCallStack s;
    const QString fs = "FileSystemException:\tFileSystem Exception",
                  gone = "DoesNotExist:\tSpecified file/directory doesn't exist",
                  exists = "FileExists:\tSpecified file already exists";
    // clang-format off
    QTest::newRow("FileSystemException") << Thrower([s](const CException *c) { throw new FileSystemException("f", "x.cpp", 1, "m", s, c, -1, -1, nullptr); }) << fs;
    QTest::newRow("DoesNotExist")        << Thrower([s](const CException *c) { throw new DoesNotExist("f", "x.cpp", 1, "m", s, c, -1, -1, nullptr); }) << gone;
    QTest::newRow("FileExists")          << Thrower([s](const CException *c) { throw new FileExists("f", "x.cpp", 1, "m", s, c, -1, -1, nullptr); }) << exists;
    QTest::newRow("DirectoryExists")     << Thrower([s](const CException *c) { throw new DirectoryExists("f", "x.cpp", 1, "m", s, c, -1, -1, nullptr); }) << "DirectoryExists:\tSpecified directory already exists";
    QTest::newRow("THROW_SYSTEM_EXCEPTION_WITH_CAUSE_FileSystemException") << Thrower([](const CException *c) { THROW_SYSTEM_EXCEPTION_WITH_CAUSE_FileSystemException("f", "x.cpp", 1, "m", -1, -1, c); }) << fs;
    QTest::newRow("THROW_EXCEPTION_WITH_CAUSE_FROM_SUB_FileSystemException") << Thrower([](const CException *c) { THROW_EXCEPTION_WITH_CAUSE_FROM_SUB_FileSystemException("f", "x.cpp", 1, "m", -1, -1, c, "Invalid parameter"); }) << fs;
    QTest::newRow("THROW_SYSTEM_EXCEPTION_WITH_CAUSE_DoesNotExist") << Thrower([](const CException *c) { THROW_SYSTEM_EXCEPTION_WITH_CAUSE_DoesNotExist("f", "x.cpp", 1, "m", -1, -1, c); }) << gone;
    QTest::newRow("THROW_SYSTEM_EXCEPTION_WITH_CAUSE_FileExists") << Thrower([](const CException *c) { THROW_SYSTEM_EXCEPTION_WITH_CAUSE_FileExists("f", "x.cpp", 1, "m", -1, -1, c); }) << exists;
    // clang-format on
}

// A cause reached through getCause() is the holder's: the new exception carries its own
// copy of it and leaves the original where it was, alive.
void tst_CFSOperations::exceptions()
{
    QFETCH(Thrower, thrower);
    QFETCH(QString, header);
    const QScopedPointer<CException> holder(new CException("g", "y.cpp", 2, "holder", CCallStack(),
        new Exceptions::DoesNotExist("h", "z.cpp", 3, "File not found: /k", CCallStack(), nullptr,
            -1, -1, "Specified file doesn't exist"),
        -1, -1, nullptr));
    const CException *cause = holder->getCause();
    const QString causeReport = QString::fromLatin1(cause->what());
    CException *thrown = nullptr;
    try {
        thrower(cause);
    } catch (CException *e) {
        thrown = e;
    }
    QVERIFY(thrown);
    const QScopedPointer<CException> e(thrown), clone(thrown->clone());
    QCOMPARE(QString::fromLatin1(e->what()).section('\n', 0, 0), header);
    QCOMPARE(QString::fromLatin1(clone->what()).section('\n', 0, 0), header);
    QCOMPARE(holder->getCause(), cause);
    QCOMPARE(QString::fromLatin1(cause->what()), causeReport);
    const CException *copy = e->getCause();
    QVERIFY(copy && copy != cause && typeid(*copy) == typeid(Exceptions::DoesNotExist));
    QVERIFY(QString::fromLatin1(e->what()).endsWith("caused by\t" + causeReport + "\n"));
}

// The incoming version in/new replaces orig/app.cfg, whose current version is parked as
// out/new; orig/app.cfg.brisvane is its template.
void tst_CFSOperations::exchange_data()
{
    QTest::addColumn<QStringList>("before");
    QTest::addColumn<QStringList>("faults"); // see Faulty
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QStringList>("after");
    QTest::addColumn<QStringList>("logged"); // "function|text"
    using L = QStringList;
    const QString NEW = "orig/app.cfg file 644 \"NEW\" @1000000",
                  OLD = "orig/app.cfg file 644 \"OLD\" @1000000";
    const QString IN = "in/new file 644 \"NEW\" @1000000",
                  T = "orig/app.cfg.brisvane file 644 \"T\" @1000000";
    const L kFailed {"internalSafeExchangeFile|Failed to internalSafeExchangeFile failed",
        "internalSafeExchangeFile|DoesNotExist:\tSpecified file/directory doesn't exist"};
    // clang-format off
    QTest::newRow("new file")                  << L {"in/new=NEW"} << L {} << "true" << L {NEW} << L {};
    QTest::newRow("normal")                    << L {"in/new=NEW", "orig/app.cfg=OLD"} << L {} << "true" << L {NEW} << L {};
    QTest::newRow("normal, stale parked file") << L {"in/new=NEW", "orig/app.cfg=OLD", "out/new=STALE"} << L {} << "true" << L {NEW} << L {};
    QTest::newRow("template only")             << L {"in/new=NEW", "orig/app.cfg.brisvane=T"} << L {} << "true" << L {NEW} << L {};
    QTest::newRow("both")                      << L {"in/new=NEW", "orig/app.cfg=OLD", "orig/app.cfg.brisvane=T"} << L {} << "true" << L {NEW} << L {};
    QTest::newRow("template only, move fails") << L {"in/new=NEW", "orig/app.cfg.brisvane=T"} << L {"moveFile#1"} << "false" << L {IN, T} << L {};
    QTest::newRow("normal, new one stuck")     << L {"in/new=NEW", "orig/app.cfg=OLD"} << L {"moveFile#2"} << "false" << L {IN, OLD} << L {};
    QTest::newRow("both, new one stuck")       << L {"in/new=NEW", "orig/app.cfg=OLD", "orig/app.cfg.brisvane=T"} << L {"moveFile#2"} << "false" << L {IN, OLD, T} << L {};
    QTest::newRow("normal, parking fails")     << L {"in/new=NEW", "orig/app.cfg=OLD"} << L {"moveFile#1"} << "DoesNotExist: Source doesn't exists: %Rout/new / Specified file doesn't exist" << L {IN, OLD} << kFailed;
    // Whatever a file operation throws is logged and passed on unchanged.
    QTest::newRow("throws int")                << L {"in/new=NEW"} << L {"moveFile#1!int"} << "int 7" << L {IN} << L {"internalSafeExchangeFile|Failed to internalSafeExchangeFile failed", "internalSafeExchangeFile|catched int: 7"};
    QTest::newRow("throws std::exception")     << L {"in/new=NEW"} << L {"moveFile#1!std"} << "std: injected" << L {IN} << L {"internalSafeExchangeFile|Failed to internalSafeExchangeFile failed", "internalSafeExchangeFile|injected"};
    QTest::newRow("throws anything else")      << L {"in/new=NEW"} << L {"moveFile#1!other"} << "unknown" << L {IN} << L {"internalSafeExchangeFile|Failed to internalSafeExchangeFile failed! Unkown exception."};
    QTest::newRow("normal, incoming missing")  << L {"orig/app.cfg=OLD"} << L {} << "DoesNotExist: Source doesn't exists: %Rin/new / Specified file doesn't exist" << L {"out/new file 644 \"OLD\" @1000000"} << kFailed;
    // clang-format on
}

// Each case runs with null and with real time stamps: they must make no difference.
void tst_CFSOperations::exchange()
{
    QFETCH(QStringList, before);
    QFETCH(QStringList, faults);
    QFETCH(QString, expected);
    QFETCH(QStringList, after);
    QFETCH(QStringList, logged);
    after << "in dir 755"
          << "orig dir 755"
          << "out dir 755";
    after.sort();
    for (const QDateTime &time : {QDateTime(), QDateTime::fromSecsSinceEpoch(1700000000)}) {
        QTemporaryDir dir;
        const QString r = dir.path() + QLatin1Char('/');
        QVERIFY(make(r, QStringList {"in/", "out/", "orig/"} + before));
        CFSOperations fs(new Faulty(faults));
        BvTest::MessageCapture capture;
        QCOMPARE(outcome([&] {
            return fs.safeExchangeFile(
                r + "in", r + "out", r + "orig", "new", "app.cfg", time, time);
        }),
            QString(expected).replace("%R", r));
        // A failure is logged with the first line of what() the exception shows.
        QCOMPARE(
            FsTest::logged(capture.messages(), "CFSOperations\\.cpp")
                .replaceInStrings(
                    QRegularExpression("\n.*", QRegularExpression::DotMatchesEverythingOption), ""),
            logged);
        QCOMPARE(snapshot(r), after);
    }
}

// Any empty argument: nothing is tried, and the three lines name all the arguments.
void tst_CFSOperations::emptyArguments()
{
    QTemporaryDir dir; // empty: a call that went ahead would fail differently
    for (int empty = 0; empty < 5; ++empty) {
        QStringList args {
            dir.path() + "/in", dir.path() + "/out", dir.path() + "/orig", "new", "app.cfg"};
        args[empty].clear();
        CFSOperations fs;
        BvTest::MessageCapture capture;
        QVERIFY(!fs.safeExchangeFile(args[0], args[1], args[2], args[3], args[4], {}, {}));
        const QStringList q = args.replaceInStrings(QRegularExpression("^(.*)$"), "\"\\1\"");
        QCOMPARE(logged(capture.messages(), "CFSOperations\\.cpp"),
            QStringList({"internalSafeExchangeFile|Empty path ...",
                QStringLiteral("internalSafeExchangeFile|XChgIn: %1 XChgOut: %2 XChgSrcName: %3")
                    .arg(q[0], q[1], q[3]),
                QStringLiteral("internalSafeExchangeFile|OriginalPath: %1 OriginalName: %2")
                    .arg(q[2], q[4])}));
    }
}

QTEST_GUILESS_MAIN(tst_CFSOperations)
#include "tst_cfsoperations.moc"
