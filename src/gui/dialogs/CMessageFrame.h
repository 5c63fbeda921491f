#pragma once

#include <QObject>
#include <QPair>
#include <QString>
#include <QTimeLine>
#include <QVariant>

class QFrame;
class QLabel;

// Turns an existing frame and the label inside it into a message strip that slides
// open to show a text and slides shut again. Owns neither widget: it animates the
// frame's fixed height and sets the label's text.
class CMessageFrame : public QObject
{
    Q_OBJECT

public:
    // A null frame or label is accepted; bind the pair later with setFrameAndLabel().
    explicit CMessageFrame(
        QFrame *frame = nullptr, QLabel *label = nullptr, QObject *parent = nullptr);

    // Binds the pair and closes the strip at once (hidden, 0 high, empty label).
    void setFrameAndLabel(QFrame *frame, QLabel *label);

    // Slides the strip open showing `text`; an empty text slides it shut instead.
    // `property` (name, value) is set on the frame so that the style sheet can colour
    // the strip by kind of message; an empty name or invalid value sets nothing.
    void open(const QString &text, QPair<QString, QVariant> property);
    void close();
    // Collapses the strip to 0 high at once; the frame stays visible.
    void forceClose();

signals:
    void animationFinished();

private slots:
    void onTimeLineValueChanged(qreal value);
    void onTimeLineFinished();

private:
    QFrame *m_Frame;
    QLabel *m_Label;
    QTimeLine m_TimeLine;
    qint32 m_StartHeight;
    bool m_Opening;
};
