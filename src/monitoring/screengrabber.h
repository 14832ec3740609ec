#pragma once

#include <QCoroTask>
#include <QImage>
#include <QString>

#include <optional>

// Why a screen could not be taken.
struct ScreenCaptureError
{
    enum class Kind {
        NoDisplayAvailable,
        CaptureFailed,
        // The system or the user refused the capture; ends monitoring.
        PermissionDenied,
        // Nothing on this desktop can take a screenshot until the user installs something; the
        // detail says what. Ends monitoring too, so it is said once rather than on every tick.
        Unavailable,
    };

    Kind kind = Kind::CaptureFailed;
    QString detail; // the platform's own words, when it gave any

    // A stable text for the user; the kinds carry no text of their own beyond it.
    [[nodiscard]] QString description() const;

    friend bool operator==(const ScreenCaptureError &, const ScreenCaptureError &) = default;
};

// One still image of the screen, or why there is none.
struct ScreenGrab
{
    QImage image;
    std::optional<ScreenCaptureError> error;

    [[nodiscard]] bool ok() const { return !error.has_value(); }
    [[nodiscard]] static ScreenGrab success(QImage image);
    [[nodiscard]] static ScreenGrab failure(ScreenCaptureError::Kind kind, QString detail = {});
};

// The platform's way of taking a picture of the first display.
class ScreenGrabber
{
public:
    virtual ~ScreenGrabber() = default;
    [[nodiscard]] virtual QCoro::Task<ScreenGrab> grab() = 0;
};
