#include "server/syncuploadparser.h"

#include <QDate>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QJsonValue>
#include <QSet>
#include <QTime>

using namespace Qt::StringLiterals;

namespace {
// Thrown inside the parser only, to stop at the first fault.
struct Fault
{
    QString message;
};

[[noreturn]] void fail(const QString &message)
{
    throw Fault {message};
}

QJsonValue required(const QJsonObject &object, const QString &key, const QString &path)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined()) {
        fail(u"%1 is missing"_s.arg(path));
    }
    if (value.isNull()) {
        fail(u"%1 must not be null"_s.arg(path));
    }
    return value;
}

QString checkedString(const QJsonValue &value, const QString &path, qsizetype minLength, qsizetype maxLength)
{
    if (!value.isString()) {
        fail(u"%1 must be a string"_s.arg(path));
    }
    const QString text = value.toString();
    if (text.contains(QChar(0))) {
        fail(u"%1 must not contain a NUL character"_s.arg(path));
    }
    const qsizetype length = TextLimits::characterCount(text);
    if (length < minLength || length > maxLength) {
        if (minLength > 0) {
            fail(u"%1 must be %2 to %3 characters long"_s.arg(path).arg(minLength).arg(maxLength));
        }
        fail(u"%1 must be at most %2 characters long"_s.arg(path).arg(maxLength));
    }
    return text;
}

QString requiredString(
    const QJsonObject &object, const QString &key, const QString &path, qsizetype minLength, qsizetype maxLength)
{
    return checkedString(required(object, key, path), path, minLength, maxLength);
}

std::optional<QString> optionalString(const QJsonObject &object, const QString &key, const QString &path)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined()) {
        return std::nullopt;
    }
    if (value.isNull()) {
        fail(u"%1 must not be null"_s.arg(path));
    }
    return checkedString(value, path, 0, TextLimits::maxTextLength);
}

QJsonObject requiredObject(const QJsonValue &value, const QString &path)
{
    if (value.isNull()) {
        fail(u"%1 must not be null"_s.arg(path));
    }
    if (!value.isObject()) {
        fail(u"%1 must be an object"_s.arg(path));
    }
    return value.toObject();
}

QJsonArray requiredArray(const QJsonObject &object, const QString &key, const QString &path)
{
    const QJsonValue value = required(object, key, path);
    if (!value.isArray()) {
        fail(u"%1 must be an array"_s.arg(path));
    }
    return value.toArray();
}

bool digitsAt(const QString &text, std::initializer_list<int> positions)
{
    for (const int i : positions) {
        if (!text.at(i).isDigit() || text.at(i).unicode() > u'9') {
            return false;
        }
    }
    return true;
}

int number(const QString &text, int from, int length)
{
    return QStringView(text).mid(from, length).toInt();
}

UploadedSnapshot parseSnapshot(const QJsonValue &value, const QString &path, QSet<QString> &seenIds)
{
    const QJsonObject object = requiredObject(value, path);
    UploadedSnapshot snapshot;
    snapshot.id = requiredString(object, u"id"_s, path + u".id"_s, 1, 36);
    if (!SyncUploadParser::isUpperCaseUuid(snapshot.id)) {
        fail(u"%1.id must be an upper-case UUID"_s.arg(path));
    }
    if (seenIds.contains(snapshot.id)) {
        fail(u"%1.id repeats a snapshot id of this upload"_s.arg(path));
    }
    seenIds.insert(snapshot.id);
    snapshot.timestamp = requiredString(object, u"timestamp"_s, path + u".timestamp"_s, 1, 20);
    if (!SyncUploadParser::isUtcTimestamp(snapshot.timestamp)) {
        fail(u"%1.timestamp must be ISO 8601 in UTC with whole seconds, like 2026-11-16T09:30:12Z"_s.arg(path));
    }
    snapshot.activityType
        = requiredString(object, u"activityType"_s, path + u".activityType"_s, 1, TextLimits::maxLabelLength);
    snapshot.projectName
        = requiredString(object, u"projectName"_s, path + u".projectName"_s, 1, TextLimits::maxLabelLength);
    snapshot.activityDescription = optionalString(object, u"activityDescription"_s, path + u".activityDescription"_s);
    snapshot.userNote = optionalString(object, u"userNote"_s, path + u".userNote"_s);
    return snapshot;
}

