#include "account/sessionsync.h"
#include "account/urlrouter.h"
#include "accountfixture.h"
#include "records.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {
class SessionSyncTest : public AccountFixture
{
protected:
    void start()
    {
        startServices();
        m_sessionSync = std::make_unique<SessionSync>(m_auth.get(), m_sync.get());
        m_router = std::make_unique<UrlRouter>(m_auth.get(), m_sync.get());
    }

    void restoredSession()
    {
        storeSession(u"sess-1"_s);
        m_settings.setBoolean(SettingsKey::activityHistoricalBackfillDone, true);
        m_store.add(recordAt(m_clock.now().addSecs(-120)));
    }

    [[nodiscard]] qsizetype uploads() const { return m_backend.requestsTo("/activity/sync").size(); }

    [[nodiscard]] QStringList verifiedTokens() const
    {
        return mapped(m_backend.requestsTo("/auth/verify-token"),
            [](const StandInServer::Request &request) { return request.json()[u"token"_s].toString(); });
    }

    std::unique_ptr<SessionSync> m_sessionSync;
    std::unique_ptr<UrlRouter> m_router;
};
} // namespace

TEST_F(SessionSyncTest, RestoredSessionStartsTheSyncOnceAtLaunch)
{
    restoredSession();
    // A failed upload is not remembered as a sync, so only the guard keeps a second start quiet.
    m_backend.on("POST", "/activity/sync", StandInServer::Reply {.status = 500, .body = "{}"});
    start();
    m_sessionSync->restore();
    EXPECT_TRUE(m_sync->isPeriodicSyncRunning());
    ASSERT_TRUE(QTest::qWaitFor([&] { return uploads() == 1; }, 5000));
    m_sessionSync->restore();
    QTest::qWait(200);
    EXPECT_EQ(uploads(), 1);
}

TEST_F(SessionSyncTest, SessionEndedByTheBackendStopsTheSync)
{
    restoredSession();
    m_backend.on("POST", "/activity/sync", StandInServer::Reply {.status = 401, .body = R"({"error":"expired"})"});
    m_backend.on("GET", "/auth/me", StandInServer::Reply {.status = 401});
    start();
    QSignalSpy changes(m_auth.get(), &AuthService::isAuthenticatedChanged);
    m_sessionSync->restore();
    ASSERT_TRUE(changes.wait(5000));
    EXPECT_FALSE(m_sync->isPeriodicSyncRunning());
    EXPECT_FALSE(m_auth->sessionToken().has_value());
}

TEST_F(SessionSyncTest, CallbackTokenSignsInAndUnfitUrlsAreDroppedWithoutAWord)
{
    start();
    for (const QString &url : {u"https://sync"_s, u"tamlo:sync"_s, u"tamlo://synchronize"_s}) {
        m_router->handleURL(url);
    }
    QTest::qWait(int(UrlRouter::syncDelay.count()) + 200);
    EXPECT_TRUE(logMessages().isEmpty());

    // An empty first token ends the search; the other rules of the callback are the URL fuzz corpus's.
    const QList<std::pair<QString, QString>> rows {{u"tamlo://auth?token=&token=second"_s, {}},
        {u"tamlo://auth?token"_s, {}}, {u"Tamlo://Auth/?token=a%2Bb%3D%26c"_s, u"a+b=&c"_s},
        {u"tamlo://auth?redirect=x&Token=no&token=first&token=second"_s, u"first"_s}};
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
    EXPECT_EQ(m_auth->sessionToken(), u"sess-1"_s);
    EXPECT_TRUE(m_sync->isPeriodicSyncRunning()) << "a sign-in starts the sync";
    m_sync->stopPeriodicSync();
}

TEST_F(SessionSyncTest, SyncLinkSignedOutOnlyAsksSyncNowAndSignedInStartsThePeriodicSyncFirst)
{
    start();
    m_router->handleURL(u"tamlo://sync"_s);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return logMessages().contains(u"⚠️ Sync skipped: not signed in to Tamlo"_s); }, 2000));
    EXPECT_FALSE(m_sync->isPeriodicSyncRunning());
    EXPECT_TRUE(m_backend.requests().isEmpty());

    // A recent upload: the start itself sends nothing, so the upload seen below is the forced one.
    restoredSession();
    m_settings.setDate(SettingsKey::activityLastSyncDate, m_clock.now().addSecs(-60));
    start();
    QElapsedTimer elapsed;
    elapsed.start();
    m_router->handleURL(u"tamlo://Sync"_s);
    QTest::qWait(int(UrlRouter::syncDelay.count()) / 2);
    EXPECT_TRUE(m_sync->isPeriodicSyncRunning());
    EXPECT_EQ(uploads(), 0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return uploads() == 1; }, 3000));
    EXPECT_GE(elapsed.elapsed(), UrlRouter::syncDelay.count());
    m_sync->stopPeriodicSync();
}
