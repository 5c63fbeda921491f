#pragma once

// Captured diagnostic lines in a form tests can compare exactly.

#include "BvTestSupport.h"

#include <QRegularExpression>

// The captured lines of `type`: "function: text" for lines from the main thread whose
// prefix names `file`, assertion lines with their line number replaced by "N". Any other
// line stays whole, so it shows up in a comparison.
inline QStringList logLines(
    const BvTest::MessageCapture &capture, QtMsgType type, const QString &file)
{
    const QRegularExpression prefix(
        QStringLiteral("^\\[ -1 : MainThread \\] \\[ %1 : \\d+ : (\\w+) \\] ")
            .arg(QRegularExpression::escape(file)));
    static const QRegularExpression lineNumber(QStringLiteral(", line \\d+$"));
    QStringList result;
    const QStringList messages = capture.messages();
    const QList<QtMsgType> types = capture.types();
    for (int i = 0; i < messages.size(); ++i) {
        if (types.at(i) != type)
            continue;
        QString message = messages.at(i);
        const QRegularExpressionMatch match = prefix.match(message);
        if (match.hasMatch())
            message
                = match.captured(1) + QStringLiteral(": ") + message.mid(match.capturedLength());
        result << message.replace(lineNumber, QStringLiteral(", line N"));
    }
    return result;
}
