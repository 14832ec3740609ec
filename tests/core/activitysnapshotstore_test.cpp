#include "core/activitysnapshotstore.h"

#include "core/settings.h"
#include "fakeclock.h"
#include "reports/dailyreportstore.h"
#include "storetesthelpers.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
ActivitySnapshot at(const QDateTime &timestamp, const QString &description = u"Working"_s)
{
    return ActivitySnapshot {
        .id = QUuid::createUuid(),
        .timestamp = timestamp,
        .aiCategory = u"Coding"_s,
        .projectName = u"Website"_s,
        .activityDescription = description,
    };
}

QStringList descriptionsOf(const QList<ActivitySnapshot> &snapshots)
{
    QStringList descriptions;
    for (const ActivitySnapshot &snapshot : snapshots) {
        descriptions.append(snapshot.activityDescription.value_or(QString()));
    }
    return descriptions;
}

class ActivitySnapshotStoreTest : public ::testing::Test
{
protected:
    std::unique_ptr<ActivitySnapshotStore> openStore()
    {
        return std::make_unique<ActivitySnapshotStore>(m_file, &m_log, &m_settings, &m_clock);
    }

    // Writes records straight to the file, as an earlier run would have left them.
    void seed(const QList<ActivitySnapshot> &snapshots)
    {
        QJsonArray array;
        for (const ActivitySnapshot &snapshot : snapshots) {
            array.append(snapshot.toJson());
        }
        writeBytes(m_file, QJsonDocument(array).toJson(QJsonDocument::Compact));
    }

    // Marks the file so a test can tell whether the store wrote it since.
    void markFile() { writeBytes(m_file, "untouched"); }
    [[nodiscard]] bool fileWasWritten() const { return readBytes(m_file) != "untouched"; }

    QTemporaryDir m_home;
    FakeClock m_clock; // 2026-03-09 10:00 in Berlin
    LogManager m_log {&m_clock};
    Settings m_settings {m_home.filePath(u"Tamlo.conf"_s)};
    QString m_folder = m_home.filePath(u"data/Tamlo"_s);
    QString m_file = m_folder + u"/snapshots.json"_s;
    QDate m_today {2026, 3, 9};
};
} // namespace

TEST_F(ActivitySnapshotStoreTest, ReadsAndWritesTheDocumentedFileForm)
{
    const QByteArray example = readBytes(testDataPath(u"snapshots-example.json"_s));
    ASSERT_FALSE(example.isEmpty());
    writeBytes(m_file, example);
    openStore()->save();
    const QByteArray written = readBytes(m_file);
    EXPECT_EQ(QJsonDocument::fromJson(written), QJsonDocument::fromJson(example));
    EXPECT_FALSE(written.contains('\n'));
    EXPECT_TRUE(written.contains("\"timestamp\":785000000.25")) << written.toStdString();

    writeBytes(m_file, readBytes(testDataPath(u"snapshots-null-optionals.json"_s)));
    auto store = openStore();
    const QList<ActivitySnapshot> loaded = store->fetchAll();
    ASSERT_EQ(loaded.size(), 2);
    EXPECT_TRUE(loaded[0].isInactiveScreenState());
    EXPECT_FALSE(loaded[1].projectName.has_value());
    store->save();
    EXPECT_EQ(readBytes(m_file),
        R"([{"activityDescription":"Screen Locked","aiCategory":"","id":"0B7E4C1D-2F3A-4B5C-8D9E-0F1A2B3C4D5E","timestamp":785000030},)"
        R"({"aiCategory":"Browsing","id":"9A8B7C6D-5E4F-4A3B-9C2D-1E0F9A8B7C6D","timestamp":785000060.5}])");
    EXPECT_TRUE(logMessages(m_log).isEmpty());
}

