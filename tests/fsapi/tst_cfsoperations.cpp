#include "fsapi/CFSOperations.h"
#include "fsapi/FSExceptions.h"

#include "BvTestSupport.h"

#include <functional>

namespace {
using Attr = IFSOperations::EFileSystemAttribute;

// Answers every operation with `answer` and notes which one was called with what.
class Recorder : public IFSOperations
{
public:
    QStringList calls;
    bool answer = true;
    bool throwing = false;

    bool note(const char *name, const QStringList &args)
    {
        calls << QLatin1String(name) + QLatin1Char('(') + args.join(QLatin1Char(','))
                + QLatin1Char(')');
        if (throwing)
            throw new Exceptions::DoesNotExist(
                name, "r.cpp", 1, "File not found: x", CCallStack(), nullptr, -1, -1, nullptr);
        return answer;
    }
    static QString b(bool v) { return v ? QStringLiteral("1") : QStringLiteral("0"); }
    static QString t(const QDateTime &d) { return QString::number(d.toSecsSinceEpoch()); }
    static QString a(Attr v) { return QString::number(int(v)); }

    // clang-format off
    using S = const QString &;
    using D = const QDateTime &;
    bool tryExclusiveLock(S p) override { return note("tryExclusiveLock", {p}); }
    bool tryWriteLock(S p) override { return note("tryWriteLock", {p}); }
    bool fileExists(S p) override { return note("fileExists", {p}); }
    bool directoryExists(S p) override { return note("directoryExists", {p}); }
    bool safeExchangeFile(S, S, S, S, S, D, D) override { return note("safeExchangeFile", {}); }
    bool copyFile(S s, S d, bool f, bool u, bool o) override { return note("copyFile", {s, d, b(f), b(u), b(o)}); }
    bool safeCopyFile(S s, S d, S n, bool f, bool u, bool o) override { return note("safeCopyFile", {s, d, n, b(f), b(u), b(o)}); }
    bool copyDirectory(S s, S d) override { return note("copyDirectory", {s, d}); }
    bool createFile(S p, D c, D m, D x, const Attr &at) override { return note("createFile", {p, t(c), t(m), t(x), a(at)}); }
    bool createDirectory(S p, D c, D m, D x, const Attr &at, bool f) override { return note("createDirectory", {p, t(c), t(m), t(x), a(at), b(f)}); }
    bool safeCreateDirectory(S p, S n, D c, D m, D x, const Attr &at, bool f) override { return note("safeCreateDirectory", {p, n, t(c), t(m), t(x), a(at), b(f)}); }
    bool renameFile(S s, S d, bool o) override { return note("renameFile", {s, d, b(o)}); }
    bool safeRenameFile(S s, S d, S n, bool o) override { return note("safeRenameFile", {s, d, n, b(o)}); }
    bool renameDirectory(S s, S d) override { return note("renameDirectory", {s, d}); }
    bool safeRenameDirectory(S s, S d, S n) override { return note("safeRenameDirectory", {s, d, n}); }
    bool moveFile(S s, S d, bool f, bool o) override { return note("moveFile", {s, d, b(f), b(o)}); }
    bool safeMoveFile(S s, S d, S n, bool f, bool o) override { return note("safeMoveFile", {s, d, n, b(f), b(o)}); }
    bool moveDirectory(S s, S d, bool f) override { return note("moveDirectory", {s, d, b(f)}); }
    bool safeMoveDirectory(S s, S d, S n, bool f) override { return note("safeMoveDirectory", {s, d, n, b(f)}); }
    bool deleteFile(S p, bool f) override { return note("deleteFile", {p, b(f)}); }
    bool safeDeleteFile(S p, S n, bool f) override { return note("safeDeleteFile", {p, n, b(f)}); }
    bool deleteDirectory(S p, bool f) override { return note("deleteDirectory", {p, b(f)}); }
    bool safeDeleteDirectory(S p, S n, bool f) override { return note("safeDeleteDirectory", {p, n, b(f)}); }
    bool cleanDirectory(S p, bool r) override { return note("cleanDirectory", {p, b(r)}); }
    bool safeCleanDirectory(S p, S n, bool r) override { return note("safeCleanDirectory", {p, n, b(r)}); }
    bool setTimeStamps(S p, D c, D m, D x, bool f) override { return note("setTimeStamps", {p, t(c), t(m), t(x), b(f)}); }
    bool safeSetTimeStamps(S p, S n, D c, D m, D x, bool f) override { return note("safeSetTimeStamps", {p, n, t(c), t(m), t(x), b(f)}); }
    bool setAttributes(S p, const Attr &at) override { return note("setAttributes", {p, a(at)}); }
    bool removeAttributes(S p, const Attr &at) override { return note("removeAttributes", {p, a(at)}); }
    bool getFSID(QString p, unsigned long long &id) override { if (answer) id = 42; return note("getFSID", {p}); }
    bool isSymbolicLink(S p) override { return note("isSymbolicLink", {p}); }
    // clang-format on
};

using Call = std::function<bool(IFSOperations &)>;
const QDateTime T1 = QDateTime::fromSecsSinceEpoch(100);
const QDateTime T2 = QDateTime::fromSecsSinceEpoch(200);
const QDateTime T3 = QDateTime::fromSecsSinceEpoch(300);
const Attr RO = IFSOperations::ReadOnly;
} // namespace

