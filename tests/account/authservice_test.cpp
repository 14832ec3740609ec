#include "accountfixture.h"

#include <QCoroTask>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
const QByteArray userJson = R"({"id":"u1","email":"ada@example.com","name":"Ada"})";

class AuthServiceTest : public AccountFixture
{
protected:
    std::unique_ptr<AuthService> makeService()
    {
        return std::make_unique<AuthService>(&m_nam, config(), m_paths.credentialsDir);
    }
    void store(const QString &key, const QString &value)
    {
        KeychainService(m_paths.credentialsDir, u"mirevon.Tamlo"_s).setValue(value, key);
    }
    QByteArray fileBytes() const
    {
        QFile file(m_paths.credentialsFile());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
};

TEST_F(AuthServiceTest, ExchangesTheTokenAndKeepsTheSession)
{
    m_backend.on("POST", "/auth/verify-token",
        StandInServer::Reply {.status = 200,
            .body = R"({"sessionToken":"sess-1","user":{"id":"u1","email":"ada@example.com"},"extra":true})"});
    auto auth = makeService();
    QCoro::waitFor(auth->verifyMagicLinkToken(u"magic-123"_s));

    ASSERT_EQ(m_backend.requests().size(), 1);
    const StandInServer::Request request = m_backend.requests().first();
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.path, "/auth/verify-token");
    EXPECT_EQ(request.headers.value("content-type"), "application/json");
    EXPECT_FALSE(request.headers.contains("authorization"));
    EXPECT_EQ(request.body, R"({"token":"magic-123"})");

    EXPECT_TRUE(auth->isAuthenticated());
    EXPECT_FALSE(auth->isLoading());
    EXPECT_FALSE(auth->error().has_value());
    EXPECT_EQ(auth->sessionToken(), u"sess-1"_s);
    ASSERT_TRUE(auth->currentUser().has_value());
    EXPECT_EQ(auth->currentUser()->email, u"ada@example.com"_s);
    EXPECT_FALSE(auth->currentUser()->name.has_value());

    // The user is stored as JSON text, with no name key when there is none.
    const KeychainService stored(m_paths.credentialsDir, u"mirevon.Tamlo"_s);
    EXPECT_EQ(stored.value(u"sessionToken"_s), u"sess-1"_s);
    const QJsonObject userData = QJsonDocument::fromJson(stored.value(u"userData"_s)->toUtf8()).object();
    EXPECT_EQ(userData, (QJsonObject {{u"id"_s, u"u1"_s}, {u"email"_s, u"ada@example.com"_s}}));

    // And the next start is signed in without asking the backend.
    auto restarted = makeService();
    EXPECT_TRUE(restarted->isAuthenticated());
    EXPECT_EQ(restarted->currentUser(), auth->currentUser());
    EXPECT_EQ(m_backend.requests().size(), 1);
}

struct FailureRow
{
    int status;
    QByteArray body;
    QString expected;
};

TEST_F(AuthServiceTest, EveryRejectionShowsItsTextAndStoresNothing)
{
    const QList<FailureRow> rows {
        {401, "", u"Session expired. Please log in again."_s},
        {403, R"({"error":"forbidden"})", u"Session expired. Please log in again."_s},
        {404, R"({"error":"user not found"})", u"Account not found. Please register on Tamloweb."_s},
        {404, R"({"error":"User Not Found"})", u"Server error: 404 Not Found"_s},
        {404, "", u"Server error: 404 Not Found"_s},
        {404, R"({"error":404})", u"Server error: 404 Not Found"_s},
        {410, R"({"error":"gone"})", u"This sign-in link has expired. Please log in again on Tamloweb."_s},
        {500, R"({"error":"database down"})", u"Server error: database down"_s},
        {500, R"({"error":500})", u"Server error: HTTP 500"_s},
        {502, "<html>bad gateway</html>", u"Server error: HTTP 502"_s},
        {200, R"({"sessionToken":"sess-1"})", u"The data couldn’t be read because it is missing."_s},
        {200, R"({"sessionToken":7,"user":{"id":"u1","email":"e"}})",
            u"The data couldn’t be read because it isn’t in the correct format."_s},
        {200, "not json", u"The data couldn’t be read because it isn’t in the correct format."_s},
    };
    auto auth = makeService();
    for (const FailureRow &row : rows) {
        m_backend.on("POST", "/auth/verify-token", StandInServer::Reply {.status = row.status, .body = row.body});
        QCoro::waitFor(auth->verifyMagicLinkToken(u"t"_s));
        EXPECT_EQ(auth->error(), row.expected) << row.status << " " << row.body.toStdString();
        EXPECT_FALSE(auth->isAuthenticated());
        EXPECT_FALSE(auth->isLoading());
        EXPECT_FALSE(QFile::exists(m_paths.credentialsFile()));
    }
}

