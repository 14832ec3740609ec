#include "reports/dailyreportstore.h"

#include "fakeclock.h"
#include "files.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
DailyReport reportFor(const QString &date, const QString &summary = u"A quiet day."_s)
{
    return DailyReport {.date = date,
        .totalActiveSeconds = 60,
        .projects = {LabelTimeStat {u"Website"_s, 60, 100.0}},
        .categories = {LabelTimeStat {u"Coding"_s, 60, 100.0}},
        .summary = summary,
        .generatedAt = QDateTime(QDate(2026, 3, 10), QTime(0, 1))};
}

QStringList datesOf(const QList<DailyReport> &reports)
{
    QStringList dates;
    for (const DailyReport &report : reports) {
        dates.append(report.date);
    }
    return dates;
}

class DailyReportStoreTest : public ::testing::Test
{
protected:
    QTemporaryDir m_home;
    FakeClock m_clock;
    LogManager m_log {&m_clock};
    QString m_file = m_home.filePath(u"data/Tamlo/daily-reports.json"_s);
};
} // namespace

TEST_F(DailyReportStoreTest, UpsertKeepsOneReportPerDayInDateOrderAndAFailedWriteKeepsItInMemory)
{
    DailyReportStore store(m_file, &m_log);
    EXPECT_TRUE(store.reports().isEmpty());
    EXPECT_FALSE(QFile::exists(m_file));
    for (const QString &date : {u"2026-03-10"_s, u"2026-03-08"_s, u"2026-03-09"_s}) {
        EXPECT_TRUE(store.upsert(reportFor(date)));
    }
    EXPECT_TRUE(store.upsert(reportFor(u"2026-03-09"_s, u"Finalised again."_s)));
    EXPECT_EQ(datesOf(store.reports()), (QStringList {u"2026-03-08"_s, u"2026-03-09"_s, u"2026-03-10"_s}));
    EXPECT_EQ(store.fetch(u"2026-03-09"_s)->summary, u"Finalised again."_s);
    EXPECT_FALSE(store.fetch(u"2026-03-11"_s).has_value());
    EXPECT_FALSE(readBytes(m_file).contains('\n'));
    EXPECT_EQ(DailyReportStore(m_file, &m_log).reports(), store.reports());

    // A folder in place of the file makes the atomic rename fail; the next upsert catches up.
    QFile::remove(m_file);
    QDir().mkpath(m_file);
    EXPECT_FALSE(store.upsert(reportFor(u"2026-03-11"_s)));
    EXPECT_FALSE(store.hasSavedReport(u"2026-03-11"_s));
    EXPECT_TRUE(store.hasReport(u"2026-03-11"_s));
    const QStringList messages = logMessages(m_log);
    ASSERT_EQ(messages.size(), 1);
    EXPECT_TRUE(messages[0].startsWith(u"❌ Failed to save daily reports: "_s)) << messages[0].toStdString();
    QDir(m_file).removeRecursively();
    EXPECT_TRUE(store.upsert(reportFor(u"2026-03-12"_s)));
    EXPECT_EQ(DailyReportStore(m_file, &m_log).reports().size(), 5);
}

TEST_F(DailyReportStoreTest, SetsAnIncompleteFileAsideInsteadOfWritingOverIt)
{
    QJsonObject incomplete = reportFor(u"2026-03-08"_s).toJson();
    incomplete.remove(u"majorTasks"_s);
    const QByteArray original
        = QJsonDocument(QJsonArray {reportFor(u"2026-03-07"_s).toJson(), incomplete}).toJson(QJsonDocument::Compact);
    writeBytes(m_file, original);

    DailyReportStore store(m_file, &m_log);
    EXPECT_TRUE(store.reports().isEmpty());
    EXPECT_EQ(logMessages(m_log),
        QStringList {u"⚠️ Failed to load daily reports: Entry 2 is not a complete daily report. "
                     u"The file was kept as “daily-reports.json.unreadable”."_s});
    EXPECT_TRUE(store.upsert(reportFor(u"2026-03-09"_s)));
    EXPECT_EQ(DailyReportStore(m_file, &m_log).reports().size(), 1);

    // A second bad file does not replace the first one set aside.
    writeBytes(m_file, "{not json");
    DailyReportStore(m_file, &m_log);
    EXPECT_EQ(readBytes(m_file + u".unreadable-2"_s), "{not json");
    EXPECT_EQ(readBytes(m_file + u".unreadable"_s), original);
}
