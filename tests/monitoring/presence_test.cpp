// Time away and unchanged screens, with idle time from stand-ins of the desktop's idle services.
#include "monitorfixture.h"
#include "screenpairs.h"

#include "monitoring/idletimesource.h"
#include "monitoring/ownwindowsource.h"
#include "monitoring/pngencoder.h"
#include "platform/dbusidletime.h"
#include "platform/x11idletime.h"

using namespace MonitorTest;
using namespace std::chrono_literals;

namespace {
const QString mutterPath = u"/org/gnome/Mutter/IdleMonitor/Core"_s;
const QString screenSaverPath = u"/org/freedesktop/ScreenSaver"_s;

class StandInMutterIdle : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.gnome.Mutter.IdleMonitor")
public:
    qulonglong idleMs = 0;
public Q_SLOTS:
    qulonglong GetIdletime() { return idleMs; }
};

// In milliseconds, as KDE gives it.
class StandInScreenSaverIdle : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.ScreenSaver")
public:
    uint idleMs = 0;
public Q_SLOTS:
    uint GetSessionIdleTime() { return idleMs; }
};

class OpenPanel final : public OwnWindowSource
{
public:
    QList<QRect> areas;
    [[nodiscard]] QList<QRect> ownWindowAreas() const override { return areas; }
};
} // namespace

class PresenceTest : public MonitorFixture
{
protected:
    void SetUp() override
    {
        MonitorFixture::SetUp();
        ASSERT_FALSE(HasFatalFailure());
        idleTime = &sources;
        ownWindows = &panel;
        buildMonitor();
        publish(&mutter, u"org.gnome.Mutter.IdleMonitor"_s, mutterPath);
    }

    void publish(QObject *object, const QString &service, const QString &path)
    {
        ASSERT_TRUE(desktop.registerObject(path, object, QDBusConnection::ExportAllSlots));
        ASSERT_TRUE(desktop.registerService(service));
    }

    void unpublish(const QString &service, const QString &path)
    {
        desktop.unregisterObject(path);
        desktop.unregisterService(service);
        PrivateDBus::roundTrip(desktop);
    }

    void setIdle(std::chrono::milliseconds idle) { mutter.idleMs = qulonglong(idle.count()); }
    [[nodiscard]] QString latest() const
    {
        return monitor->latestSnapshots().value(0).activityDescription.value_or(QString());
    }

    qsizetype ticksAsking(int ticks)
    {
        const qsizetype before = analysisRequests();
        for (int i = 0; i < ticks; ++i) {
            tick();
        }
        return analysisRequests() - before;
    }

    QDBusConnection desktop = bus.connect(u"desktop"_s);
    OpenPanel panel;
    StandInMutterIdle mutter;
    StandInScreenSaverIdle screenSaver;
    // As on X11, with no X server to ask.
    X11IdleTime noX11 {QByteArray()};
    DBusIdleTime mutterIdle = DBusIdleTime::mutter(bus.connect(u"tamlo"_s));
    DBusIdleTime screenSaverIdle = DBusIdleTime::screenSaver(bus.connect(u"tamlo"_s));
    CompositeIdleTimeSource sources {{&noX11, &mutterIdle, &screenSaverIdle}};
};

TEST_F(PresenceTest, AStillScreenIsAnalysedOnceAndIdleInputOnItIsAwayUntilTheScreenOrTheInputMoves)
{
    tick();
    setIdle(10s);
    EXPECT_EQ(ticksAsking(1), 0);
    EXPECT_EQ(monitor->latestSnapshots().value(0).imageHash, snapshotStore->fetchAll().first().imageHash);
    EXPECT_EQ(countOf(u"♻️ Screen unchanged - reused [Coding] Editing activitymonitor.cpp"_s), 1);
    EXPECT_EQ(std::tuple(monitor->aiAnalysisCount(), monitor->captureCount()), std::tuple(1, 2));

    // Away from the threshold on (5 minutes by default), for as long as nothing moves.
    for (const std::chrono::seconds idle : {300s, 330s}) {
        setIdle(idle);
        tick();
        EXPECT_EQ(std::tuple(latest(), monitor->screenState()), std::tuple(u"Away"_s, ScreenState::Away));
        EXPECT_EQ(countOf(u"🚶 No input and a still screen - away"_s), 1);
    }

    // A film or a call: no input, but the screen changes, so the first new picture is analysed.
    grabber.image = ScreenPairs::paint({});
    setIdle(6min);
    EXPECT_EQ(ticksAsking(1), 1);
    EXPECT_EQ(monitor->screenState(), ScreenState::Active);
    tick();
    EXPECT_EQ(latest(), u"Away"_s);
}

