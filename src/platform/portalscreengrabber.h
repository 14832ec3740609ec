#pragma once

#include "monitoring/screengrabber.h"

#include <QDBusConnection>
#include <QObject>

#include <chrono>

// Takes a screenshot through the desktop portal (org.freedesktop.portal.Screenshot), without
// asking the user. The portal leaves the picture in a file; it is read and deleted at once.
class PortalScreenGrabber final : public QObject, public ScreenGrabber
{
    Q_OBJECT
public:
    // How long the portal may take to answer before the capture counts as failed.
    static constexpr auto responseTimeout = std::chrono::seconds(20);

    explicit PortalScreenGrabber(QDBusConnection sessionBus, QObject *parent = nullptr);

    [[nodiscard]] QCoro::Task<ScreenGrab> grab() override;

private:
    QDBusConnection m_bus;
    quint64 m_requestCounter = 0;
};
