#include "platform/x11screengrabber.h"

#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>

QCoro::Task<ScreenGrab> X11ScreenGrabber::grab()
{
    QScreen *screen = QGuiApplication::primaryScreen();
    if (!screen) {
        co_return ScreenGrab::failure(ScreenCaptureError::Kind::NoDisplayAvailable);
    }
    const QPixmap pixmap = screen->grabWindow(0);
    if (pixmap.isNull()) {
        co_return ScreenGrab::failure(ScreenCaptureError::Kind::CaptureFailed);
    }
    co_return ScreenGrab::success(pixmap.toImage());
}
