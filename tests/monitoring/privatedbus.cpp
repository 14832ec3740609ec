#include "privatedbus.h"

#include <QDBusMessage>

using namespace Qt::StringLiterals;

PrivateDBus::PrivateDBus(const QStringList &arguments, const QProcessEnvironment &environment)
{
    m_daemon.setProgram(u"dbus-daemon"_s);
    m_daemon.setArguments(arguments + QStringList {u"--nofork"_s, u"--nopidfile"_s, u"--print-address=1"_s});
    m_daemon.setProcessEnvironment(environment);
    m_daemon.start();
    if (!m_daemon.waitForStarted(5000)) {
        m_error = u"dbus-daemon could not be started: "_s + m_daemon.errorString();
        return;
    }
    while (!m_daemon.canReadLine() && m_daemon.waitForReadyRead(5000)) { }
    m_address = QString::fromUtf8(m_daemon.readLine()).trimmed();
    if (m_address.isEmpty()) {
        m_error = u"dbus-daemon printed no address"_s;
    }
}

PrivateDBus::~PrivateDBus()
{
    for (const QString &name : std::as_const(m_connectionNames)) {
        QDBusConnection::disconnectFromBus(name);
    }
    if (m_daemon.state() != QProcess::NotRunning) {
        m_daemon.terminate();
        if (!m_daemon.waitForFinished(3000)) {
            m_daemon.kill();
            m_daemon.waitForFinished(3000);
        }
    }
}

QDBusConnection PrivateDBus::connect(const QString &name)
{
    m_connectionNames.append(name);
    return QDBusConnection::connectToBus(m_address, name);
}

bool PrivateDBus::sendSignal(const QString &path, const QString &interface, const QString &member, bool value)
{
    // Connection names are the process's own: each daemon's sender carries its address.
    const QString name = u"signal-sender "_s + m_address;
    const QDBusConnection sender = m_connectionNames.contains(name) ? QDBusConnection(name) : connect(name);
    QDBusMessage signal = QDBusMessage::createSignal(path, interface, member);
    signal << value;
    if (!sender.send(signal)) {
        return false;
    }
    roundTrip(sender);
    return true;
}

bool PrivateDBus::sendScreenSaverActive(const QString &interface, bool active)
{
    return sendSignal(u'/' + QString(interface).replace(u'.', u'/'), interface, u"ActiveChanged"_s, active);
}

bool PrivateDBus::sendPrepareForSleep(bool sleeping)
{
    return sendSignal(
        u"/org/freedesktop/login1"_s, u"org.freedesktop.login1.Manager"_s, u"PrepareForSleep"_s, sleeping);
}

void PrivateDBus::roundTrip(const QDBusConnection &connection)
{
    const QDBusMessage ping = QDBusMessage::createMethodCall(
        u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s, u"org.freedesktop.DBus"_s, u"GetId"_s);
    connection.call(ping, QDBus::Block, 5000);
}
