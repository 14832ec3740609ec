#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QTcpServer>
#include <QUrl>

#include <functional>

// A real HTTP server on 127.0.0.1 standing in for Ollama or the backend; it records every request.
class StandInServer : public QObject
{
    Q_OBJECT
public:
    struct Request
    {
        QByteArray method;
        QByteArray path; // without the query
        QByteArray query; // without the '?'
        QHash<QByteArray, QByteArray> headers; // names in lower case
        QByteArray body;
        [[nodiscard]] QJsonObject json() const { return QJsonDocument::fromJson(body).object(); }
    };

    struct Reply
    {
        int status = 200;
        QByteArray body;
        QByteArray contentType = "application/json";
        int delayMs = 0;
        bool drop = false; // close the connection without answering
        bool silent = false; // never answer, keep the connection open
    };

    using Handler = std::function<Reply(const Request &)>;

    explicit StandInServer(QObject *parent = nullptr);
    ~StandInServer() override;

    [[nodiscard]] QUrl url() const;
    // Routes by "METHOD /path"; an unknown route answers 404.
    void on(const QByteArray &method, const QByteArray &path, Handler handler);
    void on(const QByteArray &method, const QByteArray &path, Reply reply)
    {
        on(method, path, [reply](const Request &) { return reply; });
    }
    [[nodiscard]] QList<Request> requests() const { return m_requests; }
    [[nodiscard]] QList<Request> requestsTo(const QByteArray &path) const;
    void clearRequests() { m_requests.clear(); }

private:
    void onNewConnection();
    void onReadyRead(QTcpSocket *socket);

    QTcpServer m_server;
    QHash<QByteArray, Handler> m_routes;
    QList<Request> m_requests;
    QHash<QTcpSocket *, QByteArray> m_buffers;
};
