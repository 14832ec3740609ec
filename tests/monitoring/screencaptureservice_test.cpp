#include "monitoring/screencaptureservice.h"

#include <QCoroTask>
#include <QPainter>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
QImage decoded(const std::optional<QByteArray> &data)
{
    return data ? QImage::fromData(*data, "PNG") : QImage();
}

QImage stripes(int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    painter.fillRect(0, 0, width / 2, height, Qt::red);
    return image;
}

TEST(ScreenCaptureServiceTest, ScalesDownOnlyWhatIsWiderThanTheMaximumAndHashesTheBytes)
{
    for (const auto &[from, to] : {std::pair {QSize(1200, 800), QSize(1200, 800)}, {QSize(1201, 800), QSize(1200, 799)},
             {QSize(2400, 1500), QSize(1200, 750)}, {QSize(640, 480), QSize(640, 480)}}) {
        EXPECT_EQ(decoded(ScreenCaptureService::imageToData(stripes(from.width(), from.height()), 1200.0)).size(), to);
    }
    EXPECT_EQ(decoded(ScreenCaptureService::imageToData(stripes(3000, 100))).size(), QSize(3000, 100));
    EXPECT_FALSE(ScreenCaptureService::imageToData(QImage(), 1200.0).has_value());

    // The picture survives the scaling: left half red, right half white.
    const QImage scaled = decoded(ScreenCaptureService::imageToData(stripes(2400, 1500), 1200.0));
    EXPECT_EQ(scaled.pixelColor(100, 375), QColor(Qt::red));
    EXPECT_EQ(scaled.pixelColor(1100, 375), QColor(Qt::white));
    // Lower-case hex of the exact bytes, leading zeros kept.
    EXPECT_EQ(ScreenCaptureService::sha256Hex(QByteArray(1, '\n')),
        u"01ba4719c80b6fe911b091a7c05124b64eeece964e09c058ef8f9805daca546b"_s);
}

TEST(ScreenCaptureServiceTest, SessionTypeComesFromTheEnvironment)
{
    QProcessEnvironment environment;
    EXPECT_EQ(ScreenCaptureService::sessionType(environment), ScreenCaptureService::SessionType::X11);
    environment.insert(u"XDG_SESSION_TYPE"_s, u"x11"_s);
    EXPECT_EQ(ScreenCaptureService::sessionType(environment), ScreenCaptureService::SessionType::X11);
    environment.insert(u"XDG_SESSION_TYPE"_s, u"wayland"_s);
    EXPECT_EQ(ScreenCaptureService::sessionType(environment), ScreenCaptureService::SessionType::Wayland);
    environment.insert(u"XDG_SESSION_TYPE"_s, u"tty"_s);
    environment.insert(u"WAYLAND_DISPLAY"_s, u"wayland-0"_s);
    EXPECT_EQ(ScreenCaptureService::sessionType(environment), ScreenCaptureService::SessionType::Wayland);
}

TEST(ScreenCaptureServiceTest, AMissingGrabberIsNoDisplay)
{
    ScreenCaptureService service(nullptr, nullptr, ScreenCaptureService::SessionType::Wayland);
    const ScreenGrab grab = QCoro::waitFor(service.captureScreen());
    ASSERT_TRUE(grab.error.has_value());
    EXPECT_EQ(grab.error->kind, ScreenCaptureError::Kind::NoDisplayAvailable);
}
} // namespace
