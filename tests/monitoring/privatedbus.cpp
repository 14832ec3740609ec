#include "privatedbus.h"

#include <QDBusMessage>
#include <QProcessEnvironment>

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

bool PrivateDBus::sendSignal(bool systemBus, const QString &path, const QString &member, const QStringList &arguments)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, m_address);
    environment.insert(u"DBUS_SYSTEM_BUS_ADDRESS"_s, m_address);
    QProcess send;
    send.setProcessEnvironment(environment);
    send.start(u"dbus-send"_s,
        QStringList {systemBus ? u"--system"_s : u"--session"_s, u"--type=signal"_s, path, member} + arguments);
    return send.waitForFinished(5000) && send.exitStatus() == QProcess::NormalExit && send.exitCode() == 0;
}

bool PrivateDBus::sendScreenSaverActive(const QString &interface, bool active)
{
    const QString path = u'/' + QString(interface).replace(u'.', u'/');
    return sendSignal(false, path, interface + u".ActiveChanged"_s, {active ? u"boolean:true"_s : u"boolean:false"_s});
}

bool PrivateDBus::sendPrepareForSleep(bool sleeping)
{
    return sendSignal(true, u"/org/freedesktop/login1"_s, u"org.freedesktop.login1.Manager.PrepareForSleep"_s,
        {sleeping ? u"boolean:true"_s : u"boolean:false"_s});
}

void PrivateDBus::roundTrip(const QDBusConnection &connection)
{
    const QDBusMessage ping = QDBusMessage::createMethodCall(
        u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s, u"org.freedesktop.DBus"_s, u"GetId"_s);
    connection.call(ping, QDBus::Block, 5000);
}
