#include "account/sessionsync.h"
#include "accountfixture.h"
#include "core/activitysnapshot.h"

#include <QSignalSpy>
#include <QTest>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace {
class SessionSyncTest : public AccountFixture
{
protected:
    void startSessionSync()
    {
        startServices();
        m_sessionSync = std::make_unique<SessionSync>(m_auth.get(), m_sync.get());
    }

    std::unique_ptr<SessionSync> m_sessionSync;
};

// Signing in and out is walked with the sign-in screens.
TEST_F(SessionSyncTest, RestoredSessionStartsTheSyncOnceAtLaunch)
{
    storeSession();
    m_settings.setBoolean(u"activityHistoricalBackfillDone"_s, true);
    m_store.add(ActivitySnapshot {.id = QUuid::createUuid(),
        .timestamp = m_clock.now().addSecs(-120),
        .aiCategory = u"Coding"_s,
        .imageHash = u"abc"_s,
        .projectName = u"Website"_s});
    // A failed upload is not remembered as a sync, so only the guard keeps a second start quiet.
    m_backend.on("POST", "/activity/sync", StandInServer::Reply {.status = 500, .body = "{}"});
    startSessionSync();
    // The initial value is no change.
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
    storeSession();
    m_settings.setBoolean(u"activityHistoricalBackfillDone"_s, true);
    m_store.add(ActivitySnapshot {.id = QUuid::createUuid(),
        .timestamp = m_clock.now().addSecs(-120),
        .aiCategory = u"Coding"_s,
        .imageHash = u"abc"_s,
        .projectName = u"Website"_s});
    m_backend.on("POST", "/activity/sync", StandInServer::Reply {.status = 401, .body = R"({"error":"expired"})"});
    m_backend.on("GET", "/auth/me", StandInServer::Reply {.status = 401});
    startSessionSync();
    QSignalSpy changes(m_auth.get(), &AuthService::isAuthenticatedChanged);

    m_sessionSync->restore();

    ASSERT_TRUE(changes.wait(5000));
    EXPECT_EQ(m_backend.requestsTo("/activity/sync").size(), 1);
    EXPECT_EQ(m_backend.requestsTo("/auth/me").size(), 1);
    EXPECT_FALSE(m_sync->isPeriodicSyncRunning());
    EXPECT_FALSE(m_auth->sessionToken().has_value());
}
} // namespace
