#include "server/requestgatesocket.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

#include <optional>

using namespace Qt::StringLiterals;

namespace {
// How long a rejected client may go on sending before the connection is closed on it.
constexpr auto discardGrace = std::chrono::seconds(10);
// The most a rejected client may send after its head before the connection is closed on it.
constexpr qint64 maxDiscardBytes = 256LL * 1024 * 1024;

std::optional<QByteArray> headerValue(const QList<QByteArray> &lines, const QByteArray &name)
{
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon > 0 && lines[i].left(colon).trimmed().compare(name, Qt::CaseInsensitive) == 0) {
            return lines[i].mid(colon + 1).trimmed();
        }
    }
    return std::nullopt;
}
} // namespace

RequestGateSocket::RequestGateSocket(Limits limits, RejectionLog log, QObject *parent)
    : QTcpSocket(parent), m_limits(limits), m_log(std::move(log))
{
    connect(this, &QIODevice::readyRead, this, &RequestGateSocket::inspect);
}

bool RequestGateSocket::adopt(qintptr descriptor)
{
    return setSocketDescriptor(descriptor);
}

void RequestGateSocket::inspect()
{
    // The HTTP server reads everything on each arrival, so what is unread now is what just came.
    const QByteArray fresh = peek(bytesAvailable());
    take(fresh.constData(), fresh.size());
}

void RequestGateSocket::drain()
{
    if (isTransactionStarted()) {
        commitTransaction();
    }
    m_discardLeft -= skip(bytesAvailable());
    if (m_discardLeft <= 0 && state() == QAbstractSocket::ConnectedState) {
        disconnectFromHost();
    }
}

void RequestGateSocket::take(const char *data, qint64 size)
{
    while (size > 0) {
        switch (m_state) {
        case State::Discard:
            return;
        case State::Body: {
            const qint64 n = std::min(size, m_bodyLeft);
            m_bodyLeft -= n;
            data += n;
            size -= n;
            if (m_bodyLeft == 0) {
                m_state = State::Head;
            }
            break;
        }
        case State::Head: {
            if (m_head.isEmpty()) {
                // Empty lines before a request line are allowed, and some clients send them.
                while (size > 0 && (*data == '\r' || *data == '\n')) {
                    ++data;
                    --size;
                }
                if (size == 0) {
                    return;
                }
                m_headTimer.start();
            }
            // Only as much as can still belong to this head; the rest is looked at again after it.
            const qsizetype before = m_head.size();
            m_head.append(data, size);
            const qsizetype end = m_head.indexOf("\r\n\r\n");
            if (end < 0) {
                if (m_head.size() > m_limits.maxHeadBytes) {
                    reject(431, "Request Header Fields Too Large", u"The request headers are too large."_s);
                }
                return;
            }
            const qsizetype headSize = end + 4;
            const qint64 used = headSize - before;
            data += used;
            size -= used;
            m_head.truncate(headSize);
            takeHead();
            break;
        }
        }
    }
}

void RequestGateSocket::takeHead()
{
    const QList<QByteArray> lines = m_head.left(m_head.size() - 4).split('\n');
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    m_method = requestLine.value(0);
    m_path = requestLine.value(1);
    if (m_head.size() > m_limits.maxHeadBytes) {
        reject(431, "Request Header Fields Too Large", u"The request headers are too large."_s);
        return;
    }
    const std::optional<QByteArray> declaredLength = headerValue(lines, "content-length");
    if (headerValue(lines, "transfer-encoding") && !declaredLength) {
        reject(411, "Length Required", u"A request body needs a Content-Length header."_s);
        return;
    }
    qint64 length = 0;
    if (declaredLength) {
        bool ok = false;
        length = declaredLength->toLongLong(&ok);
        if (!ok || length < 0 || declaredLength->startsWith('+')) {
            reject(400, "Bad Request", u"The Content-Length header is not a number."_s);
            return;
        }
    }
    const qsizetype query = m_path.indexOf('?');
    const bool upload = (query < 0 ? m_path : m_path.left(query)) == "/activity/sync";
    const qint64 limit = upload || m_limits.maxFormBodyBytes == 0 ? m_limits.maxBodyBytes : m_limits.maxFormBodyBytes;
    if (length > limit) {
        m_discardLeft = std::min(length, maxDiscardBytes);
        reject(413, "Payload Too Large",
            limit >= 1024 * 1024 ? u"The request body is larger than %1 MiB."_s.arg(limit / (1024 * 1024))
                                 : u"The request body is larger than %1 KiB."_s.arg(limit / 1024));
        return;
    }
    m_head.clear();
    m_bodyLeft = length;
    m_state = length > 0 ? State::Body : State::Head;
}

void RequestGateSocket::reject(int status, const QByteArray &reason, const QString &message)
{
    if (m_state != State::Discard && status != 413) {
        m_discardLeft = maxDiscardBytes; // the length is unknown: drain until the client closes or time is up
    }
    m_state = State::Discard;
    m_head.clear();
    // From here on the HTTP server hears nothing more of this connection; what it holds of the
    // rejected request's head is dropped with the connection.
    disconnect(this, &QIODevice::readyRead, nullptr, nullptr);
    connect(this, &QIODevice::readyRead, this, &RequestGateSocket::drain);
    const QByteArray body = QJsonDocument(QJsonObject {{u"error"_s, message}}).toJson(QJsonDocument::Compact);
    write("HTTP/1.1 " + QByteArray::number(status) + ' ' + reason
        + "\r\nContent-Type: application/json\r\nContent-Length: " + QByteArray::number(body.size())
        + "\r\nConnection: close\r\n\r\n" + body);
    if (m_log) {
        const qsizetype query = m_path.indexOf('?');
        m_log(m_method, query < 0 ? m_path : m_path.left(query), status, m_headTimer.elapsed());
    }
    QMetaObject::invokeMethod(this, &RequestGateSocket::drain, Qt::QueuedConnection);
    // The client gets time to finish sending, so that it reads the answer instead of a reset.
    QTimer::singleShot(discardGrace, this, [this] {
        if (state() != QAbstractSocket::UnconnectedState) {
            abort();
        }
    });
}
