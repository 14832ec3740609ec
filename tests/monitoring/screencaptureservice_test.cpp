#include "monitoring/screencaptureservice.h"

#include <QCoroTask>
#include <QCryptographicHash>
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

TEST(ScreenCaptureServiceTest, ScalesDownOnlyWhatIsWiderThanTheMaximum)
{
    EXPECT_EQ(decoded(ScreenCaptureService::imageToData(stripes(1200, 800), 1200.0)).size(), QSize(1200, 800));
    EXPECT_EQ(decoded(ScreenCaptureService::imageToData(stripes(1201, 800), 1200.0)).size(), QSize(1200, 799));
    EXPECT_EQ(decoded(ScreenCaptureService::imageToData(stripes(2400, 1500), 1200.0)).size(), QSize(1200, 750));
    EXPECT_EQ(decoded(ScreenCaptureService::imageToData(stripes(640, 480), 1200.0)).size(), QSize(640, 480));
    EXPECT_EQ(decoded(ScreenCaptureService::imageToData(stripes(3000, 100))).size(), QSize(3000, 100));
    EXPECT_FALSE(ScreenCaptureService::imageToData(QImage(), 1200.0).has_value());

    // The picture survives the scaling: left half red, right half white.
    const QImage scaled = decoded(ScreenCaptureService::imageToData(stripes(2400, 1500), 1200.0));
    EXPECT_EQ(scaled.pixelColor(100, 375), QColor(Qt::red));
    EXPECT_EQ(scaled.pixelColor(1100, 375), QColor(Qt::white));
}

TEST(ScreenCaptureServiceTest, HashIsLowerCaseHexOfTheExactBytes)
{
    EXPECT_EQ(ScreenCaptureService::sha256Hex(QByteArray()),
        u"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"_s);
    const QString hash = ScreenCaptureService::sha256Hex(QByteArray(1, '\n'));
    EXPECT_EQ(hash.size(), 64);
    EXPECT_EQ(hash, hash.toLower());
    // SHA-256 of a single line feed begins with a byte of value 1, written with its zero.
    EXPECT_TRUE(hash.startsWith(u"01ba4719"_s)) << hash.toStdString();
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
