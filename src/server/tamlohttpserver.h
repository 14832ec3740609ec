#pragma once

#include "server/apiendpoints.h"
#include "server/webpages.h"

#include <QAbstractHttpServer>
#include <QHostAddress>
#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcServer)

class AccountPages;
class CappedTcpServer;
class RequestLog;

// Routes every request to its endpoint or page, answers it and logs one line for it.
class TamloHttpServer : public QAbstractHttpServer
{
    Q_OBJECT
public:
    static constexpr qint64 maxHeadBytes = 64 * 1024;
    // Forms are small; only the upload may be large.
    static constexpr qint64 maxFormBodyBytes = 64 * 1024;

    TamloHttpServer(ApiEndpoints *api, WebPages *pages, RequestLog *log, QObject *parent = nullptr);

    // The signed-in pages; without them the server serves sign-in and the API alone.
    void setAccountPages(AccountPages *pages) { m_account = pages; }

    // Port 0 picks a free one. Returns false with errorString() set.
    [[nodiscard]] bool listen(const QHostAddress &address, quint16 port);
    [[nodiscard]] quint16 port() const { return m_port; }
    [[nodiscard]] QString errorString() const { return m_errorString; }
    // A path the server does not serve is the client's own text, which could carry anything: the
    // log names only the paths it knows.
    [[nodiscard]] static QByteArray loggedPath(const QByteArray &path);

protected:
    bool handleRequest(const QHttpServerRequest &request, QTcpSocket *socket) override;
    void missingHandler(const QHttpServerRequest &request, QTcpSocket *socket) override;

private:
    [[nodiscard]] HttpReply route(const QHttpServerRequest &request);
    void send(const QHttpServerRequest &request, QTcpSocket *socket, const HttpReply &reply);

    ApiEndpoints *m_api = nullptr;
    WebPages *m_pages = nullptr;
    AccountPages *m_account = nullptr;
    RequestLog *m_log = nullptr;
    quint16 m_port = 0;
    QString m_errorString;
};
