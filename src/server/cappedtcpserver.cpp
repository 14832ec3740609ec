#include "server/cappedtcpserver.h"

namespace {
const QByteArray tooManyConnections = "HTTP/1.1 429 Too Many Requests\r\nContent-Type: application/json\r\n"
                                      "Content-Length: 50\r\nRetry-After: 10\r\nConnection: close\r\n\r\n"
                                      "{\"error\":\"Too many connections from this address\"}";
} // namespace

CappedTcpServer::CappedTcpServer(RequestGateSocket::Limits limits, RequestGateSocket::RejectionLog log, QObject *parent)
    : QTcpServer(parent), m_limits(limits), m_log(std::move(log))
{
}

void CappedTcpServer::incomingConnection(qintptr descriptor)
{
    auto *socket = new RequestGateSocket(m_limits, m_log, this);
    if (!socket->adopt(descriptor)) {
        delete socket;
        return;
    }
    const QString client = socket->peerAddress().toString();
    int &open = m_openByClient[client];
    if (open >= maxConnectionsPerClient) {
        socket->write(tooManyConnections);
        socket->disconnectFromHost();
        connect(socket, &QAbstractSocket::disconnected, socket, &QObject::deleteLater);
        if (m_log) {
            m_log("-", "(connection)", 429, 0);
        }
        return;
    }
    ++open;
    connect(socket, &QObject::destroyed, this, [this, client] {
        if (--m_openByClient[client] <= 0) {
            m_openByClient.remove(client);
        }
    });
    addPendingConnection(socket);
}
