#pragma once

#include "backend.h"
#include "fakeclock.h"
#include "server/accountpages.h"
#include "server/apiendpoints.h"
#include "server/ratelimiter.h"
#include "server/requestlog.h"
#include "server/signinservice.h"
#include "server/tamlohttpserver.h"
#include "server/webpages.h"

#include <QBuffer>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QTimer>

#include <optional>

struct HttpResult
{
    int status = 0;
    QByteArray body;
    QList<QNetworkReply::RawHeaderPair> headers;

    [[nodiscard]] QJsonObject json() const { return QJsonDocument::fromJson(body).object(); }
    [[nodiscard]] QString text() const { return QString::fromUtf8(body); }
    [[nodiscard]] QByteArray header(const QByteArray &name) const
    {
        for (const auto &[key, value] : headers) {
            if (key.compare(name, Qt::CaseInsensitive) == 0) {
                return value;
            }
        }
        return {};
    }
};

inline HttpResult finished(QNetworkReply *reply)
{
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();
    HttpResult result {
        reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), reply->readAll(), reply->rawHeaderPairs()};
    reply->deleteLater();
    return result;
}

inline QByteArray formBody(const QList<std::pair<QString, QString>> &fields)
{
    QByteArray body;
    for (const auto &[key, value] : fields) {
        body += (body.isEmpty() ? "" : "&") + QUrl::toPercentEncoding(key) + '=' + QUrl::toPercentEncoding(value);
    }
    return body;
}

// The form token a page's forms carry (the first one).
inline QString formToken(const HttpResult &page)
{
    static const QRegularExpression pattern(QStringLiteral("name=\"csrf\" value=\"([^\"]+)\""));
    return pattern.match(page.text()).captured(1);
}

inline std::optional<QString> callbackToken(const HttpResult &page)
{
    static const QRegularExpression pattern(QStringLiteral("tamlo://auth\\?token=([A-Za-z0-9_-]+)"));
    const QRegularExpressionMatch match = pattern.match(page.text());
    return match.hasMatch() ? std::optional<QString>(match.captured(1)) : std::nullopt;
}

// One record as the app uploads it, and an upload of days of them.
inline QJsonObject record(const QString &id, const QString &timestamp, const QString &type = QStringLiteral("Coding"),
    const QString &description = QStringLiteral("Editing checkout.css, in the editor."))
{
    const QString project = type == QStringLiteral("Other") ? type : QStringLiteral("Website");
    return QJsonObject {{QStringLiteral("id"), id}, {QStringLiteral("timestamp"), timestamp},
        {QStringLiteral("activityType"), type}, {QStringLiteral("projectName"), project},
        {QStringLiteral("activityDescription"), description}};
}

inline QJsonObject day(const QString &date, const QJsonArray &records)
{
    return QJsonObject {{QStringLiteral("date"), date}, {QStringLiteral("snapshots"), records}};
}

inline QByteArray bytes(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

inline QJsonObject upload(const QJsonArray &days, const QString &device = deviceA, bool backfillComplete = false)
{
    return QJsonObject {{QStringLiteral("timezone"), QStringLiteral("Europe/Berlin")},
        {QStringLiteral("deviceId"), device}, {QStringLiteral("backfillComplete"), backfillComplete},
        {QStringLiteral("days"), days}};
}

inline QByteArray oneDay(const QString &type = QStringLiteral("Coding"))
{
    return bytes(upload({day(QStringLiteral("2026-11-16"),
        {record(
            QStringLiteral("6F1C0E2A-8B3D-4E57-9A10-2C4D7B1E3F90"), QStringLiteral("2026-11-16T09:30:12Z"), type)})}));
}

// Bytes exactly as given, for requests a well-behaved client never sends; the head of the answer.
inline QByteArray rawExchange(quint16 port, const QByteArray &bytes, int timeoutMs = 5000)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    EXPECT_TRUE(socket.waitForConnected(5000));
    socket.write(bytes);
    QByteArray answer;
    QEventLoop loop;
    QObject::connect(&socket, &QTcpSocket::readyRead, &loop, [&] {
        answer += socket.readAll();
        if (answer.contains("\r\n\r\n")) {
            loop.quit();
        }
    });
    QObject::connect(&socket, &QTcpSocket::disconnected, &loop, &QEventLoop::quit);
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    loop.exec();
    return answer;
}

// A client with cookies of its own that follows no redirect, so that every reply is seen.
class Client
{
public:
    explicit Client(QUrl base) : m_base(std::move(base)) { }

