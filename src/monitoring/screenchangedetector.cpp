#include "monitoring/screenchangedetector.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace {
// Every other pixel of every other row: a quarter of the reads, and still every cell's texture.
constexpr int sampleStep = 2;
constexpr int samplesPerCell = (ScreenThumbnail::cellSize / sampleStep) * (ScreenThumbnail::cellSize / sampleStep);

bool isRgb32(QImage::Format format)
{
    return format == QImage::Format_RGB32 || format == QImage::Format_ARGB32
        || format == QImage::Format_ARGB32_Premultiplied;
}
} // namespace

ScreenThumbnail ScreenThumbnail::of(const QImage &scaled, QString imageHash, const QList<QRect> &ignored)
{
    ScreenThumbnail thumbnail;
    thumbnail.imageHash = std::move(imageHash);
    if (scaled.isNull()) {
        return thumbnail;
    }
    const QImage image = isRgb32(scaled.format()) ? scaled : scaled.convertToFormat(QImage::Format_RGB32);
    thumbnail.width = image.width() / cellSize;
    thumbnail.height = image.height() / cellSize;
    thumbnail.grey.resize(qsizetype(thumbnail.width) * thumbnail.height);
    auto *out = reinterpret_cast<uchar *>(thumbnail.grey.data());
    std::vector<int> sums(size_t(thumbnail.width));
    for (int row = 0; row < thumbnail.height; ++row) {
        std::fill(sums.begin(), sums.end(), 0);
        for (int y = row * cellSize; y < (row + 1) * cellSize; y += sampleStep) {
            const auto *line = reinterpret_cast<const QRgb *>(image.constScanLine(y));
            for (int column = 0; column < thumbnail.width; ++column) {
                int sum = 0;
                for (int x = column * cellSize; x < (column + 1) * cellSize; x += sampleStep) {
                    const QRgb pixel = line[x];
                    // Green weighs double, as the eye sees it.
                    sum += qRed(pixel) + 2 * qGreen(pixel) + qBlue(pixel);
                }
                sums[size_t(column)] += sum;
            }
        }
        for (int column = 0; column < thumbnail.width; ++column) {
            *out++ = uchar(sums[size_t(column)] / (4 * samplesPerCell));
        }
    }
    for (const QRect &area : ignored) {
        const QRect cells = QRect(QPoint(area.left() / cellSize, area.top() / cellSize),
            QPoint(area.right() / cellSize, area.bottom() / cellSize))
                                .intersected(QRect(0, 0, thumbnail.width, thumbnail.height));
        for (int row = cells.top(); row <= cells.bottom(); ++row) {
            std::fill_n(thumbnail.grey.data() + qsizetype(row) * thumbnail.width + cells.left(), cells.width(), 0);
        }
    }
    return thumbnail;
}

double ScreenChangeDetector::changedShare(const ScreenThumbnail &before, const ScreenThumbnail &after)
{
    if (before.isNull() || after.isNull() || before.width != after.width || before.height != after.height) {
        return 1.0;
    }
    const auto *a = reinterpret_cast<const uchar *>(before.grey.constData());
    const auto *b = reinterpret_cast<const uchar *>(after.grey.constData());
    const int columns = (before.width + tileCells - 1) / tileCells;
    const int rows = (before.height + tileCells - 1) / tileCells;
    int changed = 0;
    for (int tileRow = 0; tileRow < rows; ++tileRow) {
        const int lastY = std::min((tileRow + 1) * tileCells, before.height);
        for (int tileColumn = 0; tileColumn < columns; ++tileColumn) {
            const int lastX = std::min((tileColumn + 1) * tileCells, before.width);
            bool differs = false;
            for (int y = tileRow * tileCells; y < lastY && !differs; ++y) {
                const int offset = y * before.width;
                for (int x = tileColumn * tileCells; x < lastX; ++x) {
                    if (std::abs(int(a[offset + x]) - int(b[offset + x])) > greyTolerance) {
                        differs = true;
                        break;
                    }
                }
            }
            changed += differs ? 1 : 0;
        }
    }
    return double(changed) / (double(rows) * columns);
}

bool ScreenChangeDetector::isUnchanged(const ScreenThumbnail &before, const ScreenThumbnail &after)
{
    if (!before.imageHash.isEmpty() && before.imageHash == after.imageHash) {
        return true;
    }
    return changedShare(before, after) <= maxUnchangedShare;
}

bool ScreenChangeDetector::stillSinceLastTick(const ScreenThumbnail &screen)
{
    const bool still = isUnchanged(m_lastTick, screen);
    m_lastTick = screen;
    return still;
}

void ScreenChangeDetector::rememberAnalysis(ScreenThumbnail screen, ActivitySnapshot analysed, QString labelContext)
{
    m_analysedScreen = std::move(screen);
    m_analysis = std::move(analysed);
    m_labelContext = std::move(labelContext);
}

std::optional<ActivitySnapshot> ScreenChangeDetector::reusableAnalysis(
    const ScreenThumbnail &screen, const QDateTime &now, const QString &labelContext) const
{
    if (!m_analysis || m_labelContext != labelContext) {
        return std::nullopt;
    }
    // A clock set back makes the age unknown, and unknown is too old.
    const qint64 age = m_analysis->timestamp.msecsTo(now);
    if (age < 0 || age >= std::chrono::milliseconds(reuseWindow).count()) {
        return std::nullopt;
    }
    if (!isUnchanged(m_analysedScreen, screen)) {
        return std::nullopt;
    }
    return m_analysis;
}
