#include "accountfixture.h"
#include "core/activitysnapshot.h"

#include <QCoroTask>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
const QString deviceIdValue = u"5D0A3C7E-1B42-4F6A-8E9D-7C21B04F6A11"_s;
const QByteArray token = "sess-1";

ActivitySnapshot record(const QDateTime &timestamp, const QString &category = u"Coding"_s)
{
    return ActivitySnapshot {.id = QUuid::createUuid(),
        .timestamp = timestamp,
        .aiCategory = category,
        .imageHash = u"9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08"_s,
        .projectName = u"Website"_s,
        .activityDescription = std::nullopt,
        .userNote = std::nullopt};
}

QJsonObject bodyOf(const StandInServer::Request &request)
{
    return QJsonDocument::fromJson(request.body).object();
}

QStringList datesOf(const StandInServer::Request &request)
{
    QStringList dates;
    for (const QJsonValue &day : bodyOf(request).value(u"days"_s).toArray()) {
        dates.append(day.toObject().value(u"date"_s).toString());
    }
    return dates;
}

class ActivitySyncServiceTest : public AccountFixture
{
protected:
    ActivitySyncServiceTest()
    {
        m_settings.setString(u"tamloDeviceId"_s, deviceIdValue);
        m_settings.setString(u"userProjects"_s, u"Website, Tamlo"_s);
        storeSession(QString::fromUtf8(token));
        startServices();
    }

    QList<StandInServer::Request> uploads() const { return m_backend.requestsTo("/activity/sync"); }
};

TEST_F(ActivitySyncServiceTest, UploadBodyMatchesTheDocumentedForm)
{
    ActivitySnapshot analysed = record(QDateTime(QDate(2026, 11, 16), QTime(9, 30, 12, 750), QTimeZone::utc()));
    analysed.id = QUuid(u"6f1c0e2a-8b3d-4e57-9a10-2c4d7b1e3f90"_s);
    analysed.activityDescription = u"Editing checkout.css in the editor."_s;
    analysed.userNote = u"fixed the header"_s;
    ActivitySnapshot locked = record(QDateTime(QDate(2026, 11, 16), QTime(12, 1), QTimeZone::utc()), QString());
    locked.id = QUuid(u"A14B9E33-0C5D-4D21-B7F8-90E6C3D2F118"_s);
    locked.projectName = std::nullopt;
    locked.activityDescription = ActivitySnapshot::screenStateMarker(ScreenState::Locked);
    // Away goes up as one more marker: the protocol needs nothing new for it.
    ActivitySnapshot away = locked;
    away.id = QUuid(u"0C2D4E6F-8A1B-4C3D-9E5F-7A8B9C0D1E2F"_s);
    away.timestamp = away.timestamp.addSecs(1800);
    away.activityDescription = ActivitySnapshot::screenStateMarker(ScreenState::Away);
    m_store.add(analysed);
    m_store.add(locked);
    m_store.add(away);

    QCoro::waitFor(m_sync->syncIfNeeded(false));

    ASSERT_EQ(uploads().size(), 1);
    const StandInServer::Request request = uploads().first();
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.headers.value("authorization"), "Bearer " + token);
    EXPECT_EQ(request.headers.value("content-type"), "application/json");
    const QByteArray expected
        = R"({"timezone":"Europe/Berlin","deviceId":"5D0A3C7E-1B42-4F6A-8E9D-7C21B04F6A11","backfillComplete":false,"days":[{"date":"2026-11-16","snapshots":[{"id":"6F1C0E2A-8B3D-4E57-9A10-2C4D7B1E3F90","timestamp":"2026-11-16T09:30:12Z","activityType":"Coding","projectName":"Website","activityDescription":"Editing checkout.css in the editor.","userNote":"fixed the header"},{"id":"A14B9E33-0C5D-4D21-B7F8-90E6C3D2F118","timestamp":"2026-11-16T12:01:00Z","activityType":"Other","projectName":"Other","activityDescription":"Screen Locked"},{"id":"0C2D4E6F-8A1B-4C3D-9E5F-7A8B9C0D1E2F","timestamp":"2026-11-16T12:31:00Z","activityType":"Other","projectName":"Other","activityDescription":"Away"}]}]})";
    EXPECT_EQ(QJsonDocument::fromJson(request.body), QJsonDocument::fromJson(expected)) << request.body.toStdString();
    EXPECT_EQ(request.body, QJsonDocument::fromJson(request.body).toJson(QJsonDocument::Compact));
    // Nothing of the screenshot leaves the machine.
    EXPECT_FALSE(request.body.contains("imageHash"));
    EXPECT_FALSE(request.body.contains("9f86d081884c7d659a2feaa0c55ad015"));

    EXPECT_EQ(m_sync->lastSyncDate(), m_clock.now());
    EXPECT_TRUE(logMessages().contains(u"☁️ Activity synced (1 day(s))"_s));
}

