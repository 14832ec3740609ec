#include "monitoring/pngencoder.h"

#include <png.h>
#include <zlib.h>

#include <csetjmp>
#include <vector>

namespace {
void appendToArray(png_structp png, png_bytep data, png_size_t length)
{
    static_cast<QByteArray *>(png_get_io_ptr(png))->append(reinterpret_cast<const char *>(data), qsizetype(length));
}

void flushNothing(png_structp) { }

// libpng reports errors by longjmp, so nothing between setjmp and the end may need destroying:
// the rows and the output belong to the caller.
bool writeRows(const QImage &image, png_bytep *rows, QByteArray *out)
{
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    if (!png) {
        return false;
    }
    png_infop info = png_create_info_struct(png);
    if (!info || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_set_write_fn(png, out, appendToArray, flushNothing);
    png_set_compression_level(png, 1);
    png_set_compression_strategy(png, Z_RLE);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
    png_set_IHDR(png, info, png_uint_32(image.width()), png_uint_32(image.height()), 8, PNG_COLOR_TYPE_RGB,
        PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    // Rows are 32-bit words 0xffRRGGBB, which little-endian memory holds as B, G, R, unused.
    static_assert(Q_BYTE_ORDER == Q_LITTLE_ENDIAN, "the row layout below is little-endian");
    png_set_bgr(png);
    png_set_filler(png, 0, PNG_FILLER_AFTER);
    png_write_image(png, rows);
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return true;
}
} // namespace

std::optional<QByteArray> PngEncoder::encode(const QImage &image)
{
    if (image.isNull()) {
        return std::nullopt;
    }
    const QImage rgb = image.format() == QImage::Format_RGB32 ? image : image.convertToFormat(QImage::Format_RGB32);
    std::vector<png_bytep> rows(size_t(rgb.height()));
    for (int y = 0; y < rgb.height(); ++y) {
        // libpng takes non-const rows but only reads them when writing.
        rows[size_t(y)] = const_cast<png_bytep>(rgb.constScanLine(y));
    }
    QByteArray out;
    // Room for a typical screen, so the buffer seldom grows while being written.
    out.reserve(qsizetype(rgb.width()) * rgb.height());
    if (!writeRows(rgb, rows.data(), &out)) {
        return std::nullopt;
    }
    // Not squeezed: the bytes are encoded and dropped within the tick, so a copy would only cost.
    return out;
}
