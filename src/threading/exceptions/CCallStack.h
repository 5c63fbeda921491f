#pragma once

#include <QDebug>
#include <QStringList>
#include <QtGlobal>

#include <iosfwd>

// The return addresses of the stack at the point of construction, innermost first.
class CCallStack
{
public:
    enum { MaxFrames = 63 };

    // Captures the current stack; the constructor's own frame is the first entry.
    CCallStack();

    qint32 frameCount() const { return m_Count; }

    // One "[bt] <index> <symbol>" line per frame.
    QStringList getStack() const;

    // The report written by both stream operators, naming the thread that writes it.
    QString toReport() const;

    // "[bt]   7 symbol": the index right-aligned in three columns.
    static QString formatFrame(int index, const QString &symbol);

private:
    void *m_Frames[MaxFrames];
    qint32 m_Count = 0;
};

std::ostream &operator<<(std::ostream &out, const CCallStack &stack);
QDebug operator<<(QDebug debug, const CCallStack &stack);