Q_DECLARE_METATYPE(Call)

class tst_CFSOperations : public QObject
{
    Q_OBJECT

private slots:
    void forwards_data();
    void forwards();
    void withoutImplementation_data() { forwards_data(); }
    void withoutImplementation();
    void exceptionsPassThrough();
    void getFSIDWritesOnlyOnSuccess();
    void ownsARealImplementation();
};

void tst_CFSOperations::forwards_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QString>("expected");
    using F = IFSOperations;
    // clang-format off
    QTest::newRow("tryExclusiveLock")    << Call([](F &f) { return f.tryExclusiveLock("/l"); }) << "tryExclusiveLock(/l)";
    QTest::newRow("tryWriteLock")        << Call([](F &f) { return f.tryWriteLock("/w"); }) << "tryWriteLock(/w)";
    QTest::newRow("fileExists")          << Call([](F &f) { return f.fileExists("/a/f"); }) << "fileExists(/a/f)";
    QTest::newRow("directoryExists")     << Call([](F &f) { return f.directoryExists("/d"); }) << "directoryExists(/d)";
    QTest::newRow("copyFile")            << Call([](F &f) { return f.copyFile("/s", "/d", true, false, true); }) << "copyFile(/s,/d,1,0,1)";
    QTest::newRow("safeCopyFile")        << Call([](F &f) { return f.safeCopyFile("/s", "/d", "/n", false, true, false); }) << "safeCopyFile(/s,/d,/n,0,1,0)";
    QTest::newRow("copyDirectory")       << Call([](F &f) { return f.copyDirectory("/s", "/d"); }) << "copyDirectory(/s,/d)";
    QTest::newRow("createFile")          << Call([](F &f) { return f.createFile("/p", T1, T2, T3, RO); }) << "createFile(/p,100,200,300,2)";
    QTest::newRow("createDirectory")     << Call([](F &f) { return f.createDirectory("/p", T1, T2, T3, RO, true); }) << "createDirectory(/p,100,200,300,2,1)";
    QTest::newRow("safeCreateDirectory") << Call([](F &f) { return f.safeCreateDirectory("/p", "/n", T1, T2, T3, RO, false); }) << "safeCreateDirectory(/p,/n,100,200,300,2,0)";
    QTest::newRow("renameFile")          << Call([](F &f) { return f.renameFile("/a", "/b", true); }) << "renameFile(/a,/b,1)";
    QTest::newRow("safeRenameFile")      << Call([](F &f) { return f.safeRenameFile("/a", "/b", "/n", false); }) << "safeRenameFile(/a,/b,/n,0)";
    QTest::newRow("renameDirectory")     << Call([](F &f) { return f.renameDirectory("/a", "/b"); }) << "renameDirectory(/a,/b)";
    QTest::newRow("safeRenameDirectory") << Call([](F &f) { return f.safeRenameDirectory("/a", "/b", "/n"); }) << "safeRenameDirectory(/a,/b,/n)";
    QTest::newRow("moveFile")            << Call([](F &f) { return f.moveFile("/a", "/b", true, false); }) << "moveFile(/a,/b,1,0)";
    QTest::newRow("safeMoveFile")        << Call([](F &f) { return f.safeMoveFile("/a", "/b", "/n", false, true); }) << "safeMoveFile(/a,/b,/n,0,1)";
    QTest::newRow("moveDirectory")       << Call([](F &f) { return f.moveDirectory("/a", "/b", true); }) << "moveDirectory(/a,/b,1)";
    QTest::newRow("safeMoveDirectory")   << Call([](F &f) { return f.safeMoveDirectory("/a", "/b", "/n", false); }) << "safeMoveDirectory(/a,/b,/n,0)";
    QTest::newRow("deleteFile")          << Call([](F &f) { return f.deleteFile("/f", true); }) << "deleteFile(/f,1)";
    QTest::newRow("safeDeleteFile")      << Call([](F &f) { return f.safeDeleteFile("/f", "/n", false); }) << "safeDeleteFile(/f,/n,0)";
    QTest::newRow("deleteDirectory")     << Call([](F &f) { return f.deleteDirectory("/d", true); }) << "deleteDirectory(/d,1)";
    QTest::newRow("safeDeleteDirectory") << Call([](F &f) { return f.safeDeleteDirectory("/d", "/n", true); }) << "safeDeleteDirectory(/d,/n,1)";
    QTest::newRow("cleanDirectory")      << Call([](F &f) { return f.cleanDirectory("/d", false); }) << "cleanDirectory(/d,0)";
    QTest::newRow("safeCleanDirectory")  << Call([](F &f) { return f.safeCleanDirectory("/d", "/n", true); }) << "safeCleanDirectory(/d,/n,1)";
    QTest::newRow("setTimeStamps")       << Call([](F &f) { return f.setTimeStamps("/p", T1, T2, T3, true); }) << "setTimeStamps(/p,100,200,300,1)";
    QTest::newRow("safeSetTimeStamps")   << Call([](F &f) { return f.safeSetTimeStamps("/p", "/n", T1, T2, T3, false); }) << "safeSetTimeStamps(/p,/n,100,200,300,0)";
    QTest::newRow("setAttributes")       << Call([](F &f) { return f.setAttributes("/p", RO); }) << "setAttributes(/p,2)";
    QTest::newRow("removeAttributes")    << Call([](F &f) { return f.removeAttributes("/p", RO); }) << "removeAttributes(/p,2)";
    QTest::newRow("getFSID")             << Call([](F &f) { unsigned long long id = 0; return f.getFSID("/p", id); }) << "getFSID(/p)";
    QTest::newRow("isSymbolicLink")      << Call([](F &f) { return f.isSymbolicLink("/p"); }) << "isSymbolicLink(/p)";
    // clang-format on
}