TEST_F(ActivitySnapshotStoreTest, FirstStartWritesNothingUntilTheFirstChange)
{
    auto store = openStore();
    EXPECT_EQ(store->count(), 0);
    EXPECT_FALSE(QFile::exists(m_file));
    store->deleteBefore(m_clock.now());
    EXPECT_FALSE(QFile::exists(m_file));
    store->save();
    EXPECT_EQ(readBytes(m_file), "[]");
    EXPECT_EQ(openStore()->count(), 0);
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
    EXPECT_FALSE(QFile::exists(m_file));

    store->add(at(m_clock.now()));
    EXPECT_EQ(readBytes(m_file + u".unreadable"_s), original);
    EXPECT_EQ(openStore()->count(), 1);
}

TEST_F(ActivitySnapshotStoreTest, FetchesHalfOpenRangesSortedStably)
{
    const QDateTime midnight = m_today.startOfDay();
    auto store = openStore();
    store->add(at(midnight.addSecs(-1), u"yesterday"_s));
    store->add(at(midnight.addSecs(60), u"first of two"_s));
    store->add(at(midnight, u"midnight"_s));
    store->add(at(midnight.addSecs(60), u"second of two"_s));
    store->add(at(m_today.addDays(1).startOfDay(), u"tomorrow"_s));

    EXPECT_EQ(
        descriptionsOf(store->fetchToday()), (QStringList {u"first of two"_s, u"second of two"_s, u"midnight"_s}));
    EXPECT_EQ(descriptionsOf(store->fetch(midnight, midnight.addSecs(60), true)), QStringList {u"midnight"_s});
    EXPECT_EQ(descriptionsOf(store->fetch(midnight.addSecs(-1), midnight.addSecs(61), true)),
        (QStringList {u"yesterday"_s, u"midnight"_s, u"first of two"_s, u"second of two"_s}));

    store->deleteRange(midnight, midnight.addSecs(60));
    EXPECT_EQ(descriptionsOf(store->fetchAll()),
        (QStringList {u"yesterday"_s, u"first of two"_s, u"second of two"_s, u"tomorrow"_s}));

    markFile();
    store->deleteBefore(midnight.addSecs(-1));
    EXPECT_FALSE(fileWasWritten());
    store->deleteBefore(midnight);
    EXPECT_TRUE(fileWasWritten());
    EXPECT_EQ(openStore()->count(), 3);
}

TEST_F(ActivitySnapshotStoreTest, TodayOfADaylightSavingChangeHasTwentyThreeHours)
{
    m_clock.set(QDateTime(QDate(2026, 3, 29), QTime(12, 0)));
    auto store = openStore();
    for (const auto &[day, time, description] : {std::tuple {29, QTime(0, 0), u"start"_s},
             {29, QTime(23, 59), u"end"_s}, {30, QTime(0, 0), u"next day"_s}, {28, QTime(23, 59), u"day before"_s}}) {
        store->add(at(QDateTime(QDate(2026, 3, day), time), description));
    }
    EXPECT_EQ(descriptionsOf(store->fetchToday()), (QStringList {u"end"_s, u"start"_s}));
}

TEST_F(ActivitySnapshotStoreTest, TrimNeverTouchesAPastDayWithoutAReport)
{
    DailyReportStore reports(m_folder + u"/daily-reports.json"_s, &m_log);
    const QDateTime yesterday = m_today.addDays(-1).startOfDay().addSecs(8 * 3600);
    QList<ActivitySnapshot> records;
    for (int i = 0; i < 1200; ++i) {
        records.append(at(yesterday.addSecs(i)));
    }
    seed(records);
    auto store = openStore();
    markFile();
    store->trim(1000, reports);
    EXPECT_EQ(store->count(), 1200);
    EXPECT_FALSE(fileWasWritten());

    // A report that could not be written does not count yet.
    QDir().mkpath(reports.filePath());
    EXPECT_FALSE(reports.upsert(DailyReport {.date = u"2026-03-08"_s, .generatedAt = m_clock.now()}));
    store->trim(1000, reports);
    EXPECT_EQ(store->count(), 1200);

    QDir(reports.filePath()).removeRecursively();
    ASSERT_TRUE(reports.upsert(DailyReport {.date = u"2026-03-08"_s, .generatedAt = m_clock.now()}));
    store->add(at(m_clock.now()));
    store->trim(1000, reports);
    EXPECT_EQ(store->count(), 1);
}

