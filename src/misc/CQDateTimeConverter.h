#pragma once

#include <QDateTime>

// Milliseconds since 1970-01-01 00:00:00 UTC to a QDateTime in UTC.
//
// Seconds travel as an unsigned 32-bit value: the integer form wraps beyond
// 4294967295 s, the floating form clamps to 0 .. 4294967295 and truncates.
class CQDateTimeConverter
{
public:
    CQDateTimeConverter() = delete;

    static QDateTime convertInt64ToQDateTime(const quint64 &msecs);
    static QDateTime convertDoubleToQDateTime(const double &msecs);
};