void tst_CFSOperations::forwards()
{
    QFETCH(Call, call);
    QFETCH(QString, expected);
    for (const bool answer : {true, false}) {
        auto *recorder = new Recorder;
        recorder->answer = answer;
        CFSOperations facade(recorder);
        QCOMPARE(call(facade), answer);
        QCOMPARE(recorder->calls, QStringList {expected});
    }
}

void tst_CFSOperations::withoutImplementation()
{
    QFETCH(Call, call);
    BvTest::MessageCapture capture;
    CFSOperations facade(nullptr);
    QVERIFY(facade.isNull());
    QCOMPARE(call(facade), false);
    QVERIFY(capture.messages().isEmpty());
}

void tst_CFSOperations::exceptionsPassThrough()
{
    auto *recorder = new Recorder;
    recorder->throwing = true;
    CFSOperations facade(recorder);
    try {
        facade.deleteDirectory("/gone", true);
        QFAIL("nothing thrown");
    } catch (Exceptions::DoesNotExist *e) {
        QCOMPARE(e->getMessage(), std::string("File not found: x"));
        delete e;
    }
}

void tst_CFSOperations::getFSIDWritesOnlyOnSuccess()
{
    for (const bool answer : {true, false}) {
        auto *recorder = new Recorder;
        recorder->answer = answer;
        CFSOperations facade(recorder);
        unsigned long long id = 7;
        QCOMPARE(facade.getFSID("/p", id), answer);
        QCOMPARE(id, answer ? 42ull : 7ull);
    }
    CFSOperations empty(nullptr);
    unsigned long long id = 7;
    QVERIFY(!empty.getFSID("/p", id));
    QCOMPARE(id, 7ull);
}

void tst_CFSOperations::ownsARealImplementation()
{
    QTemporaryDir dir;
    QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
    CFSOperations facade;
    QVERIFY(!facade.isNull());
    QVERIFY(facade.directoryExists(dir.path()));
    QVERIFY(!facade.fileExists(dir.filePath("missing")));
}

QTEST_GUILESS_MAIN(tst_CFSOperations)
#include "tst_cfsoperations.moc"