    HttpResult send(const QByteArray &method, const QString &path, const QByteArray &body = {},
        const std::optional<QString> &bearer = std::nullopt,
        const QByteArray &contentType = QByteArrayLiteral("application/json"))
    {
        QNetworkRequest request(m_base.resolved(QUrl(path)));
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
        if (!body.isEmpty() || method == "POST") {
            request.setHeader(QNetworkRequest::ContentTypeHeader, contentType);
        }
        if (bearer) {
            request.setRawHeader("Authorization", "Bearer " + bearer->toUtf8());
        }
        return finished(m_nam.sendCustomRequest(request, method, body));
    }
    HttpResult get(const QString &path) { return send("GET", path); }
    HttpResult post(const QString &path, const QList<std::pair<QString, QString>> &fields)
    {
        return send("POST", path, formBody(fields), std::nullopt, "application/x-www-form-urlencoded");
    }
    // The form token of the page at path, fetched as a browser does before it posts.
    QString formToken(const QString &path) { return ::formToken(get(path)); }
    [[nodiscard]] bool hasSession() const
    {
        const QList<QNetworkCookie> cookies = m_nam.cookieJar()->cookiesForUrl(m_base);
        return std::any_of(
            cookies.begin(), cookies.end(), [](const QNetworkCookie &c) { return c.name() == "tamlo_session"; });
    }
    // In local mode, without a redirect, the form signs the browser itself in.
    void signIn(const QString &email)
    {
        const HttpResult reply = post(QStringLiteral("/register"),
            {{QStringLiteral("csrf"), formToken(QStringLiteral("/register"))}, {QStringLiteral("email"), email}});
        EXPECT_EQ(reply.status, 303) << reply.text().toStdString();
        EXPECT_TRUE(reply.header("Location").endsWith("/days"));
    }

private:
    QUrl m_base;
    QNetworkAccessManager m_nam;
};

// A real server on 127.0.0.1, set up as tamlo-server sets itself up, on the engine of the test's
// parameter, with a clock the test moves.
class ServerTest : public BackendTest
{
protected:
    void SetUp() override
    {
        BackendTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        logBuffer.open(QIODevice::ReadWrite);
        signIn = std::make_unique<SignInService>(storage.get(), &clock);
        api = std::make_unique<ApiEndpoints>(storage.get(), signIn.get(), &clock);
        pages = std::make_unique<WebPages>(signIn.get(), QUrl(), localSignIn);
        log = std::make_unique<RequestLog>(&logBuffer);
        server = std::make_unique<TamloHttpServer>(api.get(), pages.get(), log.get());
        account = std::make_unique<AccountPages>(storage.get(), pages.get(), &clock);
        api->setRateLimiter(&limiter);
        pages->setRateLimiter(&limiter);
        server->setAccountPages(account.get());
        ASSERT_TRUE(server->listen(QHostAddress::LocalHost, 0));
        baseUrl = QUrl(QStringLiteral("http://127.0.0.1:%1").arg(server->port()));
        pages->setPublicUrl(baseUrl);
        http = std::make_unique<Client>(baseUrl);
    }

    HttpResult send(const QByteArray &method, const QString &path, const QByteArray &body = {},
        const std::optional<QString> &bearer = std::nullopt)
    {
        return http->send(method, path, body, bearer);
    }
    QByteArray sendRaw(const QByteArray &bytes) { return rawExchange(server->port(), bytes); }
    HttpResult verify(const QString &token)
    {
        return send("POST", QStringLiteral("/auth/verify-token"), tokenBody(token));
    }
    HttpResult sync(const QByteArray &body, const std::optional<QString> &session)
    {
        return send("POST", QStringLiteral("/activity/sync"), body, session);
    }

    static QByteArray tokenBody(const QString &token) { return bytes(QJsonObject {{QStringLiteral("token"), token}}); }

    // The browser's part of signing the app in: the form posted, the link taken from the page.
    QString linkToken(const QString &email, const QString &path = QStringLiteral("/register"))
    {
        const QString csrf = http->formToken(path + QStringLiteral("?redirect=tamlo://auth"));
        const HttpResult page = http->post(path,
            {{QStringLiteral("redirect"), QStringLiteral("tamlo://auth")}, {QStringLiteral("csrf"), csrf},
                {QStringLiteral("email"), email}});
        EXPECT_EQ(page.status, 200) << page.text().toStdString();
        return callbackToken(page).value_or(QString());
    }

    QString sessionFor(const QString &email)
    {
        const HttpResult verified = verify(linkToken(email));
        EXPECT_EQ(verified.status, 200);
        return verified.json().value(QStringLiteral("sessionToken")).toString();
    }

    bool localSignIn = true;
    FakeClock clock {QDateTime(QDate(2026, 11, 16), QTime(10, 0), Qt::UTC)};
    RateLimiter limiter {&clock};
    QBuffer logBuffer;
    std::unique_ptr<SignInService> signIn;
    std::unique_ptr<ApiEndpoints> api;
    std::unique_ptr<WebPages> pages;
    std::unique_ptr<RequestLog> log;
    std::unique_ptr<TamloHttpServer> server;
    std::unique_ptr<AccountPages> account;
    QUrl baseUrl;
    std::unique_ptr<Client> http;
};
