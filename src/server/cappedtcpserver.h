#pragma once

#include "server/requestgatesocket.h"

#include <QTcpServer>

// Hands the HTTP server connections that pass through a RequestGateSocket, so that size limits
// hold at the socket, before any request is buffered.
class CappedTcpServer : public QTcpServer
{
    Q_OBJECT
public:
    CappedTcpServer(RequestGateSocket::Limits limits, RequestGateSocket::RejectionLog log, QObject *parent = nullptr);

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    RequestGateSocket::Limits m_limits;
    RequestGateSocket::RejectionLog m_log;
};
