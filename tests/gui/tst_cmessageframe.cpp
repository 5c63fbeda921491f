#include "gui/dialogs/CMessageFrame.h"

#include "BvTestSupport.h"

#include <QApplication>
#include <QFrame>
#include <QLabel>
#include <QRegularExpression>
#include <QSignalSpy>

#include <memory>

namespace {
// A frame whose opening height is known exactly, independent of fonts and style.
class HintFrame : public QFrame
{
public:
    int hint = 41;
    QSize sizeHint() const override { return QSize(200, hint); }
};

using Property = QPair<QString, QVariant>;

void expectAssert(const char *condition)
{
    QTest::ignoreMessage(QtCriticalMsg,
        QRegularExpression(QStringLiteral("^ASSERT: \"%1\" in file src/gui/dialogs/CMessageFrame, "
                                          "line \\d+$")
                               .arg(QRegularExpression::escape(QLatin1String(condition)))));
}
} // namespace

class tst_CMessageFrame : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void constructionCloses();
    void heightInterpolation_data();
    void heightInterpolation();
    void openRunsToSizeHint();
    void sameTextIsIgnored();
    void newTextStartsFromReachedHeight();
    void closeKeepsTextUntilShut();
    void closeOnClosedStripDoesNothing();
    void forceClose();
    void property_data();
    void property();
    void unboundPair_data();
    void unboundPair();
    void rebinding();

private:
    void step(qreal value) // one tick of the time line, without waiting for it
    {
        QVERIFY(QMetaObject::invokeMethod(
            m_Strip.get(), "onTimeLineValueChanged", Q_ARG(qreal, value)));
    }

    std::unique_ptr<QWidget> m_Window;
    HintFrame *m_Frame = nullptr;
    QLabel *m_Label = nullptr;
    std::unique_ptr<CMessageFrame> m_Strip;
};

void tst_CMessageFrame::init()
{
    m_Window = std::make_unique<QWidget>();
    m_Frame = new HintFrame;
    m_Frame->setParent(m_Window.get());
    m_Label = new QLabel(QStringLiteral("design-time text"), m_Frame);
    m_Frame->setFixedHeight(30);
    m_Window->show();
    m_Strip = std::make_unique<CMessageFrame>(m_Frame, m_Label, nullptr);
}

void tst_CMessageFrame::cleanup()
{
    m_Strip.reset();
    m_Window.reset();
}

void tst_CMessageFrame::constructionCloses()
{
    QVERIFY(m_Frame->isHidden());
    QCOMPARE(m_Frame->height(), 0);
    QCOMPARE(m_Frame->maximumHeight(), 0);
    QCOMPARE(m_Label->text(), QString());
}

void tst_CMessageFrame::heightInterpolation_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("start");
    QTest::addColumn<int>("hint");
    QTest::addColumn<qreal>("value");
    QTest::addColumn<int>("expected");

    QTest::newRow("opening, half rounds up") << "A" << 10 << 41 << 0.5 << 26;
    QTest::newRow("closing, half rounds up, not to even") << "" << 41 << 99 << 0.5 << 21;
    QTest::newRow("opening, below half rounds down") << "A" << 10 << 41 << 1.0 / 3.0 << 20;
    QTest::newRow("opening from taller than target") << "A" << 60 << 20 << 0.25 << 50;
    QTest::newRow("start of animation") << "A" << 10 << 41 << 0.0 << 10;
    QTest::newRow("end of closing") << "" << 41 << 99 << 1.0 << 0;
}

void tst_CMessageFrame::heightInterpolation()
{
    QFETCH(QString, text);
    QFETCH(int, start);
    QFETCH(int, hint);
    QFETCH(qreal, value);
    QFETCH(int, expected);

    m_Frame->hint = hint;
    if (text.isEmpty())
        m_Strip->open(QStringLiteral("shown before"), Property());
    m_Frame->setFixedHeight(start);
    m_Strip->open(text, Property());
    step(value);
    QCOMPARE(m_Frame->height(), expected);
}

