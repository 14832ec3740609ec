#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QTcpSocket>

#include <functional>

// A connection that looks at each request's head before the HTTP server has all of it: a body
// that is too large, or whose size is not declared, is answered here, and the connection is cut
// off from the HTTP server, which never buffers it. Its readyRead handler is connected at
// construction, so it runs before the server's, and sees each arrival first.
class RequestGateSocket : public QTcpSocket
{
    Q_OBJECT
public:
    struct Limits
    {
        qint64 maxBodyBytes = 0; // the upload
        qint64 maxHeadBytes = 0;
        qint64 maxFormBodyBytes = 0; // every other path; 0 for the same as the upload
    };
    using RejectionLog = std::function<void(const QByteArray &method, const QByteArray &path, int status, qint64 ms)>;

    RequestGateSocket(Limits limits, RejectionLog log, QObject *parent = nullptr);

    [[nodiscard]] bool adopt(qintptr descriptor);

private:
    enum class State {
        Head,
        Body,
        Discard, // after a rejection: read and drop until the client is done or time is up
    };

    void inspect();
    void drain();
    void take(const char *data, qint64 size);
    void takeHead();
    void reject(int status, const QByteArray &reason, const QString &message);

    Limits m_limits;
    RejectionLog m_log;
    State m_state = State::Head;
    QByteArray m_head;
    qint64 m_bodyLeft = 0;
    qint64 m_discardLeft = 0;
    QByteArray m_method;
    QByteArray m_path;
    QElapsedTimer m_headTimer;
};
