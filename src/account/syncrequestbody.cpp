#include "account/syncrequestbody.h"

#include "core/activitysnapshot.h"
#include "core/referencedate.h"
#include "core/textlimits.h"
#include "core/userpreferences.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace {
// Records stored before the app kept to the server's limits would have their day refused whole,
// at every try; they go up cut to fit instead.
QString fittedLabel(const QString &label)
{
    const QString fitted = TextLimits::fittedLabel(label);
    return fitted.isEmpty() ? UserPreferences::otherLabel : fitted;
}

std::optional<QString> fittedText(const std::optional<QString> &text)
{
    return text ? std::optional<QString>(TextLimits::fittedText(*text)) : std::nullopt;
}
} // namespace

SyncSnapshotPayload SyncSnapshotPayload::from(const ActivitySnapshot &snapshot, const QStringList &userProjects)
{
    return SyncSnapshotPayload {
        .id = snapshot.id.toString(QUuid::WithoutBraces).toUpper(),
        .timestamp = ReferenceDate::toIso8601(snapshot.timestamp),
        .activityType = fittedLabel(snapshot.aiCategory),
        .projectName = fittedLabel(snapshot.effectiveProjectName(userProjects)),
        .activityDescription = fittedText(snapshot.activityDescription),
        .userNote = fittedText(snapshot.userNote),
    };
}

QJsonObject SyncSnapshotPayload::toJson() const
{
    QJsonObject object {
        {u"id"_s, id},
        {u"timestamp"_s, timestamp},
        {u"activityType"_s, activityType},
        {u"projectName"_s, projectName},
    };
    if (activityDescription) {
        object.insert(u"activityDescription"_s, *activityDescription);
    }
    if (userNote) {
        object.insert(u"userNote"_s, *userNote);
    }
    return object;
}

SyncDayPayload SyncDayPayload::from(
    const QString &date, const QList<ActivitySnapshot> &snapshots, const QStringList &userProjects)
{
    SyncDayPayload day {.date = date, .snapshots = {}};
    day.snapshots.reserve(snapshots.size());
    for (const ActivitySnapshot &snapshot : snapshots) {
        day.snapshots.append(SyncSnapshotPayload::from(snapshot, userProjects));
    }
    return day;
}

QJsonObject SyncDayPayload::toJson() const
{
    QJsonArray array;
    for (const SyncSnapshotPayload &snapshot : snapshots) {
        array.append(snapshot.toJson());
    }
    return QJsonObject {{u"date"_s, date}, {u"snapshots"_s, array}};
}

QJsonObject SyncRequestBody::toJson() const
{
    QJsonArray array;
    for (const SyncDayPayload &day : days) {
        array.append(day.toJson());
    }
    return QJsonObject {
        {u"timezone"_s, timezone},
        {u"deviceId"_s, deviceId},
        {u"backfillComplete"_s, backfillComplete},
        {u"days"_s, array},
    };
}

QByteArray SyncRequestBody::encoded() const
{
    return QJsonDocument(toJson()).toJson(QJsonDocument::Compact);
}
