#include "platform/singleinstance.h"

#include <QLocalSocket>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {
const QByteArray acknowledgement = "ok\n";
const QString openPrefix = u"open "_s;
constexpr int maxMessageBytes = 64 * 1024;
} // namespace

SingleInstance::SingleInstance(QString serverName, QObject *parent)
    : QObject(parent), m_serverName(std::move(serverName))
{
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&m_server, &QLocalServer::newConnection, this, &SingleInstance::onNewConnection);
}

QString SingleInstance::defaultServerName()
{
    return u"tamlo-"_s + QString::number(::getuid());
}

QString SingleInstance::openUrlMessage(const QString &url)
{
    return openPrefix + url;
}

QString SingleInstance::urlFromMessage(const QString &message)
{
    return message.startsWith(openPrefix) ? message.mid(openPrefix.size()) : QString();
}

bool SingleInstance::sendToRunning(const QString &serverName, const QString &message, std::chrono::milliseconds timeout)
{
    QLocalSocket socket;
    socket.connectToServer(serverName);
    const int ms = int(timeout.count());
    if (!socket.waitForConnected(ms)) {
        return false;
    }
    socket.write(message.toUtf8() + '\n');
    if (!socket.waitForBytesWritten(ms)) {
        return false;
    }
    QByteArray reply;
    while (!reply.endsWith('\n')) {
        if (!socket.waitForReadyRead(ms)) {
            return false;
        }
        reply += socket.readAll();
    }
    return reply == acknowledgement;
}

bool SingleInstance::listen()
{
    // Listening with access options replaces whatever socket has the name, so look first: someone
    // who answers is a live instance; a socket nobody answers on was left by a crashed one.
    QLocalSocket probe;
    probe.connectToServer(m_serverName);
    if (probe.waitForConnected(int(handOverTimeout.count()))) {
        return false;
    }
    QLocalServer::removeServer(m_serverName);
    return m_server.listen(m_serverName);
}

void SingleInstance::onNewConnection()
{
    while (QLocalSocket *socket = m_server.nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            if (socket->bytesAvailable() > maxMessageBytes) {
                socket->abort();
                return;
            }
            if (!socket->canReadLine()) {
                return;
            }
            const QString message = QString::fromUtf8(socket->readLine()).chopped(1);
            socket->write(acknowledgement);
            socket->flush();
            Q_EMIT messageReceived(message);
        });
    }
}
