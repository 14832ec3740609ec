#include "account/activitysyncservice.h"
#include "account/authservice.h"
#include "account/keychainservice.h"
#include "account/urlrouter.h"
#include "core/activitysnapshot.h"
#include "core/activitysnapshotstore.h"
#include "core/apppaths.h"
#include "core/logmanager.h"
#include "core/settings.h"
#include "fakeclock.h"
#include "standinserver.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>
#include <QUuid>

#include <gtest/gtest.h>

#include <memory>

using namespace Qt::StringLiterals;

namespace {
const QDateTime now(QDate(2026, 11, 16), QTime(14, 0), QTimeZone("Europe/Berlin"));
const QString skippedSignedOut = u"⚠️ Sync skipped: not signed in to the macOS app"_s;

class UrlRouterTest : public ::testing::Test
{
protected:
    UrlRouterTest()
    {
        m_server.on("POST", "/auth/verify-token",
            StandInServer::Reply {
                .status = 200, .body = R"({"sessionToken":"sess-new","user":{"id":"u1","email":"ada@example.com"}})"});
        m_server.on("POST", "/activity/sync", StandInServer::Reply {.status = 200, .body = "{}"});
        m_server.on("GET", "/activity/status", StandInServer::Reply {.status = 200, .body = "{}"});
        m_server.on("GET", "/auth/me", StandInServer::Reply {.status = 200, .body = "{}"});
    }

    void signIn()
    {
        KeychainService credentials(m_paths.credentialsDir, u"mirevon.Tamlo"_s);
        credentials.setValue(u"sess-1"_s, u"sessionToken"_s);
        credentials.setValue(u"{\"id\":\"u1\",\"email\":\"ada@example.com\"}"_s, u"userData"_s);
    }

    void start()
    {
        const AppConfig config(&m_settings, QString(), m_server.url().toString(), u"https://web"_s);
        m_auth = std::make_unique<AuthService>(&m_nam, config, m_paths.credentialsDir);
        m_sync = std::make_unique<ActivitySyncService>(
            &m_store, m_auth.get(), &m_nam, config, &m_settings, &m_log, &m_clock);
        m_router = std::make_unique<UrlRouter>(m_auth.get(), m_sync.get());
    }

    // The token that reached the backend, or nothing when no verification was started.
    std::optional<QString> verifiedToken(const QString &url)
    {
        m_server.clearRequests();
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
        const QList<StandInServer::Request> requests = m_server.requestsTo("/auth/verify-token");
        if (requests.size() != 1) {
            ADD_FAILURE() << "expected one verification for " << url.toStdString();
            return std::nullopt;
        }
        return QJsonDocument::fromJson(requests.first().body).object().value(u"token"_s).toString();
    }

    QStringList logMessages()
    {
        QCoreApplication::processEvents();
        QStringList messages;
        for (const LogEntry &entry : m_log.logs()) {
            messages.append(entry.message);
        }
        return messages;
    }

    QTemporaryDir m_home;
    AppPaths m_paths = AppPaths::underHome(m_home.path());
    Settings m_settings {m_paths.settingsFile};
    FakeClock m_clock {now};
    LogManager m_log {&m_clock};
    ActivitySnapshotStore m_store {m_paths.snapshotsFile(), &m_log, &m_settings, &m_clock};
    StandInServer m_server;
    QNetworkAccessManager m_nam;
    std::unique_ptr<AuthService> m_auth;
    std::unique_ptr<ActivitySyncService> m_sync;
    std::unique_ptr<UrlRouter> m_router;
};

TEST_F(UrlRouterTest, CallbackTokenSignsIn)
{
    start();
    EXPECT_EQ(verifiedToken(u"tamlo://auth?token=magic-1"_s), u"magic-1"_s);
    EXPECT_TRUE(m_auth->isAuthenticated());
    EXPECT_EQ(m_auth->sessionToken(), u"sess-new"_s);
}

TEST_F(UrlRouterTest, SchemeAndHostMatchInAnyCaseButTheKeyDoesNot)
{
    start();
    EXPECT_EQ(verifiedToken(u"TAMLO://AUTH?token=upper"_s), u"upper"_s);
    EXPECT_EQ(verifiedToken(u"Tamlo://Auth/?token=mixed"_s), u"mixed"_s);
    EXPECT_EQ(verifiedToken(u"tamlo://auth?Token=capital"_s), std::nullopt);
    EXPECT_EQ(verifiedToken(u"tamlo://auth?TOKEN=capital"_s), std::nullopt);
}

TEST_F(UrlRouterTest, FirstItemNamedTokenIsUsedDecoded)
{
    start();
    EXPECT_EQ(verifiedToken(u"tamlo://auth?redirect=x&Token=no&token=first&token=second"_s), u"first"_s);
    EXPECT_EQ(verifiedToken(u"tamlo://auth?token=a%2Bb%3D%26c"_s), u"a+b=&c"_s);
    // An empty first token ends the search: a later one is not taken.
    EXPECT_EQ(verifiedToken(u"tamlo://auth?token=&token=second"_s), std::nullopt);
}

TEST_F(UrlRouterTest, UnfitUrlsAreDroppedWithoutAWord)
{
    start();
    for (const QString &url : {u"tamlo://auth?token="_s, u"tamlo://auth?token"_s, u"tamlo://auth"_s, u"tamlo://auth?"_s,
             u"tamlo://login?token=abc"_s, u"tamlo://?token=abc"_s, u"tamlo:auth?token=abc"_s,
             u"https://auth?token=abc"_s, u"tamlox://auth?token=abc"_s, u"//auth?token=abc"_s, u""_s}) {
        EXPECT_EQ(verifiedToken(url), std::nullopt) << url.toStdString();
    }
    for (const QString &url : {u"https://sync"_s, u"tamlo:sync"_s, u"tamlo://synchronize"_s}) {
        m_router->handleURL(url);
    }
    QTest::qWait(int(UrlRouter::syncDelay.count()) + 200);
    EXPECT_TRUE(m_server.requests().isEmpty());
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
    EXPECT_TRUE(m_server.requests().isEmpty());
}

TEST_F(UrlRouterTest, SyncWhileSignedInStartsThePeriodicSyncAndUploadsHalfASecondLater)
{
    signIn();
    // A recent upload and a finished backfill: the start itself sends nothing, so every upload
    // seen below is the forced one.
    m_settings.setDate(u"activityLastSyncDate"_s, now.addSecs(-60));
    m_settings.setBoolean(u"activityHistoricalBackfillDone"_s, true);
    m_store.add(ActivitySnapshot {.id = QUuid::createUuid(),
        .timestamp = now.addSecs(-300),
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
    EXPECT_TRUE(m_server.requestsTo("/activity/sync").isEmpty());

    QTRY_COMPARE_WITH_TIMEOUT(m_server.requestsTo("/activity/sync").size(), 1, 3000);
    EXPECT_GE(elapsed.elapsed(), UrlRouter::syncDelay.count());
    EXPECT_EQ(m_server.requestsTo("/activity/sync").first().headers.value("authorization"), "Bearer sess-1");
    m_sync->stopPeriodicSync();
}
} // namespace
