#include "accountfixture.h"
#include "records.h"

#include <QCoroTask>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>
#include <QTimeZone>

using namespace Qt::StringLiterals;

namespace {
const QString deviceIdValue = u"5D0A3C7E-1B42-4F6A-8E9D-7C21B04F6A11"_s;

QStringList datesOf(const StandInServer::Request &request)
{
    return mapped(request.json()[u"days"_s].toArray(), [](const QJsonValue &day) { return day[u"date"_s].toString(); });
}

class ActivitySyncServiceTest : public AccountFixture
{
protected:
    ActivitySyncServiceTest()
    {
        m_settings.setString(SettingsKey::tamloDeviceId, deviceIdValue);
        m_settings.setString(SettingsKey::userProjects, u"Website, Tamlo"_s);
        storeSession(u"sess-1"_s);
        startServices();
    }

    void add(const QDateTime &timestamp) { m_store.add(recordAt(timestamp)); }
    [[nodiscard]] QList<StandInServer::Request> uploads() const { return m_backend.requestsTo("/activity/sync"); }
    void sync(bool force = false) { QCoro::waitFor(m_sync->syncIfNeeded(force)); }
};

TEST_F(ActivitySyncServiceTest, UploadsTodayAndYesterdayInTheDocumentedFormWithoutTheScreenshotsHash)
{
    ActivitySnapshot analysed = recordAt(QDateTime(QDate(2026, 11, 16), QTime(9, 30, 12, 750), QTimeZone::utc()),
        u"Coding"_s, u"Website"_s, u"Editing checkout.css in the editor."_s, u"tamlo header"_s);
    analysed.id = QUuid(u"6f1c0e2a-8b3d-4e57-9a10-2c4d7b1e3f90"_s);
    analysed.imageHash = u"9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08"_s;
    m_store.add(analysed);
    // Away goes up as one more marker: the protocol needs nothing new for it.
    ActivitySnapshot away = markerAt(QDateTime(QDate(2026, 11, 15), QTime(12, 1), QTimeZone::utc()), ScreenState::Away);
    away.id = QUuid(u"A14B9E33-0C5D-4D21-B7F8-90E6C3D2F118"_s);
    m_store.add(away);
    add(m_clock.now().addDays(-2)); // left to the backfill

    sync();
    ASSERT_EQ(uploads().size(), 1);
    const StandInServer::Request request = uploads().first();
    EXPECT_EQ(request.headers.value("authorization"), "Bearer sess-1");
    EXPECT_EQ(request.headers.value("content-type"), "application/json");
    const QByteArray expected
        = R"({"timezone":"Europe/Berlin","deviceId":"5D0A3C7E-1B42-4F6A-8E9D-7C21B04F6A11","backfillComplete":false,"days":[)"
          R"({"date":"2026-11-16","snapshots":[{"id":"6F1C0E2A-8B3D-4E57-9A10-2C4D7B1E3F90","timestamp":"2026-11-16T09:30:12Z","activityType":"Coding","projectName":"Tamlo","activityDescription":"Editing checkout.css in the editor.","userNote":"tamlo header"}]},)"
          R"({"date":"2026-11-15","snapshots":[{"id":"A14B9E33-0C5D-4D21-B7F8-90E6C3D2F118","timestamp":"2026-11-15T12:01:00Z","activityType":"Other","projectName":"Other","activityDescription":"Away"}]}]})";
    EXPECT_EQ(QJsonDocument::fromJson(request.body), QJsonDocument::fromJson(expected)) << request.body.toStdString();
    EXPECT_EQ(m_sync->lastSyncDate(), m_clock.now());
    EXPECT_TRUE(logMessages().contains(u"☁️ Activity synced (2 day(s))"_s));
}

TEST_F(ActivitySyncServiceTest, UploadsAtMostEverySecondTimerFiringAlsoAcrossARestartUnlessForced)
{
    add(m_clock.now().addSecs(-60));
    // An upload takes a few seconds, so the next firing finds an age just under the limit.
    m_backend.on("POST", "/activity/sync", [this](const StandInServer::Request &) {
        m_clock.advance(3);
        return StandInServer::Reply {.status = 200};
    });
    const QDateTime start = m_clock.now();
    for (const auto &[after, uploaded] : {std::pair {0, 1}, {900, 1}, {1800, 2}}) {
        m_clock.set(start.addSecs(after));
        sync();
        EXPECT_EQ(uploads().size(), uploaded) << after;
    }
    m_clock.advance(60);
    auto restarted = makeSyncService();
    EXPECT_EQ(restarted->lastSyncDate(), start.addSecs(1803));
    QCoro::waitFor(restarted->syncIfNeeded(false));
    EXPECT_EQ(uploads().size(), 2);
    QCoro::waitFor(restarted->syncNow());
    EXPECT_EQ(uploads().size(), 3);
}

TEST_F(ActivitySyncServiceTest, StatusPollForcesAnUploadOnlyWhenAcceptedAndNothingToSendOrSignedOutIsSaid)
{
    add(m_clock.now().addDays(-3));
    // A rejected poll changes nothing: no upload, no session check, no word.
    for (const StandInServer::Reply &noRequest :
        {StandInServer::Reply {.status = 200, .body = "{}"}, {.status = 200, .body = R"({"syncRequestedAt":null})"},
            {.status = 200, .body = R"({"syncRequestedAt":"soon"})"}, {.status = 200, .body = "[]"},
            {.status = 401, .body = R"({"syncRequestedAt":1})"}}) {
        m_backend.on("GET", "/activity/status", noRequest);
        QCoro::waitFor(m_sync->checkSyncRequest());
    }
    EXPECT_TRUE(m_backend.requestsTo("/auth/me").isEmpty());
    EXPECT_TRUE(m_auth->isAuthenticated());
    EXPECT_TRUE(logMessages().isEmpty());

    // Zero is a request all the same, and the last upload being recent does not matter.
    m_backend.on("GET", "/activity/status", StandInServer::Reply {.status = 200, .body = R"({"syncRequestedAt":0})"});
    QCoro::waitFor(m_sync->checkSyncRequest());
    EXPECT_EQ(logMessages(), QStringList {u"⚠️ Sync skipped: no local snapshots for today or yesterday"_s});
    add(m_clock.now());
    sync();
    QCoro::waitFor(m_sync->checkSyncRequest());
    EXPECT_EQ(uploads().size(), 2);
    const StandInServer::Request poll = m_backend.requestsTo("/activity/status").last();
    EXPECT_EQ(std::tuple(poll.method, poll.headers.value("authorization"), poll.body),
        std::tuple(QByteArray("GET"), QByteArray("Bearer sess-1"), QByteArray()));

    m_auth->logout();
    m_backend.clearRequests();
    QCoro::waitFor(m_sync->syncNow());
    sync(true);
    QCoro::waitFor(m_sync->checkSyncRequest());
    QCoro::waitFor(m_sync->runHistoricalBackfill());
    EXPECT_TRUE(m_backend.requests().isEmpty());
    EXPECT_EQ(logMessages().mid(3), QStringList {u"⚠️ Sync skipped: not signed in to Tamlo"_s});
}

TEST_F(ActivitySyncServiceTest, BackfillSendsPastDaysInBatchesOldestFirstThenClosesAndRunsOnceFromTheStart)
{
    for (int offset = 1; offset <= 10; ++offset) {
        add(m_clock.now().addDays(-offset * 3));
    }
    add(m_clock.now().addDays(-100));
    add(m_clock.now());
    int batch = 0;
    m_backend.on("POST", "/activity/sync", [&batch](const StandInServer::Request &) {
        return ++batch == 2 ? StandInServer::Reply {.status = 500, .body = R"({"error":"busy"})"}
                            : StandInServer::Reply {.status = 200};
    });
    m_sync->startPeriodicSync();
    for (const QString &name : {u"syncTimer"_s, u"pollTimer"_s}) {
        EXPECT_EQ(m_sync->findChild<QTimer *>(name)->timerType(), Qt::PreciseTimer) << name.toStdString();
    }
    ASSERT_TRUE(
        QTest::qWaitFor([this] { return logMessages().contains(u"☁️ Activity synced (0 day(s))"_s); }, 10000));
    ASSERT_EQ(uploads().size(), 4);
    EXPECT_EQ(datesOf(uploads()[0]), QStringList {u"2026-11-16"_s});
    EXPECT_EQ(datesOf(uploads()[1]),
        (QStringList {u"2026-10-17"_s, u"2026-10-20"_s, u"2026-10-23"_s, u"2026-10-26"_s, u"2026-10-29"_s,
            u"2026-11-01"_s, u"2026-11-04"_s}));
    EXPECT_EQ(datesOf(uploads()[2]), (QStringList {u"2026-11-07"_s, u"2026-11-10"_s, u"2026-11-13"_s}));
    EXPECT_EQ(uploads()[2].json().value(u"backfillComplete"_s), false);
    EXPECT_EQ(uploads()[3].json().value(u"backfillComplete"_s), true);
    EXPECT_EQ(uploads()[3].json().value(u"days"_s), QJsonArray());
    EXPECT_TRUE(m_settings.boolean(SettingsKey::activityHistoricalBackfillDone));

    // Started again later, as after a new sign-in: the backfill is not repeated.
    m_sync->stopPeriodicSync();
    m_clock.advance(3600);
    m_sync->startPeriodicSync();
    ASSERT_TRUE(QTest::qWaitFor([this] { return uploads().size() == 5; }, 10000));
    QTest::qWait(300);
    EXPECT_EQ(uploads().size(), 5);
    EXPECT_EQ(datesOf(uploads()[4]), QStringList {u"2026-11-16"_s});
    m_sync->stopPeriodicSync();
}

TEST_F(ActivitySyncServiceTest, DeviceIdIsMadeOnceAndKeptAndFailureRepliesBecomeTheLastError)
{
    m_settings.remove(SettingsKey::tamloDeviceId);
    const QString fresh = m_sync->deviceId();
    EXPECT_FALSE(QUuid(fresh).isNull());
    EXPECT_EQ(fresh, fresh.toUpper());
    EXPECT_EQ(makeSyncService()->deviceId(), fresh);

    // Only a flat object of strings carries a message.
    add(m_clock.now());
    for (const auto &[status, body, expected] :
        {std::tuple {500, QByteArray(R"({"error":5})"), u"Sync failed (HTTP 500)"_s},
            {500, R"({"error":"x","code":5})", u"Sync failed (HTTP 500)"_s},
            {400, R"({"message":"bad"})", u"Sync failed (HTTP 400)"_s}}) {
        m_backend.on("POST", "/activity/sync", StandInServer::Reply {.status = status, .body = body});
        sync(true);
        EXPECT_EQ(m_sync->lastError(), expected);
        EXPECT_EQ(logMessages().last(), u"❌ Activity sync failed: "_s + expected);
    }
    // A success clears the error; an empty 204 is one.
    m_backend.on("POST", "/activity/sync", StandInServer::Reply {.status = 204, .contentType = "text/plain"});
    sync(true);
    EXPECT_FALSE(m_sync->lastError().has_value());
    EXPECT_EQ(m_sync->lastSyncDate(), m_clock.now());
    EXPECT_EQ(uploads().last().json().value(u"deviceId"_s), fresh);
}

TEST_F(ActivitySyncServiceTest, RejectedUploadSignsOutOnlyWhenTheSessionCheckConfirmsIt)
{
    add(m_clock.now());
    m_backend.on("POST", "/activity/sync", StandInServer::Reply {.status = 401, .body = R"({"error":"nope"})"});
    for (const StandInServer::Reply &check :
        {StandInServer::Reply {.status = 200}, {.status = 500}, StandInServer::Reply {.drop = true}}) {
        m_backend.on("GET", "/auth/me", check);
        sync(true);
        EXPECT_TRUE(m_auth->isAuthenticated());
        EXPECT_TRUE(QFile::exists(m_paths.credentialsFile()));
    }
    // Qt sends an idempotent request once more when the connection drops unanswered.
    ASSERT_GE(m_backend.requestsTo("/auth/me").size(), 3);
    const StandInServer::Request check = m_backend.requestsTo("/auth/me").first();
    EXPECT_EQ(std::pair(check.method, check.headers.value("authorization")),
        std::pair(QByteArray("GET"), QByteArray("Bearer sess-1")));
    EXPECT_FALSE(m_sync->lastError().has_value());
    EXPECT_TRUE(logMessages().isEmpty());

    m_backend.on("GET", "/auth/me", StandInServer::Reply {.status = 401});
    sync(true);
    EXPECT_FALSE(m_auth->isAuthenticated());
    EXPECT_FALSE(QFile::exists(m_paths.credentialsFile()));
    EXPECT_TRUE(m_settings.contains(SettingsKey::tamloDeviceId));
}
} // namespace
