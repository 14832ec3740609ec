#include "serverfixture.h"

namespace {
const QString idA = u"6F1C0E2A-8B3D-4E57-9A10-2C4D7B1E3F90"_s;

UploadedSnapshot snapshot(const QString &id, const QString &timestamp, const QString &type = u"Coding"_s)
{
    return UploadedSnapshot {id, timestamp, type, u"Website"_s, u"Editing checkout.css"_s, std::nullopt};
}

SyncUpload upload(QList<UploadedDay> days, bool backfillComplete = false)
{
    return SyncUpload {u"Europe/Berlin"_s, deviceA, backfillComplete, std::move(days)};
}
} // namespace

using StorageTest = BackendTest;

TEST_F(StorageTest, UploadsUpsertByIdVerbatimInOrderAndRecordTheDevice)
{
    const QString unicode = u"Grüße, 東京 🚀 \"quoted\" \\ back\u200Bslash"_s;
    const ServerUser ada = storage->createUser(adaMail, unicode, 1000);
    const UploadedSnapshot b = snapshot(u"A14B9E33-0C5D-4D21-B7F8-90E6C3D2F118"_s, u"2026-11-16T09:30:42Z"_s);
    storage->storeUpload(
        ada.id, upload({{u"2026-11-16"_s, {snapshot(idA, u"2026-11-16T09:30:12Z"_s), b}}}, true), 2000);
    // The second upload replaces every field of the record with that id, byte for byte.
    const UploadedSnapshot a {
        idA, u"2026-11-16T09:30:12Z"_s, u"x'); DROP TABLE snapshots; --"_s, unicode, u"  padded  "_s, u"line\nbreak"_s};
    const UploadedSnapshot c = snapshot(u"0C2D4E6F-8A1B-4C3D-9E5F-7A8B9C0D1E2F"_s, u"2026-11-17T08:00:00Z"_s);
    SyncUpload later = upload({{u"2026-11-17"_s, {c}}, {u"2026-11-16"_s, {b, a}}});
    later.timezone = u"America/New_York"_s;
    storage->storeUpload(ada.id, later, 3000);

    // Days in order, and each day's records by time.
    EXPECT_EQ(storage->days(ada.id), (QList<UploadedDay> {{u"2026-11-16"_s, {a, b}}, {u"2026-11-17"_s, {c}}}));
    EXPECT_EQ(storage->userById(ada.id)->name, unicode);
    const QList<DeviceRecord> devices = storage->devices(ada.id);
    ASSERT_EQ(devices.size(), 1);
    // The latest zone and upload, and a finished backfill stays finished.
    EXPECT_EQ(
        std::tuple(devices[0].deviceId, devices[0].timezone, devices[0].lastUploadAt, devices[0].backfillComplete),
        std::tuple(deviceA, u"America/New_York"_s, 3000, true));
}

// A statement failing mid-upload takes back what the upload wrote, and leaves the next one free to go through.
TEST_F(StorageTest, AFailedUploadWritesNothingAndTheNextGoesThrough)
{
    const ServerUser ada = storage->createUser(adaMail, std::nullopt, 1000);
    const auto rename = [&](const QString &from, const QString &to) {
        ASSERT_TRUE(QSqlQuery(storage->database()).exec(u"ALTER TABLE %1 RENAME TO %2"_s.arg(from, to)));
    };
    const SyncUpload day = upload({{u"2026-11-16"_s, {snapshot(idA, u"2026-11-16T09:30:12Z"_s)}}});
    rename(u"user_days"_s, u"elsewhere"_s);
    EXPECT_THROW(storage->storeUpload(ada.id, day, 2000), StorageError);
    rename(u"elsewhere"_s, u"user_days"_s);
    EXPECT_TRUE(storage->days(ada.id).isEmpty());
    storage->storeUpload(ada.id, day, 3000);
    EXPECT_EQ(storage->days(ada.id).size(), 1);
}

