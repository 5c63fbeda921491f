#include "threading/exceptions/CException.h"
#include "threading/exceptions/CSafeBool.h"

#include "BvTestSupport.h"

#include <sstream>

class tst_CException : public QObject
{
    Q_OBJECT

private slots:
    void report_data();
    void report();
    void copyOfMessagelessException();
    void setCauseRebuildsReport();
    void constructorConsumesCause();
    void emptyDescriptionHeader();
    void frameNumbering_data();
    void frameNumbering();
    void stackIsCutToInnermostFrames();
    void callStackReport();
    void retryCounter();
    void nullTypeInfoAborts();
};

namespace {
const char *kHeader[] = {"CException:\tThis is a CxException", "\tthrown at [src/io.cpp:12]\tload"};

CException *make(const char *message, qint32 primary = -1, qint32 secondary = -1,
    const char *sub = nullptr, CException *cause = nullptr)
{
    return new CException(
        "load", "src/io.cpp", 12, message, CCallStack(), cause, primary, secondary, sub);
}

// Lines of a report up to the call stack, which differs from build to build.
QStringList headLines(const char *report)
{
    QStringList lines = QString::fromLocal8Bit(report).split('\n');
    const int stack = lines.indexOf(QRegularExpression("^Callstack for .*"));
    return stack < 0 ? lines : lines.mid(0, stack);
}

class Quiet : public CException
{
public:
    Quiet()
        : CException("f", "q.cpp", 1, "", CCallStack(), nullptr, -1, -1, nullptr)
    {
        m_TypeName = "Quiet";
        registerDescription(typeid(Quiet), "");
    }
};

class Counted : public CException
{
public:
    static int alive;
    Counted()
        : CException("cause", "c.cpp", 3, "disk full", CCallStack(), nullptr, 28, -1, nullptr)
    {
        ++alive;
    }
    ~Counted() override { --alive; }
};
int Counted::alive = 0;

int recurse(int depth, qint32 *frames)
{
    if (depth == 0) {
        const CCallStack stack;
        *frames = stack.frameCount();
        return stack.getStack().isEmpty() ? 0 : 1;
    }
    return recurse(depth - 1, frames) + 0 * depth;
}
} // namespace

void tst_CException::report_data()
{
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<int>("primary");
    QTest::addColumn<int>("secondary");
    QTest::addColumn<QByteArray>("sub");
    QTest::addColumn<QStringList>("extraLines");

    QTest::newRow("bare") << QByteArray() << -1 << -1 << QByteArray() << QStringList();
    QTest::newRow("message") << QByteArray("cannot open") << -1 << -1 << QByteArray()
                             << QStringList {"Details:", "cannot open"};
    QTest::newRow("codes") << QByteArray() << 2 << 0 << QByteArray()
                           << QStringList {"PrimaryErrorCode:\t2", "SecondaryErrorCode:\t0"};
    QTest::newRow("secondary only")
        << QByteArray() << -1 << 5 << QByteArray() << QStringList {"SecondaryErrorCode:\t5"};
    QTest::newRow("everything") << QByteArray("m") << 1 << 2 << QByteArray("IOError")
                                << QStringList {"subException: IOError", "Details:", "m",
                                       "PrimaryErrorCode:\t1", "SecondaryErrorCode:\t2"};
}

void tst_CException::report()
{
    QFETCH(QByteArray, message);
    QFETCH(int, primary);
    QFETCH(int, secondary);
    QFETCH(QByteArray, sub);
    QFETCH(QStringList, extraLines);

    QScopedPointer<CException> e(
        make(message.constData(), primary, secondary, sub.isEmpty() ? nullptr : sub.constData()));
    const QStringList expected = QStringList {kHeader[0], kHeader[1]} + extraLines;
    QCOMPARE(headLines(e->what()), expected);

    const QString report = QString::fromLocal8Bit(e->what());
    QVERIFY(report.contains("\nCallstack for \"MainThread\"(-1):\n[bt]   0 "));
    QVERIFY(!report.contains("caused by"));
    // Built once and kept.
    QCOMPARE(static_cast<const void *>(e->what()), static_cast<const void *>(e->what()));
    std::ostringstream streamed;
    streamed << *e;
    QCOMPARE(QString::fromStdString(streamed.str()), report);
}

void tst_CException::copyOfMessagelessException()
{
    QScopedPointer<CException> original(make(""));
    QCOMPARE(QByteArray(original->getExceptionMessage()),
        QByteArray("No Additional Exception Information Available !"));
    const CException copy(*original);
    QCOMPARE(headLines(copy.what()),
        (QStringList {kHeader[0], kHeader[1],
            "Details:", "No Additional Exception Information Available !"}));
    QVERIFY(!headLines(original->what()).contains("Details:"));
}

