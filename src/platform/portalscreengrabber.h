#pragma once

#include "monitoring/screengrabber.h"

#include <QDBusConnection>
#include <QList>
#include <QObject>
#include <QRect>

#include <chrono>

// Takes a screenshot through the desktop portal (org.freedesktop.portal.Screenshot), without
// asking the user. The portal leaves the picture in a file; it is read and deleted at once.
class PortalScreenGrabber final : public QObject, public ScreenGrabber
{
    Q_OBJECT
public:
    // How long the portal may take to answer before the capture counts as failed.
    static constexpr auto responseTimeout = std::chrono::seconds(20);
    // How long an abandoned request is still listened to, so the file of a late answer goes too.
    static constexpr auto lateAnswerWindow = std::chrono::minutes(5);

    explicit PortalScreenGrabber(
        QDBusConnection sessionBus, std::chrono::milliseconds timeout = responseTimeout, QObject *parent = nullptr);

    [[nodiscard]] QCoro::Task<ScreenGrab> grab() override;

    // The part of a picture of the whole workspace that shows the first of the outputs (their
    // rectangles in the desktop's layout, first output first); a picture of one output as it is.
    [[nodiscard]] static QImage firstOutput(const QImage &picture, const QList<QRect> &outputs);

private:
    QDBusConnection m_bus;
    std::chrono::milliseconds m_timeout;
    quint64 m_requestCounter = 0;
};
