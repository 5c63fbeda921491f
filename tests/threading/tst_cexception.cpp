#include "threading/exceptions/CException.h"

#include "BvTestSupport.h"

using Shared = QSharedPointer<CException>;
Q_DECLARE_METATYPE(Shared)

namespace {
CException *make(const char *message, qint32 primary = -1, qint32 secondary = -1,
    const char *sub = nullptr, CException *cause = nullptr)
{
    return new CException(
        "load", "src/io.cpp", 12, message, CCallStack(), cause, primary, secondary, sub);
}

// One real frame per level in every build: not inlined, and the store after the call
// keeps the optimiser from turning the recursion into a loop or a tail call.
volatile int g_Depth = 0;

Q_NEVER_INLINE int recurse(int depth)
{
    if (depth == 0)
        return CCallStack().frameCount();
    const int frames = recurse(depth - 1);
    g_Depth = depth;
    return frames;
}
} // namespace

class tst_CException : public QObject
{
    Q_OBJECT

private slots:
    void report_data()
    {
        QTest::addColumn<Shared>("exception");
        QTest::addColumn<QString>("expected"); // without the "[bt]" lines

        const QString head
            = "CException:\tThis is a CxException\n\tthrown at [src/io.cpp:12]\tload\n";
        const QString stack = "Callstack for \"MainThread\"(-1):\n";
        const QString withCause = head + stack + "caused by\t" + head
            + "Details:\ninner\nPrimaryErrorCode:\t7\n" + stack + "\n";
        const Shared causeSetLater(make(""));
        causeSetLater->what(); // the report is built once and must be built again
        causeSetLater->setCause(*Shared(make("inner", 7)));
        // clang-format off
        QTest::newRow("bare") << Shared(make("")) << head + stack;
        QTest::newRow("message") << Shared(make("cannot open")) << head + "Details:\ncannot open\n" + stack;
        QTest::newRow("codes") << Shared(make("", 2, 0)) << head + "PrimaryErrorCode:\t2\nSecondaryErrorCode:\t0\n" + stack;
        QTest::newRow("secondary only") << Shared(make("", -1, 5)) << head + "SecondaryErrorCode:\t5\n" + stack;
        QTest::newRow("everything") << Shared(make("m", 1, 2, "IOError"))
            << head + "subException: IOError\nDetails:\nm\nPrimaryErrorCode:\t1\nSecondaryErrorCode:\t2\n" + stack;
        QTest::newRow("cause given") << Shared(make("", -1, -1, nullptr, make("inner", 7))) << withCause;
        QTest::newRow("cause set later") << causeSetLater << withCause;
        // A copy reports the placeholder of a message-less original as its details.
        QTest::newRow("copy without message") << Shared(new CException(*Shared(make(""))))
            << head + "Details:\nNo Additional Exception Information Available !\n" + stack;
        // clang-format on
    }

    void report()
    {
        QFETCH(Shared, exception);
        QFETCH(QString, expected);
        static const QRegularExpression frame(
            "^\\[bt\\] .*\\n", QRegularExpression::MultilineOption);
        QCOMPARE(QString::fromLocal8Bit(exception->what()).remove(frame), expected);
    }

    void frameNumbering_data()
    {
        QTest::addColumn<int>("index");
        QTest::addColumn<QString>("expected");
        QTest::newRow("0") << 0 << "[bt]   0 sym";
        QTest::newRow("99") << 99 << "[bt]  99 sym";
        QTest::newRow("100") << 100 << "[bt] 100 sym";
    }

    void frameNumbering()
    {
        QFETCH(int, index);
        QFETCH(QString, expected);
        QCOMPARE(CCallStack::formatFrame(index, "sym"), expected);
    }

    void stackIsCutToInnermost63Frames() { QCOMPARE(recurse(100), 63); }

    void nullTypeInfoAborts()
    {
        const BvTest::ChildResult result = BvTest::runChild("null-typeinfo");
        QCOMPARE(result.status, QProcess::CrashExit);
        QVERIFY2(result.standardError.endsWith("src/threading/exceptions/TypeInfo.h:40: failed "
                                               "assertion `pInfo_'\n"),
            result.standardError.constData());
    }
};

static int childMain(const QByteArray &)
{
    const TypeInfo unset;
    const TypeInfo set(typeid(int));
    return set < unset ? 1 : 2;
}

BV_TEST_MAIN_WITH_CHILD(tst_CException, QCoreApplication)
#include "tst_cexception.moc"
