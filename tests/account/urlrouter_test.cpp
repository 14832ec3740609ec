#include "account/urlrouter.h"
#include "accountfixture.h"
#include "records.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {
class UrlRouterTest : public AccountFixture
{
protected:
    void start()
    {
        startServices();
        m_router = std::make_unique<UrlRouter>(m_auth.get(), m_sync.get());
    }

    [[nodiscard]] QStringList verifiedTokens() const
    {
        QStringList tokens;
        for (const StandInServer::Request &request : m_backend.requestsTo("/auth/verify-token")) {
            tokens.append(QJsonDocument::fromJson(request.body).object().value(u"token"_s).toString());
        }
        return tokens;
    }

    std::unique_ptr<UrlRouter> m_router;
};

TEST_F(UrlRouterTest, CallbackTokenSignsInAndUnfitUrlsAreDroppedWithoutAWord)
{
    start();
    // Scheme and host match in any case, the key does not; the first item named token is used,
    // decoded, and an empty first one ends the search.
    const QList<std::pair<QString, QString>> rows {{u"tamlo://auth?token="_s, {}}, {u"tamlo://auth?token"_s, {}},
        {u"tamlo://auth"_s, {}}, {u"tamlo://login?token=abc"_s, {}}, {u"tamlo://?token=abc"_s, {}},
        {u"tamlo:auth?token=abc"_s, {}}, {u"https://auth?token=abc"_s, {}}, {u"tamlox://auth?token=abc"_s, {}},
        {u"//auth?token=abc"_s, {}}, {u""_s, {}}, {u"tamlo://auth?Token=capital"_s, {}},
        {u"tamlo://auth?token=&token=second"_s, {}}, {u"https://sync"_s, {}}, {u"tamlo:sync"_s, {}},
        {u"tamlo://synchronize"_s, {}}, {u"tamlo://auth?token=magic-1"_s, u"magic-1"_s},
        {u"TAMLO://AUTH?token=upper"_s, u"upper"_s}, {u"Tamlo://Auth/?token=mixed"_s, u"mixed"_s},
        {u"tamlo://auth?redirect=x&Token=no&token=first&token=second"_s, u"first"_s},
        {u"tamlo://auth?token=a%2Bb%3D%26c"_s, u"a+b=&c"_s}};
    QStringList expected;
    for (const auto &[url, token] : rows) {
        m_router->handleURL(url);
        if (!token.isEmpty()) {
            expected.append(token);
            ASSERT_TRUE(QTest::qWaitFor([&] { return verifiedTokens().size() == expected.size(); }, 5000));
            ASSERT_TRUE(QTest::qWaitFor([&] { return !m_auth->isLoading(); }, 5000));
        }
    }
    EXPECT_EQ(verifiedTokens(), expected);
    EXPECT_TRUE(m_auth->isAuthenticated());
    EXPECT_EQ(m_auth->sessionToken(), u"sess-1"_s);
    QTest::qWait(int(UrlRouter::syncDelay.count()) + 200);
    EXPECT_TRUE(m_backend.requestsTo("/activity/sync").isEmpty());
    EXPECT_TRUE(logMessages().isEmpty());
}

TEST_F(UrlRouterTest, SyncWhileSignedOutOnlyAsksSyncNow)
{
    start();
    m_router->handleURL(u"tamlo://sync"_s);
    QTRY_VERIFY_WITH_TIMEOUT(logMessages().contains(u"⚠️ Sync skipped: not signed in to Tamlo"_s), 2000);
    EXPECT_FALSE(m_sync->isPeriodicSyncRunning());
    EXPECT_TRUE(m_backend.requests().isEmpty());
}

TEST_F(UrlRouterTest, SyncWhileSignedInStartsThePeriodicSyncAndUploadsHalfASecondLater)
{
    storeSession(u"sess-1"_s);
    // A recent upload and a finished backfill: the start itself sends nothing, so every upload
    // seen below is the forced one.
    m_settings.setDate(SettingsKey::activityLastSyncDate, m_clock.now().addSecs(-60));
    m_settings.setBoolean(SettingsKey::activityHistoricalBackfillDone, true);
    m_store.add(recordAt(m_clock.now().addSecs(-300)));
    start();
    QElapsedTimer elapsed;
    elapsed.start();
    m_router->handleURL(u"tamlo://Sync"_s);
    QTest::qWait(int(UrlRouter::syncDelay.count()) / 2);
    EXPECT_TRUE(m_sync->isPeriodicSyncRunning());
    EXPECT_TRUE(m_backend.requestsTo("/activity/sync").isEmpty());
    QTRY_COMPARE_WITH_TIMEOUT(m_backend.requestsTo("/activity/sync").size(), 1, 3000);
    EXPECT_GE(elapsed.elapsed(), UrlRouter::syncDelay.count());
    EXPECT_EQ(m_backend.requestsTo("/activity/sync").first().headers.value("authorization"), "Bearer sess-1");
    m_sync->stopPeriodicSync();
}
} // namespace
