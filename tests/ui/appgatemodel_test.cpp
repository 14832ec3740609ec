#include "accountfixture.h"
#include "core/activitysnapshot.h"
#include "ui/appgatemodel.h"

#include <QCoroTask>
#include <QSignalSpy>
#include <QTest>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace {
using Screen = AppGateModel::Screen;

class AppGateModelTest : public AccountFixture
{
protected:
    void startGate()
    {
        startServices();
        m_gate = std::make_unique<AppGateModel>(m_auth.get(), m_sync.get());
    }

    std::unique_ptr<AppGateModel> m_gate;
};

// Signing in and out through the gate is walked with the sign-in screens.
TEST_F(AppGateModelTest, RestoredSessionStartsTheSyncWhenTheGateAppears)
{
    storeSession();
    startGate();
    EXPECT_EQ(m_gate->screen(), Screen::Content);
    // The initial value is no change.
    EXPECT_FALSE(m_sync->isPeriodicSyncRunning());

    m_gate->appeared();
    EXPECT_TRUE(m_sync->isPeriodicSyncRunning());
}

TEST_F(AppGateModelTest, SessionEndedByTheBackendReturnsToTheSignInScreen)
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
    startGate();
    QSignalSpy changes(m_gate.get(), &AppGateModel::isAuthenticatedChanged);

    m_gate->appeared();

    ASSERT_TRUE(changes.wait(5000));
    EXPECT_EQ(m_backend.requestsTo("/activity/sync").size(), 1);
    EXPECT_EQ(m_backend.requestsTo("/auth/me").size(), 1);
    EXPECT_EQ(m_gate->screen(), Screen::Login);
    EXPECT_FALSE(m_sync->isPeriodicSyncRunning());
    EXPECT_FALSE(m_auth->sessionToken().has_value());
}
} // namespace
