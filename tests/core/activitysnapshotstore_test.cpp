#include "core/activitysnapshotstore.h"

#include "core/settings.h"
#include "fakeclock.h"
#include "files.h"
#include "records.h"
#include "reports/dailyreportstore.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
class ActivitySnapshotStoreTest : public ::testing::Test
{
protected:
    std::unique_ptr<ActivitySnapshotStore> openStore()
    {
        return std::make_unique<ActivitySnapshotStore>(m_file, &m_log, &m_settings, &m_clock);
    }

    void markFile() { writeBytes(m_file, "untouched"); }
    [[nodiscard]] bool fileWasWritten() const { return readBytes(m_file) != "untouched"; }

    QTemporaryDir m_home;
    FakeClock m_clock; // 2026-03-09 10:00 in Berlin
    LogManager m_log {&m_clock};
    Settings m_settings {m_home.filePath(u"Tamlo.conf"_s)};
    QString m_folder = m_home.filePath(u"data/Tamlo"_s);
    QString m_file = m_folder + u"/snapshots.json"_s;
    DailyReportStore m_reports {m_folder + u"/daily-reports.json"_s, &m_log};
    QDate m_today {2026, 3, 9};
};
} // namespace

TEST_F(ActivitySnapshotStoreTest, WritesNothingUntilTheFirstChangeThenTheDocumentedFileForm)
{
    openStore()->deleteBefore(m_clock.now());
    EXPECT_FALSE(QFile::exists(m_file));
    openStore()->save();
    EXPECT_EQ(readBytes(m_file), "[]");

    const QByteArray example = readBytes(testDataPath(u"snapshots-example.json"_s));
    writeBytes(m_file, example);
    openStore()->save();
    EXPECT_EQ(QJsonDocument::fromJson(readBytes(m_file)), QJsonDocument::fromJson(example));
    EXPECT_TRUE(readBytes(m_file).contains("\"timestamp\":785000000.25")) << readBytes(m_file).toStdString();

    // Nulls an earlier build wrote read as absent, and unknown keys are dropped.
    writeBytes(m_file, readBytes(testDataPath(u"snapshots-null-optionals.json"_s)));
    auto store = openStore();
    ASSERT_EQ(store->count(), 2);
    EXPECT_TRUE(store->fetchAll()[0].isInactiveScreenState());
    store->save();
    EXPECT_EQ(readBytes(m_file),
        R"([{"activityDescription":"Screen Locked","aiCategory":"","id":"0B7E4C1D-2F3A-4B5C-8D9E-0F1A2B3C4D5E","timestamp":785000030},)"
        R"({"aiCategory":"Browsing","id":"9A8B7C6D-5E4F-4A3B-9C2D-1E0F9A8B7C6D","timestamp":785000060.5}])");
    EXPECT_TRUE(logMessages(m_log).isEmpty());
}

TEST_F(ActivitySnapshotStoreTest, OneBadRecordEmptiesTheLoadAndTheFileIsSetAsideNotOverwritten)
{
    QJsonArray records = QJsonDocument::fromJson(readBytes(testDataPath(u"snapshots-null-optionals.json"_s))).array();
    QJsonObject missingCategory = records.at(1).toObject();
    missingCategory.remove(u"aiCategory"_s);
    records.append(missingCategory);
    const QByteArray original = QJsonDocument(records).toJson(QJsonDocument::Compact);
    writeBytes(m_file, original);

    auto store = openStore();
    EXPECT_EQ(store->count(), 0);
    EXPECT_EQ(logMessages(m_log),
        QStringList {
            u"⚠️ Failed to load snapshots: Entry 3 is not a valid snapshot: “aiCategory” is missing or not "
            u"text. The file was kept as “snapshots.json.unreadable”."_s});
    store->add(recordAt(m_clock.now()));
    EXPECT_EQ(readBytes(m_file + u".unreadable"_s), original);
    EXPECT_EQ(openStore()->count(), 1);
}

