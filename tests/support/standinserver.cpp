#include "standinserver.h"

#include <QPointer>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>

StandInServer::StandInServer(QObject *parent) : QObject(parent)
{
    connect(&m_server, &QTcpServer::newConnection, this, &StandInServer::onNewConnection);
    m_server.listen(QHostAddress::LocalHost, 0);
}

StandInServer::~StandInServer()
{
    // A connection still open (a silent reply) would report its end into members already gone.
    for (QTcpSocket *socket : m_server.findChildren<QTcpSocket *>()) {
        socket->disconnect(this);
    }
}

QUrl StandInServer::url() const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort()));
}

void StandInServer::on(const QByteArray &method, const QByteArray &path, Handler handler)
{
    m_routes.insert(method + ' ' + path, std::move(handler));
}

QList<StandInServer::Request> StandInServer::requestsTo(const QByteArray &path) const
{
    QList<Request> result;
    std::copy_if(m_requests.cbegin(), m_requests.cend(), std::back_inserter(result),
        [&path](const Request &request) { return request.path == path; });
    return result;
}

void StandInServer::onNewConnection()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onReadyRead(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            m_buffers.remove(socket);
            socket->deleteLater();
        });
    }
}

void StandInServer::onReadyRead(QTcpSocket *socket)
{
    QByteArray &buffer = m_buffers[socket];
    buffer += socket->readAll();
    const qsizetype headerEnd = buffer.indexOf("\r\n\r\n");
    if (headerEnd < 0) {
        return;
    }
    Request request;
    const QList<QByteArray> lines = buffer.left(headerEnd).split('\n');
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    request.method = requestLine.value(0);
    const QByteArray target = requestLine.value(1);
    const qsizetype question = target.indexOf('?');
    request.path = question < 0 ? target : target.left(question);
    request.query = question < 0 ? QByteArray() : target.mid(question + 1);
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon > 0) {
            request.headers.insert(lines[i].left(colon).trimmed().toLower(), lines[i].mid(colon + 1).trimmed());
        }
    }
    const qsizetype length = request.headers.value("content-length", "0").toLongLong();
    if (buffer.size() < headerEnd + 4 + length) {
        return;
    }
    request.body = buffer.mid(headerEnd + 4, length);
    buffer.clear();
    m_requests.append(request);

    const auto route = m_routes.constFind(request.method + ' ' + request.path);
    const Reply reply = route != m_routes.constEnd() ? (*route)(request) : Reply {404, "{}"};
    if (reply.silent) {
        return;
    }
    QPointer<QTcpSocket> guard(socket);
    QTimer::singleShot(reply.delayMs, this, [guard, reply] {
        if (!guard) {
            return;
        }
        if (reply.drop) {
            guard->abort();
            return;
        }
        QByteArray response = "HTTP/1.1 " + QByteArray::number(reply.status) + " Status\r\n";
        response += "Content-Type: " + reply.contentType + "\r\n";
        response += "Content-Length: " + QByteArray::number(reply.body.size()) + "\r\n";
        response += "Connection: close\r\n\r\n";
        response += reply.body;
        guard->write(response);
        guard->disconnectFromHost();
    });
}
