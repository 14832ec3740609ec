#include "monitorfixture.h"

#include "core/tamlodatapaths.h"
#include "files.h"

using namespace MonitorTest;

namespace {
class DayRolloverTest : public MonitorFixture
{
protected:
    void launch(bool andCapture = true)
    {
        monitor->configure();
        ASSERT_TRUE(waitFor([&] { return monitor->isMonitoring(); }, 30000));
        if (andCapture) {
            ASSERT_TRUE(waitFor([&] { return monitor->captureCount() == 1; }));
        }
    }

    void checkAt(const QDateTime &now)
    {
        clock.set(now);
        QCoro::waitFor(monitor->checkDailyReset());
    }

    [[nodiscard]] QStringList reportDates() const { return mapped(reportStore->reports(), &DailyReport::date); }

    [[nodiscard]] QStringList storedDays() const
    {
        QStringList days = mapped(snapshotStore->fetchAll(),
            [](const ActivitySnapshot &record) { return TamloDataPaths::dateLabel(record.timestamp); });
        days.removeDuplicates();
        return days;
    }

    [[nodiscard]] QString workLog(const QString &day) const
    {
        return paths.exportRoot + u"/WorkLogs/"_s + day + u".csv"_s;
    }
};

// The first tick is still waiting for the model when the monitor goes, as at a quit: its reply
// comes to a monitor that is gone and must end the tick without a record (once a crash).
TEST_F(DayRolloverTest, FirstLaunchWithNothingStoredOpensTodayWithoutWritingTheSetting)
{
    analysis.delayMs = 300;
    launch(false);
    EXPECT_EQ(monitor->lastSaveDate(), at(2026, 3, 9, 0));
    EXPECT_FALSE(settings->contains(SettingsKey::lastDailySaveDate));
    EXPECT_TRUE(reportDates().isEmpty());
    EXPECT_TRUE(messages().filter(u"📅"_s).isEmpty());
    ASSERT_TRUE(waitFor([&] { return analysisRequests() == 1; }));
    monitor.reset();
    QTest::qWait(600);
    EXPECT_EQ(snapshotStore->count(), 0);
}

TEST_F(DayRolloverTest, LaunchFinalisesEveryPastDayWithRecordsOldestFirstBeforeTheFirstCapture)
{
    for (const QDateTime &time :
        {at(2026, 3, 8, 16), at(2026, 3, 5, 9), at(2026, 3, 5, 9, 0, 30), at(2026, 3, 7, 11), at(2026, 3, 9, 8)}) {
        addRecord(time);
    }
    launch();
    EXPECT_EQ(reportDates(), (QStringList {u"2026-03-05"_s, u"2026-03-07"_s, u"2026-03-08"_s}));
    EXPECT_EQ(settings->date(SettingsKey::lastDailySaveDate), clock.now());
    const QStringList log = messages().filter(QRegularExpression(u"📦|📅|🚀"_s));
    EXPECT_EQ(log,
        (QStringList {u"📦 Storage configured"_s, u"📅 Catching up — finalizing 2026-03-05"_s,
            u"📅 Catching up — finalizing 2026-03-07"_s, u"📅 Catching up — finalizing 2026-03-08"_s,
            u"🚀 Monitoring started"_s}));
    // Only today's records stay: the one from before the launch and the first capture.
    EXPECT_EQ(storedDays(), QStringList {u"2026-03-09"_s});
    EXPECT_EQ(snapshotStore->count(), 2);
}

TEST_F(DayRolloverTest, ALaunchOnTheStoredDayKeepsItAndAnOpenDayInTheFutureIsClosedLikeAnyOther)
{
    settings->setDate(SettingsKey::lastDailySaveDate, at(2026, 3, 9, 8));
    addRecord(at(2026, 3, 9, 8, 30));
    launch();
    EXPECT_EQ(monitor->lastSaveDate(), at(2026, 3, 9, 8));
    EXPECT_EQ(settings->date(SettingsKey::lastDailySaveDate), at(2026, 3, 9, 8));

    // The clock was moved back since the last run: the open day ends, today's records stay.
    endMonitor();
    settings->setDate(SettingsKey::lastDailySaveDate, at(2026, 3, 12, 9));
    buildMonitor();
    launch(false);
    checkAt(clock.now());
    EXPECT_EQ(countOf(u"📅 New day detected — finalizing previous day"_s), 1);
    EXPECT_EQ(settings->date(SettingsKey::lastDailySaveDate), clock.now());
    EXPECT_TRUE(reportDates().isEmpty());
    EXPECT_EQ(storedDays(), QStringList {u"2026-03-09"_s});
}

// On the day clocks go forward, so that the day closed has 23 hours.
TEST_F(DayRolloverTest, CheckAfterMidnightClosesYesterdayAtTheMidnightBoundaryOnce)
{
    clock.set(at(2026, 3, 29, 12));
    settings->setDate(SettingsKey::lastDailySaveDate, at(2026, 3, 29, 1));
    addRecord(at(2026, 3, 29, 0, 30));
    launch();
    addRecord(at(2026, 3, 29, 23, 59, 59).addMSecs(999), u"Last thing before midnight"_s);
    addRecord(at(2026, 3, 30, 0), u"First thing of the new day"_s);
    checkAt(at(2026, 3, 30, 0, 0, 30));

    EXPECT_EQ(reportDates(), QStringList {u"2026-03-29"_s});
    EXPECT_EQ(storedDays(), QStringList {u"2026-03-30"_s});
    EXPECT_EQ(snapshotStore->count(), 1);
    EXPECT_EQ(std::tuple(monitor->captureCount(), monitor->screenshotCount(), monitor->aiAnalysisCount()),
        std::tuple(0, 0, 0));
    EXPECT_TRUE(monitor->latestSnapshots().isEmpty());
    EXPECT_EQ(settings->date(SettingsKey::lastDailySaveDate), clock.now());
    const QByteArray workLogText = readBytes(workLog(u"2026-03-29"_s));
    EXPECT_TRUE(workLogText.contains("Last thing before midnight"));
    EXPECT_FALSE(workLogText.contains("First thing of the new day"));
    const QStringList log = messages();
    const qsizetype detected = log.indexOf(u"📅 New day detected — finalizing previous day"_s);
    EXPECT_TRUE(log.mid(detected).contains(u"💾 Daily data saved: 1 records"_s));
    EXPECT_EQ(log.last(), u"🔄 Daily reset completed"_s);

    // The next check of the same day finds nothing to do, nor does one that overlaps a running one.
    summary.delayMs = 300;
    checkAt(clock.now().addSecs(60));
    EXPECT_EQ(messages().size(), log.size());
    addRecord(at(2026, 3, 30, 9));
    clock.set(at(2026, 3, 31, 0, 1));
    QCoro::Task<> first = monitor->checkDailyReset();
    QCoro::Task<> second = monitor->checkDailyReset();
    QCoro::waitFor(std::move(second));
    QCoro::waitFor(std::move(first));
    sendPrepareForSleep(false);
    QTest::qWait(200);
    EXPECT_EQ(reportDates(), (QStringList {u"2026-03-29"_s, u"2026-03-30"_s}));
    EXPECT_EQ(ollama.requestsTo("/api/chat").size() - analysisRequests(), 2);
    EXPECT_EQ(countOf(u"📅 New day detected — finalizing previous day"_s), 2);
}

TEST_F(DayRolloverTest, WakeAfterMidnightFinalisesAtOnceAlsoWithMonitoringStopped)
{
    settings->setDate(SettingsKey::lastDailySaveDate, at(2026, 3, 9, 8));
    launch();
    monitor->stopMonitoring();
    ASSERT_TRUE(waitFor([&] { return QFile::exists(workLog(u"2026-03-09"_s)); }));
    clock.set(at(2026, 3, 10, 0, 5));
    sendPrepareForSleep(false);
    ASSERT_TRUE(waitFor([&] { return messages().contains(u"🔄 Daily reset completed"_s); }));
    EXPECT_EQ(reportDates(), QStringList {u"2026-03-09"_s});
    EXPECT_EQ(snapshotStore->count(), 0);
    EXPECT_FALSE(monitor->isMonitoring());
}

TEST_F(DayRolloverTest, ADayWhoseWorkLogCannotBeWrittenKeepsItsRecordsUntilALaterCheck)
{
    // A file where the work log folder should be makes every work log write fail.
    ASSERT_TRUE(QDir().mkpath(paths.exportRoot));
    ASSERT_TRUE(QFile(paths.exportRoot + u"/WorkLogs"_s).open(QIODevice::WriteOnly));
    settings->setDate(SettingsKey::lastDailySaveDate, at(2026, 3, 8, 9));
    clock.set(at(2026, 3, 8, 23, 59));
    addRecord(at(2026, 3, 8, 10));
    addRecord(at(2026, 3, 8, 11));
    launch();
    checkAt(at(2026, 3, 9, 0, 0, 30));
    EXPECT_TRUE(reportDates().isEmpty());
    EXPECT_EQ(storedDays(), QStringList {u"2026-03-08"_s});
    EXPECT_EQ(snapshotStore->count(), 3);
    // The day is closed for the counters all the same.
    EXPECT_EQ(monitor->lastSaveDate(), clock.now());

    ASSERT_TRUE(QFile::remove(paths.exportRoot + u"/WorkLogs"_s));
    checkAt(clock.now().addSecs(60));
    EXPECT_EQ(reportDates(), QStringList {u"2026-03-08"_s});
    EXPECT_EQ(snapshotStore->count(), 0);
    EXPECT_TRUE(QFile::exists(workLog(u"2026-03-08"_s)));
}
} // namespace
