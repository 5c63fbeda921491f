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
} // namespace

class tst_CMessageFrame : public QObject
{
    Q_OBJECT

    // One tick of the time line, without waiting for it.
    void step(qreal value)
    {
        QMetaObject::invokeMethod(m_Strip.get(), "onTimeLineValueChanged", Q_ARG(qreal, value));
    }
    std::unique_ptr<CMessageFrame> m_Strip;
    std::unique_ptr<QWidget> m_Window;
    HintFrame *m_Frame = nullptr;
    QLabel *m_Label = nullptr;

private slots:
    void init()
    {
        m_Strip.reset();
        m_Window = std::make_unique<QWidget>();
        m_Frame = new HintFrame;
        m_Frame->setParent(m_Window.get());
        m_Label = new QLabel(QStringLiteral("design-time text"), m_Frame);
        m_Window->show();
        m_Strip = std::make_unique<CMessageFrame>(m_Frame, m_Label, nullptr);
        // Binding the pair closes the strip.
        QVERIFY(m_Frame->isHidden());
        QCOMPARE(m_Frame->height(), 0);
        QCOMPARE(m_Label->text(), QString());
    }

    void height_data()
    {
        QTest::addColumn<QString>("text"); // empty: closing
        QTest::addColumn<int>("start");
        QTest::addColumn<qreal>("value");
        QTest::addColumn<int>("expected"); // the size hint is 41
        QTest::newRow("opening, half rounds up") << "A" << 10 << 0.5 << 26;
        QTest::newRow("closing, half rounds up, not to even") << "" << 41 << 0.5 << 21;
        QTest::newRow("below half rounds down") << "A" << 10 << 1.0 / 3.0 << 20;
        QTest::newRow("opening from taller than target") << "A" << 60 << 0.25 << 55;
        QTest::newRow("closing ends at 0, not the hint") << "" << 41 << 1.0 << 0;
    }

    void height()
    {
        QFETCH(QString, text);
        QFETCH(int, start);
        QFETCH(qreal, value);
        QFETCH(int, expected);
        if (text.isEmpty())
            m_Strip->open(QStringLiteral("shown before"), Property());
        m_Frame->setFixedHeight(start);
        m_Strip->open(text, Property());
        step(value);
        QCOMPARE(m_Frame->height(), expected);
    }

    // Any open() during an animation starts a new one from the height reached, unless it
    // shows the same text again. The interrupted animation never reports; the new one
    // does, once.
    void interruptedOpening()
    {
        QSignalSpy finished(m_Strip.get(), &CMessageFrame::animationFinished);
        m_Strip->open(QStringLiteral("A"), Property());
        step(0.5);
        m_Strip->open(QStringLiteral("A"), Property(QStringLiteral("messageType"), 1));
        QVERIFY(!m_Frame->property("messageType").isValid());
        m_Frame->hint = 60;
        m_Strip->open(QStringLiteral("B"), Property());
        QCOMPARE(m_Label->text(), QStringLiteral("B"));
        step(0.5);
        QCOMPARE(m_Frame->height(), 41); // from 21 half-way to 60, rounded up
        QVERIFY(finished.wait(3000));
        QTest::qWait(150);
        QCOMPARE(finished.count(), 1);
        QCOMPARE(m_Frame->height(), 60);
    }

    void closeKeepsTextUntilShut()
    {
        QSignalSpy finished(m_Strip.get(), &CMessageFrame::animationFinished);
        m_Strip->open(QStringLiteral("A"), Property());
        QVERIFY(finished.wait(3000));
        m_Strip->close();
        step(0.5);
        QCOMPARE(m_Frame->height(), 21);
        QCOMPARE(m_Label->text(), QStringLiteral("A"));
        QVERIFY(!m_Frame->isHidden());
        QVERIFY(finished.wait(3000));
        QCOMPARE(m_Frame->height(), 0);
        QVERIFY(m_Frame->isHidden());
        QCOMPARE(m_Label->text(), QString());
        // Once shut, close() is the same empty text again: nothing runs, nothing reports.
        m_Strip->close();
        QVERIFY(!finished.wait(800));
        QCOMPARE(finished.count(), 2);
    }

