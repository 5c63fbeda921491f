#include "CQDateTimeConverter.h"

#include <cmath>

namespace {
const double kMaxSeconds = 4294967295.0;

quint32 clampToUInt32(double value)
{
    if (std::isnan(value) || value <= 0.0)
        return 0;
    if (value >= kMaxSeconds)
        return quint32(kMaxSeconds);
    return quint32(value);
}

QDateTime fromSeconds(quint32 seconds, qint64 milliseconds)
{
    return QDateTime::fromSecsSinceEpoch(qint64(seconds), Qt::UTC).addMSecs(milliseconds).toUTC();
}
} // namespace

QDateTime CQDateTimeConverter::convertInt64ToQDateTime(const quint64 &msecs)
{
    const quint64 seconds = msecs / 1000;
    return fromSeconds(quint32(seconds), qint64(msecs - seconds * 1000));
}

QDateTime CQDateTimeConverter::convertDoubleToQDateTime(const double &msecs)
{
    const quint32 seconds = clampToUInt32(msecs / 1000.0);
    const quint32 remainder = clampToUInt32(msecs - double(seconds) * 1000.0);
    return fromSeconds(seconds, qint64(remainder));
}
