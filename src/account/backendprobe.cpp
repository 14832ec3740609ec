#include "account/backendprobe.h"

#include <QCoroSignal>
#include <QTcpSocket>

QCoro::Task<bool> BackendProbe::acceptsConnections(QUrl url, std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    QTcpSocket socket;
    socket.connectToHost(url.host(), quint16(url.port(80)));
    while (socket.state() != QAbstractSocket::ConnectedState && socket.state() != QAbstractSocket::UnconnectedState) {
        const auto left
            = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || !co_await qCoro(&socket, &QAbstractSocket::stateChanged, left)) {
            co_return false;
        }
    }
    const bool connected = socket.state() == QAbstractSocket::ConnectedState;
    socket.abort();
    co_return connected;
}
