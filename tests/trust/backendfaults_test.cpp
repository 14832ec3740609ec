#include "faultfixture.h"

#include "core/textlimits.h"
#include "server/apiendpoints.h"
#include "server/requestlog.h"
#include "server/signinservice.h"
#include "server/sqlstorage.h"
#include "server/tamlohttpserver.h"
#include "server/webpages.h"

#include <QBuffer>
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

// The real tamlo-server in this process, on SQLite: nothing the app keeps may be more than it takes.
class RealServerTest : public FaultFixture
{
};

TEST_F(RealServerTest, OverlongTextsAndLabelsAreCutToWhatTheServerTakesSoTheDaySyncs)
{
    buildServices();
    const std::unique_ptr<SqlStorage> storage = SqlStorage::openSqlite(home.filePath(u"server.sqlite3"_s));
    SignInService signIn(storage.get(), &clock);
    ApiEndpoints api(storage.get(), &signIn, &clock);
    WebPages pages(&signIn, QUrl(), true);
    QBuffer requests;
    RequestLog requestLog(&requests);
    TamloHttpServer server(&api, &pages, &requestLog);
    ASSERT_TRUE(requests.open(QIODevice::WriteOnly) && server.listen(QHostAddress::LocalHost, 0));

    const QString project = u"Client "_s + QString(300, u'x');
    settings->setString(SettingsKey::userProjects, u"Tamlo, "_s + project);
    analysis = {200,
        StandInOllama::chatBody(QJsonObject {{u"category"_s, u"Coding"_s}, {u"projectName"_s, project},
            {u"activityDescription"_s, u"Reading\tthe\u0007 docs"_s + u" word"_s.repeated(1000)}})};
    tick();
    monitor->addNoteToCurrentLog(u"note "_s.repeated(1000));
    // As an earlier version stored it, before it kept to the limits.
    snapshotStore->add(ActivitySnapshot {QUuid::createUuid(), clock.now().addSecs(1), QString(201, u'c'), std::nullopt,
        u"Tamlo"_s, QChar(0) + QString(5000, u'd'), QString(5000, u'n')});

    storage->createUser(u"ada@example.org"_s, std::nullopt, 0);
    const QString url = u"http://127.0.0.1:%1"_s.arg(server.port());
    const AppConfig config(settings.get(), QString(), url, url);
    AuthService auth(&nam, config, paths.credentialsDir);
    QCoro::waitFor(auth.verifyMagicLinkToken(signIn.createLink(u"ada@example.org"_s)));
    ActivitySyncService sync(snapshotStore.get(), &auth, &nam, config, settings.get(), logManager.get(), &clock);
    QCoro::waitFor(sync.syncNow());
    EXPECT_FALSE(sync.lastError()) << sync.lastError().value_or(QString()).toStdString();

    const QList<UploadedDay> days = storage->days(storage->userByEmail(u"ada@example.org"_s)->id);
    ASSERT_EQ(days.size(), 1);
    ASSERT_EQ(days[0].snapshots.size(), 2);
    const UploadedSnapshot analysed = days[0].snapshots[0];
    // The model's description without control characters and cut after a whole word, the note as
    // well, and the project the settings name, whose name the server takes.
    EXPECT_TRUE(analysed.activityDescription->startsWith(u"Reading the docs word word"_s));
    EXPECT_TRUE(analysed.activityDescription->endsWith(u" word…"_s));
    EXPECT_TRUE(analysed.userNote->endsWith(u"note note…"_s));
    EXPECT_TRUE(analysed.projectName.startsWith(u"Client xxx"_s));
    EXPECT_EQ(days[0].snapshots[1].activityDescription, QString(TextLimits::maxTextLength - 1, u'd') + u'…');
}
