#include "fsapi/CFSOperations.h"

#include "fstestsupport.h"

#include <QTemporaryDir>

#include <memory>
#include <stdexcept>

using namespace FsTest;

namespace {
const char *const kSource = "CFSOperations.cpp";
const QString kFailed
    = QStringLiteral("internalSafeExchangeFile|Failed to internalSafeExchangeFile failed");

// Throws the chosen kind of exception from its first fileExists.
class Throwing : public CMacFSOperations
{
public:
    explicit Throwing(QString kind)
        : m_Kind(std::move(kind))
    { }
    bool fileExists(const QString &path) override
    {
        if (m_Kind == QLatin1String("library"))
            throw new Exceptions::DoesNotExist(
                "fileExists", "here.cpp", 7, "gone", CCallStack(), nullptr, -1, -1, nullptr);
        if (m_Kind == QLatin1String("standard"))
            throw std::runtime_error("disk on fire");
        if (m_Kind == QLatin1String("int"))
            throw 42;
        if (m_Kind == QLatin1String("other"))
            throw 'x';
        return CMacFSOperations::fileExists(path);
    }

private:
    QString m_Kind;
};
} // namespace

class tst_SafeExchange : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cases_data();
    void cases();
    void emptyArguments_data();
    void emptyArguments();
    void failuresAreLoggedAndPassedOn_data();
    void failuresAreLoggedAndPassedOn();

private:
    std::unique_ptr<QTemporaryDir> m_Dir;
    QString m_Root;
};

void tst_SafeExchange::init()
{
    m_Dir = std::make_unique<QTemporaryDir>();
    QVERIFY2(m_Dir->isValid(), qPrintable(m_Dir->errorString()));
    m_Root = m_Dir->path() + QLatin1Char('/');
}

void tst_SafeExchange::cases_data()
{
    // Files present before, as "name=content" below the sandbox: the incoming version
    // in/new, the parked place out/new, the target orig/app.cfg and its template.
    QTest::addColumn<QStringList>("before");
    QTest::addColumn<QStringList>("faults");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QStringList>("after");
    QTest::addColumn<int>("loggedLines");
    using L = QStringList;
    const QString missingParked = QStringLiteral("DoesNotExist: Source doesn't exists: %Rout/new");
    // clang-format off
    QTest::newRow("new file")                   << L {"in/new=NEW"} << L {} << "true" << L {"orig/app.cfg=NEW"} << 0;
    QTest::newRow("normal")                     << L {"in/new=NEW", "orig/app.cfg=OLD"} << L {} << "true" << L {"orig/app.cfg=NEW"} << 0;
    QTest::newRow("normal, stale parked file")  << L {"in/new=NEW", "orig/app.cfg=OLD", "out/new=STALE"} << L {} << "true" << L {"orig/app.cfg=NEW"} << 0;
    QTest::newRow("template only")              << L {"in/new=NEW", "orig/app.cfg.brisvane=T"} << L {} << "true" << L {"orig/app.cfg=NEW"} << 0;
    QTest::newRow("both")                       << L {"in/new=NEW", "orig/app.cfg=OLD", "orig/app.cfg.brisvane=T"} << L {} << "true" << L {"orig/app.cfg=NEW"} << 0;
    QTest::newRow("template only, move fails")  << L {"in/new=NEW", "orig/app.cfg.brisvane=T"} << L {"moveFile#1"} << "false" << L {"in/new=NEW", "orig/app.cfg.brisvane=T"} << 0;
    QTest::newRow("normal, new one stuck")      << L {"in/new=NEW", "orig/app.cfg=OLD"} << L {"moveFile#2"} << "false" << L {"in/new=NEW", "orig/app.cfg=OLD"} << 0;
    QTest::newRow("both, new one stuck")        << L {"in/new=NEW", "orig/app.cfg=OLD", "orig/app.cfg.brisvane=T"} << L {"moveFile#2"} << "false" << L {"in/new=NEW", "orig/app.cfg=OLD", "orig/app.cfg.brisvane=T"} << 0;
    QTest::newRow("normal, parking fails")      << L {"in/new=NEW", "orig/app.cfg=OLD"} << L {"moveFile#1"} << missingParked << L {"in/new=NEW", "orig/app.cfg=OLD"} << 2;
    QTest::newRow("normal, incoming missing")   << L {"orig/app.cfg=OLD"} << L {} << "DoesNotExist: Source doesn't exists: %Rin/new" << L {"out/new=OLD"} << 2;
    // clang-format on
}

