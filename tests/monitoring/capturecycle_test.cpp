#include "monitorfixture.h"

using namespace MonitorTest;

namespace {
class CaptureCycleTest : public MonitorFixture
{
};

TEST_F(CaptureCycleTest, StartAndConfigureSetUpEverythingOnceAndCaptureAfterReturning)
{
    monitor->startMonitoring();
    // Nothing has been captured yet: the first tick runs once the call has returned.
    EXPECT_EQ(grabber.grabs, 0);
    EXPECT_TRUE(monitor->isMonitoring());
    EXPECT_FALSE(settings->boolean(SettingsKey::userIntentionallyStopped));
    EXPECT_TRUE(settings->contains(SettingsKey::userIntentionallyStopped));
    ASSERT_TRUE(waitFor([&] { return monitor->captureCount() == 1; }));
    EXPECT_EQ(monitor->screenshotCount(), 1);
    EXPECT_EQ(snapshotStore->count(), 1);

    QTimer *capture = timer(u"captureTimer"_s);
    QTimer *cleanup = timer(u"cleanupTimer"_s);
    ASSERT_NE(capture, nullptr);
    ASSERT_NE(cleanup, nullptr);
    EXPECT_EQ(capture->interval(), 30000);
    EXPECT_GT(capture->remainingTime(), 25000);
    EXPECT_EQ(cleanup->interval(), 300000);

    // A second start, and configure (which starts monitoring itself) called again and again, add no
    // observers, timers, messages or captures.
    monitor->startMonitoring();
    monitor->configure();
    monitor->configure();
    ASSERT_TRUE(waitFor([&] { return timer(u"dailyCheckTimer"_s) != nullptr; }));
    monitor->configure();
    QTest::qWait(50);
    EXPECT_EQ(countOf(u"📦 Storage configured"_s), 1);
    EXPECT_EQ(countOf(u"🚀 Monitoring started"_s), 1);
    EXPECT_EQ(events->wakeObserverCount(), 1);
    EXPECT_EQ(events->observerCount(), 4);
    EXPECT_EQ(monitor->findChildren<QTimer *>(u"captureTimer"_s).size(), 1);
    EXPECT_EQ(monitor->findChildren<QTimer *>(u"dailyCheckTimer"_s).size(), 1);
    EXPECT_EQ(grabber.grabs, 1);

    // The day check goes on while monitoring is stopped; the capture timer does not.
    monitor->stopMonitoring();
    QTest::qWait(0);
    EXPECT_EQ(timer(u"captureTimer"_s), nullptr);
    QTimer *daily = timer(u"dailyCheckTimer"_s);
    ASSERT_NE(daily, nullptr);
    EXPECT_EQ(daily->interval(), 60000);
    EXPECT_EQ(events->wakeObserverCount(), 1);
}

TEST_F(CaptureCycleTest, StopEndsTheTimersAndObserversWritesTheDayAndRunsAgainWhenStopped)
{
    monitor->startMonitoring();
    ASSERT_TRUE(waitFor([&] { return monitor->captureCount() == 1; }));
    grabber.failWith = ScreenCaptureError::Kind::CaptureFailed;
    QCoro::waitFor(monitor->performCapture());
    ASSERT_FALSE(monitor->lastError().isEmpty());

    monitor->stopMonitoring();
    EXPECT_FALSE(monitor->isMonitoring());
    EXPECT_TRUE(settings->boolean(SettingsKey::userIntentionallyStopped));
    EXPECT_EQ(events->observerCount(), 0);
    EXPECT_EQ(timer(u"captureTimer"_s), nullptr);
    EXPECT_EQ(timer(u"cleanupTimer"_s), nullptr);
    // The error stays for the screens to show.
    EXPECT_FALSE(monitor->lastError().isEmpty());

    ASSERT_TRUE(waitFor([&] { return QFile::exists(paths.exportRoot + u"/WorkLogs/2026-03-09.csv"_s); }));
    QStringList log = messages();
    const qsizetype stopped = log.indexOf(u"🛑 Monitoring stopped"_s);
    ASSERT_GE(stopped, 0);
    // The save and the export run after the call has returned.
    EXPECT_EQ(log.indexOf(u"💾 Daily data saved: 1 records"_s), stopped + 1);
    EXPECT_EQ(log.indexOf(u"📄 Work log saved: WorkLogs/2026-03-09.csv (1 records)"_s), stopped + 2);

    // Stopping again runs every step again.
    monitor->stopMonitoring();
    ASSERT_TRUE(waitFor([&] { return countOf(u"📄 Work log saved: WorkLogs/2026-03-09.csv (1 records)"_s) == 2; }));
    EXPECT_EQ(countOf(u"🛑 Monitoring stopped"_s), 2);
    EXPECT_EQ(countOf(u"💾 Daily data saved: 1 records"_s), 2);

    // A new start clears the error, captures at once and registers exactly four observers again.
    grabber.failWith.reset();
    monitor->startMonitoring();
    EXPECT_TRUE(monitor->lastError().isEmpty());
    EXPECT_EQ(events->observerCount(), 4);
    ASSERT_TRUE(waitFor([&] { return monitor->captureCount() == 2; }));
    EXPECT_NE(timer(u"captureTimer"_s), nullptr);
}

TEST_F(CaptureCycleTest, ScreenStateFollowsRealBusSignalsOnlyWhileMonitoring)
{
    monitor->startMonitoring();
    ASSERT_TRUE(waitFor([&] { return monitor->captureCount() == 1; }));

    sendScreenSaver(u"org.freedesktop.ScreenSaver"_s, true);
    ASSERT_TRUE(waitFor([&] { return monitor->screenState() == ScreenState::Locked; }));
    EXPECT_EQ(countOf(u"🔒 Screen locked - pausing capture"_s), 1);

    // Locked: each tick records a marker, takes no screenshot and asks no model.
    const qsizetype requestsBefore = analysisRequests();
    QCoro::waitFor(monitor->performCapture());
    QCoro::waitFor(monitor->performCapture());
    EXPECT_EQ(monitor->captureCount(), 3);
    EXPECT_EQ(monitor->screenshotCount(), 1);
    EXPECT_EQ(grabber.grabs, 1);
    EXPECT_EQ(analysisRequests(), requestsBefore);
    EXPECT_EQ(monitor->latestSnapshots().first().activityDescription, u"Screen Locked"_s);
    EXPECT_EQ(monitor->latestSnapshots().first().aiCategory, QString());
    EXPECT_FALSE(monitor->latestSnapshots().first().imageHash.has_value());
    EXPECT_EQ(countOf(u"[locked] Screen Locked"_s), 2);

    sendPrepareForSleep(true);
    ASSERT_TRUE(waitFor([&] { return monitor->screenState() == ScreenState::Sleeping; }));
    EXPECT_EQ(countOf(u"😴 Display sleeping - pausing capture"_s), 1);
    QCoro::waitFor(monitor->performCapture());
    EXPECT_EQ(monitor->latestSnapshots().first().activityDescription, u"Display Sleeping"_s);

    // The last event wins: a wake while the lock is on gives active.
    sendPrepareForSleep(false);
    ASSERT_TRUE(waitFor([&] { return monitor->screenState() == ScreenState::Active; }));
    EXPECT_EQ(countOf(u"☀️ Display woke - resuming capture"_s), 1);

    sendScreenSaver(u"org.gnome.ScreenSaver"_s, true);
    ASSERT_TRUE(waitFor([&] { return monitor->screenState() == ScreenState::Locked; }));
    sendScreenSaver(u"org.gnome.ScreenSaver"_s, false);
    ASSERT_TRUE(waitFor([&] { return monitor->screenState() == ScreenState::Active; }));
    EXPECT_EQ(countOf(u"🔓 Screen unlocked - resuming capture"_s), 1);

    // Stopped: nobody listens, so the state keeps its value.
    monitor->stopMonitoring();
    EXPECT_EQ(events->observerCount(), 0);
    sendScreenSaver(u"org.freedesktop.ScreenSaver"_s, true);
    sendPrepareForSleep(true);
    QTest::qWait(300);
    EXPECT_EQ(monitor->screenState(), ScreenState::Active);
    EXPECT_EQ(countOf(u"🔒 Screen locked - pausing capture"_s), 2);
    EXPECT_EQ(countOf(u"😴 Display sleeping - pausing capture"_s), 1);
}

TEST_F(CaptureCycleTest, ATickThatSeesTheLockWhileWaitingForTheModelStillRecordsItsAnalysis)
{
    analysis.delayMs = 1500;
    monitor->startMonitoring();
    ASSERT_TRUE(waitFor([&] { return analysisRequests() == 1; }));
    sendScreenSaver(u"org.freedesktop.ScreenSaver"_s, true);
    ASSERT_TRUE(waitFor([&] { return monitor->screenState() == ScreenState::Locked; }));
    EXPECT_EQ(monitor->captureCount(), 0);

    ASSERT_TRUE(waitFor([&] { return monitor->captureCount() == 1; }));
    EXPECT_EQ(monitor->aiAnalysisCount(), 1);
    EXPECT_EQ(monitor->latestSnapshots().first().aiCategory, u"Coding"_s);
}

TEST_F(CaptureCycleTest, EachTimerStartsItsOwnStep)
{
    settings->setDate(SettingsKey::lastDailySaveDate, at(2026, 3, 9, 8));
    monitor->configure();
    ASSERT_TRUE(waitFor([&] { return monitor->isMonitoring() && monitor->captureCount() == 1; }));

    // Shortened periods stand in for the real ones; what matters is which step each timer starts.
    timer(u"captureTimer"_s)->setInterval(20);
    ASSERT_TRUE(waitFor([&] { return grabber.grabs >= 3; }));
    timer(u"captureTimer"_s)->setInterval(std::chrono::milliseconds(ActivityMonitor::captureInterval).count());
    ASSERT_TRUE(waitFor([&] { return snapshotStore->count() == grabber.grabs; }));

    ActivitySnapshot reported;
    reported.id = QUuid::createUuid();
    reported.timestamp = at(2026, 3, 1, 12);
    snapshotStore->add(reported);
    DailyReport report;
    report.date = u"2026-03-01"_s;
    report.generatedAt = at(2026, 3, 2, 0);
    ASSERT_TRUE(reportStore->upsert(report));
    timer(u"cleanupTimer"_s)->setInterval(20);
    ASSERT_TRUE(waitFor([&] { return countOf(u"🧹 Cleaned up 1 old records"_s) == 1; }));
    // The runs after it find nothing to remove and say nothing; today's records stay.
    QTest::qWait(100);
    EXPECT_EQ(messages().filter(u"🧹"_s), QStringList {u"🧹 Cleaned up 1 old records"_s});
    EXPECT_EQ(snapshotStore->count(), grabber.grabs);

    monitor->stopMonitoring();
    clock.set(at(2026, 3, 10, 0, 0, 30));
    timer(u"dailyCheckTimer"_s)->setInterval(20);
    ASSERT_TRUE(waitFor([&] { return reportStore->hasReport(u"2026-03-09"_s); }));
    EXPECT_EQ(snapshotStore->count(), 0);
}

TEST_F(CaptureCycleTest, ScreenshotFailureEndsOnlyTheTick)
{
    grabber.failWith = ScreenCaptureError::Kind::NoDisplayAvailable;
    monitor->startMonitoring();
    ASSERT_TRUE(waitFor([&] { return grabber.grabs == 1; }));
    const QString expected = u"Screenshot failed: "_s
        + ScreenCaptureError {ScreenCaptureError::Kind::NoDisplayAvailable, {}}.description();
    ASSERT_TRUE(waitFor([&] { return monitor->lastError() == expected; }));
    EXPECT_TRUE(monitor->isMonitoring());
    EXPECT_EQ(monitor->screenshotCount(), 0);
    EXPECT_EQ(monitor->captureCount(), 0);
    EXPECT_TRUE(monitor->latestSnapshots().isEmpty());
    EXPECT_EQ(countOf(u"❌ "_s + expected), 1);
    EXPECT_EQ(analysisRequests(), 0);

    // The next tick starts over and a good analysis clears the error.
    grabber.failWith.reset();
    QCoro::waitFor(monitor->performCapture());
    EXPECT_TRUE(monitor->lastError().isEmpty());
    EXPECT_EQ(monitor->captureCount(), 1);
}

TEST_F(CaptureCycleTest, RefusedCaptureStopsMonitoringWithThePermissionText)
{
    grabber.failWith = ScreenCaptureError::Kind::PermissionDenied;
    monitor->startMonitoring();
    ASSERT_TRUE(waitFor([&] { return !monitor->isMonitoring(); }));
    EXPECT_EQ(monitor->lastError(), u"Screen capture permission denied."_s);
    EXPECT_EQ(timer(u"captureTimer"_s), nullptr);
    EXPECT_EQ(events->observerCount(), 0);
    ASSERT_TRUE(waitFor([&] { return countOf(u"⚠️ No records to export for 2026-03-09"_s) == 1; }));
    EXPECT_EQ(countOf(u"❌ Screen capture permission denied."_s), 1);
    EXPECT_EQ(countOf(u"🛑 Monitoring stopped"_s), 1);
}
} // namespace
