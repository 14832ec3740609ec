#include "core/referencedate.h"

#include <QTimeZone>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {
const QDateTime &referenceEpoch()
{
    static const QDateTime epoch(QDate(2001, 1, 1), QTime(0, 0), QTimeZone::utc());
    return epoch;
}
} // namespace

double ReferenceDate::toSeconds(const QDateTime &date)
{
    return static_cast<double>(referenceEpoch().msecsTo(date)) / 1000.0;
}

QDateTime ReferenceDate::fromSeconds(double seconds)
{
    return referenceEpoch().addMSecs(static_cast<qint64>(std::llround(seconds * 1000.0))).toLocalTime();
}

QString ReferenceDate::toIso8601(const QDateTime &date)
{
    return date.toUTC().toString(u"yyyy-MM-dd'T'HH:mm:ss'Z'"_s);
}

QDateTime ReferenceDate::fromIso8601(const QString &text)
{
    return QDateTime::fromString(text, Qt::ISODate).toLocalTime();
}
