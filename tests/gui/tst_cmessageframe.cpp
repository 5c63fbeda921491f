#include "gui/dialogs/CMessageFrame.h"

#include <QFrame>
#include <QLabel>
#include <QtTest>

namespace {
// A frame whose opening height is known exactly, independent of fonts and style.
class HintFrame : public QFrame
{
public:
    QSize sizeHint() const override { return QSize(200, 41); }
};
} // namespace

class tst_CMessageFrame : public QObject
{
    Q_OBJECT

private slots:
    // One tick of the animation, from the height an earlier one left the strip at.
    void tick_data()
    {
        QTest::addColumn<QString>("text"); // empty: closing a strip that shows "before"
        QTest::addColumn<int>("start");
        QTest::addColumn<qreal>("value");
        QTest::addColumn<int>("height"); // the size hint is 41
        QTest::addColumn<QString>("label");
        QTest::newRow("opening, half rounds up") << "A" << 10 << 0.5 << 26 << "A";
        QTest::newRow("opening, a third of the way") << "A" << 10 << 1.0 / 3.0 << 20 << "A";
        QTest::newRow("closing keeps its text until shut") << "" << 41 << 0.25 << 31 << "before";
    }

    void tick()
    {
        QFETCH(QString, text);
        QFETCH(int, start);
        QFETCH(qreal, value);
        QFETCH(int, height);
        QFETCH(QString, label);
        HintFrame frame;
        auto *shown = new QLabel(&frame);
        CMessageFrame strip(&frame, shown);
        if (text.isEmpty())
            strip.open(QStringLiteral("before"), {});
        frame.setFixedHeight(start);
        strip.open(text, {});
        QMetaObject::invokeMethod(&strip, "onTimeLineValueChanged", Q_ARG(qreal, value));
        QCOMPARE(frame.height(), height);
        QCOMPARE(shown->text(), label);
    }
};

QTEST_MAIN(tst_CMessageFrame)
#include "tst_cmessageframe.moc"
