#pragma once

#include "fakeclock.h"
#include "server/accountpages.h"
#include "server/apiendpoints.h"
#include "server/ratelimiter.h"
#include "server/requestlog.h"
#include "server/signinservice.h"
#include "server/sqlstorage.h"
#include "server/tamlohttpserver.h"
#include "server/webpages.h"

#include <QBuffer>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTimer>
#include <QUrlQuery>

#include <gtest/gtest.h>
#include <memory>

using namespace Qt::StringLiterals;

inline const QString deviceA = u"5D0A3C7E-1B42-4F6A-8E9D-7C21B04F6A11"_s;
inline const QString adaMail = u"ada@example.org"_s;
inline const QString eveMail = u"eve@example.org"_s;

// PostgreSQL where postgres-cluster.sh started a cluster for this process, SQLite otherwise.
class TestBackend
{
public:
    [[nodiscard]] bool networked() const { return !m_cluster.isEmpty(); }
    [[nodiscard]] std::unique_ptr<SqlStorage> openEmpty()
    {
        if (networked()) {
            scalar(u"SET client_min_messages TO WARNING; DROP SCHEMA public CASCADE; CREATE SCHEMA public"_s);
        }
        return open();
    }
    [[nodiscard]] std::unique_ptr<SqlStorage> open() const
    {
        return networked() ? SqlStorage::openPostgres(m_cluster) : SqlStorage::openSqlite(file());
    }
    [[nodiscard]] QStringList serverArguments() const
    {
        return networked() ? QStringList {u"--database"_s, m_cluster.toString()}
                           : QStringList {u"--data"_s, m_dir.path()};
    }
    // Past the server's code, on a connection of the test's own.
    QVariant scalar(const QString &sql) const
    {
        QVariant result;
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(networked() ? u"QPSQL"_s : u"QSQLITE"_s, u"test-side"_s);
            db.setDatabaseName(networked() ? m_cluster.path().mid(1) : file());
            db.setHostName(m_cluster.host());
            db.setPort(m_cluster.port());
            db.setUserName(m_cluster.userName());
            QSqlQuery query(db);
            if (db.open() && query.exec(sql) && query.next()) {
                result = query.value(0);
            }
        }
        QSqlDatabase::removeDatabase(u"test-side"_s);
        return result;
    }

private:
    [[nodiscard]] QString file() const { return m_dir.filePath(u"tamlo-server.sqlite3"_s); }

    QUrl m_cluster {qEnvironmentVariable("TAMLO_TEST_POSTGRES")};
    QTemporaryDir m_dir;
};

class BackendTest : public ::testing::Test
{
protected:
    TestBackend backend;
    std::unique_ptr<SqlStorage> storage = backend.openEmpty();
};

struct HttpResult
{
    int status = 0;
    QByteArray body;
    QHash<QByteArray, QByteArray> headers; // by lower-case name

    [[nodiscard]] QJsonObject json() const { return QJsonDocument::fromJson(body).object(); }
    [[nodiscard]] QString text() const { return QString::fromUtf8(body); }
    [[nodiscard]] QByteArray header(const QByteArray &name) const { return headers.value(name.toLower()); }
    [[nodiscard]] QString formToken() const // of the page's first form
    {
        static const QRegularExpression pattern(u"name=\"csrf\" value=\"([^\"]+)\""_s);
        return pattern.match(text()).captured(1);
    }
};

// As the app uploads them; an Other record has the project Other.
inline QJsonObject record(const QString &id, const QString &timestamp, const QString &type = u"Coding"_s,
    const QString &description = u"Editing checkout.css, in the editor."_s)
{
    return QJsonObject {{u"id"_s, id}, {u"timestamp"_s, timestamp}, {u"activityType"_s, type},
        {u"projectName"_s, type == u"Other"_s ? type : u"Website"_s}, {u"activityDescription"_s, description}};
}

inline QJsonObject day(const QString &date, const QJsonArray &records)
{
    return QJsonObject {{u"date"_s, date}, {u"snapshots"_s, records}};
}