TEST_F(PresenceTest, AnAnalysisStandsInForTenMinutesForItsLabelsAndNotForTamlosOwnWindows)
{
    panel.areas = {QRect(1000, 100, 480, 760)};
    EXPECT_EQ(ticksAsking(20), 1) << "one analysis, reused for the ticks of ten minutes";
    EXPECT_EQ(ticksAsking(1), 1) << "ten minutes old";

    // A failed analysis leaves the old one to stand only for what is left of its ten minutes.
    analysis = {500, "{}"};
    EXPECT_EQ(ticksAsking(19), 0);
    EXPECT_EQ(ticksAsking(2), 2);
    analysis = goodAnalysis;
    EXPECT_EQ(ticksAsking(2), 1);

    // Whatever Tamlo's own panel shows is no change; the same change elsewhere is.
    QPainter(&grabber.image).fillRect(1000, 100, 480, 760, Qt::darkRed);
    EXPECT_EQ(ticksAsking(1), 0);
    QPainter(&grabber.image).fillRect(100, 500, 480, 300, Qt::darkRed);
    EXPECT_EQ(ticksAsking(1), 1);

    // What the model was told decides the labels: a new list asks again, as does switching off.
    settings->setString(SettingsKey::categorizeBy, u"Coding, Writing, Reading"_s);
    EXPECT_EQ(ticksAsking(2), 1);
    settings->setBoolean(SettingsKey::skipUnchangedScreens, false);
    settings->setInteger(SettingsKey::awayThresholdMinutes, 0);
    setIdle(1h);
    EXPECT_EQ(ticksAsking(2), 2);
}

TEST_F(PresenceTest, TheDesktopsSourcesAreAskedInOrderAndNoAnswerIsSaidOnce)
{
    settings->setInteger(SettingsKey::awayThresholdMinutes, 2);
    publish(&screenSaver, u"org.freedesktop.ScreenSaver"_s, screenSaverPath);
    screenSaver.idleMs = 3 * 60 * 1000;
    tick();
    tick();
    EXPECT_NE(latest(), u"Away"_s) << "Mutter answers first, with no idle time";
    unpublish(u"org.gnome.Mutter.IdleMonitor"_s, mutterPath);
    tick();
    EXPECT_EQ(latest(), u"Away"_s);

    unpublish(u"org.freedesktop.ScreenSaver"_s, screenSaverPath);
    tick();
    tick();
    EXPECT_NE(latest(), u"Away"_s);
    EXPECT_EQ(
        countOf(u"⚠️ This desktop does not tell how long the input has been idle - time away is not detected"_s),
        1);
}

// A grey that moves by the tolerance and no more has not visibly changed.
TEST(ScreenChangeTest, AGreyThatMovesByTheToleranceAndNoMoreHasNotChangedAndAnyPixelFormatReadsAlike)
{
    const auto thumbnailOf = [](int grey) {
        QImage screen(64, 32, QImage::Format_RGB32);
        screen.fill(QColor(grey, grey, grey));
        return ScreenThumbnail::of(screen, QString::number(grey));
    };
    const int lighter = 100 + ScreenChangeDetector::greyTolerance;
    EXPECT_EQ(ScreenChangeDetector::changedShare(thumbnailOf(100), thumbnailOf(lighter)), 0.0);
    EXPECT_EQ(ScreenChangeDetector::changedShare(thumbnailOf(100), thumbnailOf(lighter + 1)), 1.0);
    const QImage colour = ScreenPairs::paint({});
    EXPECT_EQ(ScreenThumbnail::of(colour.convertToFormat(QImage::Format_RGB888), {}).grey,
        ScreenThumbnail::of(colour, {}).grey);
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
