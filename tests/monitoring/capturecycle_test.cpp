#include "monitorfixture.h"

#include <QCryptographicHash>

using namespace MonitorTest;

namespace {
class CaptureCycleTest : public MonitorFixture
{
protected:
    void expectTimer(const QString &name, std::chrono::milliseconds interval)
    {
        QTimer *running = timer(name);
        ASSERT_NE(running, nullptr) << name.toStdString();
        EXPECT_EQ(
            std::tuple(running->intervalAsDuration(), running->timerType()), std::tuple(interval, Qt::PreciseTimer))
            << name.toStdString();
    }
};

TEST_F(CaptureCycleTest, StartConfigureAndStopSetUpAndEndEverythingOnceAndCaptureAfterReturning)
{
    monitor->startMonitoring();
    // The first tick runs once the call has returned, and the timer counts from it.
    EXPECT_EQ(grabber.grabs, 0);
    EXPECT_TRUE(settings->contains(SettingsKey::userIntentionallyStopped));
    EXPECT_FALSE(settings->boolean(SettingsKey::userIntentionallyStopped));
    ASSERT_TRUE(waitFor([&] { return monitor->captureCount() == 1; }));
    expectTimer(u"captureTimer"_s, std::chrono::seconds(30));
    EXPECT_GT(timer(u"captureTimer"_s)->remainingTime(), 25000);
    expectTimer(u"cleanupTimer"_s, std::chrono::minutes(5));

    // A second start and repeated configure() calls add no observers, timers, messages or captures.
    monitor->startMonitoring();
    monitor->configure();
    monitor->configure();
    ASSERT_TRUE(waitFor([&] { return timer(u"dailyCheckTimer"_s) != nullptr; }));
    monitor->configure();
    QTest::qWait(50);
    EXPECT_EQ(std::tuple(countOf(u"📦 Storage configured"_s), countOf(u"🚀 Monitoring started"_s)), std::tuple(1, 1));
    EXPECT_EQ(std::tuple(events->observerCount(), events->wakeObserverCount()), std::tuple(4, 1));
    EXPECT_EQ(monitor->findChildren<QTimer *>().size(), 3);
    EXPECT_EQ(grabber.grabs, 1);

    // Stopping ends the capture timers and observers but not the day check; the error stays.
    grabber.failWith = ScreenCaptureError::Kind::CaptureFailed;
    QCoro::waitFor(monitor->performCapture());
    for (int stop = 1; stop <= 2; ++stop) {
        monitor->stopMonitoring();
        EXPECT_FALSE(monitor->isMonitoring());
        EXPECT_TRUE(settings->boolean(SettingsKey::userIntentionallyStopped));
        EXPECT_EQ(std::tuple(events->observerCount(), events->wakeObserverCount()), std::tuple(0, 1));
        ASSERT_TRUE(
            waitFor([&] { return countOf(u"📄 Work log saved: WorkLogs/2026-03-09.csv (1 records)"_s) == stop; }));
        const QStringList log = messages();
        EXPECT_EQ(log.mid(log.lastIndexOf(u"🛑 Monitoring stopped"_s), 3),
            (QStringList {u"🛑 Monitoring stopped"_s, u"💾 Daily data saved: 1 records"_s,
                u"📄 Work log saved: WorkLogs/2026-03-09.csv (1 records)"_s}));
    }
    EXPECT_EQ(timer(u"captureTimer"_s), nullptr);
    EXPECT_EQ(timer(u"cleanupTimer"_s), nullptr);
    expectTimer(u"dailyCheckTimer"_s, std::chrono::minutes(1));
    EXPECT_FALSE(monitor->lastError().isEmpty());

    // A new start clears the error, captures at once and registers exactly four observers again.
    grabber.failWith.reset();
    monitor->startMonitoring();
    EXPECT_TRUE(monitor->lastError().isEmpty());
    EXPECT_EQ(events->observerCount(), 4);
    ASSERT_TRUE(waitFor([&] { return monitor->captureCount() == 2; }));
}

TEST_F(CaptureCycleTest, ScreenStateFollowsRealBusSignalsOnlyWhileMonitoring)
{
    // A tick that sees the lock while it waits for the model still records its analysis.
    analysis.delayMs = 1500;
    monitor->startMonitoring();
    ASSERT_TRUE(waitFor([&] { return analysisRequests() == 1; }));
    sendScreenSaver(true);
    ASSERT_TRUE(waitFor([&] { return monitor->screenState() == ScreenState::Locked; }));
    EXPECT_EQ(monitor->captureCount(), 0);
    ASSERT_TRUE(waitFor([&] { return monitor->captureCount() == 1; }));
    EXPECT_EQ(monitor->latestSnapshots().first().aiCategory, u"Coding"_s);

    // Locked: each tick records a marker, takes no screenshot and asks no model.
    QCoro::waitFor(monitor->performCapture());
    QCoro::waitFor(monitor->performCapture());
    EXPECT_EQ(std::tuple(monitor->captureCount(), monitor->screenshotCount(), grabber.grabs, analysisRequests()),
        std::tuple(3, 1, 1, 1));
    const ActivitySnapshot marker = monitor->latestSnapshots().first();
    EXPECT_EQ(std::tuple(marker.activityDescription, marker.aiCategory, marker.imageHash),
        std::tuple(std::optional(u"Screen Locked"_s), QString(), std::optional<QString>()));
    EXPECT_EQ(countOf(u"[locked] Screen Locked"_s), 2);
    sendPrepareForSleep(true);
    ASSERT_TRUE(waitFor([&] { return monitor->screenState() == ScreenState::Sleeping; }));
    QCoro::waitFor(monitor->performCapture());
    EXPECT_EQ(monitor->latestSnapshots().first().activityDescription, u"Display Sleeping"_s);

    // The last event wins: a wake while the lock is on gives active.
    sendPrepareForSleep(false);
    ASSERT_TRUE(waitFor([&] { return monitor->screenState() == ScreenState::Active; }));
    sendScreenSaver(true, u"org.gnome.ScreenSaver"_s);
    ASSERT_TRUE(waitFor([&] { return monitor->screenState() == ScreenState::Locked; }));
    sendScreenSaver(false, u"org.gnome.ScreenSaver"_s);
    ASSERT_TRUE(waitFor([&] { return monitor->screenState() == ScreenState::Active; }));
    for (const QString &message : {u"🔒 Screen locked - pausing capture"_s, u"😴 Display sleeping - pausing capture"_s,
             u"☀️ Display woke - resuming capture"_s, u"🔓 Screen unlocked - resuming capture"_s}) {
        EXPECT_EQ(countOf(message), message.startsWith(u"🔒"_s) ? 2 : 1) << message.toStdString();
    }

    // Stopped: nobody listens, so the state keeps its value.
    monitor->stopMonitoring();
    sendScreenSaver(true);
    sendPrepareForSleep(true);
    QTest::qWait(300);
    EXPECT_EQ(monitor->screenState(), ScreenState::Active);
    EXPECT_EQ(countOf(u"🔒 Screen locked - pausing capture"_s), 2);
}

TEST_F(CaptureCycleTest, EachTimerStartsItsOwnStep)
{
    settings->setDate(SettingsKey::lastDailySaveDate, at(2026, 3, 9, 8));
    monitor->configure();
    ASSERT_TRUE(waitFor([&] { return monitor->isMonitoring() && monitor->captureCount() == 1; }));

    // Shortened periods stand in for the real ones; what matters is which step each timer starts.
    timer(u"captureTimer"_s)->setInterval(20);
    ASSERT_TRUE(waitFor([&] { return grabber.grabs >= 3; }));
    timer(u"captureTimer"_s)->setInterval(std::chrono::hours(1));
    ASSERT_TRUE(waitFor([&] { return snapshotStore->count() == grabber.grabs; }));

    snapshotStore->add(recordAt(at(2026, 3, 1, 12)));
    ASSERT_TRUE(reportStore->upsert(DailyReport {.date = u"2026-03-01"_s, .generatedAt = at(2026, 3, 2, 0)}));
    timer(u"cleanupTimer"_s)->setInterval(20);
    ASSERT_TRUE(waitFor([&] { return countOf(u"🧹 Cleaned up 1 old records"_s) == 1; }));
    // The runs after it find nothing to remove and say nothing; today's records stay.
    QTest::qWait(100);
    EXPECT_EQ(messages().filter(u"🧹"_s).size(), 1);
    EXPECT_EQ(snapshotStore->count(), grabber.grabs);

    monitor->stopMonitoring();
    clock.set(at(2026, 3, 10, 0, 0, 30));
    timer(u"dailyCheckTimer"_s)->setInterval(20);
    ASSERT_TRUE(waitFor([&] { return reportStore->hasReport(u"2026-03-09"_s); }));
}

TEST_F(CaptureCycleTest, AScreenshotFailureEndsOnlyTheTickAndTheNextAnalysisIsRecordedWithItsNotes)
{
    grabber.failWith = ScreenCaptureError::Kind::NoDisplayAvailable;
    QCoro::waitFor(monitor->performCapture());
    const QString expected = u"Screenshot failed: "_s
        + ScreenCaptureError {ScreenCaptureError::Kind::NoDisplayAvailable, {}}.description();
    EXPECT_EQ(monitor->lastError(), expected);
    EXPECT_EQ(std::tuple(monitor->screenshotCount(), monitor->captureCount(), analysisRequests()), std::tuple(0, 0, 0));
    EXPECT_EQ(countOf(u"❌ "_s + expected), 1);

    // Before the first record there is nowhere for a note to go.
    monitor->addNoteToCurrentLog(u"planting the garden"_s);
    grabber.failWith.reset();
    clock.set(at(2026, 3, 9, 10, 0, 5));
    QCoro::waitFor(monitor->performCapture());
    EXPECT_TRUE(monitor->lastError().isEmpty());

    // The record keeps the hash of the picture the model was sent.
    ASSERT_EQ(analysisRequests(), 1);
    const QByteArray sentImage = QByteArray::fromBase64(
        ollama.requestsTo("/api/chat").first().json()[u"messages"_s][0][u"images"_s][0].toString().toLatin1());
    const ActivitySnapshot expectedRecord {.id = monitor->latestSnapshots().value(0).id,
        .timestamp = clock.now(),
        .aiCategory = u"Coding"_s,
        .imageHash = QString::fromLatin1(QCryptographicHash::hash(sentImage, QCryptographicHash::Sha256).toHex()),
        .projectName = u"Tamlo"_s,
        .activityDescription = u"Editing activitymonitor.cpp"_s};
    EXPECT_EQ(ActivitySnapshotStore(paths.snapshotsFile(), logManager.get(), settings.get(), &clock).fetchAll(),
        QList<ActivitySnapshot> {expectedRecord});
    EXPECT_EQ(std::tuple(monitor->lastCaptureTime(), monitor->lastScreenshotTime(), monitor->aiAnalysisCount()),
        std::tuple(clock.now(), clock.now(), 1));
    EXPECT_EQ(countOf(u"[Coding] Editing activitymonitor.cpp"_s), 1);

    // Notes go to the newest record, trimmed, a blank one not at all; one naming a project relabels it.
    monitor->addNoteToCurrentLog(u"  \n\t "_s);
    for (const auto &[note, project] :
        {std::pair {u"  reading about compilers \n"_s, u"Tamlo"_s}, {u"planting the garden"_s, u"Garden"_s}}) {
        monitor->addNoteToCurrentLog(note);
        const ActivitySnapshot inMemory = monitor->latestSnapshots().first();
        EXPECT_EQ(std::pair(inMemory.userNote, inMemory.projectName),
            std::pair(std::optional(note.trimmed()), std::optional(project)));
        EXPECT_EQ(snapshotStore->fetchAll(), QList<ActivitySnapshot> {inMemory});
    }
    EXPECT_EQ(countOf(u"📝 Note added to current log"_s), 2);

    // The screens show the twenty newest; the store keeps them all.
    for (int i = 0; i < 20; ++i) {
        tick();
    }
    const QList<ActivitySnapshot> all = snapshotStore->fetchAll();
    EXPECT_EQ(all.size(), 21);
    EXPECT_EQ(monitor->latestSnapshots(), QList<ActivitySnapshot>(all.crbegin(), all.crbegin() + 20));
}

} // namespace