void tst_CMessageFrame::openRunsToSizeHint()
{
    QSignalSpy finished(m_Strip.get(), &CMessageFrame::animationFinished);
    m_Strip->open(QStringLiteral("Unable to quit Brisvane."), Property());
    QVERIFY(!m_Frame->isHidden());
    QCOMPARE(m_Label->text(), QStringLiteral("Unable to quit Brisvane."));
    QVERIFY(finished.wait(3000));
    QCOMPARE(m_Frame->height(), 41);
    QVERIFY(!m_Frame->isHidden());
    QTest::qWait(150);
    QCOMPARE(finished.count(), 1);
}

void tst_CMessageFrame::sameTextIsIgnored()
{
    QSignalSpy finished(m_Strip.get(), &CMessageFrame::animationFinished);
    m_Strip->open(QStringLiteral("A"), Property());
    step(0.5);
    const int reached = m_Frame->height();
    // Were it taken, the second call would restart from here and set the property.
    m_Strip->open(
        QStringLiteral("A"), Property(QStringLiteral("messageType"), QStringLiteral("x")));
    QCOMPARE(m_Frame->height(), reached);
    QVERIFY(!m_Frame->property("messageType").isValid());
    QVERIFY(finished.wait(3000));
    QTest::qWait(150);
    QCOMPARE(finished.count(), 1);
}

void tst_CMessageFrame::newTextStartsFromReachedHeight()
{
    QSignalSpy finished(m_Strip.get(), &CMessageFrame::animationFinished);
    m_Strip->open(QStringLiteral("A"), Property());
    step(0.5);
    const int reached = m_Frame->height();
    QCOMPARE(reached, 21); // half of 41, rounded up

    m_Frame->hint = 60;
    m_Strip->open(QStringLiteral("B"), Property());
    QCOMPARE(m_Label->text(), QStringLiteral("B"));
    QCOMPARE(m_Frame->height(), reached);
    step(0.5);
    QCOMPARE(m_Frame->height(), 41); // (21 + 60) / 2 rounded up

    // The interrupted animation never reports; the new one does, once.
    QVERIFY(finished.wait(3000));
    QTest::qWait(150);
    QCOMPARE(finished.count(), 1);
    QCOMPARE(m_Frame->height(), 60);
}

void tst_CMessageFrame::closeKeepsTextUntilShut()
{
    QSignalSpy finished(m_Strip.get(), &CMessageFrame::animationFinished);
    m_Strip->open(QStringLiteral("A"), Property());
    QVERIFY(finished.wait(3000));
    finished.clear();

    m_Strip->close();
    QCOMPARE(m_Label->text(), QStringLiteral("A"));
    step(0.5);
    QCOMPARE(m_Frame->height(), 21);
    QCOMPARE(m_Label->text(), QStringLiteral("A"));
    QVERIFY(!m_Frame->isHidden());

    QVERIFY(finished.wait(3000));
    QCOMPARE(m_Frame->height(), 0);
    QVERIFY(m_Frame->isHidden());
    QCOMPARE(m_Label->text(), QString());
    QTest::qWait(150);
    QCOMPARE(finished.count(), 1);
}

void tst_CMessageFrame::closeOnClosedStripDoesNothing()
{
    QSignalSpy finished(m_Strip.get(), &CMessageFrame::animationFinished);
    m_Strip->close();
    QVERIFY(m_Frame->isHidden());
    QVERIFY(!finished.wait(800));
}

void tst_CMessageFrame::forceClose()
{
    QSignalSpy finished(m_Strip.get(), &CMessageFrame::animationFinished);
    m_Strip->open(QStringLiteral("A"), Property());
    step(0.5);

    m_Strip->forceClose();
    QCOMPARE(finished.count(), 1);
    QCOMPARE(m_Frame->height(), 0);
    QVERIFY(!m_Frame->isHidden());
    QCOMPARE(m_Label->text(), QString());

    // The stopped animation must not come back to life or report.
    QTest::qWait(800);
    QCOMPARE(finished.count(), 1);
    QCOMPARE(m_Frame->height(), 0);

    // It was opening when stopped, so the strip opens again from 0 with a new text.
    m_Strip->open(QStringLiteral("A"), Property());
    QVERIFY(finished.wait(3000));
    QCOMPARE(m_Frame->height(), 41);
}

