#include "accountfixture.h"

#include <QCoroTask>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {
class AuthServiceTest : public AccountFixture
{
protected:
    std::unique_ptr<AuthService> makeService()
    {
        return std::make_unique<AuthService>(&m_nam, config(), m_paths.credentialsDir);
    }
    void verify(AuthService &auth) { QCoro::waitFor(auth.verifyMagicLinkToken(u"magic-123"_s)); }
};

TEST_F(AuthServiceTest, ExchangesTheTokenKeepsTheSessionAcrossARestartAndLogoutForgetsIt)
{
    m_backend.on("POST", "/auth/verify-token",
        StandInServer::Reply {.status = 200,
            .body = R"({"sessionToken":"sess-1","user":{"id":"u1","email":"ada@example.com"},"extra":true})"});
    auto auth = makeService();
    verify(*auth);
    ASSERT_EQ(m_backend.requests().size(), 1);
    const StandInServer::Request request = m_backend.requests().first();
    EXPECT_EQ(request.headers.value("content-type"), "application/json");
    EXPECT_FALSE(request.headers.contains("authorization"));
    EXPECT_EQ(request.body, R"({"token":"magic-123"})");
    EXPECT_TRUE(auth->isAuthenticated());
    EXPECT_EQ(auth->sessionToken(), u"sess-1"_s);
    EXPECT_EQ(auth->currentUser(), (TamloUser {u"u1"_s, u"ada@example.com"_s, std::nullopt}));

    // The user is stored as JSON text, with no name key when there is none.
    const KeychainService stored(m_paths.credentialsDir, u"mirevon.Tamlo"_s);
    EXPECT_EQ(QJsonDocument::fromJson(stored.value(u"userData"_s)->toUtf8()).object(),
        (QJsonObject {{u"id"_s, u"u1"_s}, {u"email"_s, u"ada@example.com"_s}}));
    auto restarted = makeService();
    EXPECT_EQ(restarted->currentUser(), auth->currentUser());
    EXPECT_TRUE(restarted->isAuthenticated());

    // A failed exchange while signed in keeps the session.
    m_backend.on("POST", "/auth/verify-token", StandInServer::Reply {.status = 410});
    verify(*restarted);
    EXPECT_TRUE(restarted->isAuthenticated());
    EXPECT_EQ(restarted->sessionToken(), u"sess-1"_s);

    restarted->logout();
    EXPECT_FALSE(restarted->isAuthenticated());
    EXPECT_FALSE(restarted->currentUser().has_value());
    EXPECT_FALSE(QFile::exists(m_paths.credentialsFile()));
    EXPECT_EQ(m_backend.requests().size(), 2);
    EXPECT_FALSE(makeService()->isAuthenticated());
    storeSession();
    KeychainService(m_paths.credentialsDir, u"mirevon.Tamlo"_s)
        .setValue(uR"({"id":"u1","email":5,"name":"A"})"_s, u"userData"_s);
    EXPECT_FALSE(makeService()->isAuthenticated()) << "a stored address that is no text";
}

TEST_F(AuthServiceTest, EveryRejectionShowsItsText)
{
    const QString expired = u"Session expired. Please log in again."_s;
    const QString notFound = u"Server error: 404 Not Found"_s;
    const QString wrongFormat = u"The data couldn’t be read because it isn’t in the correct format."_s;
    auto auth = makeService();
    for (const auto &[status, body, expected] :
        QList<std::tuple<int, QByteArray, QString>> {{401, "", expired}, {403, R"({"error":"forbidden"})", expired},
            {404, R"({"error":"user not found"})", u"Account not found. Please register on Tamloweb."_s},
            {404, R"({"error":"User Not Found"})", notFound}, {404, "", notFound}, {404, R"({"error":404})", notFound},
            {410, R"({"error":"gone"})", u"This sign-in link has expired. Please log in again on Tamloweb."_s},
            {500, R"({"error":"database down"})", u"Server error: database down"_s},
            {500, R"({"error":500})", u"Server error: HTTP 500"_s},
            {502, "<html>bad gateway</html>", u"Server error: HTTP 502"_s},
            {200, R"({"sessionToken":"sess-1"})", u"The data couldn’t be read because it is missing."_s},
            {200, R"({"sessionToken":7,"user":{"id":"u1","email":"e"}})", wrongFormat},
            {200, R"({"sessionToken":"s","user":{"id":"u1","email":"e","name":1}})", wrongFormat},
            {200, "not json", wrongFormat}}) {
        m_backend.on("POST", "/auth/verify-token", StandInServer::Reply {.status = status, .body = body});
        verify(*auth);
        EXPECT_EQ(auth->error(), expected) << status << " " << body.toStdString();
    }

    // No usable backend address sends nothing; a transfer that fails shows the network's text.
    m_backend.clearRequests();
    const QString notConfigured = u"Backend URL is not configured. Please set it in Settings → Advanced."_s;
    for (const auto &[url, text] :
        {std::pair {u"  "_s, notConfigured}, {u"http://exa mple.com"_s, u"Invalid backend URL."_s}}) {
        m_settings.setString(SettingsKey::convexURL, url);
        verify(*auth);
        EXPECT_EQ(auth->error(), text);
    }
    EXPECT_TRUE(m_backend.requests().isEmpty());
    m_settings.remove(SettingsKey::convexURL);
    m_backend.on("POST", "/auth/verify-token", StandInServer::Reply {.drop = true});
    verify(*auth);
    EXPECT_FALSE(auth->error().value_or(u"Server error"_s).startsWith(u"Server error"_s));
    EXPECT_FALSE(auth->error()->isEmpty());
}
} // namespace