TEST_F(ActivitySnapshotStoreTest, TrimCutsTodaysOldestBeyondTheLimit)
{
    DailyReportStore reports(m_folder + u"/daily-reports.json"_s, &m_log);
    const QDateTime morning = m_today.startOfDay().addSecs(6 * 3600);
    // Arrival order differs from time order: the cut goes by time.
    QList<ActivitySnapshot> records;
    for (int i = 1099; i >= 0; --i) {
        records.append(at(morning.addSecs(i * 30), QString::number(i)));
    }
    seed(records);
    auto store = openStore();
    store->trim(1000, reports);
    const QList<ActivitySnapshot> kept = store->fetch(morning, morning.addDays(1), true);
    ASSERT_EQ(kept.size(), 1000);
    EXPECT_EQ(kept.first().activityDescription, u"100"_s);
    EXPECT_EQ(kept.last().activityDescription, u"1099"_s);
    EXPECT_EQ(openStore()->count(), 1000);
    // Stored order of what stays is unchanged.
    EXPECT_EQ(store->fetchAll().first().activityDescription, u"1099"_s);
}

TEST_F(ActivitySnapshotStoreTest, AFailedWriteLosesNothingInMemory)
{
    auto store = openStore();
    store->add(at(m_clock.now(), u"kept on disk"_s));
    blockFolder(m_folder);
    store->add(at(m_clock.now(), u"only in memory"_s));
    EXPECT_EQ(store->count(), 2);
    const QStringList messages = logMessages(m_log);
    ASSERT_EQ(messages.size(), 1);
    EXPECT_TRUE(messages[0].startsWith(u"❌ Failed to save snapshots: "_s)) << messages[0].toStdString();

    unblockFolder(m_folder);
    store->save();
    EXPECT_EQ(descriptionsOf(openStore()->fetchAll()), (QStringList {u"kept on disk"_s, u"only in memory"_s}));
}

TEST_F(ActivitySnapshotStoreTest, EveryChangeWritesExactlyTheArraysOwnCompactForm)
{
    m_settings.setString(SettingsKey::userProjects, u"Website, Tamlo"_s);
    DailyReportStore reports(m_folder + u"/daily-reports.json"_s, &m_log);
    const auto expectFileMatchesStore = [this](const ActivitySnapshotStore &store) {
        QJsonArray array;
        for (const ActivitySnapshot &snapshot : store.fetchAll()) {
            array.append(snapshot.toJson());
        }
        EXPECT_EQ(readBytes(m_file), QJsonDocument(array).toJson(QJsonDocument::Compact));
    };

    auto store = openStore();
    const QDateTime morning = m_today.startOfDay().addSecs(8 * 3600);
    QList<QUuid> ids;
    for (int i = 0; i < 6; ++i) {
        // Fractions of a second, quotes, control characters and non-ASCII text exercise the
        // number and string forms.
        ActivitySnapshot snapshot = at(morning.addMSecs(i * 30250), u"Step %1: “quoted” \"raw\"\t✓"_s.arg(i));
        if (i % 2 == 0) {
            snapshot.projectName.reset();
        }
        ids.append(snapshot.id);
        store->add(snapshot);
        expectFileMatchesStore(*store);
    }
    store->updateNote(ids[1], u"Tamlo release"_s);
    expectFileMatchesStore(*store);
    store->deleteRange(morning.addSecs(60), morning.addSecs(80));
    EXPECT_EQ(store->count(), 5);
    expectFileMatchesStore(*store);
    store->trim(3, reports);
    EXPECT_EQ(store->count(), 3);
    expectFileMatchesStore(*store);

    // A store read back from the file changes the same way.
    auto reopened = openStore();
    reopened->updateNote(ids[5], u"Website copy"_s);
    reopened->add(at(morning.addSecs(600)));
    expectFileMatchesStore(*reopened);
    reopened->deleteBefore(morning.addDays(1));
    EXPECT_EQ(readBytes(m_file), "[]");
}
