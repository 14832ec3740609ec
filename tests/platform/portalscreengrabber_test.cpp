#include "platform/portalscreengrabber.h"

#include "monitorfixture.h"
#include "standinportal.h"

#include <QFile>
#include <QPainter>

using namespace MonitorTest;

namespace {
QImage testPicture()
{
    QImage image(1920, 1080, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    painter.fillRect(0, 0, 960, 540, QColor(200, 30, 30));
    painter.fillRect(960, 540, 960, 540, QColor(30, 30, 200));
    return image;
}

// The monitor taking its screenshots through the portal, with a stand-in portal on the test bus.
class PortalCaptureTest : public MonitorFixture
{
protected:
    void SetUp() override
    {
        MonitorFixture::SetUp();
        ASSERT_TRUE(portalDir.isValid());
        portalBus = std::make_unique<QDBusConnection>(bus.connect(u"portal-service"_s));
        portal = std::make_unique<StandInPortal>(*portalBus, portalDir.path());
        portal->image = testPicture();
        ASSERT_TRUE(portal->publish());
        grabber = std::make_unique<PortalScreenGrabber>(*sessionBus);
        portalCapture = std::make_unique<ScreenCaptureService>(
            grabber.get(), nullptr, ScreenCaptureService::SessionType::Wayland);
        buildMonitor(portalCapture.get());
    }

    void TearDown() override
    {
        MonitorFixture::TearDown();
        grabber.reset();
        portal.reset();
    }

    QTemporaryDir portalDir;
    std::unique_ptr<QDBusConnection> portalBus;
    std::unique_ptr<StandInPortal> portal;
    std::unique_ptr<PortalScreenGrabber> grabber;
    std::unique_ptr<ScreenCaptureService> portalCapture;
};

TEST_F(PortalCaptureTest, SuccessHandsBackTheImageWithoutAskingAndLeavesNoFile)
{
    const ScreenGrab grab = QCoro::waitFor(portalCapture->captureScreen());
    ASSERT_TRUE(grab.ok()) << grab.error->description().toStdString();
    EXPECT_EQ(grab.image.size(), QSize(1920, 1080));
    EXPECT_EQ(grab.image.pixelColor(100, 100), QColor(200, 30, 30));
    EXPECT_EQ(grab.image.pixelColor(1800, 1000), QColor(30, 30, 200));

    ASSERT_EQ(portal->calls.size(), 1);
    EXPECT_EQ(portal->calls.first().value(u"interactive"_s), QVariant(false));
    EXPECT_FALSE(portal->calls.first().value(u"handle_token"_s).toString().isEmpty());
    EXPECT_EQ(portal->parentWindows.first(), QString());
    ASSERT_FALSE(portal->writtenFile.isEmpty());
    EXPECT_FALSE(QFile::exists(portal->writtenFile));

    // A tick through the portal records the screenshot, under a request token of its own.
    QCoro::waitFor(monitor->performCapture());
    ASSERT_EQ(analysisRequests(), 1);
    EXPECT_EQ(monitor->screenshotCount(), 1);
    EXPECT_EQ(monitor->captureCount(), 1);
    EXPECT_FALSE(QFile::exists(portal->writtenFile));
    ASSERT_EQ(portal->calls.size(), 2);
    EXPECT_NE(portal->calls.at(0).value(u"handle_token"_s), portal->calls.at(1).value(u"handle_token"_s));
}

TEST_F(PortalCaptureTest, RefusalIsPermissionDeniedAndStopsMonitoring)
{
    for (const uint code : {1u, 2u}) {
        portal->responseCode = code;
        const ScreenGrab grab = QCoro::waitFor(portalCapture->captureScreen());
        ASSERT_FALSE(grab.ok());
        EXPECT_EQ(grab.error->kind, ScreenCaptureError::Kind::PermissionDenied) << code;
    }

    monitor->startMonitoring();
    ASSERT_TRUE(waitFor([&] { return !monitor->isMonitoring(); }));
    EXPECT_EQ(monitor->lastError(), u"Screen capture permission denied."_s);
    EXPECT_EQ(timer(u"captureTimer"_s), nullptr);
    EXPECT_EQ(events->observerCount(), 0);
    EXPECT_EQ(analysisRequests(), 0);
    ASSERT_TRUE(waitFor([&] { return countOf(u"⚠️ No records to export for 2026-03-09"_s) == 1; }));
}

TEST_F(PortalCaptureTest, OtherPortalFailuresKeepMonitoringButNoPortalIsSaidOnce)
{
    portal->responseCode = 3;
    monitor->startMonitoring();
    ASSERT_TRUE(waitFor([&] { return !monitor->lastError().isEmpty(); }));
    EXPECT_TRUE(monitor->lastError().startsWith(u"Screenshot failed: "_s)) << monitor->lastError().toStdString();
    EXPECT_TRUE(monitor->isMonitoring());
    EXPECT_EQ(monitor->screenshotCount(), 0);

    // No portal on the bus at all: what to install, once, and no tick after it.
    portal.reset();
    ASSERT_TRUE(portalBus->unregisterService(u"org.freedesktop.portal.Desktop"_s));
    QCoro::waitFor(monitor->performCapture());
    EXPECT_FALSE(monitor->isMonitoring());
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
