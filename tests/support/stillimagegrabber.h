#pragma once

#include "monitoring/screengrabber.h"

#include <QImage>
#include <QPainter>

#include <optional>

// The colour of a test grid's block, as the X11 and Wayland tests paint and expect it.
inline QColor blockColor(int column, int row)
{
    return QColor::fromHsv((column * 4 + row) * 360 / 16, 200, 220);
}

// A screen that always shows the same picture, or fails the way it is told to.
class StillImageGrabber final : public ScreenGrabber
{
public:
    QImage image;
    std::optional<ScreenCaptureError::Kind> failWith;
    int grabs = 0;

    StillImageGrabber() : image(1600, 900, QImage::Format_RGB32)
    {
        image.fill(Qt::white);
        QPainter painter(&image);
        painter.fillRect(100, 100, 600, 300, Qt::darkBlue);
        painter.fillRect(900, 400, 500, 400, Qt::darkGreen);
    }

    QCoro::Task<ScreenGrab> grab() override
    {
        ++grabs;
        if (failWith) {
            co_return ScreenGrab::failure(*failWith);
        }
        co_return ScreenGrab::success(image);
    }
};