TEST_F(ActivitySyncServiceTest, NoteNamingAProjectOutranksTheStoredProject)
{
    ActivitySnapshot snapshot = record(m_clock.now().addSecs(-3600));
    snapshot.projectName = u"Website"_s;
    snapshot.userNote = u"tamlo"_s;
    m_store.add(snapshot);
    m_store.add(record(m_clock.now().addDays(-1))); // yesterday
    m_store.add(record(m_clock.now().addDays(-2))); // left to the backfill

    QCoro::waitFor(m_sync->syncIfNeeded(false));

    ASSERT_EQ(uploads().size(), 1);
    EXPECT_EQ(datesOf(uploads().first()), (QStringList {u"2026-11-16"_s, u"2026-11-15"_s}));
    const QJsonObject sent = bodyOf(uploads().first())[u"days"_s][0][u"snapshots"_s][0].toObject();
    EXPECT_EQ(sent.value(u"projectName"_s), u"Tamlo"_s);
    EXPECT_FALSE(sent.contains(u"activityDescription"_s));
}

TEST_F(ActivitySyncServiceTest, UploadsAtMostEverySecondTimerFiring)
{
    m_store.add(record(m_clock.now().addSecs(-60)));
    // An upload takes a few seconds, so the next firing finds an age just under the limit.
    m_backend.on("POST", "/activity/sync", [this](const StandInServer::Request &) {
        m_clock.advance(3);
        return StandInServer::Reply {.status = 200};
    });
    const QDateTime start = m_clock.now();

    QCoro::waitFor(m_sync->syncIfNeeded(false));
    EXPECT_EQ(uploads().size(), 1);
    m_clock.set(start.addSecs(900));
    QCoro::waitFor(m_sync->syncIfNeeded(false));
    EXPECT_EQ(uploads().size(), 1);
    m_clock.set(start.addSecs(1800));
    QCoro::waitFor(m_sync->syncIfNeeded(false));
    EXPECT_EQ(uploads().size(), 2);

    // The age survives a restart, and only a forced run ignores it.
    m_clock.advance(60);
    auto restarted = makeSyncService();
    EXPECT_EQ(restarted->lastSyncDate(), start.addSecs(1803));
    QCoro::waitFor(restarted->syncIfNeeded(false));
    EXPECT_EQ(uploads().size(), 2);
    QCoro::waitFor(restarted->syncNow());
    EXPECT_EQ(uploads().size(), 3);
}

TEST_F(ActivitySyncServiceTest, NothingToSendOrSignedOutIsLoggedAndNotUploaded)
{
    m_store.add(record(m_clock.now().addDays(-3)));
    m_backend.on("GET", "/activity/status", StandInServer::Reply {.status = 200, .body = R"({"syncRequestedAt":5})"});
    QCoro::waitFor(m_sync->checkSyncRequest());
    QCoro::waitFor(m_sync->checkSyncRequest());
    EXPECT_TRUE(uploads().isEmpty());
    EXPECT_EQ(logMessages(), QStringList(2, u"⚠️ Sync skipped: no local snapshots for today or yesterday"_s));

    m_store.add(record(m_clock.now()));
    m_auth->logout();
    m_backend.clearRequests();
    QCoro::waitFor(m_sync->syncNow());
    QCoro::waitFor(m_sync->syncIfNeeded(true));
    QCoro::waitFor(m_sync->checkSyncRequest());
    EXPECT_TRUE(m_backend.requests().isEmpty());
    EXPECT_EQ(logMessages().first(), u"⚠️ Sync skipped: not signed in to Tamlo"_s);
    EXPECT_EQ(logMessages().size(), 3);
}

