#include "app/appdelegate.h"
#include "app/launchtarget.h"

#include <QCoreApplication>
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

void drainEvents()
{
    for (int i = 0; i < 3; ++i) {
        QCoreApplication::processEvents();
    }
}
} // namespace

// Whichever of the panel's wiring and the end of the launch comes second starts the launch
// sequence, once, however often the panel is wired again.
TEST(AppDelegateTest, ConfiguresOnceWhicheverOfPanelAndLaunchComesSecond)
{
    for (const bool panelFirst : {true, false}) {
        AppDelegate delegate;
        CountingTarget monitor;
        const auto wire = [&] { wireAppDelegate(&delegate, &monitor); };
        const auto launch = [&] { delegate.applicationDidFinishLaunching(); };
        panelFirst ? wire() : launch();
        drainEvents();
        EXPECT_EQ(monitor.calls, 0) << "panel first: " << panelFirst;

        panelFirst ? launch() : wire();
        drainEvents();
        EXPECT_EQ(monitor.calls, 1) << "panel first: " << panelFirst;

        wire(); // the panel is built again later
        delegate.configureIfNeeded();
        drainEvents();
        EXPECT_EQ(monitor.calls, 1) << "panel first: " << panelFirst;
    }
}

TEST(AppDelegateTest, LaunchForcesLightPaletteAndNeverQuitsOnClose)
{
    QGuiApplication::setPalette(QPalette(QColor(30, 30, 30)));
    AppDelegate delegate;
    delegate.applicationDidFinishLaunching();
    EXPECT_GT(QGuiApplication::palette().color(QPalette::Window).lightness(), 200);
    EXPECT_LT(QGuiApplication::palette().color(QPalette::WindowText).lightness(), 60);
    EXPECT_FALSE(delegate.applicationShouldTerminateAfterLastWindowClosed());
}

TEST(AppDelegateTest, UrlsOpenedBeforeLaunchAreDeliveredInOrderAfterIt)
{
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
}
