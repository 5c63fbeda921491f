#pragma once

// Captured diagnostic lines of one type in a form tests can compare exactly: lines from the
// main thread whose prefix names `file` become "function: text", assertion lines get "N"
// for their line number. Any other line stays whole, so it shows up in a comparison.

#include "BvTestSupport.h"

#include <QRegularExpression>

inline QStringList logLines(
    const BvTest::MessageCapture &capture, QtMsgType type, const QString &file)
{
    const QRegularExpression prefix(
        QStringLiteral("^\\[ -1 : MainThread \\] \\[ %1 : \\d+ : (\\w+) \\] ")
            .arg(QRegularExpression::escape(file)));
    const QRegularExpression lineNumber(QStringLiteral(", line \\d+$"));
    const QStringList messages = capture.messages();
    const QList<QtMsgType> types = capture.types();
    QStringList result;
    for (int i = 0; i < messages.size(); ++i) {
        if (types.at(i) == type)
            result << QString(messages.at(i))
                          .replace(prefix, QStringLiteral("\\1: "))
                          .replace(lineNumber, QStringLiteral(", line N"));
    }
    return result;
}