TEST_F(ActivitySyncServiceTest, StatusPollForcesAnUploadOnlyWhenAcceptedWithTheKey)
{
    m_store.add(record(m_clock.now()));
    QCoro::waitFor(m_sync->syncIfNeeded(false));
    ASSERT_EQ(uploads().size(), 1);

    // A rejected poll changes nothing either: no upload and no session check.
    for (const StandInServer::Reply &noRequest : {StandInServer::Reply {.status = 200, .body = "{}"},
             StandInServer::Reply {.status = 200, .body = R"({"syncRequestedAt":null})"},
             StandInServer::Reply {.status = 200, .body = R"({"syncRequestedAt":"soon"})"},
             StandInServer::Reply {.status = 200, .body = "[]"},
             StandInServer::Reply {.status = 401, .body = R"({"syncRequestedAt":1})"}}) {
        m_backend.on("GET", "/activity/status", noRequest);
        QCoro::waitFor(m_sync->checkSyncRequest());
    }
    EXPECT_EQ(uploads().size(), 1);
    EXPECT_TRUE(m_backend.requestsTo("/auth/me").isEmpty());
    EXPECT_TRUE(m_auth->isAuthenticated());

    // Zero is a request all the same, and the last upload being recent does not matter.
    m_backend.on("GET", "/activity/status", StandInServer::Reply {.status = 200, .body = R"({"syncRequestedAt":0})"});
    QCoro::waitFor(m_sync->checkSyncRequest());
    EXPECT_EQ(uploads().size(), 2);
    const StandInServer::Request poll = m_backend.requestsTo("/activity/status").last();
    EXPECT_EQ(poll.method, "GET");
    EXPECT_EQ(poll.headers.value("authorization"), "Bearer " + token);
    EXPECT_TRUE(poll.body.isEmpty());
}

TEST_F(ActivitySyncServiceTest, BackfillSendsPastDaysInBatchesOldestFirstThenCloses)
{
    for (int offset = 1; offset <= 10; ++offset) {
        m_store.add(record(m_clock.now().addDays(-offset * 3)));
    }
    m_store.add(record(m_clock.now().addDays(-100)));
    m_store.add(record(m_clock.now()));
    int batch = 0;
    m_backend.on("POST", "/activity/sync", [&batch](const StandInServer::Request &) {
        return ++batch == 1 ? StandInServer::Reply {.status = 500, .body = R"({"error":"busy"})"}
                            : StandInServer::Reply {.status = 200};
    });

    QCoro::waitFor(m_sync->runHistoricalBackfill());

    ASSERT_EQ(uploads().size(), 3);
    EXPECT_EQ(datesOf(uploads()[0]),
        (QStringList {u"2026-10-17"_s, u"2026-10-20"_s, u"2026-10-23"_s, u"2026-10-26"_s, u"2026-10-29"_s,
            u"2026-11-01"_s, u"2026-11-04"_s}));
    EXPECT_EQ(datesOf(uploads()[1]), (QStringList {u"2026-11-07"_s, u"2026-11-10"_s, u"2026-11-13"_s}));
    EXPECT_EQ(bodyOf(uploads()[1]).value(u"backfillComplete"_s), false);
    EXPECT_EQ(bodyOf(uploads()[2]).value(u"backfillComplete"_s), true);
    EXPECT_EQ(bodyOf(uploads()[2]).value(u"days"_s), QJsonArray());
    EXPECT_TRUE(m_settings.boolean(u"activityHistoricalBackfillDone"_s));
    const QStringList log = logMessages();
    EXPECT_TRUE(log.contains(u"❌ Activity sync failed: busy"_s));
    EXPECT_TRUE(log.contains(u"☁️ Activity synced (0 day(s))"_s));
}

TEST_F(ActivitySyncServiceTest, StartUploadsTodayAndRunsThePendingBackfillOnce)
{
    m_store.add(record(m_clock.now()));
    m_store.add(record(m_clock.now().addDays(-100)));
    m_sync->startPeriodicSync();
    EXPECT_TRUE(m_sync->isPeriodicSyncRunning());
    for (const QString &name : {u"syncTimer"_s, u"pollTimer"_s}) {
        const auto *timer = m_sync->findChild<QTimer *>(name);
        ASSERT_NE(timer, nullptr) << name.toStdString();
        EXPECT_EQ(timer->timerType(), Qt::PreciseTimer) << name.toStdString();
    }
    ASSERT_TRUE(QTest::qWaitFor([this] { return uploads().size() == 2; }, 10000));
    EXPECT_EQ(datesOf(uploads()[0]), QStringList {u"2026-11-16"_s});
    EXPECT_EQ(bodyOf(uploads()[1]).value(u"backfillComplete"_s), true);

    // Started again later, as after a new sign-in: the backfill is not repeated.
    m_sync->stopPeriodicSync();
    EXPECT_FALSE(m_sync->isPeriodicSyncRunning());
    m_clock.advance(3600);
    m_sync->startPeriodicSync();
    ASSERT_TRUE(QTest::qWaitFor([this] { return uploads().size() == 3; }, 10000));
    QTest::qWait(300);
    EXPECT_EQ(uploads().size(), 3);
    EXPECT_EQ(bodyOf(uploads()[2]).value(u"backfillComplete"_s), false);
    m_sync->stopPeriodicSync();
}

