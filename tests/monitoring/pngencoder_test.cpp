#include "monitoring/pngencoder.h"

#include <QPainter>

#include <gtest/gtest.h>

#include <random>

namespace {
QImage noise(int width, int height, QImage::Format format)
{
    QImage image(width, height, QImage::Format_ARGB32);
    std::mt19937 random(uint32_t(width * 7919 + height));
    for (int y = 0; y < height; ++y) {
        auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < width; ++x) {
            line[x] = random();
        }
    }
    return image.convertToFormat(format);
}

void expectLosslessRoundTrip(const QImage &source)
{
    const std::optional<QByteArray> png = PngEncoder::encode(source);
    ASSERT_TRUE(png.has_value());
    const QImage decoded = QImage::fromData(*png, "PNG");
    ASSERT_EQ(decoded.size(), source.size());
    EXPECT_FALSE(decoded.hasAlphaChannel());
    const QImage expected = source.convertToFormat(QImage::Format_RGB32);
    const QImage actual = decoded.convertToFormat(QImage::Format_RGB32);
    for (int y = 0; y < expected.height(); ++y) {
        ASSERT_EQ(0, memcmp(expected.constScanLine(y), actual.constScanLine(y), size_t(expected.width()) * 4))
            << "row " << y << " of " << source.width() << "x" << source.height() << ", format " << source.format();
    }
}
} // namespace

TEST(PngEncoderTest, EveryPixelComesBackExactlyWhateverTheSourceFormatAndSize)
{
    // Noise defeats every filter and run, so a wrong byte order or row stride shows at once.
    for (const QImage::Format format : {QImage::Format_RGB32, QImage::Format_ARGB32,
             QImage::Format_ARGB32_Premultiplied, QImage::Format_RGB888, QImage::Format_Grayscale8}) {
        expectLosslessRoundTrip(noise(97, 61, format));
    }
    expectLosslessRoundTrip(noise(1, 1, QImage::Format_RGB32));
    expectLosslessRoundTrip(noise(1201, 3, QImage::Format_RGB32));
    // A view into a larger image: its rows are further apart than its width.
    const QImage wide = noise(300, 40, QImage::Format_RGB32);
    expectLosslessRoundTrip(wide.copy(13, 5, 101, 20));
    expectLosslessRoundTrip(QImage(wide.constBits() + 4 * 7, 101, 20, wide.bytesPerLine(), QImage::Format_RGB32));
}

TEST(PngEncoderTest, FlatScreensCompressAndANullImageGivesNothing)
{
    QImage screen(1200, 750, QImage::Format_RGB32);
    screen.fill(Qt::white);
    QPainter(&screen).fillRect(100, 100, 400, 300, QColor(30, 31, 36));
    const std::optional<QByteArray> png = PngEncoder::encode(screen);
    ASSERT_TRUE(png.has_value());
    EXPECT_LT(png->size(), 1200 * 750 / 100);
    expectLosslessRoundTrip(screen);

    EXPECT_FALSE(PngEncoder::encode(QImage()).has_value());
}
