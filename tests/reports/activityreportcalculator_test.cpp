#include "reports/activityreportcalculator.h"
#include "reports/dailyreport.h"

#include "records.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
const QDateTime nine(QDate(2026, 3, 9), QTime(9, 0));

ActivitySnapshot active(const QString &category, const QString &project = u"Website"_s)
{
    return recordAt(nine, category, project);
}

QStringList statsOf(const QList<LabelTimeStat> &stats)
{
    return mapped(stats,
        [](const LabelTimeStat &s) { return u"%1 %2 %3"_s.arg(s.name).arg(s.seconds).arg(s.percentage, 0, 'f', 4); });
}
} // namespace

TEST(ActivityReportCalculatorTest, ScreenStatesCountForNothingAndLabelsAreTrimmedWithTiesInOrderOfAppearance)
{
    const QList<ActivitySnapshot> inactive {
        markerAt(nine, ScreenState::Locked), markerAt(nine, ScreenState::Sleeping), markerAt(nine, ScreenState::Away)};
    EXPECT_EQ(ActivityReportCalculator::totalActiveSeconds(inactive), 0);
    EXPECT_TRUE(ActivityReportCalculator::categoryTimeStats(inactive).isEmpty());
    EXPECT_TRUE(ActivityReportCalculator::projectShares(inactive, QStringList()).isEmpty());

    // Labels compare as exact strings once trimmed; a blank one is Other.
    const QList<ActivitySnapshot> day {active(u"coding"_s), active(u"Mail"_s), markerAt(nine, ScreenState::Locked),
        active(u"  Coding \n"_s), active(u" \t"_s), active(u"Coding"_s), active(u"Other"_s), active(u"Mail"_s)};
    EXPECT_EQ(ActivityReportCalculator::totalActiveSeconds(day), 210);
    const QList<LabelTimeStat> stats = ActivityReportCalculator::categoryTimeStats(day);
    EXPECT_EQ(statsOf(stats),
        (QStringList {u"Mail 60 28.5714"_s, u"Coding 60 28.5714"_s, u"Other 60 28.5714"_s, u"coding 30 14.2857"_s}));
    const QList<LabelShare> shares = ActivityReportCalculator::categoryShares(day);
    ASSERT_EQ(shares.size(), 4);
    EXPECT_EQ(std::tuple(shares[0].name, shares[0].snapshotCount, shares[0].percentage),
        std::tuple(stats[0].name, 2, stats[0].percentage));

    ActivitySnapshot noted = active(u"Coding"_s, u"Website"_s);
    noted.userNote = u"fixing the TAMLO build"_s;
    EXPECT_EQ(
        statsOf(ActivityReportCalculator::projectTimeStats(
            {noted, active(u"Coding"_s, u"Website"_s), active(u"Coding"_s, u"  "_s)}, {u"Website"_s, u"Tamlo"_s})),
        (QStringList {u"Tamlo 30 33.3333"_s, u"Website 30 33.3333"_s, u"Other 30 33.3333"_s}));
}

TEST(DailyReportJsonTest, RoundTripsAndRequiresEveryKeyAndWholeSeconds)
{
    const DailyReport report {
        .date = u"2026-03-09"_s,
        .totalActiveSeconds = 9000,
        .projects = {LabelTimeStat {u"Website"_s, 5400, 60.0}, LabelTimeStat {u"Other"_s, 3600, 40.0}},
        .categories = {LabelTimeStat {u"Coding"_s, 9000, 100.0}},
        .summary = u"Most of the day went to the website."_s,
        .majorTasks = {u"Ship it"_s},
        .generatedAt = QDateTime(QDate(2001, 1, 1), QTime(0, 0, 1, 500), QTimeZone::utc()),
    };
    QJsonObject json = report.toJson();
    EXPECT_EQ(json.value(u"generatedAt"_s).toDouble(), 1.5);
    EXPECT_EQ(QJsonDocument(json.value(u"projects"_s).toArray().at(0).toObject()).toJson(QJsonDocument::Compact),
        R"({"name":"Website","percentage":60,"seconds":5400})");
    EXPECT_EQ(DailyReport::fromJson(json), report);
    for (const QString &key : json.keys()) {
        QJsonObject missing = json;
        missing.remove(key);
        EXPECT_FALSE(DailyReport::fromJson(missing).has_value()) << key.toStdString();
    }
    json.insert(u"mood"_s, u"fine"_s);
    EXPECT_TRUE(DailyReport::fromJson(json).has_value());
    EXPECT_FALSE(LabelTimeStat::fromJson(QJsonObject {{u"name"_s, u"A"_s}, {u"seconds"_s, 30.5}, {u"percentage"_s, 50}})
                     .has_value());
}
