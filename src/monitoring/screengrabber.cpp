#include "monitoring/screengrabber.h"

using namespace Qt::StringLiterals;

QString ScreenCaptureError::description() const
{
    QString text;
    switch (kind) {
    case Kind::NoDisplayAvailable:
        text = u"No display is available to capture."_s;
        break;
    case Kind::CaptureFailed:
        text = u"The screen capture returned no image."_s;
        break;
    case Kind::PermissionDenied:
        text = u"The screen capture was refused."_s;
        break;
    case Kind::Unavailable:
        return detail;
    }
    if (!detail.isEmpty()) {
        text += u" ("_s + detail + u")"_s;
    }
    return text;
}

ScreenGrab ScreenGrab::success(QImage image)
{
    return ScreenGrab {std::move(image), std::nullopt};
}

ScreenGrab ScreenGrab::failure(ScreenCaptureError::Kind kind, QString detail)
{
    return ScreenGrab {QImage(), ScreenCaptureError {kind, std::move(detail)}};
}
