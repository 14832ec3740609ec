#include "account/sessionsync.h"
#include "accountfixture.h"
#include "records.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {
// A restored session with a record to upload; signing in and out is walked with the sign-in screens.
class SessionSyncTest : public AccountFixture
{
protected:
    SessionSyncTest()
    {
        storeSession();
        m_settings.setBoolean(SettingsKey::activityHistoricalBackfillDone, true);
        m_store.add(recordAt(m_clock.now().addSecs(-120)));
    }

    void startSessionSync()
    {
        startServices();
        m_sessionSync = std::make_unique<SessionSync>(m_auth.get(), m_sync.get());
    }

    std::unique_ptr<SessionSync> m_sessionSync;
};

TEST_F(SessionSyncTest, RestoredSessionStartsTheSyncOnceAtLaunch)
{
    // A failed upload is not remembered as a sync, so only the guard keeps a second start quiet.
    m_backend.on("POST", "/activity/sync", StandInServer::Reply {.status = 500, .body = "{}"});
    startSessionSync();
    EXPECT_FALSE(m_sync->isPeriodicSyncRunning());
    m_sessionSync->restore();
    EXPECT_TRUE(m_sync->isPeriodicSyncRunning());
    QTRY_COMPARE(m_backend.requestsTo("/activity/sync").size(), 1);
    m_sessionSync->restore();
    QTest::qWait(200);
    EXPECT_EQ(m_backend.requestsTo("/activity/sync").size(), 1);
}

TEST_F(SessionSyncTest, SessionEndedByTheBackendStopsTheSync)
{
    m_backend.on("POST", "/activity/sync", StandInServer::Reply {.status = 401, .body = R"({"error":"expired"})"});
    m_backend.on("GET", "/auth/me", StandInServer::Reply {.status = 401});
    startSessionSync();
    QSignalSpy changes(m_auth.get(), &AuthService::isAuthenticatedChanged);
    m_sessionSync->restore();
    ASSERT_TRUE(changes.wait(5000));
    EXPECT_EQ(m_backend.requestsTo("/auth/me").size(), 1);
    EXPECT_FALSE(m_sync->isPeriodicSyncRunning());
    EXPECT_FALSE(m_auth->sessionToken().has_value());
}
} // namespace
