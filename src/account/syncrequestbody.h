#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

struct ActivitySnapshot;

// One snapshot as it goes up: labels, description and note only. The screenshot's hash stays here.
struct SyncSnapshotPayload
{
    QString id; // upper-case UUID
    QString timestamp; // ISO 8601 in UTC, whole seconds
    QString activityType;
    QString projectName;
    std::optional<QString> activityDescription;
    std::optional<QString> userNote;

    [[nodiscard]] static SyncSnapshotPayload from(const ActivitySnapshot &snapshot, const QStringList &userProjects);
    [[nodiscard]] QJsonObject toJson() const;
};

// One local day, whole.
struct SyncDayPayload
{
    QString date; // yyyy-MM-dd in the local zone
    QList<SyncSnapshotPayload> snapshots;

    [[nodiscard]] static SyncDayPayload from(
        const QString &date, const QList<ActivitySnapshot> &snapshots, const QStringList &userProjects);
    [[nodiscard]] QJsonObject toJson() const;
};

// The body of an upload.
struct SyncRequestBody
{
    QString timezone;
    QString deviceId;
    bool backfillComplete = false;
    QList<SyncDayPayload> days;

    [[nodiscard]] QJsonObject toJson() const;
    // Compact JSON.
    [[nodiscard]] QByteArray encoded() const;
};
