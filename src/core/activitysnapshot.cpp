#include "core/activitysnapshot.h"

#include "core/referencedate.h"
#include "core/settings.h"
#include "core/userpreferences.h"

#include <QHashFunctions>
#include <QJsonValue>

using namespace Qt::StringLiterals;

namespace {
const QString lockedMarker = u"Screen Locked"_s;
const QString sleepingMarker = u"Display Sleeping"_s;
const QString awayMarker = u"Away"_s;

void putOptional(QJsonObject &object, const QString &key, const std::optional<QString> &value)
{
    if (value) {
        object.insert(key, *value);
    }
}

// Absent, null and a string are fine; anything else makes the record unreadable.
bool readOptional(const QJsonObject &object, const QString &key, std::optional<QString> &out)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull()) {
        return true;
    }
    if (!value.isString()) {
        return false;
    }
    out = value.toString();
    return true;
}
} // namespace

QString ActivitySnapshot::screenStateMarker(ScreenState state)
{
    switch (state) {
    case ScreenState::Active:
        return u"Active"_s;
    case ScreenState::Locked:
        return lockedMarker;
    case ScreenState::Sleeping:
        return sleepingMarker;
    case ScreenState::Away:
        return awayMarker;
    }
    return u"Active"_s;
}

bool ActivitySnapshot::isInactiveScreenState() const
{
    return activityDescription
        && (*activityDescription == lockedMarker || *activityDescription == sleepingMarker
            || *activityDescription == awayMarker);
}

QString ActivitySnapshot::effectiveProjectName(const QStringList &userProjects) const
{
    if (userNote) {
        const QString note = userNote->trimmed();
        if (!note.isEmpty()) {
            const QString label = UserPreferences::normalizedLabel(note, userProjects);
            if (label != UserPreferences::otherLabel) {
                return label;
            }
        }
    }
    if (projectName) {
        const QString project = projectName->trimmed();
        if (!project.isEmpty()) {
            return project;
        }
    }
    return UserPreferences::otherLabel;
}

QString ActivitySnapshot::effectiveProjectName(const Settings &settings) const
{
    return effectiveProjectName(UserPreferences::parsedList(settings.string(SettingsKey::userProjects)));
}

QJsonObject ActivitySnapshot::toJson() const
{
    QJsonObject object;
    object.insert(u"id"_s, id.toString(QUuid::WithoutBraces).toUpper());
    object.insert(u"timestamp"_s, ReferenceDate::toSeconds(timestamp));
    object.insert(u"aiCategory"_s, aiCategory);
    putOptional(object, u"imageHash"_s, imageHash);
    putOptional(object, u"projectName"_s, projectName);
    putOptional(object, u"activityDescription"_s, activityDescription);
    putOptional(object, u"userNote"_s, userNote);
    return object;
}

std::optional<ActivitySnapshot> ActivitySnapshot::fromJson(const QJsonObject &object)
{
    const QJsonValue id = object.value(u"id"_s);
    const QJsonValue timestamp = object.value(u"timestamp"_s);
    const QJsonValue category = object.value(u"aiCategory"_s);
    if (!id.isString() || !timestamp.isDouble() || !category.isString()) {
        return std::nullopt;
    }
    ActivitySnapshot snapshot;
    snapshot.id = QUuid::fromString(id.toString());
    if (snapshot.id.isNull()) {
        return std::nullopt;
    }
    snapshot.timestamp = ReferenceDate::fromSeconds(timestamp.toDouble());
    snapshot.aiCategory = category.toString();
    if (!readOptional(object, u"imageHash"_s, snapshot.imageHash)
        || !readOptional(object, u"projectName"_s, snapshot.projectName)
        || !readOptional(object, u"activityDescription"_s, snapshot.activityDescription)
        || !readOptional(object, u"userNote"_s, snapshot.userNote)) {
        return std::nullopt;
    }
    return snapshot;
}

size_t qHash(const ActivitySnapshot &snapshot, size_t seed)
{
    return qHashMulti(seed, snapshot.id, snapshot.timestamp, snapshot.aiCategory,
        snapshot.imageHash.value_or(QString()), snapshot.projectName.value_or(QString()),
        snapshot.activityDescription.value_or(QString()), snapshot.userNote.value_or(QString()));
}
