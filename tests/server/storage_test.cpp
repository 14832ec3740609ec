#include "storagesuites.h"

#include <QSqlQuery>

using namespace Qt::StringLiterals;

namespace {
UploadedSnapshot snapshot(const QString &id, const QString &timestamp, const QString &type = u"Coding"_s,
    std::optional<QString> note = std::nullopt)
{
    return UploadedSnapshot {id, timestamp, type, u"Website"_s, u"Editing checkout.css"_s, std::move(note)};
}

SyncUpload upload(QList<UploadedDay> days, bool backfillComplete = false)
{
    return SyncUpload {u"Europe/Berlin"_s, deviceA, backfillComplete, std::move(days)};
}

int rowCount(SqlStorage &storage, const QString &table, const QString &userId)
{
    QSqlQuery query(storage.database());
    query.prepare(u"SELECT COUNT(*) FROM %1 WHERE user_id = ?"_s.arg(table));
    query.addBindValue(userId);
    query.exec();
    query.next();
    return query.value(0).toInt();
}
} // namespace

TEST_P(StorageTest, RepeatedUploadsUpsertByIdAndTheLatestWins)
{
    const ServerUser user = storage->createUser(u"ada@example.org"_s, u"Ada"_s, 1000);
    storage->storeUpload(user.id,
        upload(
            {{u"2026-11-16"_s, {snapshot(idA, u"2026-11-16T09:30:12Z"_s), snapshot(idB, u"2026-11-16T09:30:42Z"_s)}}}),
        2000);
    storage->storeUpload(user.id,
        upload({{u"2026-11-16"_s,
            {snapshot(idA, u"2026-11-16T09:30:12Z"_s, u"Meeting"_s, u"standup"_s),
                snapshot(idB, u"2026-11-16T09:30:42Z"_s)}}}),
        3000);

    const QList<UploadedDay> days = storage->days(user.id);
    ASSERT_EQ(days.size(), 1);
    ASSERT_EQ(days[0].snapshots.size(), 2);
    EXPECT_EQ(days[0].snapshots[0].activityType, u"Meeting"_s);
    EXPECT_EQ(days[0].snapshots[0].userNote, u"standup"_s);
    EXPECT_EQ(rowCount(*storage, u"snapshots"_s, user.id), 2);
}

TEST_P(StorageTest, AnotherUsersIdsNeverTouchTheirSnapshotsNorTheirRequest)
{
    const ServerUser ada = storage->createUser(u"ada@example.org"_s, std::nullopt, 1000);
    const ServerUser eve = storage->createUser(u"eve@example.org"_s, std::nullopt, 1000);
    storage->storeUpload(ada.id, upload({{u"2026-11-16"_s, {snapshot(idA, u"2026-11-16T09:30:12Z"_s)}}}), 2000);
    storage->requestSync(ada.id, 2500);

    storage->storeUpload(
        eve.id, upload({{u"2026-11-17"_s, {snapshot(idA, u"2026-11-17T10:00:00Z"_s, u"Hijack"_s)}}}), 3000);

    const QList<UploadedDay> adaDays = storage->days(ada.id);
    ASSERT_EQ(adaDays.size(), 1);
    EXPECT_EQ(adaDays[0].date, u"2026-11-16"_s);
    EXPECT_EQ(adaDays[0].snapshots[0].activityType, u"Coding"_s);
    EXPECT_EQ(storage->syncRequestedAt(ada.id), 2500);
    EXPECT_EQ(storage->days(eve.id)[0].snapshots[0].activityType, u"Hijack"_s);
}

TEST_P(StorageTest, AnUploadRecordsTheDeviceAndClearsTheRequestAndBackfillStaysDone)
{
    const ServerUser user = storage->createUser(u"ada@example.org"_s, std::nullopt, 1000);
    storage->requestSync(user.id, 1500);
    storage->storeUpload(user.id, upload({}, true), 2000);
    EXPECT_EQ(storage->syncRequestedAt(user.id), std::nullopt);

    SyncUpload later = upload({{u"2026-11-16"_s, {snapshot(idA, u"2026-11-16T09:30:12Z"_s)}}});
    later.timezone = u"America/New_York"_s;
    storage->storeUpload(user.id, later, 3000);

    const QList<DeviceRecord> devices = storage->devices(user.id);
    ASSERT_EQ(devices.size(), 1);
    EXPECT_EQ(devices[0].deviceId, deviceA);
    EXPECT_EQ(devices[0].timezone, u"America/New_York"_s);
    EXPECT_EQ(devices[0].lastUploadAt, 3000);
    EXPECT_TRUE(devices[0].backfillComplete);
}

TEST_P(StorageTest, StringsAreStoredVerbatim)
{
    const QString sql = u"x'); DROP TABLE snapshots; --"_s;
    const QString unicode = u"Grüße, 東京 🚀 \"quoted\" \\ back\u200Bslash"_s;
    const ServerUser user = storage->createUser(u"ada@example.org"_s, unicode, 1000);
    UploadedSnapshot s {idA, u"2026-11-16T09:30:12Z"_s, sql, unicode, u"  padded  "_s, u"line\nbreak"_s};
    storage->storeUpload(user.id, upload({{u"2026-11-16"_s, {s}}}), 2000);

    EXPECT_EQ(storage->days(user.id), (QList<UploadedDay> {{u"2026-11-16"_s, {s}}}));
    EXPECT_EQ(storage->userById(user.id)->name, unicode);
}

