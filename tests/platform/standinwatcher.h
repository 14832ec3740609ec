#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QStringList>

// A StatusNotifierWatcher on a test bus, as KDE's panel and GNOME's AppIndicator extension run one:
// tray items register with it, and it tells them that a host is there to show them.
class StandInWatcher : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ hostRegistered)
    Q_PROPERTY(int ProtocolVersion READ protocolVersion)
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems MEMBER items)
public:
    explicit StandInWatcher(QDBusConnection bus) : m_bus(std::move(bus)) { }

    bool publish()
    {
        return m_bus.registerObject(QStringLiteral("/StatusNotifierWatcher"), this,
                   QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllProperties)
            && m_bus.registerService(QStringLiteral("org.kde.StatusNotifierWatcher"));
    }

    [[nodiscard]] bool hostRegistered() const { return true; }
    [[nodiscard]] int protocolVersion() const { return 0; }

    // The bus names of the registered items; each serves /StatusNotifierItem.
    QStringList items;

public Q_SLOTS:
    void RegisterStatusNotifierItem(const QString &service, const QDBusMessage &message)
    {
        items.append(service.startsWith(QLatin1Char('/')) ? message.service() : service);
    }
    void RegisterStatusNotifierHost(const QString &) { }

private:
    QDBusConnection m_bus;
};