// On the day clocks go forward, so that today has 23 hours.
TEST_F(ActivitySnapshotStoreTest, FetchesAndDeletesHalfOpenRangesOfCalendarDaysSortedStably)
{
    m_clock.set(QDateTime(QDate(2026, 3, 29), QTime(12, 0)));
    const QDateTime midnight = QDate(2026, 3, 29).startOfDay();
    auto store = openStore();
    for (const auto &[time, description] : {std::pair {midnight.addSecs(-1), u"yesterday"_s},
             {midnight.addSecs(60), u"first of two"_s}, {midnight, u"midnight"_s},
             {midnight.addSecs(60), u"second of two"_s}, {QDate(2026, 3, 30).startOfDay(), u"tomorrow"_s}}) {
        store->add(recordAt(time, u"Coding"_s, u"Website"_s, description));
    }
    EXPECT_EQ(
        descriptionsOf(store->fetchToday()), (QStringList {u"first of two"_s, u"second of two"_s, u"midnight"_s}));
    EXPECT_EQ(descriptionsOf(store->fetch(midnight.addSecs(-1), midnight.addSecs(61), true)),
        (QStringList {u"yesterday"_s, u"midnight"_s, u"first of two"_s, u"second of two"_s}));

    store->deleteRange(midnight, midnight.addSecs(60));
    EXPECT_EQ(descriptionsOf(store->fetchAll()),
        (QStringList {u"yesterday"_s, u"first of two"_s, u"second of two"_s, u"tomorrow"_s}));
    markFile();
    store->deleteBefore(midnight.addSecs(-1));
    EXPECT_FALSE(fileWasWritten());
    store->deleteBefore(midnight);
    EXPECT_EQ(
        descriptionsOf(openStore()->fetchAll()), (QStringList {u"first of two"_s, u"second of two"_s, u"tomorrow"_s}));
}

TEST_F(ActivitySnapshotStoreTest, TrimTakesOnlyReportedPastDaysAndThenTodaysOldestFromMidnightOn)
{
    const QDateTime midnight = m_today.startOfDay();
    auto store = openStore();
    for (int i = 0; i < 4; ++i) {
        store->add(recordAt(midnight.addSecs(-3600 + i), u"Coding"_s, u"Website"_s, u"yesterday"_s));
    }
    markFile();
    store->trim(3, m_reports);
    EXPECT_EQ(store->count(), 4);
    EXPECT_FALSE(fileWasWritten());
    // A report that could not be written does not count yet.
    QDir().mkpath(m_reports.filePath());
    EXPECT_FALSE(m_reports.upsert(DailyReport {.date = u"2026-03-08"_s, .generatedAt = m_clock.now()}));
    store->trim(3, m_reports);
    EXPECT_EQ(store->count(), 4);

    // A report of today takes nothing of today, not even what came at midnight.
    QDir(m_reports.filePath()).removeRecursively();
    for (const QString &date : {u"2026-03-08"_s, u"2026-03-09"_s}) {
        ASSERT_TRUE(m_reports.upsert(DailyReport {.date = date, .generatedAt = m_clock.now()}));
    }
    // Arrival order differs from time order: the cut goes by time, and what stays keeps its order.
    for (const int minute : {60, 0, 30}) {
        store->add(recordAt(midnight.addSecs(minute * 60), u"Coding"_s, u"Website"_s, QString::number(minute)));
    }
    store->trim(3, m_reports);
    EXPECT_EQ(descriptionsOf(store->fetchAll()), (QStringList {u"60"_s, u"0"_s, u"30"_s}));
    store->add(recordAt(midnight.addSecs(90 * 60), u"Coding"_s, u"Website"_s, u"90"_s));
    store->trim(3, m_reports);
    EXPECT_EQ(descriptionsOf(openStore()->fetchAll()), (QStringList {u"60"_s, u"30"_s, u"90"_s}));
}
