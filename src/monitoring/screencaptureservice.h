#pragma once

#include "monitoring/screengrabber.h"

#include <QByteArray>
#include <QCoroTask>
#include <QImage>
#include <QProcessEnvironment>

#include <optional>

// Turns the screen into an image through the desktop's own mechanism: the compositor or the
// screenshot portal on Wayland, a direct grab on X11. Holds no state beyond the two grabbers.
class ScreenCaptureService
{
public:
    enum class SessionType {
        X11,
        Wayland,
    };

    static constexpr double maxImageWidth = 1200.0;

    // Either grabber may be null when the composition root knows it will not be used.
    ScreenCaptureService(ScreenGrabber *waylandGrabber, ScreenGrabber *x11Grabber, SessionType session);

    // Wayland when WAYLAND_DISPLAY is set or XDG_SESSION_TYPE is "wayland", X11 otherwise.
    [[nodiscard]] static SessionType sessionType(const QProcessEnvironment &environment);

    [[nodiscard]] SessionType session() const { return m_session; }

    // The path of the session.
    [[nodiscard]] QCoro::Task<ScreenGrab> captureScreen();
    [[nodiscard]] QCoro::Task<ScreenGrab> captureScreenModern();
    [[nodiscard]] QCoro::Task<ScreenGrab> captureScreenLegacy();

    // PNG bytes, scaled down to maxWidth (height in proportion) only when wider; never scaled up.
    [[nodiscard]] static std::optional<QByteArray> imageToData(
        const QImage &image, std::optional<double> maxWidth = std::nullopt);
    // The image as imageToData encodes it.
    [[nodiscard]] static QImage scaledDown(const QImage &image, std::optional<double> maxWidth);
    // SHA-256 as 64 lower-case hexadecimal digits.
    [[nodiscard]] static QString sha256Hex(const QByteArray &data);

private:
    ScreenGrabber *m_waylandGrabber = nullptr;
    ScreenGrabber *m_x11Grabber = nullptr;
    SessionType m_session = SessionType::X11;
};
