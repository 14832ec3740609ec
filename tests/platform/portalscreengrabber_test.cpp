#include "platform/portalscreengrabber.h"

#include "monitorfixture.h"
#include "standinportal.h"

#include <QFile>

using namespace MonitorTest;

namespace {
// The monitor taking its screenshots through the portal, with a stand-in portal on the test bus.
class PortalCaptureTest : public MonitorFixture
{
protected:
    void SetUp() override
    {
        MonitorFixture::SetUp();
        portal->image = QImage(1920, 1080, QImage::Format_RGB32);
        portal->image.fill(QColor(200, 30, 30));
        ASSERT_TRUE(portal->publish());
        buildMonitor(&portalCapture);
    }

    QTemporaryDir portalDir;
    QDBusConnection portalBus = bus.connect(u"portal-service"_s);
    std::unique_ptr<StandInPortal> portal = std::make_unique<StandInPortal>(portalBus, portalDir.path());
    PortalScreenGrabber portalGrabber {bus.connect(u"tamlo"_s)};
    ScreenCaptureService portalCapture {&portalGrabber, nullptr, ScreenCaptureService::SessionType::Wayland};
};

// Asked without a dialog, under a request token of its own each time, the portal's answer decides.
TEST_F(PortalCaptureTest, EachAnswerOfThePortalHasItsOutcome)
{
    using Kind = ScreenCaptureError::Kind;
    for (const auto &[code, kind] : {std::pair {0u, std::optional<Kind>()}, {1u, Kind::PermissionDenied},
             {2u, Kind::PermissionDenied}, {3u, Kind::CaptureFailed}}) {
        SCOPED_TRACE(code);
        portal->responseCode = code;
        const ScreenGrab grab = QCoro::waitFor(portalGrabber.grab());
        EXPECT_EQ(grab.ok() ? std::nullopt : std::optional(grab.error->kind), kind);
        if (grab.ok()) {
            EXPECT_EQ(grab.image.pixelColor(100, 100), QColor(200, 30, 30));
        }
    }
    QSet<QString> tokens;
    for (const QVariantMap &options : portal->calls) {
        EXPECT_EQ(options.value(u"interactive"_s), QVariant(false));
        tokens.insert(options.value(u"handle_token"_s).toString());
    }
    EXPECT_EQ(tokens.size(), 4);
}

// No portal on the bus at all: what to install, said once, and monitoring stops.
TEST_F(PortalCaptureTest, NoPortalIsSaidOnceAndStopsMonitoring)
{
    portal.reset();
    ASSERT_TRUE(portalBus.unregisterService(u"org.freedesktop.portal.Desktop"_s));
    monitor->startMonitoring();
    ASSERT_TRUE(waitFor([&] { return !monitor->isMonitoring(); }));
    EXPECT_TRUE(monitor->lastError().contains(u"Install "_s)) << monitor->lastError().toStdString();
    EXPECT_EQ(messages().filter(u"then log in again"_s).size(), 1);
}

// A portal answering after the time-out has its request closed, and the picture its late
// answer names is deleted.
TEST_F(PortalCaptureTest, ALateAnswerIsClosedAndItsFileDeleted)
{
    PortalScreenGrabber impatient(*sessionBus, std::chrono::milliseconds(200));
    portal->answerDelayMs = 600;
    const ScreenGrab grab = QCoro::waitFor(impatient.grab());
    ASSERT_FALSE(grab.ok());
    EXPECT_EQ(grab.error->kind, ScreenCaptureError::Kind::CaptureFailed);
    ASSERT_TRUE(waitFor([&] { return portal->closedRequests.size() == 1; }));
    ASSERT_TRUE(QFile::exists(portal->writtenFile));
    EXPECT_TRUE(waitFor([&] { return !QFile::exists(portal->writtenFile); }, 3000));
}
} // namespace
