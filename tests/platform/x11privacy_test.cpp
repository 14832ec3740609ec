#include "platform/dbusscreenevents.h"
#include "platform/x11screengrabber.h"
#include "platform/x11visiblewindows.h"

#include "monitorrig.h"
#include "xvfbenvironment.h"

#include <list>

using namespace Qt::StringLiterals;

namespace {
// Windows of x11-apps under openbox, each with the WM_CLASS instance and title the test gives.
class X11PrivacyTest : public MonitorRig
{
protected:
    X11PrivacyTest() : MonitorRig(u"Writing notes"_s, u"A day."_s) { }

    void SetUp() override
    {
        if (!XvfbEnvironment::s_skipReason.empty() || !XvfbEnvironment::s_noWindowManager.empty()) {
            GTEST_SKIP() << XvfbEnvironment::s_skipReason << XvfbEnvironment::s_noWindowManager;
        }
        ASSERT_NE(XvfbEnvironment::s_app, nullptr) << XvfbEnvironment::s_startError;
        MonitorRig::SetUp();
        // Every tick that looks is meant to reach the model, still screen or not.
        settings->setBoolean(SettingsKey::skipUnchangedScreens, false);
        buildParts();
        visibleWindows = &source;
        buildMonitor(&x11Capture, static_cast<DBusScreenEvents *>(nullptr));
    }

    void TearDown() override
    {
        for (QProcess &window : windows) {
            window.kill();
            window.waitForFinished();
        }
        MonitorRig::TearDown();
    }

    static QString xdotool(const QStringList &arguments)
    {
        QProcess tool;
        tool.start(u"xdotool"_s, arguments);
        tool.waitForFinished(10000);
        return QString::fromUtf8(tool.readAllStandardOutput()).trimmed();
    }

    // The window's id once the window manager has it.
    QString open(const QString &instance, const QString &title, const QString &geometry)
    {
        windows.emplace_back();
        windows.back().start(u"xlogo"_s, {u"-name"_s, instance, u"-title"_s, title, u"-geometry"_s, geometry});
        return xdotool({u"search"_s, u"--sync"_s, u"--name"_s, u"^"_s + title + u"$"_s}).section(u'\n', 0, 0);
    }

    X11VisibleWindows source;
    X11ScreenGrabber x11;
    CountingGrabber grabs {x11};
    ScreenCaptureService x11Capture {nullptr, &grabs, ScreenCaptureService::SessionType::X11};
    std::list<QProcess> windows;
};

TEST_F(X11PrivacyTest, AnExcludedWindowAnywhereOnTheCurrentWorkspaceStopsTheGrab)
{
    const QString notes = open(u"editor"_s, u"Notes"_s, u"600x400+0+0"_s);
    waitUntilListed(u"Notes"_s, true);
    EXPECT_FALSE(tickWasPrivate(grabs));

    // KeePassXC (by its class) beside the focused editor, then focused itself.
    const QString vault = open(u"keepassxc"_s, u"Passwords"_s, u"500x400+650+0"_s);
    xdotool({u"windowactivate"_s, u"--sync"_s, notes});
    waitUntilListed(u"Passwords"_s, true);
    EXPECT_TRUE(tickWasPrivate(grabs)) << "visible but not focused";
    xdotool({u"windowactivate"_s, u"--sync"_s, vault});
    EXPECT_TRUE(tickWasPrivate(grabs)) << "focused";
    EXPECT_EQ(messages().count(u"🙈 Tick skipped as private"_s), 2);
    EXPECT_FALSE(messages().join(u'\n').contains(u"Passwords"_s)) << "the log never names it";

    xdotool({u"windowminimize"_s, u"--sync"_s, vault});
    waitUntilListed(u"Passwords"_s, false);
    EXPECT_FALSE(tickWasPrivate(grabs)) << "minimised";
    xdotool({u"windowactivate"_s, u"--sync"_s, vault});
    waitUntilListed(u"Passwords"_s, true);
    xdotool({u"set_num_desktops"_s, u"2"_s});
    xdotool({u"set_desktop_for_window"_s, vault, u"1"_s});
    waitUntilListed(u"Passwords"_s, false);
    EXPECT_FALSE(tickWasPrivate(grabs)) << "on another workspace";

    // A private browser window by a title word in another case, until the word leaves the list.
    open(u"firefox-esr"_s, u"Bank - Mozilla Firefox private BROWSING"_s, u"400x300+100+420"_s);
    waitUntilListed(u"Bank - Mozilla Firefox private BROWSING"_s, true);
    EXPECT_TRUE(tickWasPrivate(grabs));
    settings->setString(SettingsKey::excludedTitleWords, u"Incognito, InPrivate"_s);
    EXPECT_FALSE(tickWasPrivate(grabs)) << "the edited list counts from the next tick";

    xdotool({u"set_desktop_for_window"_s, vault, u"0"_s});
    waitUntilListed(u"Passwords"_s, true);
    EXPECT_TRUE(tickWasPrivate(grabs));
    settings->setString(SettingsKey::excludedApplications, QString());
    settings->setString(SettingsKey::excludedTitleWords, QString());
    EXPECT_FALSE(tickWasPrivate(grabs)) << "an empty list skips nothing";
}
} // namespace
