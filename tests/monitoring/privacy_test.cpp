#include "monitorfixture.h"

#include "monitoring/privacyexclusions.h"
#include "platform/swayvisiblewindows.h"

#include <QDir>

using namespace MonitorTest;

namespace {
TEST(PrivacyExclusionsTest, MatchesApplicationIdsAsDesktopsGiveThemAndTitleWordsInAnyCase)
{
    const PrivacyExclusions defaults(PrivacyExclusions::defaultApplications, PrivacyExclusions::defaultTitleWords);
    const QList<std::tuple<const char *, PrivacyExclusions, VisibleWindow, bool>> rows {
        {"KeePassXC on X11", defaults, {{u"keepassxc"_s, u"KeePassXC"_s}, u"Passwords.kdbx"_s}, true},
        {"KeePassXC on Wayland", defaults, {{u"org.keepassxc.KeePassXC"_s}, u"KeePassXC"_s}, true},
        {"a private Firefox window", defaults, {{u"firefox-esr"_s}, u"Bank — Mozilla Firefox PRIVATE browsing"_s},
            true},
        {"an incognito tab", defaults, {{u"chromium"_s}, u"New Tab - Chromium (incognito)"_s}, true},
        {"a name that only contains an entry", defaults, {{u"keepassxc-proxy"_s}, u"Helper"_s}, false},
        {"a .desktop name against the toolkit's id",
            PrivacyExclusions({u"org.gnome.seahorse.Application.desktop"_s}, {}),
            {{u"seahorse"_s, u"Seahorse"_s, u"org.gnome.seahorse.Application"_s}, u"seahorse"_s}, true},
        {"a .desktop name against an X11 class", PrivacyExclusions({u"org.keepassxc.KeePassXC.desktop"_s}, {}),
            {{u"keepassxc"_s, u"KeePassXC"_s}, u"KeePassXC"_s}, true},
        {"empty lists", PrivacyExclusions({}, {}), {{u"keepassxc"_s}, u"Incognito"_s}, false},
    };
    for (const auto &[what, exclusions, window, excluded] : rows) {
        EXPECT_EQ(exclusions.excludes(window), excluded) << what;
    }
}

using PrivacyMonitorTest = MonitorFixture;

// A desktop that should tell but does not answer is not looked at: the tick is private.
TEST_F(PrivacyMonitorTest, AWindowListThatCannotBeReadSkipsTheTickAsPrivate)
{
    SwayVisibleWindows silent(QDir::temp().filePath(u"tamlo-no-such-sway-socket"_s));
    visibleWindows = &silent;
    buildMonitor();
    QCoro::waitFor(monitor->performCapture());
    EXPECT_EQ(std::tuple(grabber.grabs, analysisRequests(), monitor->captureCount()), std::tuple(0, 0, 1));
    const ActivitySnapshot record = snapshotStore->fetchAll().value(0);
    EXPECT_EQ(std::tuple(record.activityDescription, record.aiCategory, record.projectName, record.imageHash),
        std::tuple(std::optional(u"Private"_s), u"Other"_s, std::optional(u"Other"_s), std::optional<QString>()));
    EXPECT_EQ(countOf(u"⚠️ Window list unavailable - tick skipped as private"_s), 1);
    EXPECT_TRUE(SwayVisibleWindows::parseTree("{\"type\":\"output\"}").failure.has_value());
}

TEST_F(PrivacyMonitorTest, ATimedPauseOutlivesARestartAndEndsByTheClockWithACapture)
{
    monitor->configure();
    ASSERT_TRUE(waitFor([&] { return monitor->captureCount() == 1; }));
    monitor->pauseUntil(TimedPause::endOf(TimedPause::Length::ThirtyMinutes, clock.now()));
    EXPECT_FALSE(monitor->isMonitoring());
    EXPECT_EQ(settings->date(SettingsKey::pausedUntil), at(2026, 3, 9, 10, 30));

    buildMonitor();
    monitor->configure();
    ASSERT_TRUE(waitFor([&] { return timer(u"dailyCheckTimer"_s) != nullptr; }));
    EXPECT_FALSE(monitor->isMonitoring());
    QTimer *wake = timedPause->findChild<QTimer *>(u"timedPauseTimer"_s);
    ASSERT_TRUE(wake && wake->isActive());
    EXPECT_LE(wake->interval(), 60000) << "the clock is read at least once a minute";

    wake->stop(); // as when it has fired
    clock.advance(29 * 60);
    timedPause->check();
    EXPECT_FALSE(monitor->isMonitoring());
    EXPECT_TRUE(wake->isActive()) << "a wake before the end sleeps again";
    clock.advance(40 * 60);
    timedPause->check();
    EXPECT_TRUE(monitor->isMonitoring());
    EXPECT_FALSE(settings->contains(SettingsKey::pausedUntil));
    EXPECT_TRUE(waitFor([&] { return grabber.grabs == 2; })) << "the first capture comes at once";
}
} // namespace
