#include "monitoring/pngencoder.h"
#include "monitoring/screencaptureservice.h"

#include <QCoroTask>
#include <QPainter>

#include <gtest/gtest.h>

#include <random>

using namespace Qt::StringLiterals;

namespace {
// Noise defeats every filter and run, so a wrong byte order or row stride shows at once.
QImage noise(int width, int height, QImage::Format format = QImage::Format_RGB32)
{
    QImage image(width, height, QImage::Format_ARGB32);
    std::mt19937 random(uint32_t(width * 7919 + height));
    for (int y = 0; y < height; ++y) {
        auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        std::generate(line, line + width, std::ref(random));
    }
    return image.convertToFormat(format);
}

void expectLosslessRoundTrip(const QImage &source)
{
    const std::optional<QByteArray> png = PngEncoder::encode(source);
    const QImage decodedImage = QImage::fromData(png.value_or(QByteArray()), "PNG");
    ASSERT_EQ(decodedImage.size(), source.size());
    EXPECT_FALSE(decodedImage.hasAlphaChannel());
    EXPECT_EQ(decodedImage.convertToFormat(QImage::Format_RGB32), source.convertToFormat(QImage::Format_RGB32))
        << source.width() << "x" << source.height() << ", format " << source.format();
}
} // namespace

TEST(PngEncoderTest, EveryPixelComesBackExactlyWhateverTheSourceFormatAndSizeAndFlatScreensCompress)
{
    for (const QImage::Format format : {QImage::Format_RGB32, QImage::Format_ARGB32,
             QImage::Format_ARGB32_Premultiplied, QImage::Format_RGB888, QImage::Format_Grayscale8}) {
        expectLosslessRoundTrip(noise(97, 61, format));
    }
    expectLosslessRoundTrip(noise(1, 1));
    expectLosslessRoundTrip(noise(1201, 3));
    // A view into a larger image: its rows are further apart than its width.
    const QImage wide = noise(300, 40);
    expectLosslessRoundTrip(QImage(wide.constBits() + 4 * 7, 101, 20, wide.bytesPerLine(), QImage::Format_RGB32));

    QImage screen(1200, 750, QImage::Format_RGB32);
    screen.fill(Qt::white);
    QPainter(&screen).fillRect(100, 100, 400, 300, QColor(30, 31, 36));
    EXPECT_LT(PngEncoder::encode(screen)->size(), 1200 * 750 / 100);
    expectLosslessRoundTrip(screen);
    EXPECT_FALSE(PngEncoder::encode(QImage()).has_value());
}

TEST(ScreenCaptureServiceTest, SessionTypeComesFromTheEnvironmentAndAMissingGrabberIsNoDisplay)
{
    QProcessEnvironment environment;
    using Type = ScreenCaptureService::SessionType;
    EXPECT_EQ(ScreenCaptureService::sessionType(environment), Type::X11);
    for (const auto &[key, value, type] :
        {std::tuple {u"XDG_SESSION_TYPE"_s, u"x11"_s, Type::X11}, {u"XDG_SESSION_TYPE"_s, u"wayland"_s, Type::Wayland},
            {u"XDG_SESSION_TYPE"_s, u"tty"_s, Type::X11}, {u"WAYLAND_DISPLAY"_s, u"wayland-0"_s, Type::Wayland}}) {
        environment.insert(key, value);
        EXPECT_EQ(ScreenCaptureService::sessionType(environment), type) << key.toStdString() << value.toStdString();
    }
    ScreenCaptureService service(nullptr, nullptr, ScreenCaptureService::SessionType::Wayland);
    EXPECT_EQ(QCoro::waitFor(service.captureScreen()).error.value().kind, ScreenCaptureError::Kind::NoDisplayAvailable);
}
