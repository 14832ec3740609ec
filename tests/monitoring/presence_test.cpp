// Time away and unchanged screens, tick by tick: the monitor on real parts, its idle time from
// stand-ins of the desktop's idle services on a private bus, and the model's work counted in the
// requests that reach the stand-in Ollama.
#include "monitorfixture.h"
#include "screenpairs.h"

#include "monitoring/idletimesource.h"
#include "monitoring/ownwindowsource.h"
#include "monitoring/pngencoder.h"
#include "platform/dbusidletime.h"
#include "platform/x11idletime.h"
#include "reports/activityreportcalculator.h"

using namespace MonitorTest;
using namespace std::chrono_literals;

namespace {
// Mutter's idle monitor, idle for as long as the test says.
class StandInMutterIdle : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.gnome.Mutter.IdleMonitor")
public:
    qulonglong idleMs = 0;
public Q_SLOTS:
    qulonglong GetIdletime() { return idleMs; }
};

// Tamlo's panel, open where the test puts it.
class OpenPanel final : public OwnWindowSource
{
public:
    QList<QRect> areas;
    [[nodiscard]] QList<QRect> ownWindowAreas() const override { return areas; }
};

// The freedesktop screen saver's idle time, as KDE gives it.
class StandInScreenSaverIdle : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.ScreenSaver")
public:
    uint idleMs = 0;
public Q_SLOTS:
    uint GetSessionIdleTime() { return idleMs; }
};
} // namespace

class PresenceTest : public MonitorFixture
{
protected:
    void SetUp() override
    {
        MonitorFixture::SetUp();
        if (HasFatalFailure()) {
            return;
        }
        desktop = std::make_unique<QDBusConnection>(bus.connect(u"desktop"_s));
        mutterIdle = std::make_unique<DBusIdleTime>(DBusIdleTime::mutter(*sessionBus));
        screenSaverIdle = std::make_unique<DBusIdleTime>(DBusIdleTime::screenSaver(*sessionBus));
        // As on X11, with no X server to ask.
        sources = std::make_unique<CompositeIdleTimeSource>(
            QList<IdleTimeSource *> {&noX11, mutterIdle.get(), screenSaverIdle.get()});
        idleTime = sources.get();
        ownWindows = &panel;
        buildMonitor();
        publish(&mutter, u"org.gnome.Mutter.IdleMonitor"_s, u"/org/gnome/Mutter/IdleMonitor/Core"_s);
    }

    void publish(QObject *object, const QString &service, const QString &path)
    {
        ASSERT_TRUE(desktop->registerObject(path, object, QDBusConnection::ExportAllSlots));
        ASSERT_TRUE(desktop->registerService(service));
    }

    void unpublish(const QString &service, const QString &path)
    {
        desktop->unregisterObject(path);
        desktop->unregisterService(service);
        PrivateDBus::roundTrip(*desktop);
    }

    void setIdle(std::chrono::milliseconds idle) { mutter.idleMs = qulonglong(idle.count()); }

    [[nodiscard]] ActivitySnapshot latest() const { return monitor->latestSnapshots().value(0); }

    std::unique_ptr<QDBusConnection> desktop;
    OpenPanel panel;
    StandInMutterIdle mutter;
    StandInScreenSaverIdle screenSaver;
    X11IdleTime noX11 {QByteArray()};
    std::unique_ptr<DBusIdleTime> mutterIdle;
    std::unique_ptr<DBusIdleTime> screenSaverIdle;
    std::unique_ptr<CompositeIdleTimeSource> sources;
};

TEST_F(PresenceTest, AStillScreenIsAnalysedOnceAndIdleInputOnItIsAwayUntilTheScreenOrTheInputMoves)
{
    tick();
    ASSERT_EQ(analysisRequests(), 1);
    const ActivitySnapshot analysed = latest();

    setIdle(10s);
    tick();
    EXPECT_EQ(analysisRequests(), 1);
    const ActivitySnapshot reused = latest();
    EXPECT_NE(reused.id, analysed.id);
    EXPECT_EQ(reused.timestamp, clock.now());
    EXPECT_EQ(std::tie(reused.aiCategory, reused.projectName, reused.activityDescription, reused.imageHash),
        std::tie(analysed.aiCategory, analysed.projectName, analysed.activityDescription, analysed.imageHash));
    EXPECT_EQ(countOf(u"♻️ Screen unchanged - reused [Coding] Editing activitymonitor.cpp"_s), 1);
    EXPECT_EQ(std::pair(monitor->aiAnalysisCount(), monitor->captureCount()), std::pair(1, 2));

    // Away at the threshold (5 minutes by default), for as long as nothing moves.
    for (const std::chrono::seconds idle : {300s, 330s}) {
        setIdle(idle);
        tick();
        EXPECT_EQ(latest().activityDescription, u"Away"_s);
        EXPECT_EQ(monitor->screenState(), ScreenState::Away);
    }
    EXPECT_FALSE(latest().imageHash.has_value());
    EXPECT_EQ(countOf(u"[away] Away"_s), 2);
    EXPECT_EQ(countOf(u"🚶 No input and a still screen - away"_s), 1);

    // A film or a call: no input, but the screen changes, so the first new picture is analysed.
    grabber.image = ScreenPairs::paint({});
    setIdle(6min);
    tick();
    EXPECT_EQ(analysisRequests(), 2);
    EXPECT_EQ(monitor->screenState(), ScreenState::Active);
    EXPECT_EQ(countOf(u"👋 No longer away - resuming analysis"_s), 1);
    tick();
    EXPECT_EQ(latest().activityDescription, u"Away"_s);

    // Back at the keyboard: the next tick is no longer away, and the screen is the one analysed.
    setIdle(2s);
    tick();
    EXPECT_EQ(analysisRequests(), 2);
    EXPECT_EQ(latest().activityDescription, u"Editing activitymonitor.cpp"_s);
    EXPECT_EQ(monitor->screenState(), ScreenState::Active);
    EXPECT_EQ(ActivityReportCalculator::activeSnapshots(snapshotStore->fetchAll()).size(), 4);
}

