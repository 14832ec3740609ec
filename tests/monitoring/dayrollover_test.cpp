#include "monitorfixture.h"

#include "core/tamlodatapaths.h"

#include <QDir>
#include <QFile>

using namespace MonitorTest;

namespace {
class DayRolloverTest : public MonitorFixture
{
protected:
    void addRecord(const QDateTime &time, const QString &description = u"Writing code"_s)
    {
        ActivitySnapshot snapshot = recordAt(time, description);
        snapshot.imageHash = u"00"_s;
        snapshotStore->add(snapshot);
    }

    // Runs configure() and waits for the end of the launch sequence.
    void launch()
    {
        monitor->configure();
        ASSERT_TRUE(waitFor([&] { return monitor->isMonitoring(); }, 30000));
    }

    [[nodiscard]] QStringList reportDates() const
    {
        QStringList dates;
        for (const DailyReport &report : reportStore->reports()) {
            dates.append(report.date);
        }
        return dates;
    }

    [[nodiscard]] QStringList storedDays() const
    {
        QStringList days;
        for (const ActivitySnapshot &snapshot : snapshotStore->fetchAll()) {
            const QString day = TamloDataPaths::dateLabel(snapshot.timestamp);
            if (!days.contains(day)) {
                days.append(day);
            }
        }
        return days;
    }