inline QByteArray bytes(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

inline QJsonObject upload(const QJsonArray &days, const QString &device = deviceA, bool backfillComplete = false)
{
    return QJsonObject {{u"timezone"_s, u"Europe/Berlin"_s}, {u"deviceId"_s, device},
        {u"backfillComplete"_s, backfillComplete}, {u"days"_s, days}};
}

inline QByteArray oneDay()
{
    return bytes(
        upload({day(u"2026-11-16"_s, {record(u"6F1C0E2A-8B3D-4E57-9A10-2C4D7B1E3F90"_s, u"2026-11-16T09:30:12Z"_s)})}));
}

// For requests a well-behaved client never sends; the head of the answer.
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

// Cookies of its own, and no redirect followed, so that every reply is seen.
class Client
{
public:
    explicit Client(QUrl base = {}) : base(std::move(base)) { }

    HttpResult send(const QByteArray &method, const QString &path, const QByteArray &body = {},
        const std::optional<QString> &bearer = std::nullopt, const QByteArray &contentType = "application/json")
    {
        QNetworkRequest request(base.resolved(QUrl(path)));
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
        if (!body.isEmpty() || method == "POST") {
            request.setHeader(QNetworkRequest::ContentTypeHeader, contentType);
        }
        if (bearer) {
            request.setRawHeader("Authorization", "Bearer " + bearer->toUtf8());
        }
        QNetworkReply *reply = m_nam.sendCustomRequest(request, method, body);
        QEventLoop loop;
        QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
        loop.exec();
        HttpResult result {reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), reply->readAll(), {}};
        for (const auto &[name, value] : reply->rawHeaderPairs()) {
            result.headers.insert(name.toLower(), value);
        }
        reply->deleteLater();
        return result;
    }
    HttpResult get(const QString &path) { return send("GET", path); }
    // Tokens and test addresses hold no plus sign.
    HttpResult post(const QString &path, const QList<std::pair<QString, QString>> &fields)
    {
        QUrlQuery query;
        query.setQueryItems(fields);
        return send("POST", path, query.toString(QUrl::FullyEncoded).toUtf8(), {}, "application/x-www-form-urlencoded");
    }
    QString formToken(const QString &path) { return get(path).formToken(); }
    void signIn(const QString &email)
    {
        const HttpResult reply = post(u"/register"_s, {{u"csrf"_s, formToken(u"/register"_s)}, {u"email"_s, email}});
        EXPECT_EQ(reply.status, 303) << reply.text().toStdString();
        EXPECT_TRUE(reply.header("Location").endsWith("/days"));
    }

    QUrl base;

private:
    QNetworkAccessManager m_nam;
};

// Put together as tamlo-server puts itself together, with a clock the test moves; the fixture is
// itself the test's first browser.
class ServerTest : public BackendTest, public Client
{
protected:
    void SetUp() override
    {
        logBuffer.open(QIODevice::ReadWrite);
        api.setRateLimiter(&limiter);
        start();
    }

    void start()
    {
        pages = std::make_unique<WebPages>(&links, QUrl(), localSignIn);
        server = std::make_unique<TamloHttpServer>(&api, pages.get(), &log);
        account = std::make_unique<AccountPages>(storage.get(), pages.get(), &clock);
        pages->setRateLimiter(&limiter);
        server->setAccountPages(account.get());
        ASSERT_TRUE(server->listen(QHostAddress::LocalHost, 0));
        base = QUrl(u"http://127.0.0.1:%1"_s.arg(server->port()));
        pages->setPublicUrl(base);
    }

    QByteArray sendRaw(const QByteArray &bytes) { return rawExchange(server->port(), bytes); }
    HttpResult verify(const QString &token)
    {
        return send("POST", u"/auth/verify-token"_s, bytes({{u"token"_s, token}}));
    }
    HttpResult sync(const QByteArray &body, const QString &session)
    {
        return send("POST", u"/activity/sync"_s, body, session);
    }

    // The browser's part of signing the app in.
    QString linkToken(const QString &email, const QString &path = u"/register"_s)
    {
        const QString csrf = formToken(path + u"?redirect=tamlo://auth"_s);
        const HttpResult page
            = post(path, {{u"redirect"_s, u"tamlo://auth"_s}, {u"csrf"_s, csrf}, {u"email"_s, email}});
        EXPECT_EQ(page.status, 200) << page.text().toStdString();
        static const QRegularExpression callback(u"tamlo://auth\\?token=([A-Za-z0-9_-]+)"_s);
        return callback.match(page.text()).captured(1);
    }
    QString sessionFor(const QString &email)
    {
        const HttpResult verified = verify(linkToken(email));
        EXPECT_EQ(verified.status, 200);
        return verified.json().value(u"sessionToken"_s).toString();
    }

    bool localSignIn = true;
    FakeClock clock {QDateTime(QDate(2026, 11, 16), QTime(10, 0), Qt::UTC)};
    RateLimiter limiter {&clock};
    QBuffer logBuffer;
    RequestLog log {&logBuffer};
    SignInService links {storage.get(), &clock};
    ApiEndpoints api {storage.get(), &links, &clock};
    std::unique_ptr<WebPages> pages;
    std::unique_ptr<TamloHttpServer> server;
    std::unique_ptr<AccountPages> account;
};
