#include "server/cappedtcpserver.h"

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
    addPendingConnection(socket);
}
