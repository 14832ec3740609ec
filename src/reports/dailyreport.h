#pragma once

#include "reports/activityreportcalculator.h"

#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

// The figures and the narrative of one finished day; one report per day label.
struct DailyReport
{
    QString date; // yyyy-MM-dd in the local zone, as TamloDataPaths::dateLabel gives it
    qint64 totalActiveSeconds = 0;
    QList<LabelTimeStat> projects; // largest first
    QList<LabelTimeStat> categories; // largest first
    QString summary;
    QStringList majorTasks;
    QDateTime generatedAt; // stored as seconds since 2001-01-01, with fraction

    [[nodiscard]] QJsonObject toJson() const;
    // All seven keys are required; keys beyond them are ignored.
    [[nodiscard]] static std::optional<DailyReport> fromJson(const QJsonObject &object);

    friend bool operator==(const DailyReport &, const DailyReport &) = default;
};

size_t qHash(const DailyReport &report, size_t seed = 0);
