#pragma once

#include "core/activitysnapshot.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <optional>

class Settings;

// Time of one label in a stored report.
struct LabelTimeStat
{
    QString name;
    qint64 seconds = 0; // its snapshots times 30
    double percentage = 0.0; // share of the active snapshots, 0 to 100, not rounded

    [[nodiscard]] QJsonObject toJson() const;
    // All three keys are required; "seconds" must be a whole number.
    [[nodiscard]] static std::optional<LabelTimeStat> fromJson(const QJsonObject &object);

    friend bool operator==(const LabelTimeStat &, const LabelTimeStat &) = default;
};

size_t qHash(const LabelTimeStat &stat, size_t seed = 0);

// Share of one label, for display only; the id is new on every computation.
struct LabelShare
{
    QUuid id;
    QString name;
    int snapshotCount = 0;
    double percentage = 0.0;
};

// The arithmetic of the reports: which snapshots count as activity and what share each label took.
// One active snapshot stands for exactly one capture interval; time stamps are never consulted.
//
// Lists come largest share first. Labels with equal shares keep the order in which they first
// appear in the input, so the same day always gives the same order.
namespace ActivityReportCalculator {
inline constexpr qint64 secondsPerSnapshot = 30;

[[nodiscard]] QList<ActivitySnapshot> activeSnapshots(const QList<ActivitySnapshot> &snapshots);
// Active snapshots times 30.
[[nodiscard]] qint64 totalActiveSeconds(const QList<ActivitySnapshot> &snapshots);

// Projects are labelled by the snapshot's effective project name, so the user's projects decide.
[[nodiscard]] QList<LabelTimeStat> projectTimeStats(
    const QList<ActivitySnapshot> &snapshots, const QStringList &userProjects);
[[nodiscard]] QList<LabelTimeStat> projectTimeStats(const QList<ActivitySnapshot> &snapshots, const Settings &settings);
[[nodiscard]] QList<LabelTimeStat> categoryTimeStats(const QList<ActivitySnapshot> &snapshots);

[[nodiscard]] QList<LabelShare> projectShares(
    const QList<ActivitySnapshot> &snapshots, const QStringList &userProjects);
[[nodiscard]] QList<LabelShare> projectShares(const QList<ActivitySnapshot> &snapshots, const Settings &settings);
[[nodiscard]] QList<LabelShare> categoryShares(const QList<ActivitySnapshot> &snapshots);

// The category label: aiCategory trimmed, "Other" when nothing is left.
[[nodiscard]] QString categoryLabel(const ActivitySnapshot &snapshot);

// The duration rule shared by the CSV files and the day summary's statistics:
// "45m", "2h", "2h 30m"; whole minutes, rounded down.
[[nodiscard]] QString formatDuration(qint64 seconds);
// A share as the reports show it: nearest integer, halves away from zero.
[[nodiscard]] qint64 roundedPercentage(double percentage);
} // namespace ActivityReportCalculator
