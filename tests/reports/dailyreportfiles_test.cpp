#include "reports/dailyreportservice.h"

#include "core/settings.h"
#include "fakeclock.h"
#include "storetesthelpers.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
QDateTime berlin(int hour, int minute, int second = 0)
{
    return QDateTime(QDate(2026, 3, 9), QTime(hour, minute, second));
}

QList<ActivitySnapshot> dayWithAwkwardTexts()
{
    // Out of time order on purpose.
    return {
        ActivitySnapshot {
            .id = QUuid::createUuid(),
            .timestamp = berlin(9, 5),
            .aiCategory = u"Coding"_s,
            .projectName = u"Website"_s,
            .activityDescription = u"Editing checkout.css, then index.html"_s,
            .userNote = u"tamlo release"_s,
        },
        ActivitySnapshot {
            .id = QUuid::createUuid(),
            .timestamp = berlin(9, 0, 30),
            .aiCategory = u"Writing"_s,
            .projectName = u"A,B"_s,
            .activityDescription = u"Line one\nline two"_s,
            .userNote = u"Said \"ship it\""_s,
        },
        ActivitySnapshot {
            .id = QUuid::createUuid(),
            .timestamp = berlin(13, 0),
            .aiCategory = u"Browsing"_s,
            .projectName = u"Website"_s,
        },
        ActivitySnapshot {
            .id = QUuid::createUuid(),
            .timestamp = berlin(12, 0),
            .activityDescription = ActivitySnapshot::screenStateMarker(ScreenState::Locked),
        },
    };
}

QList<DailyReport> reportsWithAwkwardTexts()
{
    const QDateTime generatedAt(QDate(2026, 3, 12), QTime(0, 1));
    return {
        DailyReport {
            .date = u"2026-03-09"_s,
            .totalActiveSeconds = 9000,
            .projects = {LabelTimeStat {u"Website"_s, 5400, 60.0}, LabelTimeStat {u"Other"_s, 3600, 40.0}},
            .categories = {LabelTimeStat {u"Coding"_s, 7200, 80.0}, LabelTimeStat {u"Browsing"_s, 1800, 20.0}},
            .summary = u"Most of the day went to the website."_s,
            .generatedAt = generatedAt,
        },
        DailyReport {
            .date = u"2026-03-10"_s,
            .summary = u"Most of the day focused on general work, mainly mixed activities work. (AI summary "
                       u"unavailable: No active activity to summarize)"_s,
            .generatedAt = generatedAt,
        },
        DailyReport {
            .date = u"2026-03-11"_s,
            .totalActiveSeconds = 3660,
            .projects = {LabelTimeStat {u"A,B"_s, 3660, 100.0}},
            .categories = {LabelTimeStat {u"Coding"_s, 3660, 66.6}, LabelTimeStat {u"Say \"hi\""_s, 30, 0.4}},
            .summary = u"She said \"done\""_s,
            .majorTasks = {u"Ship"_s, u"Test"_s},
            .generatedAt = generatedAt,
        },
    };
}

class DailyReportFilesTest : public ::testing::Test
{
protected:
    QTemporaryDir m_home;
    FakeClock m_clock;
    LogManager m_log {&m_clock};
    Settings m_settings {m_home.filePath(u"Tamlo.conf"_s)};
    QString m_root = m_home.filePath(u"Documents/Tamlo"_s);
    DailyReportService m_service {nullptr, &m_log, &m_settings, &m_clock, m_root};
};
} // namespace

TEST_F(DailyReportFilesTest, WorkLogReplacesCommasAndLineFeedsAndQuotesNothing)
{
    const QStringList projects {u"Website"_s, u"Tamlo"_s};
    EXPECT_TRUE(matchesGolden(DailyReportService::workLogCSVContent(dayWithAwkwardTexts(), projects).toUtf8(),
        u"reports/worklog-2026-03-09.csv"_s));
    EXPECT_EQ(DailyReportService::workLogCSVContent({}, projects), u"Timestamp,Category,Project,Summary,Note\n"_s);

    ActivitySnapshot carriageReturn = dayWithAwkwardTexts().first();
    carriageReturn.activityDescription = u"a\rb"_s;
    EXPECT_TRUE(DailyReportService::workLogCSVContent({carriageReturn}, projects).contains(u",a\rb,"_s));
}

TEST_F(DailyReportFilesTest, ReportsTableQuotesWhatMustBeAndAlwaysTheSummary)
{
    EXPECT_TRUE(matchesGolden(DailyReportService::dailyReportCSVContent(reportsWithAwkwardTexts(), true).toUtf8(),
        u"reports/daily-reports.csv"_s));
    EXPECT_EQ(DailyReportService::dailyReportCSVContent({}, true),
        u"Date,TotalTime,Projects,Categories,Summary,MajorTasks\n"_s);
    EXPECT_EQ(DailyReportService::dailyReportCSVContent({}, false), QString());
    EXPECT_EQ(DailyReportService::dailyReportCSVContent({reportsWithAwkwardTexts().first()}, false),
        u"2026-03-09,2h 30m,\"Website (1h 30m, 60%); Other (1h, 40%)\",\"Coding (2h, 80%); Browsing (30m, 20%)\","
        u"\"Most of the day went to the website.\","_s);
}

TEST_F(DailyReportFilesTest, ExportsReplaceWholeFilesUnderTheExportRoot)
{
    m_settings.setString(SettingsKey::userProjects, u"Website, Tamlo"_s);
    const QString workLog = m_root + u"/WorkLogs/2026-03-09.csv"_s;
    writeBytes(workLog, QByteArray(10000, 'x'));
    EXPECT_FALSE(m_service.exportWorkLog(dayWithAwkwardTexts(), berlin(23, 59)).has_value());
    EXPECT_TRUE(matchesGolden(readBytes(workLog), u"reports/worklog-2026-03-09.csv"_s));

    EXPECT_FALSE(m_service.exportDailyReportsCSV(reportsWithAwkwardTexts()).has_value());
    EXPECT_TRUE(matchesGolden(readBytes(m_root + u"/Daily-Reports.csv"_s), u"reports/daily-reports.csv"_s));
    EXPECT_EQ(QDir(m_root).entryList(QDir::Files), QStringList {u"Daily-Reports.csv"_s});
}

TEST_F(DailyReportFilesTest, ExportFailuresAreReportedAndLeaveEarlierFilesWhole)
{
    ASSERT_FALSE(m_service.exportDailyReportsCSV(reportsWithAwkwardTexts()).has_value());
    const QByteArray table = readBytes(m_root + u"/Daily-Reports.csv"_s);

    blockFolder(m_root + u"/WorkLogs"_s);
    const auto workLogError = m_service.exportWorkLog(dayWithAwkwardTexts(), berlin(12, 0));
    ASSERT_TRUE(workLogError.has_value());
    EXPECT_FALSE(workLogError->description.isEmpty());
    EXPECT_TRUE(m_service.exportDailyReportsCSV({}).has_value());
    EXPECT_EQ(readBytes(m_root + u"/Daily-Reports.csv"_s), table);

    unblockFolder(m_root + u"/WorkLogs"_s);
    // A folder in place of the table makes the atomic rename fail.
    QFile::remove(m_root + u"/Daily-Reports.csv"_s);
    QDir().mkpath(m_root + u"/Daily-Reports.csv"_s);
    const auto tableError = m_service.exportDailyReportsCSV({});
    ASSERT_TRUE(tableError.has_value());
    EXPECT_TRUE(tableError->description.startsWith(u"“Daily-Reports.csv” couldn’t be saved: "_s))
        << tableError->description.toStdString();
}