TEST_F(ActivitySyncServiceTest, DeviceIdIsMadeOnceAndKept)
{
    EXPECT_EQ(m_sync->deviceId(), deviceIdValue);
    m_settings.remove(u"tamloDeviceId"_s);
    const QString fresh = m_sync->deviceId();
    EXPECT_FALSE(QUuid(fresh).isNull());
    EXPECT_EQ(fresh, fresh.toUpper());
    EXPECT_EQ(m_settings.string(u"tamloDeviceId"_s), fresh);
    EXPECT_EQ(makeSyncService()->deviceId(), fresh);
}

TEST_F(ActivitySyncServiceTest, FailureRepliesBecomeTheLastError)
{
    m_store.add(record(m_clock.now()));
    struct Row
    {
        int status;
        QByteArray body;
        QString expected;
    };
    const QList<Row> rows {
        {500, R"({"error":"quota exceeded"})", u"quota exceeded"_s},
        {500, R"({"error":5})", u"Sync failed (HTTP 500)"_s},
        {500, R"({"error":"x","code":5})", u"Sync failed (HTTP 500)"_s},
        {503, "", u"Sync failed (HTTP 503)"_s},
        {400, R"({"message":"bad"})", u"Sync failed (HTTP 400)"_s},
    };
    for (const Row &row : rows) {
        m_backend.on("POST", "/activity/sync", StandInServer::Reply {.status = row.status, .body = row.body});
        QCoro::waitFor(m_sync->syncIfNeeded(true));
        EXPECT_EQ(m_sync->lastError(), row.expected);
        EXPECT_EQ(logMessages().first(), u"❌ Activity sync failed: "_s + row.expected);
    }
    EXPECT_FALSE(m_sync->lastSyncDate().has_value());

    m_backend.on("POST", "/activity/sync", StandInServer::Reply {.drop = true});
    QCoro::waitFor(m_sync->syncIfNeeded(true));
    ASSERT_TRUE(m_sync->lastError().has_value());
    EXPECT_EQ(logMessages().first(), u"❌ Activity sync error: "_s + *m_sync->lastError());

    // A success clears the error; an empty 204 is one.
    m_backend.on("POST", "/activity/sync", StandInServer::Reply {.status = 204, .contentType = "text/plain"});
    QCoro::waitFor(m_sync->syncIfNeeded(true));
    EXPECT_FALSE(m_sync->lastError().has_value());
    EXPECT_EQ(m_sync->lastSyncDate(), m_clock.now());
    EXPECT_FALSE(m_sync->isSyncing());
}

TEST_F(ActivitySyncServiceTest, RejectedUploadSignsOutOnlyWhenTheSessionCheckConfirmsIt)
{
    m_store.add(record(m_clock.now()));
    m_backend.on("POST", "/activity/sync", StandInServer::Reply {.status = 401, .body = R"({"error":"nope"})"});

    for (const StandInServer::Reply &check : {StandInServer::Reply {.status = 200},
             StandInServer::Reply {.status = 500}, StandInServer::Reply {.drop = true}}) {
        m_backend.on("GET", "/auth/me", check);
        QCoro::waitFor(m_sync->syncIfNeeded(true));
        EXPECT_TRUE(m_auth->isAuthenticated());
        EXPECT_TRUE(QFile::exists(m_paths.credentialsFile()));
    }
    // Qt sends an idempotent request once more when the connection drops unanswered.
    ASSERT_GE(m_backend.requestsTo("/auth/me").size(), 3);
    const StandInServer::Request check = m_backend.requestsTo("/auth/me").first();
    EXPECT_EQ(check.method, "GET");
    EXPECT_EQ(check.headers.value("authorization"), "Bearer " + token);
    EXPECT_FALSE(m_sync->lastError().has_value());
    EXPECT_TRUE(logMessages().isEmpty());

    m_backend.on("GET", "/auth/me", StandInServer::Reply {.status = 401});
    QCoro::waitFor(m_sync->syncIfNeeded(true));
    EXPECT_FALSE(m_auth->isAuthenticated());
    EXPECT_FALSE(QFile::exists(m_paths.credentialsFile()));
    EXPECT_TRUE(m_settings.contains(u"tamloDeviceId"_s));
}
} // namespace