    // The stopped animation must not come back to life or report.
    void forceClose()
    {
        QSignalSpy finished(m_Strip.get(), &CMessageFrame::animationFinished);
        m_Strip->open(QStringLiteral("A"), Property());
        step(0.5);
        m_Strip->forceClose();
        QCOMPARE(finished.count(), 1);
        QCOMPARE(m_Frame->height(), 0);
        QVERIFY(!m_Frame->isHidden());
        QCOMPARE(m_Label->text(), QString());
        QTest::qWait(800);
        QCOMPARE(finished.count(), 1);
        QCOMPARE(m_Frame->height(), 0);
    }

    void property_data()
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

    // The style rule only takes effect once the sheet is applied again after the property
    // has changed.
    void property()
    {
        QFETCH(QString, text);
        QFETCH(QString, name);
        QFETCH(QVariant, value);
        QFETCH(bool, set);
        const QString sheet
            = QStringLiteral("QFrame[messageType=\"warning\"] { background: red; }");
        m_Frame->setStyleSheet(sheet);
        m_Frame->ensurePolished();
        const QColor before = m_Frame->palette().color(m_Frame->backgroundRole());
        if (text.isEmpty())
            m_Strip->open(QStringLiteral("shown before"), Property());
        m_Strip->open(text, Property(name, value));
        QCOMPARE(m_Frame->property("messageType").isValid(), set);
        QCOMPARE(m_Frame->styleSheet(), sheet);
        QCOMPARE(
            m_Frame->palette().color(m_Frame->backgroundRole()), set ? QColor(Qt::red) : before);
    }

    void misuse_data()
    {
        QTest::addColumn<bool>("withFrame");
        QTest::addColumn<QString>("operation");
        QTest::addColumn<QStringList>("conditions");
        // clang-format off
        QTest::newRow("open without frame")       << false << "open" << QStringList {"m_Frame"};
        QTest::newRow("open without label")       << true << "open" << QStringList {"m_Label"};
        QTest::newRow("forceClose without frame") << false << "forceClose" << QStringList {"m_Frame"};
        QTest::newRow("forceClose without label") << true << "forceClose" << QStringList {"m_Label"};
        QTest::newRow("tick without frame")       << false << "tick" << QStringList {"m_Frame"};
        QTest::newRow("rebinding")                << true << "rebind" << QStringList {"(m_Frame == frame) || !m_Frame", "(m_Label == label) || !m_Label"};
        // clang-format on
    }

    // Misuse is reported with the exact condition, nothing else is printed, nothing changes.
    void misuse()
    {
        QFETCH(bool, withFrame);
        QFETCH(QString, operation);
        QFETCH(QStringList, conditions);
        QFrame otherFrame;
        QLabel otherLabel;
        CMessageFrame strip(withFrame ? m_Frame : nullptr, nullptr, nullptr);
        QSignalSpy finished(&strip, &CMessageFrame::animationFinished);
        BvTest::MessageCapture capture;
        if (operation == "open") {
            strip.open(QStringLiteral("A"), Property());
        } else if (operation == "forceClose") {
            strip.forceClose();
        } else if (operation == "tick") {
            QMetaObject::invokeMethod(&strip, "onTimeLineValueChanged", Q_ARG(qreal, 0.5));
        } else {
            strip.setFrameAndLabel(m_Frame, m_Label); // binding the missing label is no rebinding
            strip.setFrameAndLabel(&otherFrame, &otherLabel); // taken anyway, and closed
            QVERIFY(otherFrame.isHidden());
        }
        const QString assertion = "ASSERT: \"\\1\" in file src/gui/dialogs/CMessageFrame, line N";
        QCOMPARE(capture.messages().replaceInStrings(QRegularExpression("\\d+$"), "N"),
            conditions.replaceInStrings(QRegularExpression("^(.*)$"), assertion));
        QCOMPARE(finished.count(), 0);
        QVERIFY(m_Frame->isHidden());
    }
};

QTEST_MAIN(tst_CMessageFrame)
#include "tst_cmessageframe.moc"
