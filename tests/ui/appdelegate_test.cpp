#include "app/appdelegate.h"
#include "app/launchtarget.h"

#include <QGuiApplication>
#include <QPalette>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
// Counts how often the launch sequence really ran.
class CountingTarget final : public LaunchTarget
{
public:
    QCoro::Task<> configure() override
    {
        ++calls;
        co_return;
    }
    int calls = 0;
};
} // namespace

// Whichever of the panel's wiring and the end of the launch comes second starts the launch
// sequence, once, however often the panel is wired again.
TEST(AppDelegateTest, ConfiguresOnceWhicheverOfPanelAndLaunchComesSecond)
{
    for (const bool panelFirst : {true, false}) {
        SCOPED_TRACE(panelFirst ? "panel first" : "launch first");
        AppDelegate delegate;
        CountingTarget monitor;
        const auto wire = [&] { wireAppDelegate(&delegate, &monitor); };
        const auto launch = [&] { delegate.applicationDidFinishLaunching(); };
        panelFirst ? wire() : launch();
        QCoreApplication::processEvents();
        EXPECT_EQ(monitor.calls, 0);
        panelFirst ? launch() : wire();
        QCoreApplication::processEvents();
        EXPECT_EQ(monitor.calls, 1);
        wire(); // the panel is built again later
        delegate.configureIfNeeded();
        QCoreApplication::processEvents();
        EXPECT_EQ(monitor.calls, 1);
    }
}

// The launch makes the palette light and delivers the URLs opened before it, in order.
TEST(AppDelegateTest, LaunchForcesALightPaletteAndDeliversEarlierUrls)
{
    QGuiApplication::setPalette(QPalette(QColor(30, 30, 30)));
    AppDelegate delegate;
    QStringList delivered;
    delegate.setUrlHandler([&](const QString &url) { delivered.append(url); });
    delegate.handleURLEvent(u"tamlo://auth?token=a"_s);
    delegate.handleURLEvent(u"tamlo://sync"_s);
    EXPECT_TRUE(delivered.isEmpty());

    delegate.applicationDidFinishLaunching();
    EXPECT_EQ(delivered, QStringList({u"tamlo://auth?token=a"_s, u"tamlo://sync"_s}));
    delegate.handleURLEvent(u"tamlo://sync"_s);
    EXPECT_EQ(delivered.size(), 3);
    EXPECT_GT(QGuiApplication::palette().color(QPalette::Window).lightness(), 200);
    EXPECT_LT(QGuiApplication::palette().color(QPalette::WindowText).lightness(), 60);
    EXPECT_FALSE(delegate.applicationShouldTerminateAfterLastWindowClosed());
}