SyncUpload parseBody(const QByteArray &body)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        fail(u"The body is not valid JSON: %1"_s.arg(parseError.errorString()));
    }
    if (!document.isObject()) {
        fail(u"The body must be a JSON object"_s);
    }
    const QJsonObject root = document.object();
    SyncUpload upload;
    upload.timezone = requiredString(root, u"timezone"_s, u"timezone"_s, 1, SyncUploadParser::maxTimezoneLength);
    upload.deviceId = requiredString(root, u"deviceId"_s, u"deviceId"_s, 1, 36);
    if (!SyncUploadParser::isUpperCaseUuid(upload.deviceId)) {
        fail(u"deviceId must be an upper-case UUID"_s);
    }
    const QJsonValue backfill = required(root, u"backfillComplete"_s, u"backfillComplete"_s);
    if (!backfill.isBool()) {
        fail(u"backfillComplete must be a boolean"_s);
    }
    upload.backfillComplete = backfill.toBool();
    const QJsonArray days = requiredArray(root, u"days"_s, u"days"_s);
    if (days.size() > SyncUploadParser::maxDays) {
        fail(u"days may hold at most %1 days"_s.arg(SyncUploadParser::maxDays));
    }
    QSet<QString> seenDates;
    QSet<QString> seenIds;
    for (qsizetype d = 0; d < days.size(); ++d) {
        const QString path = u"days[%1]"_s.arg(d);
        const QJsonObject dayObject = requiredObject(days.at(d), path);
        UploadedDay day;
        day.date = requiredString(dayObject, u"date"_s, path + u".date"_s, 1, 10);
        if (!SyncUploadParser::isDayLabel(day.date)) {
            fail(u"%1.date must be a day as yyyy-MM-dd"_s.arg(path));
        }
        if (seenDates.contains(day.date)) {
            fail(u"%1.date repeats a day of this upload"_s.arg(path));
        }
        seenDates.insert(day.date);
        const QJsonArray snapshots = requiredArray(dayObject, u"snapshots"_s, path + u".snapshots"_s);
        if (snapshots.isEmpty()) {
            fail(u"%1.snapshots must not be empty"_s.arg(path));
        }
        if (snapshots.size() > SyncUploadParser::maxSnapshotsPerDay) {
            fail(u"%1.snapshots may hold at most %2 snapshots"_s.arg(path).arg(SyncUploadParser::maxSnapshotsPerDay));
        }
        day.snapshots.reserve(snapshots.size());
        for (qsizetype s = 0; s < snapshots.size(); ++s) {
            day.snapshots.append(parseSnapshot(snapshots.at(s), u"%1.snapshots[%2]"_s.arg(path).arg(s), seenIds));
        }
        upload.days.append(std::move(day));
    }
    return upload;
}
} // namespace

SyncUploadParser::Result SyncUploadParser::parse(const QByteArray &body)
{
    try {
        return Result {parseBody(body), QString()};
    } catch (const Fault &fault) {
        return Result {std::nullopt, fault.message};
    }
}

bool SyncUploadParser::isUpperCaseUuid(const QString &text)
{
    if (text.size() != 36) {
        return false;
    }
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = text.at(i).unicode();
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (c != u'-') {
                return false;
            }
        } else if (!((c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'F'))) {
            return false;
        }
    }
    return true;
}

bool SyncUploadParser::isDayLabel(const QString &text)
{
    if (text.size() != 10 || text.at(4) != u'-' || text.at(7) != u'-' || !digitsAt(text, {0, 1, 2, 3, 5, 6, 8, 9})) {
        return false;
    }
    return QDate(number(text, 0, 4), number(text, 5, 2), number(text, 8, 2)).isValid();
}

bool SyncUploadParser::isUtcTimestamp(const QString &text)
{
    // 2026-11-16T09:30:12Z and nothing else: no fraction, no offset.
    if (text.size() != 20 || text.at(10) != u'T' || text.at(13) != u':' || text.at(16) != u':' || text.at(19) != u'Z'
        || !isDayLabel(text.left(10)) || !digitsAt(text, {11, 12, 14, 15, 17, 18})) {
        return false;
    }
    return QTime(number(text, 11, 2), number(text, 14, 2), number(text, 17, 2)).isValid();
}