TEST_F(PresenceTest, AnAnalysisStandsInForTenMinutesAndForTheLabelsItWasMadeWith)
{
    const auto ticksAsking = [this](int ticks) {
        const qsizetype before = analysisRequests();
        for (int i = 0; i < ticks; ++i) {
            tick();
        }
        return analysisRequests() - before;
    };
    EXPECT_EQ(ticksAsking(20), 1) << "one analysis, reused for the ticks of ten minutes";
    EXPECT_EQ(ticksAsking(1), 1) << "ten minutes old";

    // A failed analysis leaves the old one to stand only for what is left of its ten minutes.
    analysis = {500, "{}"};
    EXPECT_EQ(ticksAsking(19), 0);
    EXPECT_EQ(ticksAsking(2), 2);
    EXPECT_EQ(monitor->latestSnapshots().first().timestamp, clock.now().addSecs(-60));
    analysis = goodAnalysis;
    EXPECT_EQ(ticksAsking(2), 1);

    // What the model was told decides the labels: a new list asks again, as does switching off.
    settings->setString(SettingsKey::categorizeBy, u"Coding, Writing, Reading"_s);
    EXPECT_EQ(ticksAsking(2), 1);
    settings->setBoolean(SettingsKey::skipUnchangedScreens, false);
    settings->setInteger(SettingsKey::awayThresholdMinutes, 0);
    setIdle(1h);
    EXPECT_EQ(ticksAsking(2), 2);
}

// What Tamlo's own panel shows follows the records, so it is no change of what the user does.
TEST_F(PresenceTest, ChangesInsideTamlosOwnWindowsAreNoChange)
{
    panel.areas = {QRect(1000, 100, 480, 760)};
    tick();
    QPainter(&grabber.image).fillRect(1000, 100, 480, 760, Qt::darkRed);
    tick();
    EXPECT_EQ(analysisRequests(), 1);
    QPainter(&grabber.image).fillRect(100, 500, 480, 300, Qt::darkRed);
    tick();
    EXPECT_EQ(analysisRequests(), 2);
}

TEST_F(PresenceTest, TheDesktopsSourcesAreAskedInOrderAndNoAnswerIsSaidOnce)
{
    settings->setInteger(SettingsKey::awayThresholdMinutes, 2);
    publish(&screenSaver, u"org.freedesktop.ScreenSaver"_s, u"/org/freedesktop/ScreenSaver"_s);
    screenSaver.idleMs = 3 * 60 * 1000;
    tick();
    tick();
    EXPECT_NE(latest().activityDescription, u"Away"_s) << "Mutter answers first, with no idle time";

    unpublish(u"org.gnome.Mutter.IdleMonitor"_s, u"/org/gnome/Mutter/IdleMonitor/Core"_s);
    tick();
    EXPECT_EQ(latest().activityDescription, u"Away"_s);

    unpublish(u"org.freedesktop.ScreenSaver"_s, u"/org/freedesktop/ScreenSaver"_s);
    tick();
    tick();
    EXPECT_NE(latest().activityDescription, u"Away"_s);
    EXPECT_EQ(
        countOf(u"⚠️ This desktop does not tell how long the input has been idle - time away is not detected"_s),
        1);
}

// The measure behind "unchanged", on everyday pairs of screens taken the way a tick takes them.
TEST(ScreenChangeTest, EveryPairOfTheCorpusGetsItsVerdict)
{
    const auto thumbnailOf = [](const QImage &screen) {
        const QImage scaled = ScreenCaptureService::scaledDown(screen, ScreenCaptureService::maxImageWidth);
        return ScreenThumbnail::of(scaled, ScreenCaptureService::sha256Hex(*PngEncoder::encode(scaled)));
    };
    for (const ScreenPairs::Pair &pair : ScreenPairs::corpus()) {
        const ScreenThumbnail before = thumbnailOf(pair.before);
        const ScreenThumbnail after = thumbnailOf(pair.after);
        SCOPED_TRACE(testing::Message() << pair.name << ": " << ScreenChangeDetector::changedShare(before, after));
        EXPECT_EQ(ScreenChangeDetector::isUnchanged(before, after), pair.unchanged);
    }
}

#include "presence_test.moc"
