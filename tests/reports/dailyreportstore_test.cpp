#include "reports/dailyreportstore.h"

#include "fakeclock.h"
#include "files.h"
#include "records.h"

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
} // namespace

TEST(DailyReportStoreTest, KeepsOneReportPerDayInDateOrderAndSetsAnUnreadableFileAside)
{
    QTemporaryDir home;
    FakeClock clock;
    LogManager log {&clock};
    const QString file = home.filePath(u"data/Tamlo/daily-reports.json"_s);
    QJsonObject incomplete = reportFor(u"2026-03-07"_s).toJson();
    incomplete.remove(u"majorTasks"_s);
    const QByteArray original
        = QJsonDocument(QJsonArray {reportFor(u"2026-03-06"_s).toJson(), incomplete}).toJson(QJsonDocument::Compact);
    writeBytes(file, original);

    DailyReportStore store(file, &log);
    EXPECT_TRUE(store.reports().isEmpty());
    EXPECT_EQ(logMessages(log),
        QStringList {u"⚠️ Failed to load daily reports: Entry 2 is not a complete daily report. "
                     u"The file was kept as “daily-reports.json.unreadable”."_s});
    for (const QString &date : {u"2026-03-10"_s, u"2026-03-08"_s, u"2026-03-09"_s}) {
        EXPECT_TRUE(store.upsert(reportFor(date)));
    }
    EXPECT_TRUE(store.upsert(reportFor(u"2026-03-09"_s, u"Finalised again."_s)));
    EXPECT_EQ(
        mapped(store.reports(), &DailyReport::date), (QStringList {u"2026-03-08"_s, u"2026-03-09"_s, u"2026-03-10"_s}));
    EXPECT_EQ(store.fetch(u"2026-03-09"_s)->summary, u"Finalised again."_s);
    EXPECT_EQ(DailyReportStore(file, &log).reports(), store.reports());

    // A failed rename keeps the report in memory, not counted as saved; the next upsert catches up.
    QFile::remove(file);
    QDir().mkpath(file);
    EXPECT_FALSE(store.upsert(reportFor(u"2026-03-11"_s)));
    EXPECT_EQ(
        std::pair(store.hasReport(u"2026-03-11"_s), store.hasSavedReport(u"2026-03-11"_s)), std::pair(true, false));
    QDir(file).removeRecursively();
    EXPECT_TRUE(store.upsert(reportFor(u"2026-03-12"_s)));
    EXPECT_EQ(DailyReportStore(file, &log).reports().size(), 5);

    // A second bad file does not replace the first one set aside.
    writeBytes(file, "{not json");
    DailyReportStore(file, &log);
    EXPECT_EQ(readBytes(file + u".unreadable-2"_s), "{not json");
    EXPECT_EQ(readBytes(file + u".unreadable"_s), original);
}