    [[nodiscard]] QString workLog(const QString &day) const
    {
        return paths.exportRoot + u"/WorkLogs/"_s + day + u".csv"_s;
    }
};

TEST_F(DayRolloverTest, FirstLaunchWithNothingStoredOpensTodayWithoutWritingTheSetting)
{
    launch();
    EXPECT_EQ(monitor->lastSaveDate(), at(2026, 3, 9, 0));
    EXPECT_FALSE(settings->contains(SettingsKey::lastDailySaveDate));
    EXPECT_TRUE(reportDates().isEmpty());
    EXPECT_TRUE(messages().filter(u"📅"_s).isEmpty());
}

TEST_F(DayRolloverTest, LaunchFinalisesEveryPastDayOldestFirstBeforeTheFirstCapture)
{
    addRecord(at(2026, 3, 8, 16));
    addRecord(at(2026, 3, 6, 9));
    addRecord(at(2026, 3, 6, 9, 0, 30));
    addRecord(at(2026, 3, 7, 11));
    addRecord(at(2026, 3, 9, 8));

    launch();
    EXPECT_EQ(reportDates(), (QStringList {u"2026-03-06"_s, u"2026-03-07"_s, u"2026-03-08"_s}));
    EXPECT_EQ(settings->date(SettingsKey::lastDailySaveDate), clock.now());

    const QStringList log = messages();
    const qsizetype configured = log.indexOf(u"📦 Storage configured"_s);
    const qsizetype first = log.indexOf(u"📅 Catching up — finalizing 2026-03-06"_s);
    const qsizetype second = log.indexOf(u"📅 Catching up — finalizing 2026-03-07"_s);
    const qsizetype third = log.indexOf(u"📅 Catching up — finalizing 2026-03-08"_s);
    const qsizetype started = log.indexOf(u"🚀 Monitoring started"_s);
    EXPECT_TRUE(configured >= 0 && configured < first && first < second && second < third && third < started)
        << log.join(u'\n').toStdString();
    EXPECT_TRUE(log.filter(u"New day detected"_s).isEmpty());

    // Only today's records stay: the one from before the launch and the first capture.
    ASSERT_TRUE(waitFor([&] { return monitor->captureCount() == 1; }));
    EXPECT_EQ(storedDays(), QStringList {u"2026-03-09"_s});
    EXPECT_EQ(snapshotStore->count(), 2);
}

TEST_F(DayRolloverTest, DaysWithoutRecordsGetNoReport)
{
    settings->setDate(SettingsKey::lastDailySaveDate, at(2026, 3, 4, 18));
    addRecord(at(2026, 3, 5, 10));
    addRecord(at(2026, 3, 7, 10));

    launch();
    EXPECT_EQ(reportDates(), (QStringList {u"2026-03-05"_s, u"2026-03-07"_s}));
    EXPECT_EQ(settings->date(SettingsKey::lastDailySaveDate), clock.now());
    EXPECT_EQ(monitor->lastSaveDate(), clock.now());
}

TEST_F(DayRolloverTest, LaunchOnTheSameDayKeepsTheStoredDay)
{
    settings->setDate(SettingsKey::lastDailySaveDate, at(2026, 3, 9, 8));
    addRecord(at(2026, 3, 9, 8, 30));
    launch();
    EXPECT_EQ(monitor->lastSaveDate(), at(2026, 3, 9, 8));
    EXPECT_EQ(settings->date(SettingsKey::lastDailySaveDate), at(2026, 3, 9, 8));
    EXPECT_TRUE(reportDates().isEmpty());
}

TEST_F(DayRolloverTest, AnOpenDayInTheFutureIsClosedLikeAnyOtherDay)
{
    // The clock was moved back since the last run.
    settings->setDate(SettingsKey::lastDailySaveDate, at(2026, 3, 12, 9));
    addRecord(at(2026, 3, 9, 9));
    launch();
    ASSERT_TRUE(waitFor([&] { return monitor->captureCount() == 1; }));

    QCoro::waitFor(monitor->checkDailyReset());
    EXPECT_EQ(countOf(u"📅 New day detected — finalizing previous day"_s), 1);
    EXPECT_EQ(settings->date(SettingsKey::lastDailySaveDate), clock.now());
    EXPECT_TRUE(reportDates().isEmpty());
    // Today's records stay: they belong to the day that is now open.
    EXPECT_EQ(snapshotStore->count(), 2);
    EXPECT_EQ(monitor->captureCount(), 0);
}

TEST_F(DayRolloverTest, CheckAfterMidnightClosesYesterdayAtTheMidnightBoundary)
{
    settings->setDate(SettingsKey::lastDailySaveDate, at(2026, 3, 9, 8));
    launch();
    ASSERT_TRUE(waitFor([&] { return monitor->captureCount() == 1; }));
    addRecord(at(2026, 3, 9, 23, 59, 59).addMSecs(999), u"Last thing before midnight"_s);
    addRecord(at(2026, 3, 10, 0), u"First thing of the new day"_s);

    clock.set(at(2026, 3, 10, 0, 0, 30));
    QCoro::waitFor(monitor->checkDailyReset());

    EXPECT_EQ(reportDates(), QStringList {u"2026-03-09"_s});
    EXPECT_EQ(storedDays(), QStringList {u"2026-03-10"_s});
    EXPECT_EQ(snapshotStore->count(), 1);
    EXPECT_EQ(monitor->captureCount(), 0);
    EXPECT_EQ(monitor->screenshotCount(), 0);
    EXPECT_EQ(monitor->aiAnalysisCount(), 0);
    EXPECT_TRUE(monitor->latestSnapshots().isEmpty());
    EXPECT_TRUE(monitor->lastCaptureTime().isValid());
    EXPECT_EQ(settings->date(SettingsKey::lastDailySaveDate), clock.now());

    QFile log(workLog(u"2026-03-09"_s));
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QByteArray content = log.readAll();
    EXPECT_TRUE(content.contains("Last thing before midnight"));
    EXPECT_FALSE(content.contains("First thing of the new day"));

    const QStringList messagesNow = messages();
    const qsizetype detected = messagesNow.indexOf(u"📅 New day detected — finalizing previous day"_s);
    const qsizetype reset = messagesNow.indexOf(u"🔄 Daily reset completed"_s);
    ASSERT_GE(detected, 0);
    EXPECT_GT(reset, detected);
    EXPECT_TRUE(messagesNow.mid(detected, reset - detected).contains(u"💾 Daily data saved: 1 records"_s));

    // The next check of the same day finds nothing to do.
    const qsizetype before = messages().size();
    clock.advance(60);
    QCoro::waitFor(monitor->checkDailyReset());
    EXPECT_EQ(messages().size(), before);
}

TEST_F(DayRolloverTest, WakeAfterMidnightFinalisesAtOnceAlsoWithMonitoringStopped)
{
    settings->setDate(SettingsKey::lastDailySaveDate, at(2026, 3, 9, 8));
    launch();
    ASSERT_TRUE(waitFor([&] { return monitor->captureCount() == 1; }));
    monitor->stopMonitoring();
    ASSERT_TRUE(waitFor([&] { return QFile::exists(workLog(u"2026-03-09"_s)); }));

    clock.set(at(2026, 3, 10, 0, 5));
    sendPrepareForSleep(false);
    ASSERT_TRUE(waitFor([&] { return reportDates() == QStringList {u"2026-03-09"_s}; }));
    ASSERT_TRUE(waitFor([&] { return messages().contains(u"🔄 Daily reset completed"_s); }));
    EXPECT_EQ(snapshotStore->count(), 0);
    EXPECT_FALSE(monitor->isMonitoring());
}

TEST_F(DayRolloverTest, DaylightSavingDayOfTwentyThreeHoursIsOneDay)
{
    clock.set(at(2026, 3, 29, 12));
    settings->setDate(SettingsKey::lastDailySaveDate, at(2026, 3, 29, 1));
    addRecord(at(2026, 3, 29, 0, 30));
    addRecord(at(2026, 3, 29, 23, 30));
    launch();
    ASSERT_TRUE(waitFor([&] { return monitor->captureCount() == 1; }));
    ASSERT_EQ(at(2026, 3, 29, 0).secsTo(at(2026, 3, 30, 0)), 23 * 3600);

    clock.set(at(2026, 3, 30, 0, 0, 30));
    QCoro::waitFor(monitor->checkDailyReset());
    EXPECT_EQ(reportDates(), QStringList {u"2026-03-29"_s});
    EXPECT_EQ(snapshotStore->count(), 0);
}

TEST_F(DayRolloverTest, ADayWhoseWorkLogCannotBeWrittenKeepsItsRecordsUntilALaterCheck)
{
    // A file where the work log folder should be makes every work log write fail.
    ASSERT_TRUE(QDir().mkpath(paths.exportRoot));
    QFile blocker(paths.exportRoot + u"/WorkLogs"_s);
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();

    settings->setDate(SettingsKey::lastDailySaveDate, at(2026, 3, 8, 9));
    clock.set(at(2026, 3, 8, 23, 59));
    addRecord(at(2026, 3, 8, 10));
    addRecord(at(2026, 3, 8, 11));
    launch();
    ASSERT_TRUE(waitFor([&] { return monitor->captureCount() == 1; }));

    clock.set(at(2026, 3, 9, 0, 0, 30));
    QCoro::waitFor(monitor->checkDailyReset());
    EXPECT_TRUE(reportDates().isEmpty());
    EXPECT_EQ(storedDays(), QStringList {u"2026-03-08"_s});
    EXPECT_EQ(snapshotStore->count(), 3);
    // The day is closed for the counters all the same.
    EXPECT_EQ(monitor->lastSaveDate(), clock.now());

    ASSERT_TRUE(QFile::remove(paths.exportRoot + u"/WorkLogs"_s));
    clock.advance(60);
    QCoro::waitFor(monitor->checkDailyReset());
    EXPECT_EQ(reportDates(), QStringList {u"2026-03-08"_s});
    EXPECT_EQ(snapshotStore->count(), 0);
    EXPECT_TRUE(QFile::exists(workLog(u"2026-03-08"_s)));
}

TEST_F(DayRolloverTest, ACheckWhileAnotherIsFinalisingDoesNotFinaliseTheDayAgain)
{
    settings->setDate(SettingsKey::lastDailySaveDate, at(2026, 3, 9, 8));
    addRecord(at(2026, 3, 9, 9));
    launch();
    ASSERT_TRUE(waitFor([&] { return monitor->captureCount() == 1; }));
    summary
        = StandInServer::Reply {200, chatBody(QJsonObject {{u"summary"_s, u"A slow day."_s}}), "application/json", 300};

    clock.set(at(2026, 3, 10, 0, 1));
    QCoro::Task<> first = monitor->checkDailyReset();
    QCoro::Task<> second = monitor->checkDailyReset();
    QCoro::waitFor(std::move(second));
    QCoro::waitFor(std::move(first));
    sendPrepareForSleep(false);
    QTest::qWait(200);

    EXPECT_EQ(reportDates(), QStringList {u"2026-03-09"_s});
    EXPECT_EQ(ollama.requestsTo("/api/chat").size() - analysisRequests(), 1);
    EXPECT_EQ(countOf(u"📅 New day detected — finalizing previous day"_s), 1);
    EXPECT_EQ(snapshotStore->count(), 0);
}
} // namespace