TEST_F(AuthServiceTest, UnusableBackendAddressSendsNothingAndATransportFailureShowsTheNetworkText)
{
    auto auth = makeService();
    m_settings.setString(u"convexURL"_s, u"  "_s);
    QCoro::waitFor(auth->verifyMagicLinkToken(u"t"_s));
    EXPECT_EQ(auth->error(), u"Backend URL is not configured. Please set it in Settings → Advanced."_s);

    m_settings.setString(u"convexURL"_s, u"http://exa mple.com"_s);
    QCoro::waitFor(auth->verifyMagicLinkToken(u"t"_s));
    EXPECT_EQ(auth->error(), u"Invalid backend URL."_s);
    EXPECT_FALSE(auth->isLoading());
    EXPECT_TRUE(m_backend.requests().isEmpty());

    m_settings.remove(u"convexURL"_s);
    m_backend.on("POST", "/auth/verify-token", StandInServer::Reply {.drop = true});
    QCoro::waitFor(auth->verifyMagicLinkToken(u"t"_s));
    ASSERT_TRUE(auth->error().has_value());
    EXPECT_FALSE(auth->error()->isEmpty());
    EXPECT_FALSE(auth->error()->startsWith(u"Server error"_s));
    EXPECT_FALSE(auth->isAuthenticated());
    EXPECT_FALSE(auth->isLoading());
}

TEST_F(AuthServiceTest, FailedExchangeWhileSignedInKeepsTheSession)
{
    store(u"sessionToken"_s, u"old"_s);
    store(u"userData"_s, QString::fromUtf8(userJson));
    m_backend.on("POST", "/auth/verify-token", StandInServer::Reply {.status = 410});
    auto auth = makeService();
    QCoro::waitFor(auth->verifyMagicLinkToken(u"t"_s));
    EXPECT_TRUE(auth->isAuthenticated());
    EXPECT_EQ(auth->sessionToken(), u"old"_s);
}

TEST_F(AuthServiceTest, AStoredTokenWithoutADecodableUserStartsSignedOutAndLeavesTheFile)
{
    store(u"sessionToken"_s, u"sess-1"_s);
    auto withoutUser = makeService();
    EXPECT_FALSE(withoutUser->isAuthenticated());
    EXPECT_EQ(withoutUser->sessionToken(), u"sess-1"_s);

    store(u"userData"_s, u"{\"id\":\"u1\"}"_s);
    const QByteArray before = fileBytes();
    auto undecodable = makeService();
    EXPECT_FALSE(undecodable->isAuthenticated());
    EXPECT_FALSE(undecodable->currentUser().has_value());
    EXPECT_EQ(fileBytes(), before);
}

TEST_F(AuthServiceTest, LogoutForgetsTheSessionLocally)
{
    store(u"sessionToken"_s, u"sess-1"_s);
    store(u"userData"_s, QString::fromUtf8(userJson));
    auto auth = makeService();
    ASSERT_TRUE(auth->isAuthenticated());
    EXPECT_EQ(auth->property("currentUser").value<TamloUser>().name, u"Ada"_s);

    QSignalSpy authenticated(auth.get(), &AuthService::isAuthenticatedChanged);
    auth->logout();
    EXPECT_FALSE(auth->isAuthenticated());
    EXPECT_EQ(authenticated.count(), 1);
    EXPECT_FALSE(auth->currentUser().has_value());
    EXPECT_FALSE(auth->sessionToken().has_value());
    EXPECT_FALSE(QFile::exists(m_paths.credentialsFile()));
    EXPECT_TRUE(m_backend.requests().isEmpty());
    auth->logout(); // nothing left to remove
    EXPECT_FALSE(makeService()->isAuthenticated());
}
} // namespace
