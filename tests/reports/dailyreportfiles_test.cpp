#include "reports/dailyreportservice.h"

#include "core/settings.h"
#include "fakeclock.h"
#include "storetesthelpers.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
QJsonArray fixture(const QString &name)
{
    return QJsonDocument::fromJson(readBytes(testDataPath(name))).array();
}

// A day out of time order, with commas, line feeds, quotes, notes and a screen-state record.
QList<ActivitySnapshot> dayWithAwkwardTexts()
{
    QList<ActivitySnapshot> day;
    for (const QJsonValue &entry : fixture(u"reports/worklog-2026-03-09.input.json"_s)) {
        day.append(ActivitySnapshot::fromJson(entry.toObject()).value());
    }
    return day;
}

// A day of the documented example, a day without activity, and one with a project named A,B.
QList<DailyReport> reportsWithAwkwardTexts()
{
    QList<DailyReport> reports;
    for (const QJsonValue &entry : fixture(u"reports/daily-reports.input.json"_s)) {
        reports.append(DailyReport::fromJson(entry.toObject()).value());
    }
    return reports;
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

// The golden files hold the awkward cases; these are the ones they cannot show.
TEST_F(DailyReportFilesTest, EmptyTablesAreTheirHeaderAndNothingButCommasAndLineFeedsIsReplaced)
{
    const QStringList projects {u"Website"_s, u"Tamlo"_s};
    EXPECT_EQ(DailyReportService::workLogCSVContent({}, projects), u"Timestamp,Category,Project,Summary,Note\n"_s);
    ActivitySnapshot carriageReturn = dayWithAwkwardTexts().first();
    carriageReturn.activityDescription = u"a\rb"_s;
    EXPECT_TRUE(DailyReportService::workLogCSVContent({carriageReturn}, projects).contains(u",a\rb,"_s));

    EXPECT_EQ(DailyReportService::dailyReportCSVContent({}, true),
        u"Date,TotalTime,Projects,Categories,Summary,MajorTasks\n"_s);
    EXPECT_EQ(DailyReportService::dailyReportCSVContent({}, false), QString());
    EXPECT_EQ(DailyReportService::dailyReportCSVContent({reportsWithAwkwardTexts().first()}, false),
        u"2026-03-09,2h 30m,\"Website (1h 30m, 60%); Other (1h, 40%)\",\"Coding (2h, 80%); Browsing (30m, 20%)\","
        u"\"Most of the day went to the website.\","_s);
    // Labels that look like format markers come out as typed.
    DailyReport markers {.date = u"2026-03-10"_s,
        .totalActiveSeconds = 120,
        .projects = {{u"Sprint %1"_s, 60, 50.0}, {u"100%"_s, 60, 50.0}},
        .categories = {{u"%3 Review"_s, 120, 100.0}}};
    EXPECT_EQ(DailyReportService::dailyReportCSVContent({markers}, false).toStdString(),
        "2026-03-10,2m,\"Sprint %1 (1m, 50%); 100% (1m, 50%)\",\"%3 Review (2m, 100%)\",\"\",");
}

TEST_F(DailyReportFilesTest, ExportsReplaceWholeFilesUnderTheExportRoot)
{
    m_settings.setString(SettingsKey::userProjects, u"Website, Tamlo"_s);
    const QString workLog = m_root + u"/WorkLogs/2026-03-09.csv"_s;
    writeBytes(workLog, QByteArray(10000, 'x'));
    EXPECT_FALSE(
        m_service.exportWorkLog(dayWithAwkwardTexts(), QDateTime(QDate(2026, 3, 9), QTime(23, 59))).has_value());
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
    const auto workLogError
        = m_service.exportWorkLog(dayWithAwkwardTexts(), QDateTime(QDate(2026, 3, 9), QTime(12, 0)));
    ASSERT_TRUE(workLogError.has_value());
    EXPECT_FALSE(workLogError->description.isEmpty());
    // The file system's own reason goes with the message.
    DailyReportService underAFile(nullptr, &m_log, &m_settings, &m_clock, m_root + u"/Daily-Reports.csv/Tamlo"_s);
    const auto underAFileError = underAFile.exportDailyReportsCSV({});
    ASSERT_TRUE(underAFileError.has_value());
    EXPECT_TRUE(underAFileError->description.endsWith(u"couldn’t be created: Not a directory."_s))
        << underAFileError->description.toStdString();
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
