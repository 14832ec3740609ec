#include "server/tamlohttpserver.h"

#include "server/accountpages.h"
#include "server/cappedtcpserver.h"
#include "server/requestlog.h"
#include "server/storage.h"
#include "server/websecurity.h"

#include <QElapsedTimer>
#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QMetaEnum>
#include <QRegularExpression>

Q_LOGGING_CATEGORY(lcServer, "tamlo.server")

using namespace Qt::StringLiterals;

namespace {
using Method = QHttpServerRequest::Method;

QByteArray methodName(Method method)
{
    const char *key = QMetaEnum::fromType<Method>().valueToKey(static_cast<int>(method));
    return key ? QByteArray(key).toUpper() : QByteArray("UNKNOWN");
}

// A database's complaint can quote the row it choked on; the log keeps no e-mail address.
QString withoutAddresses(QString text)
{
    static const QRegularExpression address(u"[^\\s()'\"=]+@[^\\s()'\"]+"_s);
    return text.replace(address, u"<address>"_s);
}

const QList<QByteArray> &knownPaths()
{
    static const QList<QByteArray> paths {"/auth/verify-token", "/activity/sync", "/activity/status", "/auth/me",
        "/login", "/register", "/docs/installation", "/style.css", "/", "/auth/link", "/days", "/sync", "/devices",
        "/sessions/sign-out", "/export", "/export/tamlo-data.json", "/export/tamlo-days.csv", "/account",
        "/account/delete", "/logout"};
    return paths;
}

HttpReply methodNotAllowed(const QByteArray &allowed)
{
    HttpReply reply = HttpReply::error(405, u"Method not allowed"_s);
    reply.headers.emplaceBack(QByteArray("Allow"), QByteArray(allowed));
    return reply;
}
} // namespace

TamloHttpServer::TamloHttpServer(ApiEndpoints *api, WebPages *pages, RequestLog *log, QObject *parent)
    : QAbstractHttpServer(parent), m_api(api), m_pages(pages), m_log(log)
{
}

bool TamloHttpServer::listen(const QHostAddress &address, quint16 port)
{
    RequestLog *log = m_log;
    auto *server = new CappedTcpServer(
        {ApiEndpoints::maxSyncBodyBytes, maxHeadBytes, maxFormBodyBytes},
        [log](const QByteArray &method, const QByteArray &path, int status, qint64 ms) {
            log->record(method, loggedPath(path), status, ms);
        },
        this);
    if (!server->listen(address, port)) {
        m_errorString = server->errorString();
        delete server;
        return false;
    }
    m_port = server->serverPort();
    bind(server);
    return true;
}

QByteArray TamloHttpServer::loggedPath(const QByteArray &path)
{
    const qsizetype query = path.indexOf('?');
    const QByteArray bare = query < 0 ? path : path.left(query);
    if (bare.startsWith("/days/")) {
        return "/days/(day)";
    }
    return knownPaths().contains(bare) ? bare : QByteArray("(other)");
}

bool TamloHttpServer::handleRequest(const QHttpServerRequest &request, QTcpSocket *socket)
{
    QElapsedTimer timer;
    timer.start();
    HttpReply reply;
    try {
        reply = route(request);
    } catch (const StorageError &error) {
        qCWarning(lcServer).noquote() << "storage failure:" << withoutAddresses(error.message());
        reply = HttpReply::error(500, u"Internal server error"_s);
    } catch (const std::exception &error) {
        qCWarning(lcServer) << "unexpected failure:" << error.what();
        reply = HttpReply::error(500, u"Internal server error"_s);
    }
    send(request, socket, reply);
    m_log->record(
        methodName(request.method()), loggedPath(request.url().path().toUtf8()), reply.status, timer.elapsed());
    return true;
}

void TamloHttpServer::missingHandler(const QHttpServerRequest &request, QTcpSocket *socket)
{
    const HttpReply reply = HttpReply::error(404, u"Not found"_s);
    send(request, socket, reply);
    m_log->record(methodName(request.method()), loggedPath(request.url().path().toUtf8()), reply.status, 0);
}

HttpReply TamloHttpServer::route(const QHttpServerRequest &request)
{
    const QString path = request.url().path();
    const Method method = request.method();
    const bool get = method == Method::Get;
    const bool post = method == Method::Post;
    if (path == u"/auth/verify-token"_s) {
        return post ? m_api->verifyToken(request) : methodNotAllowed("POST");
    }
    if (path == u"/activity/sync"_s) {
        return post ? m_api->sync(request) : methodNotAllowed("POST");
    }
    if (path == u"/activity/status"_s) {
        return get ? m_api->status(request) : methodNotAllowed("GET");
    }
    if (path == u"/auth/me"_s) {
        return get ? m_api->me(request) : methodNotAllowed("GET");
    }
    if (path == u"/login"_s) {
        return get || post ? m_pages->login(request) : methodNotAllowed("GET, POST");
    }
    if (path == u"/register"_s) {
        return get || post ? m_pages->registration(request) : methodNotAllowed("GET, POST");
    }
    if (path == u"/docs/installation"_s) {
        return get ? m_pages->installationGuide() : methodNotAllowed("GET");
    }
    if (path == u"/style.css"_s) {
        return get ? WebPages::stylesheet() : methodNotAllowed("GET");
    }
    if (path == u"/auth/link"_s) {
        return get || post ? m_pages->emailLink(request) : methodNotAllowed("GET, POST");
    }
    if (m_account) {
        if (std::optional<HttpReply> reply = m_account->handle(request)) {
            return *reply;
        }
    }
    if (path == u"/"_s) {
        if (!get) {
            return methodNotAllowed("GET");
        }
        // A signed-in browser goes straight to its days.
        return m_account && WebSecurity::cookie(request, WebSecurity::sessionCookie)
            ? WebPages::redirect(m_pages->link(u"/days"_s))
            : m_pages->home();
    }
    return HttpReply::error(404, u"Not found"_s);
}

void TamloHttpServer::send(const QHttpServerRequest &request, QTcpSocket *socket, const HttpReply &given)
{
    HttpReply reply = given;
    WebSecurity::addSecurityHeaders(reply);
    QHttpServerResponder responder = makeResponder(request, socket);
    responder.writeStatusLine(static_cast<QHttpServerResponder::StatusCode>(reply.status));
    responder.writeHeader("Content-Type", reply.contentType);
    responder.writeHeader("Content-Length", QByteArray::number(reply.body.size()));
    responder.writeHeader("X-Content-Type-Options", "nosniff");
    for (const auto &[name, value] : reply.headers) {
        responder.writeHeader(name, value);
    }
    responder.writeBody(reply.body);
}
