#include "threading/exceptions/CException.h"

#include "BvTestSupport.h"

namespace {
CException *make(const char *message, qint32 primary = -1, qint32 secondary = -1,
    const char *sub = nullptr, CException *cause = nullptr)
{
    return new CException(
        "load", "src/io.cpp", 12, message, CCallStack(), cause, primary, secondary, sub);
}

int recurse(int depth)
{
    return depth == 0 ? CCallStack().frameCount() : recurse(depth - 1) + 0 * depth;
}
} // namespace

class tst_CException : public QObject
{
    Q_OBJECT

private slots:
    void report_data()
    {
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<int>("primary");
        QTest::addColumn<int>("secondary");
        QTest::addColumn<QByteArray>("sub");
        QTest::addColumn<QString>("cause"); // "", "constructor", "setCause" or "copy"
        QTest::addColumn<QString>("expected"); // without the "[bt]" lines

        const QString head
            = "CException:\tThis is a CxException\n\tthrown at [src/io.cpp:12]\tload\n";
        const QString stack = "Callstack for \"MainThread\"(-1):\n";
        const QString causedBy = head + "Details:\ninner\nPrimaryErrorCode:\t7\n" + stack;
        // clang-format off
        QTest::newRow("bare") << QByteArray() << -1 << -1 << QByteArray() << "" << head + stack;
        QTest::newRow("message") << QByteArray("cannot open") << -1 << -1 << QByteArray() << ""
            << head + "Details:\ncannot open\n" + stack;
        QTest::newRow("codes") << QByteArray() << 2 << 0 << QByteArray() << ""
            << head + "PrimaryErrorCode:\t2\nSecondaryErrorCode:\t0\n" + stack;
        QTest::newRow("secondary only") << QByteArray() << -1 << 5 << QByteArray() << ""
            << head + "SecondaryErrorCode:\t5\n" + stack;
        QTest::newRow("everything") << QByteArray("m") << 1 << 2 << QByteArray("IOError") << ""
            << head + "subException: IOError\nDetails:\nm\nPrimaryErrorCode:\t1\n"
                      "SecondaryErrorCode:\t2\n" + stack;
        QTest::newRow("cause given") << QByteArray() << -1 << -1 << QByteArray() << "constructor"
            << head + stack + "caused by\t" + causedBy + "\n";
        QTest::newRow("cause set later") << QByteArray() << -1 << -1 << QByteArray() << "setCause"
            << head + stack + "caused by\t" + causedBy + "\n";
        // A copy reports the placeholder of a message-less original as its details.
        QTest::newRow("copy without message") << QByteArray() << -1 << -1 << QByteArray() << "copy"
            << head + "Details:\nNo Additional Exception Information Available !\n" + stack;
        // clang-format on
    }

    void report()
    {
        QFETCH(QByteArray, message);
        QFETCH(int, primary);
        QFETCH(int, secondary);
        QFETCH(QByteArray, sub);
        QFETCH(QString, cause);
        QFETCH(QString, expected);

        QScopedPointer<CException> e(
            make(message.constData(), primary, secondary, sub.isEmpty() ? nullptr : sub.constData(),
                cause == "constructor" ? make("inner", 7) : nullptr));
        if (cause == "setCause") {
            e->what(); // the report is built once and must be rebuilt
            const QScopedPointer<CException> inner(make("inner", 7));
            e->setCause(*inner);
        }
        if (cause == "copy")
            e.reset(new CException(*e));
        QStringList lines = QString::fromLocal8Bit(e->what()).split('\n');
        lines.erase(std::remove_if(lines.begin(), lines.end(),
                        [](const QString &line) { return line.startsWith("[bt] "); }),
            lines.end());
        QCOMPARE(lines.join('\n'), expected);
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

    void stackIsCutToInnermostFrames()
    {
        QCOMPARE(recurse(100), 63);

        const QStringList lines = CCallStack().getStack();
        // The capturing constructor itself is the innermost entry (after the sanitizer's own
        // interceptor frame, in sanitized builds).
        const auto own = std::find_if(lines.cbegin(), lines.cend(),
            [](const QString &line) { return !line.contains("libasan"); });
        QVERIFY(own != lines.cend());
        QVERIFY2(own->contains("CCallStack"), qPrintable(*own));
        QVERIFY(lines.first().startsWith("[bt]   0 "));
    }

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
