#include "reports/activityreportcalculator.h"

#include "core/settings.h"
#include "core/userpreferences.h"

#include <QHash>
#include <QHashFunctions>
#include <QJsonValue>

#include <algorithm>
#include <cmath>
#include <functional>

using namespace Qt::StringLiterals;

namespace {
using LabelOf = std::function<QString(const ActivitySnapshot &)>;

struct LabelCount
{
    QString name;
    int count = 0;
};

// Counts per label in the order labels first appear, which makes the tie order of the later
// stable sort the order of the day.
QList<LabelCount> countLabels(const QList<ActivitySnapshot> &active, const LabelOf &label)
{
    QList<LabelCount> counts;
    QHash<QString, qsizetype> indexOf;
    for (const ActivitySnapshot &snapshot : active) {
        const QString name = label(snapshot);
        const auto found = indexOf.constFind(name);
        if (found == indexOf.constEnd()) {
            indexOf.insert(name, counts.size());
            counts.append(LabelCount {name, 1});
        } else {
            ++counts[*found].count;
        }
    }
    return counts;
}

template<typename T>
void sortByShare(QList<T> &entries)
{
    std::stable_sort(
        entries.begin(), entries.end(), [](const T &a, const T &b) { return a.percentage > b.percentage; });
}

QList<LabelTimeStat> timeStats(const QList<ActivitySnapshot> &snapshots, const LabelOf &label)
{
    const QList<ActivitySnapshot> active = ActivityReportCalculator::activeSnapshots(snapshots);
    if (active.isEmpty()) {
        return {};
    }
    const double total = static_cast<double>(active.size());
    QList<LabelTimeStat> stats;
    for (const LabelCount &entry : countLabels(active, label)) {
        stats.append(LabelTimeStat {
            .name = entry.name,
            .seconds = entry.count * ActivityReportCalculator::secondsPerSnapshot,
            .percentage = static_cast<double>(entry.count) / total * 100.0,
        });
    }
    sortByShare(stats);
    return stats;
}

QList<LabelShare> shares(const QList<ActivitySnapshot> &snapshots, const LabelOf &label)
{
    const QList<ActivitySnapshot> active = ActivityReportCalculator::activeSnapshots(snapshots);
    if (active.isEmpty()) {
        return {};
    }
    const double total = static_cast<double>(active.size());
    QList<LabelShare> result;
    for (const LabelCount &entry : countLabels(active, label)) {
        result.append(LabelShare {
            .id = QUuid::createUuid(),
            .name = entry.name,
            .snapshotCount = entry.count,
            .percentage = static_cast<double>(entry.count) / total * 100.0,
        });
    }
    sortByShare(result);
    return result;
}

LabelOf projectLabel(const QStringList &userProjects)
{
    return [userProjects](const ActivitySnapshot &snapshot) { return snapshot.effectiveProjectName(userProjects); };
}

QStringList projectsOf(const Settings &settings)
{
    return UserPreferences::parsedList(settings.string(SettingsKey::userProjects));
}
} // namespace

QJsonObject LabelTimeStat::toJson() const
{
    return QJsonObject {
        {u"name"_s, name},
        {u"seconds"_s, seconds},
        {u"percentage"_s, percentage},
    };
}

std::optional<LabelTimeStat> LabelTimeStat::fromJson(const QJsonObject &object)
{
    const QJsonValue name = object.value(u"name"_s);
    const QJsonValue seconds = object.value(u"seconds"_s);
    const QJsonValue percentage = object.value(u"percentage"_s);
    if (!name.isString() || !seconds.isDouble() || !percentage.isDouble()) {
        return std::nullopt;
    }
    const double wholeSeconds = seconds.toDouble();
    if (wholeSeconds != std::trunc(wholeSeconds)) {
        return std::nullopt;
    }
    return LabelTimeStat {
        .name = name.toString(),
        .seconds = static_cast<qint64>(wholeSeconds),
        .percentage = percentage.toDouble(),
    };
}

size_t qHash(const LabelTimeStat &stat, size_t seed)
{
    return qHashMulti(seed, stat.name, stat.seconds, stat.percentage);
}

QList<ActivitySnapshot> ActivityReportCalculator::activeSnapshots(const QList<ActivitySnapshot> &snapshots)
{
    QList<ActivitySnapshot> active;
    active.reserve(snapshots.size());
    std::copy_if(snapshots.cbegin(), snapshots.cend(), std::back_inserter(active),
        [](const ActivitySnapshot &snapshot) { return !snapshot.isInactiveScreenState(); });
    return active;
}

qint64 ActivityReportCalculator::totalActiveSeconds(const QList<ActivitySnapshot> &snapshots)
{
    const auto active = std::count_if(snapshots.cbegin(), snapshots.cend(),
        [](const ActivitySnapshot &snapshot) { return !snapshot.isInactiveScreenState(); });
    return static_cast<qint64>(active) * secondsPerSnapshot;
}

QList<LabelTimeStat> ActivityReportCalculator::projectTimeStats(
    const QList<ActivitySnapshot> &snapshots, const QStringList &userProjects)
{
    return timeStats(snapshots, projectLabel(userProjects));
}

QList<LabelTimeStat> ActivityReportCalculator::projectTimeStats(
    const QList<ActivitySnapshot> &snapshots, const Settings &settings)
{
    return projectTimeStats(snapshots, projectsOf(settings));
}

QList<LabelTimeStat> ActivityReportCalculator::categoryTimeStats(const QList<ActivitySnapshot> &snapshots)
{
    return timeStats(snapshots, categoryLabel);
}

QList<LabelShare> ActivityReportCalculator::projectShares(
    const QList<ActivitySnapshot> &snapshots, const QStringList &userProjects)
{
    return shares(snapshots, projectLabel(userProjects));
}

QList<LabelShare> ActivityReportCalculator::projectShares(
    const QList<ActivitySnapshot> &snapshots, const Settings &settings)
{
    return projectShares(snapshots, projectsOf(settings));
}

QList<LabelShare> ActivityReportCalculator::categoryShares(const QList<ActivitySnapshot> &snapshots)
{
    return shares(snapshots, categoryLabel);
}

QString ActivityReportCalculator::categoryLabel(const ActivitySnapshot &snapshot)
{
    const QString category = snapshot.aiCategory.trimmed();
    return category.isEmpty() ? UserPreferences::otherLabel : category;
}

QString ActivityReportCalculator::formatDuration(qint64 seconds)
{
    const qint64 hours = seconds / 3600;
    const qint64 rest = seconds % 3600;
    const qint64 minutes = rest / 60;
    if (seconds < 3600) {
        return u"%1m"_s.arg(minutes);
    }
    if (rest < 60) {
        return u"%1h"_s.arg(hours);
    }
    return u"%1h %2m"_s.arg(hours).arg(minutes);
}

qint64 ActivityReportCalculator::roundedPercentage(double percentage)
{
    return std::llround(percentage);
}