void tst_CMessageFrame::property_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("set");

    QTest::newRow("name, value and text") << "A"
                                          << "messageType" << QVariant("warning") << true;
    QTest::newRow("empty name") << "A"
                                << "" << QVariant("warning") << false;
    QTest::newRow("invalid value") << "A"
                                   << "messageType" << QVariant() << false;
    QTest::newRow("empty text") << ""
                                << "messageType" << QVariant("warning") << false;
}

void tst_CMessageFrame::property()
{
    QFETCH(QString, text);
    QFETCH(QString, name);
    QFETCH(QVariant, value);
    QFETCH(bool, set);

    // The rule only takes effect once the sheet is applied again after the property
    // has changed.
    const QString sheet = QStringLiteral("QFrame[messageType=\"warning\"] { background-color: "
                                         "#ff0000; }");
    m_Frame->setStyleSheet(sheet);
    m_Frame->ensurePolished();
    const QColor before = m_Frame->palette().color(m_Frame->backgroundRole());
    QVERIFY(before != QColor(Qt::red));

    if (text.isEmpty())
        m_Strip->open(QStringLiteral("shown before"), Property());
    m_Strip->open(text, Property(name, value));

    QCOMPARE(m_Frame->property("messageType").isValid(), set);
    QCOMPARE(m_Frame->styleSheet(), sheet);
    const QColor after = m_Frame->palette().color(m_Frame->backgroundRole());
    QCOMPARE(after, set ? QColor(Qt::red) : before);
}

void tst_CMessageFrame::unboundPair_data()
{
    QTest::addColumn<bool>("withFrame");
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("condition");

    for (const char *op : {"open", "close", "forceClose"}) {
        QTest::addRow("%s without frame", op) << false << op << "m_Frame";
        QTest::addRow("%s without label", op) << true << op << "m_Label";
    }
    QTest::addRow("tick without frame") << false << "tick"
                                        << "m_Frame";
}

void tst_CMessageFrame::unboundPair()
{
    QFETCH(bool, withFrame);
    QFETCH(QString, operation);
    QFETCH(QString, condition);

    CMessageFrame strip(withFrame ? m_Frame : nullptr, nullptr, nullptr);
    QSignalSpy finished(&strip, &CMessageFrame::animationFinished);
    const int height = m_Frame->height();

    expectAssert(condition.toLatin1().constData());
    if (operation == QLatin1String("open"))
        strip.open(QStringLiteral("A"), Property());
    else if (operation == QLatin1String("close"))
        strip.close();
    else if (operation == QLatin1String("forceClose"))
        strip.forceClose();
    else
        QMetaObject::invokeMethod(&strip, "onTimeLineValueChanged", Q_ARG(qreal, 0.5));

    QCOMPARE(finished.count(), 0);
    QCOMPARE(m_Frame->height(), height);
}

void tst_CMessageFrame::rebinding()
{
    HintFrame otherFrame;
    QLabel otherLabel;

    {
        // The same pair again is no rebinding.
        BvTest::MessageCapture capture;
        m_Strip->setFrameAndLabel(m_Frame, m_Label);
        QCOMPARE(capture.messages(), QStringList());
    }

    expectAssert("(m_Frame == frame) || !m_Frame");
    expectAssert("(m_Label == label) || !m_Label");
    m_Strip->setFrameAndLabel(&otherFrame, &otherLabel);

    // The new pair is taken anyway, and closed.
    QVERIFY(otherFrame.isHidden());
    QCOMPARE(otherFrame.height(), 0);
    m_Strip->open(QStringLiteral("B"), Property());
    QCOMPARE(otherLabel.text(), QStringLiteral("B"));
    QCOMPARE(m_Label->text(), QString());
    m_Strip.reset(); // before the pair on this stack goes
}

QTEST_MAIN(tst_CMessageFrame)
#include "tst_cmessageframe.moc"