void tst_CException::setCauseRebuildsReport()
{
    QScopedPointer<CException> e(make("outer"));
    const QString before = QString::fromLocal8Bit(e->what());
    QVERIFY(!before.contains("caused by"));

    QScopedPointer<CException> cause(make("inner cause", 7));
    e->setCause(*cause);
    const QString after = QString::fromLocal8Bit(e->what());
    QVERIFY(after.startsWith(before.left(before.indexOf("Callstack"))));
    const int causedBy = after.indexOf("caused by\tCException:\tThis is a CxException\n");
    QVERIFY(causedBy > 0);
    QVERIFY(after.indexOf("Details:\ninner cause\nPrimaryErrorCode:\t7\n", causedBy) > causedBy);
    QVERIFY(after.endsWith(QString::fromLocal8Bit(cause->what()) + "\n"));

    // The cause is an independent copy.
    QVERIFY(e->getCause() != cause.data());
}

void tst_CException::constructorConsumesCause()
{
    QCOMPARE(Counted::alive, 0);
    auto *cause = new Counted;
    QCOMPARE(Counted::alive, 1);
    QScopedPointer<CException> e(make("wrapper", -1, -1, nullptr, cause));
    QCOMPARE(Counted::alive, 0);
    QVERIFY(e->getCause());
    QCOMPARE(QByteArray(e->getCause()->getExceptionMessage()), QByteArray("disk full"));
    QVERIFY(QByteArray(e->what()).contains("caused by\tCException"));
    QVERIFY(QByteArray(e->what()).contains("PrimaryErrorCode:\t28"));

    QScopedPointer<CException> clone(e->clone());
    QVERIFY(clone && clone->getCause() && clone->getCause() != e->getCause());
}

void tst_CException::emptyDescriptionHeader()
{
    const Quiet e;
    QCOMPARE(headLines(e.what()), (QStringList {"Quiet", "\tthrown at\t\t[q.cpp:1]\tf"}));
    QCOMPARE(QByteArray(CException::descriptionOf(typeid(CException))),
        QByteArray("This is a CxException"));
}

void tst_CException::frameNumbering_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("expected");
    QTest::newRow("0") << 0 << "[bt]   0 sym";
    QTest::newRow("1") << 1 << "[bt]   1 sym";
    QTest::newRow("99") << 99 << "[bt]  99 sym";
    QTest::newRow("100") << 100 << "[bt] 100 sym";
}

void tst_CException::frameNumbering()
{
    QFETCH(int, index);
    QFETCH(QString, expected);
    QCOMPARE(CCallStack::formatFrame(index, "sym"), expected);
}

void tst_CException::stackIsCutToInnermostFrames()
{
    qint32 frames = 0;
    QCOMPARE(recurse(100, &frames), 1);
    QCOMPARE(frames, 63);

    const CCallStack stack;
    const QStringList lines = stack.getStack();
    QCOMPARE(lines.size(), stack.frameCount());
    // The capturing constructor itself is the innermost entry (after the sanitizer's own
    // interceptor frame, in sanitized builds).
    const auto own = std::find_if(lines.cbegin(), lines.cend(),
        [](const QString &line) { return !line.contains("libasan"); });
    QVERIFY(own != lines.cend());
    QVERIFY2(own->contains("CCallStack"), qPrintable(*own));
    QVERIFY(lines.first().startsWith("[bt]   0 "));
}

void tst_CException::callStackReport()
{
    const CCallStack stack;
    std::ostringstream out;
    out << stack;
    const QString text = QString::fromLocal8Bit(out.str().c_str());
    QCOMPARE(text, "Callstack for \"MainThread\"(-1):\n" + stack.getStack().join('\n'));

    BvTest::MessageCapture capture;
    qWarning() << stack << "after";
    QCOMPARE(capture.messages().size(), 1);
    QVERIFY(capture.messages().first().startsWith("\"Callstack for "));
    QVERIFY(capture.messages().first().endsWith("\" after"));
}

void tst_CException::retryCounter()
{
    CRetryCounter retry(3);
    int attempts = 0;
    for (; retry; retry.next())
        ++attempts;
    QCOMPARE(attempts, 3);
    QCOMPARE(retry.remaining(), 0);
    retry.reset();
    QVERIFY(bool(retry));
}

void tst_CException::nullTypeInfoAborts()
{
    const BvTest::ChildResult result = BvTest::runChild("null-typeinfo");
    QCOMPARE(result.status, QProcess::CrashExit);
    QVERIFY2(result.standardError.endsWith("src/threading/exceptions/TypeInfo.h:40: failed "
                                           "assertion `pInfo_'\n"),
        result.standardError.constData());
}

static int childMain(const QByteArray &mode)
{
    if (mode == "null-typeinfo") {
        const TypeInfo unset;
        const TypeInfo set(typeid(int));
        return set < unset ? 1 : 2;
    }
    return 3;
}

BV_TEST_MAIN_WITH_CHILD(tst_CException, QCoreApplication)
#include "tst_cexception.moc"
