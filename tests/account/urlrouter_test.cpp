#include "account/urlrouter.h"
#include "accountfixture.h"
#include "core/activitysnapshot.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>
#include <QUuid>

#include <gtest/gtest.h>

#include <memory>

using namespace Qt::StringLiterals;

namespace {
const QString skippedSignedOut = u"⚠️ Sync skipped: not signed in to Tamlo"_s;

class UrlRouterTest : public AccountFixture
{
protected:
    UrlRouterTest()
    {
        m_backend.on("POST", "/auth/verify-token",
            StandInServer::Reply {
                .status = 200, .body = R"({"sessionToken":"sess-new","user":{"id":"u1","email":"ada@example.com"}})"});
    }

    void signIn() { storeSession(u"sess-1"_s); }

    void start()
    {
        startServices();
        m_router = std::make_unique<UrlRouter>(m_auth.get(), m_sync.get());
    }

    // The token that reached the backend, or nothing when no verification was started.
    std::optional<QString> verifiedToken(const QString &url)
    {
        m_backend.clearRequests();
        QSignalSpy loading(m_auth.get(), &AuthService::isLoadingChanged);
        m_router->handleURL(url);
        // A started verification turns isLoading on at once and off at its end.
        loading.wait(200);
        if (loading.isEmpty()) {
            return std::nullopt;
        }
        while (m_auth->isLoading()) {
            loading.wait(2000);
        }
        const QList<StandInServer::Request> requests = m_backend.requestsTo("/auth/verify-token");
        if (requests.size() != 1) {
            ADD_FAILURE() << "expected one verification for " << url.toStdString();
            return std::nullopt;
        }
        return QJsonDocument::fromJson(requests.first().body).object().value(u"token"_s).toString();
    }

    std::unique_ptr<UrlRouter> m_router;
};

TEST_F(UrlRouterTest, CallbackTokenSignsInAndUnfitUrlsAreDroppedWithoutAWord)
{
    start();
    EXPECT_EQ(verifiedToken(u"tamlo://auth?token=magic-1"_s), u"magic-1"_s);
    EXPECT_TRUE(m_auth->isAuthenticated());
    EXPECT_EQ(m_auth->sessionToken(), u"sess-new"_s);

    // Scheme and host match in any case, the key does not; the first item named token is used, decoded.
    const QList<std::pair<QString, std::optional<QString>>> rows {
        {u"TAMLO://AUTH?token=upper"_s, u"upper"_s},
        {u"Tamlo://Auth/?token=mixed"_s, u"mixed"_s},
        {u"tamlo://auth?Token=capital"_s, std::nullopt},
        {u"tamlo://auth?TOKEN=capital"_s, std::nullopt},
        {u"tamlo://auth?redirect=x&Token=no&token=first&token=second"_s, u"first"_s},
        {u"tamlo://auth?token=a%2Bb%3D%26c"_s, u"a+b=&c"_s},
        // An empty first token ends the search: a later one is not taken.
        {u"tamlo://auth?token=&token=second"_s, std::nullopt},
    };
    for (const auto &[url, token] : rows) {
        EXPECT_EQ(verifiedToken(url), token) << url.toStdString();
    }
    for (const QString &url : {u"tamlo://auth?token="_s, u"tamlo://auth?token"_s, u"tamlo://auth"_s, u"tamlo://auth?"_s,
             u"tamlo://login?token=abc"_s, u"tamlo://?token=abc"_s, u"tamlo:auth?token=abc"_s,
             u"https://auth?token=abc"_s, u"tamlox://auth?token=abc"_s, u"//auth?token=abc"_s, u""_s}) {
        EXPECT_EQ(verifiedToken(url), std::nullopt) << url.toStdString();
    }
    m_backend.clearRequests();
    for (const QString &url : {u"https://sync"_s, u"tamlo:sync"_s, u"tamlo://synchronize"_s}) {
        m_router->handleURL(url);
    }
    QTest::qWait(int(UrlRouter::syncDelay.count()) + 200);
    EXPECT_TRUE(m_backend.requests().isEmpty());
    EXPECT_TRUE(logMessages().isEmpty());
    EXPECT_FALSE(m_sync->isPeriodicSyncRunning());
}

TEST_F(UrlRouterTest, SyncWhileSignedOutOnlyAsksSyncNow)
{
    start();
    m_router->handleURL(u"tamlo://sync"_s);
    QCoreApplication::processEvents();
    EXPECT_FALSE(m_sync->isPeriodicSyncRunning());
    EXPECT_TRUE(logMessages().isEmpty());

    QTRY_VERIFY_WITH_TIMEOUT(logMessages().contains(skippedSignedOut), 2000);
    EXPECT_FALSE(m_sync->isPeriodicSyncRunning());
    EXPECT_TRUE(m_backend.requests().isEmpty());
}

TEST_F(UrlRouterTest, SyncWhileSignedInStartsThePeriodicSyncAndUploadsHalfASecondLater)
{
    signIn();
    // A recent upload and a finished backfill: the start itself sends nothing, so every upload
    // seen below is the forced one.
    m_settings.setDate(u"activityLastSyncDate"_s, m_clock.now().addSecs(-60));
    m_settings.setBoolean(u"activityHistoricalBackfillDone"_s, true);
    m_store.add(ActivitySnapshot {.id = QUuid::createUuid(),
        .timestamp = m_clock.now().addSecs(-300),
        .aiCategory = u"Coding"_s,
        .imageHash = u"abc"_s,
        .projectName = u"Website"_s});
    start();
    ASSERT_TRUE(m_auth->isAuthenticated());

    QElapsedTimer elapsed;
    elapsed.start();
    m_router->handleURL(u"tamlo://Sync"_s);
    EXPECT_FALSE(m_sync->isPeriodicSyncRunning()); // the task starts on the next turn
    QTest::qWait(int(UrlRouter::syncDelay.count()) / 2);
    EXPECT_TRUE(m_sync->isPeriodicSyncRunning());
    EXPECT_TRUE(m_backend.requestsTo("/activity/sync").isEmpty());

    QTRY_COMPARE_WITH_TIMEOUT(m_backend.requestsTo("/activity/sync").size(), 1, 3000);
    EXPECT_GE(elapsed.elapsed(), UrlRouter::syncDelay.count());
    EXPECT_EQ(m_backend.requestsTo("/activity/sync").first().headers.value("authorization"), "Bearer sess-1");
    m_sync->stopPeriodicSync();
}
} // namespace
