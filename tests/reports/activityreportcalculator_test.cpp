#include "reports/activityreportcalculator.h"
#include "reports/dailyreport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
ActivitySnapshot active(const QString &category, const QString &project = u"Website"_s)
{
    return ActivitySnapshot {
        .id = QUuid::createUuid(),
        .timestamp = QDateTime(QDate(2026, 3, 9), QTime(9, 0)),
        .aiCategory = category,
        .projectName = project,
        .activityDescription = u"Working"_s,
    };
}

ActivitySnapshot marker(ScreenState state)
{
    return ActivitySnapshot {
        .id = QUuid::createUuid(),
        .timestamp = QDateTime(QDate(2026, 3, 9), QTime(9, 0)),
        .activityDescription = ActivitySnapshot::screenStateMarker(state),
    };
}
} // namespace

TEST(ActivityReportCalculatorTest, ScreenStateRecordsCountForNothing)
{
    const QList<ActivitySnapshot> inactive {marker(ScreenState::Locked), marker(ScreenState::Sleeping)};
    EXPECT_TRUE(ActivityReportCalculator::activeSnapshots(inactive).isEmpty());
    EXPECT_EQ(ActivityReportCalculator::totalActiveSeconds(inactive), 0);
    EXPECT_TRUE(ActivityReportCalculator::categoryTimeStats(inactive).isEmpty());
    EXPECT_TRUE(ActivityReportCalculator::projectShares(inactive, QStringList()).isEmpty());
    EXPECT_TRUE(ActivityReportCalculator::categoryTimeStats({}).isEmpty());
}

TEST(ActivityReportCalculatorTest, SharesAreOfActiveSnapshotsOnlyAndKeepTheirFraction)
{
    const QList<ActivitySnapshot> day {
        active(u"A"_s), marker(ScreenState::Locked), active(u"B"_s), marker(ScreenState::Sleeping), active(u"A"_s)};
    EXPECT_EQ(ActivityReportCalculator::totalActiveSeconds(day), 90);
    const QList<LabelTimeStat> stats = ActivityReportCalculator::categoryTimeStats(day);
    ASSERT_EQ(stats.size(), 2);
    EXPECT_EQ(stats[0].name, u"A"_s);
    EXPECT_EQ(stats[0].seconds, 60);
    EXPECT_DOUBLE_EQ(stats[0].percentage, 2.0 / 3.0 * 100.0);
    EXPECT_EQ(stats[1].name, u"B"_s);
    EXPECT_EQ(stats[1].seconds, 30);
    EXPECT_DOUBLE_EQ(stats[1].percentage, 1.0 / 3.0 * 100.0);

    const QList<LabelShare> shares = ActivityReportCalculator::categoryShares(day);
    ASSERT_EQ(shares.size(), 2);
    EXPECT_EQ(shares[0].snapshotCount, 2);
    EXPECT_DOUBLE_EQ(shares[0].percentage, stats[0].percentage);
}

TEST(ActivityReportCalculatorTest, CategoriesAreTrimmedAndBlankOnesCountAsOther)
{
    const QList<ActivitySnapshot> day {
        active(u"  Coding \n"_s), active(u"Coding"_s), active(u" \t"_s), active(u"Other"_s), active(u"coding"_s)};
    const QList<LabelTimeStat> stats = ActivityReportCalculator::categoryTimeStats(day);
    ASSERT_EQ(stats.size(), 3);
    EXPECT_EQ(stats[0].name, u"Coding"_s);
    EXPECT_EQ(stats[0].seconds, 60);
    EXPECT_EQ(stats[1].name, u"Other"_s);
    EXPECT_EQ(stats[1].seconds, 60);
    // Labels compare as exact strings.
    EXPECT_EQ(stats[2].name, u"coding"_s);
}

TEST(ActivityReportCalculatorTest, EqualSharesKeepTheOrderOfFirstAppearance)
{
    const QList<ActivitySnapshot> day {
        active(u"Mail"_s), active(u"Zoo"_s), active(u"Coding"_s), active(u"Coding"_s), active(u"Zoo"_s)};
    QStringList names;
    for (const LabelTimeStat &stat : ActivityReportCalculator::categoryTimeStats(day)) {
        names.append(stat.name);
    }
    EXPECT_EQ(names, (QStringList {u"Zoo"_s, u"Coding"_s, u"Mail"_s}));
}

TEST(ActivityReportCalculatorTest, ProjectsFollowNotesNamingTheUsersProjects)
{
    ActivitySnapshot noted = active(u"Coding"_s, u"Website"_s);
    noted.userNote = u"fixing the TAMLO build"_s;
    const QList<ActivitySnapshot> day {noted, active(u"Coding"_s, u"Website"_s), active(u"Coding"_s, u"  "_s)};
    const QList<LabelTimeStat> stats
        = ActivityReportCalculator::projectTimeStats(day, QStringList {u"Website"_s, u"Tamlo"_s});
    ASSERT_EQ(stats.size(), 3);
    EXPECT_EQ(stats[0].name, u"Tamlo"_s);
    EXPECT_EQ(stats[1].name, u"Website"_s);
    EXPECT_EQ(stats[2].name, u"Other"_s);

    const auto first = ActivityReportCalculator::projectShares(day, QStringList());
    const auto second = ActivityReportCalculator::projectShares(day, QStringList());
    EXPECT_NE(first[0].id, second[0].id);
}

TEST(ActivityReportCalculatorTest, DurationsRoundDownToWholeMinutesAndSharesHalfAwayFromZero)
{
    using ActivityReportCalculator::formatDuration;
    EXPECT_EQ(formatDuration(0), u"0m"_s);
    EXPECT_EQ(formatDuration(59), u"0m"_s);
    EXPECT_EQ(formatDuration(3599), u"59m"_s);
    EXPECT_EQ(formatDuration(3600), u"1h"_s);
    EXPECT_EQ(formatDuration(3659), u"1h"_s);
    EXPECT_EQ(formatDuration(3660), u"1h 1m"_s);
    EXPECT_EQ(formatDuration(9000), u"2h 30m"_s);
    EXPECT_EQ(ActivityReportCalculator::roundedPercentage(66.6), 67);
    EXPECT_EQ(ActivityReportCalculator::roundedPercentage(0.4), 0);
    EXPECT_EQ(ActivityReportCalculator::roundedPercentage(12.5), 13);
}

TEST(DailyReportJsonTest, RoundTripsAndRequiresEveryKey)
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
    const QJsonObject json = report.toJson();
    EXPECT_EQ(json.value(u"generatedAt"_s).toDouble(), 1.5);
    EXPECT_EQ(QJsonDocument(json.value(u"projects"_s).toArray().at(0).toObject()).toJson(QJsonDocument::Compact),
        R"({"name":"Website","percentage":60,"seconds":5400})");
    const auto decoded = DailyReport::fromJson(json);
    ASSERT_TRUE(decoded.has_value());
    EXPECT_EQ(*decoded, report);
    EXPECT_EQ(qHash(*decoded), qHash(report));

    QJsonObject extra = json;
    extra.insert(u"mood"_s, u"fine"_s);
    EXPECT_TRUE(DailyReport::fromJson(extra).has_value());
    for (const QString &key : json.keys()) {
        QJsonObject missing = json;
        missing.remove(key);
        EXPECT_FALSE(DailyReport::fromJson(missing).has_value()) << key.toStdString();
    }
    QJsonObject halfSecond = LabelTimeStat {u"A"_s, 30, 50.0}.toJson();
    halfSecond.insert(u"seconds"_s, 30.5);
    EXPECT_FALSE(LabelTimeStat::fromJson(halfSecond).has_value());
}
