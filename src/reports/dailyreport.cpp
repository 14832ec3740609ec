#include "reports/dailyreport.h"

#include "core/referencedate.h"

#include <QHashFunctions>
#include <QJsonArray>
#include <QJsonValue>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {
QJsonArray statsToJson(const QList<LabelTimeStat> &stats)
{
    QJsonArray array;
    for (const LabelTimeStat &stat : stats) {
        array.append(stat.toJson());
    }
    return array;
}

bool statsFromJson(const QJsonValue &value, QList<LabelTimeStat> &out)
{
    if (!value.isArray()) {
        return false;
    }
    const QJsonArray array = value.toArray();
    for (const QJsonValue &entry : array) {
        const auto stat = entry.isObject() ? LabelTimeStat::fromJson(entry.toObject()) : std::nullopt;
        if (!stat) {
            return false;
        }
        out.append(*stat);
    }
    return true;
}
} // namespace

QJsonObject DailyReport::toJson() const
{
    return QJsonObject {
        {u"date"_s, date},
        {u"totalActiveSeconds"_s, totalActiveSeconds},
        {u"projects"_s, statsToJson(projects)},
        {u"categories"_s, statsToJson(categories)},
        {u"summary"_s, summary},
        {u"majorTasks"_s, QJsonArray::fromStringList(majorTasks)},
        {u"generatedAt"_s, ReferenceDate::toSeconds(generatedAt)},
    };
}

std::optional<DailyReport> DailyReport::fromJson(const QJsonObject &object)
{
    const QJsonValue date = object.value(u"date"_s);
    const QJsonValue total = object.value(u"totalActiveSeconds"_s);
    const QJsonValue summary = object.value(u"summary"_s);
    const QJsonValue tasks = object.value(u"majorTasks"_s);
    const QJsonValue generatedAt = object.value(u"generatedAt"_s);
    if (!date.isString() || !total.isDouble() || !summary.isString() || !tasks.isArray() || !generatedAt.isDouble()) {
        return std::nullopt;
    }
    if (total.toDouble() != std::trunc(total.toDouble())) {
        return std::nullopt;
    }
    DailyReport report;
    report.date = date.toString();
    report.totalActiveSeconds = static_cast<qint64>(total.toDouble());
    report.summary = summary.toString();
    report.generatedAt = ReferenceDate::fromSeconds(generatedAt.toDouble());
    if (!statsFromJson(object.value(u"projects"_s), report.projects)
        || !statsFromJson(object.value(u"categories"_s), report.categories)) {
        return std::nullopt;
    }
    const QJsonArray taskArray = tasks.toArray();
    for (const QJsonValue &task : taskArray) {
        if (!task.isString()) {
            return std::nullopt;
        }
        report.majorTasks.append(task.toString());
    }
    return report;
}

size_t qHash(const DailyReport &report, size_t seed)
{
    return qHashMulti(seed, report.date, report.totalActiveSeconds, report.projects, report.categories, report.summary,
        report.majorTasks, report.generatedAt);
}
