#include "CMessageFrame.h"

#include "threading/assertions/assertion.h"

#include <QFrame>
#include <QLabel>

#include <cmath>

#undef BV_SOURCE_FILE
#define BV_SOURCE_FILE "src/gui/dialogs/CMessageFrame"

// Misuse is reported and the operation skipped; the strip is cosmetic and must never
// take the program down.
#define BV_CHECK_BOUND()                                                                           \
    do {                                                                                           \
        if (!m_Frame) {                                                                            \
            bvPrintAssert("m_Frame", BV_SOURCE_FILE, __LINE__);                                    \
            return;                                                                                \
        }                                                                                          \
        if (!m_Label) {                                                                            \
            bvPrintAssert("m_Label", BV_SOURCE_FILE, __LINE__);                                    \
            return;                                                                                \
        }                                                                                          \
    } while (false)

CMessageFrame::CMessageFrame(QFrame *frame, QLabel *label, QObject *parent)
    : QObject(parent)
    , m_Frame(frame)
    , m_Label(label)
    , m_TimeLine(500)
    , m_StartHeight(0)
    , m_Opening(true)
{
    m_TimeLine.setUpdateInterval(80);

    bool connResult = static_cast<bool>(connect(
        &m_TimeLine, &QTimeLine::valueChanged, this, &CMessageFrame::onTimeLineValueChanged));
    BV_ASSERT_THROW(connResult);
    connResult = static_cast<bool>(
        connect(&m_TimeLine, &QTimeLine::finished, this, &CMessageFrame::onTimeLineFinished));
    BV_ASSERT_THROW(connResult);

    if (frame && label)
        setFrameAndLabel(frame, label);
}

void CMessageFrame::setFrameAndLabel(QFrame *frame, QLabel *label)
{
    BV_ASSERT((m_Frame == frame) || !m_Frame);
    BV_ASSERT((m_Label == label) || !m_Label);
    m_Frame = frame;
    m_Label = label;

    BV_CHECK_BOUND();
    m_Label->clear();
    m_Frame->hide();
    m_Frame->setFixedHeight(0);
}

void CMessageFrame::open(const QString &text, QPair<QString, QVariant> property)
{
    BV_CHECK_BOUND();

    // Only a strip running backwards could need the same text shown again.
    const bool runningBackwards
        = m_TimeLine.direction() == QTimeLine::Backward && m_TimeLine.state() == QTimeLine::Running;
    if (m_Label->text() == text && !runningBackwards)
        return;

    if (m_TimeLine.state() == QTimeLine::Running)
        m_TimeLine.stop();

    // Continue from wherever an interrupted animation left the strip.
    m_StartHeight = m_Frame->height();
    m_Frame->show();

    if (!text.isEmpty() && !property.first.isEmpty() && property.second.isValid()) {
        m_Frame->setProperty(property.first.toLocal8Bit().constData(), property.second);
        // Style rules that select on the property are only evaluated again on a new sheet.
        m_Frame->setStyleSheet(m_Frame->styleSheet());
    }

    m_Opening = !text.isEmpty();
    // A closing strip keeps showing its old message until it is shut.
    if (m_Opening)
        m_Label->setText(text);

    m_TimeLine.start();
}

void CMessageFrame::close()
{
    open(QString(), QPair<QString, QVariant>());
}

void CMessageFrame::forceClose()
{
    BV_CHECK_BOUND();
    m_TimeLine.stop();
    m_Frame->setFixedHeight(0);
    m_Label->clear();
    emit animationFinished();
}

void CMessageFrame::onTimeLineValueChanged(qreal value)
{
    if (!m_Frame) {
        bvPrintAssert("m_Frame", BV_SOURCE_FILE, __LINE__);
        return;
    }
    // The size hint follows the label's wrapped text, so a long message opens taller.
    const double target = m_Opening ? m_Frame->sizeHint().height() : 0.0;
    const double height = m_StartHeight * (1.0 - value) + target * value;
    // Halves go up, towards positive infinity.
    m_Frame->setFixedHeight(static_cast<int>(std::floor(height + 0.5)));
}

void CMessageFrame::onTimeLineFinished()
{
    if (!m_Opening) {
        BV_CHECK_BOUND();
        m_Frame->hide();
        m_Label->clear();
    }
    emit animationFinished();
}
