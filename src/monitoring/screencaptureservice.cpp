#include "monitoring/screencaptureservice.h"

#include "monitoring/pngencoder.h"

#include <QCryptographicHash>

using namespace Qt::StringLiterals;

ScreenCaptureService::ScreenCaptureService(
    ScreenGrabber *waylandGrabber, ScreenGrabber *x11Grabber, SessionType session)
    : m_waylandGrabber(waylandGrabber), m_x11Grabber(x11Grabber), m_session(session)
{
}

ScreenCaptureService::SessionType ScreenCaptureService::sessionType(const QProcessEnvironment &environment)
{
    if (!environment.value(u"WAYLAND_DISPLAY"_s).isEmpty()
        || environment.value(u"XDG_SESSION_TYPE"_s).compare(u"wayland"_s, Qt::CaseInsensitive) == 0) {
        return SessionType::Wayland;
    }
    return SessionType::X11;
}

QCoro::Task<ScreenGrab> ScreenCaptureService::captureScreen()
{
    if (m_session == SessionType::Wayland) {
        co_return co_await captureScreenModern();
    }
    co_return co_await captureScreenLegacy();
}

QCoro::Task<ScreenGrab> ScreenCaptureService::captureScreenModern()
{
    if (!m_waylandGrabber) {
        co_return ScreenGrab::failure(ScreenCaptureError::Kind::NoDisplayAvailable);
    }
    co_return co_await m_waylandGrabber->grab();
}

QCoro::Task<ScreenGrab> ScreenCaptureService::captureScreenLegacy()
{
    if (!m_x11Grabber) {
        co_return ScreenGrab::failure(ScreenCaptureError::Kind::NoDisplayAvailable);
    }
    co_return co_await m_x11Grabber->grab();
}

std::optional<QByteArray> ScreenCaptureService::imageToData(const QImage &image, std::optional<double> maxWidth)
{
    if (image.isNull()) {
        return std::nullopt;
    }
    return PngEncoder::encode(scaledDown(image, maxWidth));
}

QImage ScreenCaptureService::scaledDown(const QImage &image, std::optional<double> maxWidth)
{
    if (!maxWidth || image.width() <= *maxWidth) {
        return image;
    }
    const int width = static_cast<int>(*maxWidth);
    const int height = qRound(image.height() * (*maxWidth / image.width()));
    return image.scaled(width, height, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

QString ScreenCaptureService::sha256Hex(const QByteArray &data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
}