TEST_P(StorageTest, DeletingAUserRemovesEveryRowOfTheirsButKeepsTheirLinks)
{
    const ServerUser ada = storage->createUser(u"ada@example.org"_s, std::nullopt, 1000);
    const ServerUser eve = storage->createUser(u"eve@example.org"_s, std::nullopt, 1000);
    storage->createSession(u"digest-ada"_s, ada.id, 1000);
    storage->createSession(u"digest-eve"_s, eve.id, 1000);
    storage->createSignInLink(u"link-ada"_s, ada.email, 1000);
    storage->storeUpload(ada.id, upload({{u"2026-11-16"_s, {snapshot(idA, u"2026-11-16T09:30:12Z"_s)}}}), 2000);
    storage->storeUpload(eve.id, upload({{u"2026-11-16"_s, {snapshot(idA, u"2026-11-16T09:30:12Z"_s)}}}), 2000);
    storage->requestSync(ada.id, 2500);

    EXPECT_TRUE(storage->deleteUser(ada.email));
    EXPECT_FALSE(storage->deleteUser(ada.email));

    for (const QString &table : {u"sessions"_s, u"devices"_s, u"snapshots"_s, u"sync_requests"_s}) {
        EXPECT_EQ(rowCount(*storage, table, ada.id), 0) << table.toStdString();
        EXPECT_EQ(rowCount(*storage, table, eve.id), table == u"sync_requests"_s ? 0 : 1) << table.toStdString();
    }
    EXPECT_EQ(storage->userForSession(u"digest-ada"_s), std::nullopt);
    EXPECT_TRUE(storage->signInLink(u"link-ada"_s).has_value());
    EXPECT_EQ(storage->users(), QList<ServerUser> {eve});
}

class ConnectionLossTest : public BackendTest
{
};

TEST_P(ConnectionLossTest, ALostConnectionIsOpenedAgainForTheNextCall)
{
    storage->createUser(u"ada@example.org"_s, std::nullopt, 1000);
    (void)storage->users(); // the statement is now prepared on the connection about to be lost
    backend->dropServerConnections();
    // The call that finds the connection gone may fail; it must not take the storage with it.
    try {
        (void)storage->users();
    } catch (const StorageError &) {
    }
    EXPECT_EQ(storage->users().size(), 1);
}

TEST_P(StorageTest, ALinkIsUsedOnlyOnce)
{
    storage->createSignInLink(u"link"_s, u"ada@example.org"_s, 1000);
    EXPECT_TRUE(storage->useSignInLink(u"link"_s, 2000));
    EXPECT_FALSE(storage->useSignInLink(u"link"_s, 3000));
    EXPECT_EQ(storage->signInLink(u"link"_s)->usedAt, 2000);
}

TEST_P(StorageTest, ADatabaseNewerThanTheBinaryIsRefusedAndLeftUntouched)
{
    storage->createUser(u"ada@example.org"_s, std::nullopt, 1000);
    QSqlQuery(storage->database()).exec(u"UPDATE schema_version SET version = 99"_s);
    storage.reset();

    try {
        storage = backend->open();
        FAIL() << "a newer database was opened";
    } catch (const StorageError &error) {
        EXPECT_TRUE(error.message().contains(u"schema version 99, newer than this tamlo-server"_s)) << error.what();
    }
    EXPECT_EQ(backend->scalar(u"SELECT MAX(version) FROM schema_version"_s).toInt(), 99);
    EXPECT_EQ(backend->scalar(u"SELECT COUNT(*) FROM users"_s).toInt(), 1);
}

TEST_P(StorageTest, ADatabaseOfTheFirstVersionKeepsItsSessionsAndDaysWhenMigrated)
{
    const ServerUser ada = storage->createUser(u"ada@example.org"_s, std::nullopt, 1000);
    storage->createSession(u"digest-of-an-old-session-token-0123456789"_s, ada.id, 1500);
    storage->storeUpload(ada.id, upload({{u"2026-11-16"_s, {snapshot(idA, u"2026-11-16T09:30:12Z"_s)}}}), 2000);
    // Back to the first version's schema, as a server of that version left it.
    for (const QString &statement : {u"DROP INDEX sessions_public_id"_s,
             u"ALTER TABLE sessions DROP COLUMN public_id"_s, u"ALTER TABLE sessions DROP COLUMN kind"_s,
             u"ALTER TABLE sessions DROP COLUMN last_seen_at"_s, u"ALTER TABLE sessions DROP COLUMN device_id"_s,
             u"DROP TABLE user_days"_s, u"DELETE FROM schema_version WHERE version > 1"_s}) {
        QSqlQuery query(storage->database());
        ASSERT_TRUE(query.exec(statement)) << statement.toStdString();
    }
    storage.reset();

    storage = backend->open();
    EXPECT_EQ(storage->userForSession(u"digest-of-an-old-session-token-0123456789"_s), ada);
    const QList<SessionRecord> sessions = storage->sessions(ada.id);
    ASSERT_EQ(sessions.size(), 1);
    EXPECT_EQ(sessions[0].kind, SessionKind::App);
    EXPECT_TRUE(storage->revokeSession(ada.id, sessions[0].publicId));
    const QList<DayEntry> days = storage->dayEntries(ada.id, 10, 0);
    ASSERT_EQ(days.size(), 1);
    EXPECT_EQ(days[0].date, u"2026-11-16"_s);
    EXPECT_EQ(days[0].timezone, u"Europe/Berlin"_s);
    EXPECT_EQ(days[0].deviceId, deviceA);
}

INSTANTIATE_TEST_SUITE_P(Server, StorageTest, ::testing::ValuesIn(testBackends()), backendName);

namespace {
std::vector<BackendParam> networkedBackends()
{
    std::vector<BackendParam> result;
    for (const BackendParam &param : testBackends()) {
        if (param.networked) {
            result.push_back(param);
        }
    }
    return result;
}
} // namespace

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(ConnectionLossTest);
INSTANTIATE_TEST_SUITE_P(Server, ConnectionLossTest, ::testing::ValuesIn(networkedBackends()), backendName);
