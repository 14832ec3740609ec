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

// Statistics as label, seconds and percentage, in order.
QStringList statsOf(const QList<LabelTimeStat> &stats)
{
    QStringList rows;
    for (const LabelTimeStat &stat : stats) {
        rows.append(u"%1 %2 %3"_s.arg(stat.name).arg(stat.seconds).arg(stat.percentage, 0, 'f', 4));
    }
    return rows;
}
} // namespace

TEST(ActivityReportCalculatorTest, ScreenStateRecordsCountForNothingAndSharesKeepTheirFraction)
{
    const QList<ActivitySnapshot> inactive {
        marker(ScreenState::Locked), marker(ScreenState::Sleeping), marker(ScreenState::Away)};
    EXPECT_TRUE(ActivityReportCalculator::activeSnapshots(inactive).isEmpty());
    EXPECT_EQ(ActivityReportCalculator::totalActiveSeconds(inactive), 0);
    EXPECT_TRUE(ActivityReportCalculator::categoryTimeStats(inactive).isEmpty());
    EXPECT_TRUE(ActivityReportCalculator::projectShares(inactive, QStringList()).isEmpty());

    const QList<ActivitySnapshot> day {
        active(u"A"_s), marker(ScreenState::Locked), active(u"B"_s), marker(ScreenState::Sleeping), active(u"A"_s)};
    EXPECT_EQ(ActivityReportCalculator::totalActiveSeconds(day), 90);
    const QList<LabelTimeStat> stats = ActivityReportCalculator::categoryTimeStats(day);
    EXPECT_EQ(statsOf(stats), (QStringList {u"A 60 66.6667"_s, u"B 30 33.3333"_s}));
    const QList<LabelShare> shares = ActivityReportCalculator::categoryShares(day);
    ASSERT_EQ(shares.size(), 2);
    EXPECT_EQ(shares[0].snapshotCount, 2);
    EXPECT_DOUBLE_EQ(shares[0].percentage, stats[0].percentage);
}

TEST(ActivityReportCalculatorTest, CategoriesAreTrimmedBlankOnesAreOtherAndTiesKeepFirstAppearance)
{
    // Labels compare as exact strings once trimmed.
    const QList<ActivitySnapshot> day {active(u"coding"_s), active(u"Mail"_s), active(u"  Coding \n"_s),
        active(u" \t"_s), active(u"Coding"_s), active(u"Other"_s), active(u"Mail"_s)};
    EXPECT_EQ(statsOf(ActivityReportCalculator::categoryTimeStats(day)),
        (QStringList {u"Mail 60 28.5714"_s, u"Coding 60 28.5714"_s, u"Other 60 28.5714"_s, u"coding 30 14.2857"_s}));
}

TEST(ActivityReportCalculatorTest, ProjectsFollowNotesNamingTheUsersProjects)
{
    ActivitySnapshot noted = active(u"Coding"_s, u"Website"_s);
    noted.userNote = u"fixing the TAMLO build"_s;
    const QList<ActivitySnapshot> day {noted, active(u"Coding"_s, u"Website"_s), active(u"Coding"_s, u"  "_s)};
    EXPECT_EQ(statsOf(ActivityReportCalculator::projectTimeStats(day, QStringList {u"Website"_s, u"Tamlo"_s})),
        (QStringList {u"Tamlo 30 33.3333"_s, u"Website 30 33.3333"_s, u"Other 30 33.3333"_s}));
    // Every call gives fresh ids, so the screens see a new list.
    EXPECT_NE(ActivityReportCalculator::projectShares(day, QStringList())[0].id,
        ActivityReportCalculator::projectShares(day, QStringList())[0].id);
}

TEST(ActivityReportCalculatorTest, DurationsRoundDownToWholeMinutesAndSharesHalfAwayFromZero)
{
    for (const auto &[seconds, text] : {std::pair {0, u"0m"_s}, {59, u"0m"_s}, {3599, u"59m"_s}, {3600, u"1h"_s},
             {3659, u"1h"_s}, {3660, u"1h 1m"_s}, {9000, u"2h 30m"_s}}) {
        EXPECT_EQ(ActivityReportCalculator::formatDuration(seconds), text) << seconds;
    }
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
