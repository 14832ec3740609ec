#include "faultfixture.h"

#include <QFile>

using namespace TrustTest;

namespace {
struct BackendFault
{
    const char *name;
    StandInServer::Reply reply;
    const char *expectedError; // empty: only that there is one
};

// The signed-in sync service and the sign-in itself against a stand-in backend that fails.
class BackendFaultsTest : public FaultFixture, public ::testing::WithParamInterface<BackendFault>
{
protected:
    void SetUp() override
    {
        FaultFixture::SetUp();
        buildServices();
        backend.on("GET", "/auth/me", StandInServer::Reply {200, R"({"id":"u1","email":"ada@example.com"})"});
        settings->setString(SettingsKey::convexURL, backend.url().toString());
    }

    [[nodiscard]] AppConfig config() const { return AppConfig(settings.get(), QString(), u"http://127.0.0.1:9"_s, {}); }

    // Short enough that a backend that never answers costs a test seconds, not minutes.
    static constexpr BackendTimeouts timeouts {.verifyToken = std::chrono::seconds(2),
        .upload = std::chrono::seconds(2),
        .status = std::chrono::seconds(2),
        .sessionCheck = std::chrono::seconds(2)};

    void storeSession() const
    {
        KeychainService storage(paths.credentialsDir, u"mirevon.Tamlo"_s);
        storage.setValue(u"session-token"_s, u"sessionToken"_s);
        storage.setValue(u"{\"id\":\"u1\",\"email\":\"ada@example.com\"}"_s, u"userData"_s);
    }

    StandInServer backend;
};

// A failed upload keeps every record, the session and the last good sync date, and says what
// happened in lastError and the event log.
TEST_P(BackendFaultsTest, AFailedUploadKeepsEverythingAndSaysWhy)
{
    tick();
    tick();
    storeSession();
    AuthService auth(&nam, config(), paths.credentialsDir, timeouts);
    ASSERT_TRUE(auth.isAuthenticated());
    ActivitySyncService sync(
        snapshotStore.get(), &auth, &nam, config(), settings.get(), logManager.get(), &clock, timeouts);
    backend.on("POST", "/activity/sync", GetParam().reply);

    QCoro::waitFor(sync.syncNow());
    ASSERT_TRUE(sync.lastError().has_value());
    if (*GetParam().expectedError) {
        EXPECT_EQ(*sync.lastError(), QString::fromUtf8(GetParam().expectedError));
    } else {
        EXPECT_FALSE(sync.lastError()->isEmpty());
    }
    // No HTTP answer at all is an error of the transfer; an answer that refuses is a failed sync.
    const bool noAnswer = GetParam().reply.drop || GetParam().reply.silent;
    const QString prefix = noAnswer ? u"❌ Activity sync error: "_s : u"❌ Activity sync failed: "_s;
    EXPECT_TRUE(logged(prefix + *sync.lastError())) << messages().join(u'\n').toStdString();
    EXPECT_FALSE(sync.isSyncing());
    EXPECT_FALSE(sync.lastSyncDate().has_value());
    EXPECT_EQ(snapshotStore->count(), 2);
    EXPECT_EQ(recordsOnDisk(), 2);
    EXPECT_TRUE(auth.isAuthenticated());
    // Qt sends a request again once when the connection drops before any answer.
    EXPECT_GE(backend.requestsTo("/activity/sync").size(), 1);

    // The backend is back: the next run goes through.
    backend.on("POST", "/activity/sync", StandInServer::Reply {200, R"({"ok":true})"});
    QCoro::waitFor(sync.syncNow());
    EXPECT_FALSE(sync.lastError().has_value());
    EXPECT_TRUE(sync.lastSyncDate().has_value());
}

// A sign-in that fails on the backend's side shows a text, stores nothing and leaves the user
// signed out.
TEST_P(BackendFaultsTest, AFailedSignInStoresNothing)
{
    backend.on("POST", "/auth/verify-token", GetParam().reply);
    AuthService auth(&nam, config(), paths.credentialsDir, timeouts);
    QCoro::waitFor(auth.verifyMagicLinkToken(u"one-time"_s));
    EXPECT_FALSE(auth.isAuthenticated());
    EXPECT_FALSE(auth.isLoading());
    ASSERT_TRUE(auth.error().has_value());
    EXPECT_FALSE(auth.error()->isEmpty());
    if (GetParam().reply.silent) {
        EXPECT_EQ(*auth.error(), QStringLiteral("The request timed out."));
    }
    EXPECT_FALSE(QFile::exists(paths.credentialsFile()));
}

INSTANTIATE_TEST_SUITE_P(Faults, BackendFaultsTest,
    ::testing::Values(BackendFault {"Resets", {200, {}, "application/json", 20, true}, ""},
        BackendFault {"Answers500WithMessage", {500, R"({"error":"Database unavailable"})"}, "Database unavailable"},
        BackendFault {"Answers502Html", {502, "<html>Bad Gateway</html>", "text/html"}, "Sync failed (HTTP 502)"},
        BackendFault {"Answers503Empty", {503, ""}, "Sync failed (HTTP 503)"},
        BackendFault {"NeverAnswers", {200, {}, "application/json", 0, false, true}, "The request timed out."}),
    [](const ::testing::TestParamInfo<BackendFault> &info) { return std::string(info.param.name); });
} // namespace