// Each case runs twice, with null and with real time stamps: they must make no difference.
void tst_SafeExchange::cases()
{
    QFETCH(QStringList, before);
    QFETCH(QStringList, faults);
    QFETCH(QString, expected);
    QFETCH(QStringList, after);
    QFETCH(int, loggedLines);

    const QDateTime stamps[][2] = {{QDateTime(), QDateTime()},
        {QDateTime::fromSecsSinceEpoch(5), QDateTime::fromSecsSinceEpoch(1700000000)}};
    QStringList results;
    for (const auto &stamp : stamps) {
        QTemporaryDir dir;
        QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
        const QString r = dir.path() + QLatin1Char('/');
        for (const char *sub : {"in", "out", "orig"})
            QVERIFY(QDir(r).mkdir(sub));
        for (const QString &file : before)
            QVERIFY(writeFile(r + file.section('=', 0, 0), file.section('=', 1).toUtf8()));
        QStringList want {"in dir 755", "orig dir 755", "out dir 755"};
        for (const QString &file : after)
            want << QStringLiteral("%1 file 644 1000000 \"%2\"")
                        .arg(file.section('=', 0, 0), file.section('=', 1));
        want.sort();

        CFSOperations fs(new Faulty(faults));
        BvTest::MessageCapture capture;
        QCOMPARE(outcome([&] {
            return fs.safeExchangeFile(
                r + "in", r + "out", r + "orig", "new", "app.cfg", stamp[0], stamp[1]);
        }),
            QString(expected).replace("%R", r));
        QCOMPARE(capture.messages().size(), loggedLines);
        if (loggedLines)
            QVERIFY(capture.messages().first().endsWith(
                QStringLiteral("Failed to internalSafeExchangeFile failed")));
        QStringList got = snapshot(r);
        QCOMPARE(got.replaceInStrings(QRegularExpression(" dir [0-7]+$"), " dir 755"), want);
        results << got.join('\n');
    }
    QCOMPARE(results.first(), results.last());
}

void tst_SafeExchange::emptyArguments_data()
{
    QTest::addColumn<int>("empty");
    QTest::newRow("xchgIn") << 0;
    QTest::newRow("xchgOut") << 1;
    QTest::newRow("originalPath") << 2;
    QTest::newRow("xchgSrcName") << 3;
    QTest::newRow("originalName") << 4;
}

void tst_SafeExchange::emptyArguments()
{
    QFETCH(int, empty);
    QStringList args {m_Root + "in", m_Root + "out", m_Root + "orig", "new", "app.cfg"};
    args[empty].clear();
    for (const char *sub : {"in", "out", "orig"})
        QVERIFY(QDir(m_Root).mkdir(sub));
    QVERIFY(writeFile(m_Root + "in/new", "NEW"));
    QVERIFY(writeFile(m_Root + "orig/app.cfg", "OLD"));
    const QStringList before = snapshot(m_Root);

    CFSOperations fs;
    BvTest::MessageCapture capture;
    QCOMPARE(fs.safeExchangeFile(args[0], args[1], args[2], args[3], args[4], {}, {}), false);
    const auto quoted = [&](int i) {
        return QLatin1Char('"') + args[i] + QLatin1Char('"');
    };
    compareLines(capture, kSource,
        {"internalSafeExchangeFile|Empty path ...",
            QStringLiteral("internalSafeExchangeFile|XChgIn: %1 XChgOut: %2 XChgSrcName: %3")
                .arg(quoted(0), quoted(1), quoted(3)),
            QStringLiteral("internalSafeExchangeFile|OriginalPath: %1 OriginalName: %2")
                .arg(quoted(2), quoted(4))});
    QCOMPARE(snapshot(m_Root), before);
}

void tst_SafeExchange::failuresAreLoggedAndPassedOn_data()
{
    QTest::addColumn<QString>("kind");
    QTest::newRow("library") << "library";
    QTest::newRow("standard") << "standard";
    QTest::newRow("int") << "int";
    QTest::newRow("other") << "other";
}

void tst_SafeExchange::failuresAreLoggedAndPassedOn()
{
    QFETCH(QString, kind);
    CFSOperations fs(new Throwing(kind));
    BvTest::MessageCapture capture;
    QString second;
    try {
        fs.safeExchangeFile(
            m_Root + "in", m_Root + "out", m_Root + "orig", "new", "app.cfg", {}, {});
        QFAIL("nothing was thrown");
    } catch (CException *e) {
        second = QString::fromLocal8Bit(e->what());
        QCOMPARE(e->getMessage(), std::string("gone"));
        delete e;
    } catch (const std::runtime_error &e) {
        second = QString::fromLatin1(e.what());
    } catch (int value) {
        QCOMPARE(value, 42);
        second = QStringLiteral("catched int: 42");
    } catch (char value) {
        QCOMPARE(value, 'x');
    }
    QStringList expected {kFailed};
    if (second.isEmpty())
        expected.first() += QLatin1String("! Unkown exception.");
    else
        expected << QLatin1String("internalSafeExchangeFile|") + second;
    compareLines(capture, kSource, expected);
}

QTEST_GUILESS_MAIN(tst_SafeExchange)
#include "tst_safeexchange.moc"
