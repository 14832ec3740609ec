#pragma once

#include "server/requestgatesocket.h"

#include <QHash>
#include <QTcpServer>

// Hands the HTTP server connections that pass through a RequestGateSocket, so that size limits
// hold at the socket, before any request is buffered; and holds each client address to a number
// of open connections.
class CappedTcpServer : public QTcpServer
{
    Q_OBJECT
public:
    static constexpr int maxConnectionsPerClient = 128;

    CappedTcpServer(RequestGateSocket::Limits limits, RequestGateSocket::RejectionLog log, QObject *parent = nullptr);

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    RequestGateSocket::Limits m_limits;
    RequestGateSocket::RejectionLog m_log;
    QHash<QString, int> m_openByClient;
};