// Only a database server has a connection to lose, so only the PostgreSQL run has this test.
class LostConnection : public BackendTest
{
    void TestBody() override
    {
        auto serverProcess = [&] {
            QSqlQuery query(storage->database());
            return query.exec(u"SELECT pg_backend_pid()"_s) && query.next() ? query.value(0).toInt() : -1;
        };
        storage->createUser(adaMail, std::nullopt, 1000);
        const int before = serverProcess();
        EXPECT_THROW(storage->createUser(adaMail, std::nullopt, 1000), StorageError);
        (void)storage->users(); // the statement is now prepared on the connection about to be lost
        EXPECT_EQ(serverProcess(), before);
        // As a restart of the database server leaves it.
        backend.scalar(u"SELECT pg_terminate_backend(pid) FROM pg_stat_activity"
                       " WHERE datname = current_database() AND pid <> pg_backend_pid()"_s);
        // The call that finds the connection gone may fail; it must not take the storage with it.
        try {
            (void)storage->users();
        } catch (const StorageError &) {
        }
        EXPECT_EQ(storage->users().size(), 1);
    }
};
[[maybe_unused]] const bool lostConnectionRegistered = qEnvironmentVariableIsSet("TAMLO_TEST_POSTGRES")
    && ::testing::RegisterTest("StorageTest", "ALostConnectionIsOpenedAgainForTheNextCall", nullptr, nullptr, __FILE__,
        __LINE__, []() -> BackendTest * { return new LostConnection; });

TEST_F(StorageTest, ADatabaseNewerThanTheBinaryIsRefusedAndLeftUntouched)
{
    storage->createUser(adaMail, std::nullopt, 1000);
    QSqlQuery(storage->database()).exec(u"UPDATE schema_version SET version = 99"_s);
    storage.reset();

    try {
        storage = backend.open();
        FAIL() << "a newer database was opened";
    } catch (const StorageError &error) {
        EXPECT_TRUE(error.message().contains(u"schema version 99, newer than this tamlo-server"_s)) << error.what();
    }
    EXPECT_EQ(backend.scalar(u"SELECT MAX(version) FROM schema_version"_s).toInt(), 99);
    EXPECT_EQ(backend.scalar(u"SELECT COUNT(*) FROM users"_s).toInt(), 1);
}

TEST_F(StorageTest, ADatabaseOfTheFirstVersionKeepsItsSessionsDaysAndRequestWhenMigrated)
{
    const ServerUser ada = storage->createUser(adaMail, std::nullopt, 1000);
    storage->createSession(u"digest-of-an-old-session-token-0123456789"_s, ada.id, 1500);
    storage->storeUpload(ada.id, upload({{u"2026-11-16"_s, {snapshot(idA, u"2026-11-16T09:30:12Z"_s)}}}), 2000);
    storage->requestSync(ada.id, 2500);
    // Back to the first version's schema, as a server of that version left it.
    for (const QString &statement :
        {u"ALTER TABLE devices DROP COLUMN sync_pending"_s, u"DROP INDEX sessions_public_id"_s,
            u"ALTER TABLE sessions DROP COLUMN public_id"_s, u"ALTER TABLE sessions DROP COLUMN kind"_s,
            u"ALTER TABLE sessions DROP COLUMN last_seen_at"_s, u"ALTER TABLE sessions DROP COLUMN device_id"_s,
            u"DROP TABLE user_days"_s, u"DELETE FROM schema_version WHERE version > 1"_s}) {
        ASSERT_TRUE(QSqlQuery(storage->database()).exec(statement)) << statement.toStdString();
    }
    storage.reset();
    storage = backend.open();
    EXPECT_EQ(storage->userForSession(u"digest-of-an-old-session-token-0123456789"_s), ada);
    const QList<SessionRecord> sessions = storage->sessions(ada.id);
    ASSERT_EQ(sessions.size(), 1);
    EXPECT_EQ(sessions[0].kind, SessionKind::App);
    EXPECT_TRUE(storage->revokeSession(ada.id, sessions[0].publicId));
    const QList<DayEntry> days = storage->dayEntries(ada.id, 10, 0);
    ASSERT_EQ(days.size(), 1);
    EXPECT_EQ(std::tuple(days[0].date, days[0].timezone, days[0].deviceId),
        std::tuple(u"2026-11-16"_s, u"Europe/Berlin"_s, deviceA));
    // A request pending then waits for every device.
    EXPECT_EQ(storage->syncRequestedAt(ada.id), 2500);
    EXPECT_TRUE(storage->devices(ada.id).value(0).syncPending);
}
