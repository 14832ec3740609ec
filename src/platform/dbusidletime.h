#pragma once

#include "monitoring/idletimesource.h"

#include <QDBusConnection>
#include <QString>

// Input idle time from a desktop service on the session bus: GNOME's Mutter IdleMonitor, or the
// screen saver service of KDE and others (org.freedesktop.ScreenSaver.GetSessionIdleTime).
class DBusIdleTime final : public IdleTimeSource
{
public:
    [[nodiscard]] static DBusIdleTime mutter(QDBusConnection bus);
    [[nodiscard]] static DBusIdleTime screenSaver(QDBusConnection bus);

    [[nodiscard]] QCoro::Task<std::optional<std::chrono::milliseconds>> idleTime(
        std::chrono::milliseconds threshold) override;

private:
    DBusIdleTime(QDBusConnection bus, QString service, QString path, QString interface, QString method);

    QDBusConnection m_bus;
    QString m_service;
    QString m_path;
    QString m_interface;
    QString m_method;
};
