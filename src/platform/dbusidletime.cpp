#include "platform/dbusidletime.h"

#include <QCoroDBus>
#include <QDBusMessage>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcDBusIdle, "tamlo.platform.dbusidle")

namespace {
// A desktop that takes longer than this to say how idle it is holds up a tick for nothing.
constexpr int callTimeoutMs = 2000;
} // namespace

DBusIdleTime::DBusIdleTime(QDBusConnection bus, QString service, QString path, QString interface, QString method)
    : m_bus(std::move(bus))
    , m_service(std::move(service))
    , m_path(std::move(path))
    , m_interface(std::move(interface))
    , m_method(std::move(method))
{
}

DBusIdleTime DBusIdleTime::mutter(QDBusConnection bus)
{
    return DBusIdleTime(std::move(bus), u"org.gnome.Mutter.IdleMonitor"_s, u"/org/gnome/Mutter/IdleMonitor/Core"_s,
        u"org.gnome.Mutter.IdleMonitor"_s, u"GetIdletime"_s);
}

DBusIdleTime DBusIdleTime::screenSaver(QDBusConnection bus)
{
    return DBusIdleTime(std::move(bus), u"org.freedesktop.ScreenSaver"_s, u"/org/freedesktop/ScreenSaver"_s,
        u"org.freedesktop.ScreenSaver"_s, u"GetSessionIdleTime"_s);
}

QCoro::Task<std::optional<std::chrono::milliseconds>> DBusIdleTime::idleTime(std::chrono::milliseconds)
{
    if (!m_bus.isConnected()) {
        co_return std::nullopt;
    }
    const QDBusMessage call = QDBusMessage::createMethodCall(m_service, m_path, m_interface, m_method);
    const QDBusMessage reply = co_await m_bus.asyncCall(call, callTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        qCDebug(lcDBusIdle) << m_service << "gives no idle time:" << reply.errorMessage();
        co_return std::nullopt;
    }
    // Both answer in milliseconds: Mutter as a uint64, KDE's screen saver as a uint32.
    bool ok = false;
    const qulonglong idle = reply.arguments().constFirst().toULongLong(&ok);
    if (!ok) {
        co_return std::nullopt;
    }
    co_return std::chrono::milliseconds(idle);
}
