#include "server/sqlstorage.h"

#include <QAtomicInt>
#include <QFile>
#include <QFileInfo>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#include <QUrlQuery>
#include <QUuid>
#include <QVariant>

using namespace Qt::StringLiterals;

namespace {
// Each migration takes the schema one version up. Only types and statements that SQLite and
// PostgreSQL read alike: TEXT, BIGINT, INTEGER flags, ON CONFLICT upserts.
const QList<QStringList> &migrations()
{
    static const QList<QStringList> steps {
        {
            u"CREATE TABLE users (id TEXT PRIMARY KEY, email TEXT NOT NULL UNIQUE, name TEXT,"
            " created_at BIGINT NOT NULL)"_s,
            u"CREATE TABLE sign_in_links (token_digest TEXT PRIMARY KEY, email TEXT NOT NULL,"
            " created_at BIGINT NOT NULL, used_at BIGINT)"_s,
            u"CREATE TABLE sessions (token_digest TEXT PRIMARY KEY,"
            " user_id TEXT NOT NULL REFERENCES users(id) ON DELETE CASCADE, created_at BIGINT NOT NULL)"_s,
            u"CREATE INDEX sessions_user ON sessions (user_id)"_s,
            u"CREATE TABLE devices (user_id TEXT NOT NULL REFERENCES users(id) ON DELETE CASCADE,"
            " device_id TEXT NOT NULL, timezone TEXT NOT NULL, last_upload_at BIGINT NOT NULL,"
            " backfill_complete INTEGER NOT NULL DEFAULT 0, PRIMARY KEY (user_id, device_id))"_s,
            u"CREATE TABLE snapshots (user_id TEXT NOT NULL REFERENCES users(id) ON DELETE CASCADE,"
            " id TEXT NOT NULL, device_id TEXT NOT NULL, day TEXT NOT NULL, taken_at TEXT NOT NULL,"
            " activity_type TEXT NOT NULL, project_name TEXT NOT NULL, activity_description TEXT,"
            " user_note TEXT, received_at BIGINT NOT NULL, PRIMARY KEY (user_id, id))"_s,
            u"CREATE INDEX snapshots_user_day ON snapshots (user_id, day, taken_at)"_s,
            u"CREATE TABLE sync_requests (user_id TEXT PRIMARY KEY REFERENCES users(id) ON DELETE CASCADE,"
            " requested_at BIGINT NOT NULL)"_s,
        },
        {
            // Sessions get a name their owner can revoke them by, a kind, their last activity and
            // the device they upload for; each stored day remembers the device that sent it.
            u"ALTER TABLE sessions ADD COLUMN public_id TEXT"_s,
            u"ALTER TABLE sessions ADD COLUMN kind TEXT NOT NULL DEFAULT 'app'"_s,
            u"ALTER TABLE sessions ADD COLUMN last_seen_at BIGINT"_s,
            u"ALTER TABLE sessions ADD COLUMN device_id TEXT"_s,
            u"UPDATE sessions SET public_id = substr(token_digest, 1, 32)"_s,
            u"CREATE UNIQUE INDEX sessions_public_id ON sessions (public_id)"_s,
            u"CREATE TABLE user_days (user_id TEXT NOT NULL REFERENCES users(id) ON DELETE CASCADE,"
            " day TEXT NOT NULL, device_id TEXT NOT NULL, timezone TEXT NOT NULL, uploaded_at BIGINT NOT NULL,"
            " PRIMARY KEY (user_id, day))"_s,
            u"INSERT INTO user_days (user_id, day, device_id, timezone, uploaded_at)"
            " SELECT s.user_id, s.day, MAX(s.device_id), COALESCE(MAX(d.timezone), 'UTC'), MAX(s.received_at)"
            " FROM snapshots s LEFT JOIN devices d ON d.user_id = s.user_id AND d.device_id = s.device_id"
            " GROUP BY s.user_id, s.day"_s,
        },
        {
            // A request to sync stands for each device until that device uploads; a request
            // pending at the upgrade stands for every device.
            u"ALTER TABLE devices ADD COLUMN sync_pending INTEGER NOT NULL DEFAULT 0"_s,
            u"UPDATE devices SET sync_pending = 1 WHERE user_id IN (SELECT user_id FROM sync_requests)"_s,
        },
    };
    static_assert(SqlStorage::schemaVersion == 3, "add the statements of the new version above");
    return steps;
}

QVariant nullableText(const std::optional<QString> &value)
{
    return value ? QVariant(*value) : QVariant(QMetaType::fromType<QString>());
}

std::optional<QString> optionalText(const QVariant &value)
{
    return value.isNull() ? std::nullopt : std::optional<QString>(value.toString());
}

constexpr qsizetype snapshotBatchRows = 100;

QString snapshotUpsert(qsizetype rows)
{
    const QStringList tuples(rows, u"(?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"_s);
    return u"INSERT INTO snapshots (user_id, id, device_id, day, taken_at, activity_type, project_name,"
           " activity_description, user_note, received_at) VALUES "_s
        + tuples.join(u", "_s)
        + u" ON CONFLICT (user_id, id) DO UPDATE SET device_id = excluded.device_id, day = excluded.day,"
          " taken_at = excluded.taken_at, activity_type = excluded.activity_type,"
          " project_name = excluded.project_name, activity_description = excluded.activity_description,"
          " user_note = excluded.user_note, received_at = excluded.received_at"_s;
}

QString newConnectionName()
{
    static QAtomicInt counter;
    return u"tamlo-server-%1"_s.arg(counter.fetchAndAddRelaxed(1));
}
} // namespace

std::unique_ptr<SqlStorage> SqlStorage::openSqlite(const QString &file)
{
    if (!QSqlDatabase::isDriverAvailable(u"QSQLITE"_s)) {
        throw StorageError(u"The Qt SQLite driver is not installed (Debian package libqt6sql6-sqlite)."_s);
    }
    const QString name = newConnectionName();
    QSqlDatabase db = QSqlDatabase::addDatabase(u"QSQLITE"_s, name);
    db.setDatabaseName(file);
    // Another process (an administration command beside the running server) may hold the lock briefly.
    db.setConnectOptions(u"QSQLITE_BUSY_TIMEOUT=5000"_s);
    std::unique_ptr<SqlStorage> storage(new SqlStorage(Engine::Sqlite, db, QFileInfo(file).absoluteFilePath()));
    storage->open();
    return storage;
}

std::unique_ptr<SqlStorage> SqlStorage::openPostgres(const QUrl &url)
{
    if (!QSqlDatabase::isDriverAvailable(u"QPSQL"_s)) {
        throw StorageError(u"The Qt PostgreSQL driver is not installed (Debian package libqt6sql6-psql)."_s);
    }
    const QString name = newConnectionName();
    QSqlDatabase db = QSqlDatabase::addDatabase(u"QPSQL"_s, name);
    QUrlQuery query(url);
    QString host = url.host();
    QStringList options;
    for (const auto &[key, value] : query.queryItems(QUrl::FullyDecoded)) {
        if (key == u"host"_s) {
            host = value; // a socket directory, as libpq allows
        } else {
            options.append(key + u'=' + value);
        }
    }
    db.setHostName(host);
    if (url.port() > 0) {
        db.setPort(url.port());
    }
    db.setUserName(url.userName(QUrl::FullyDecoded));
    db.setPassword(url.password(QUrl::FullyDecoded));
    const QString database = url.path(QUrl::FullyDecoded).mid(1);
    db.setDatabaseName(database);
    db.setConnectOptions(options.join(u';'));
    const QString description = u"postgresql://%1%2/%3"_s.arg(
        host.isEmpty() ? u"localhost"_s : host, url.port() > 0 ? u":%1"_s.arg(url.port()) : QString(), database);
    std::unique_ptr<SqlStorage> storage(new SqlStorage(Engine::Postgres, db, description));
    storage->open();
    return storage;
}

SqlStorage::SqlStorage(Engine engine, QSqlDatabase db, QString description)
    : m_engine(engine)
    , m_db(std::move(db))
    , m_connectionName(m_db.connectionName())
    , m_description(std::move(description))
{
}

SqlStorage::~SqlStorage()
{
    m_statements.clear();
    m_db.close();
    m_db = QSqlDatabase();
    QSqlDatabase::removeDatabase(m_connectionName);
}

void SqlStorage::open()
{
    if (!m_db.open()) {
        throw StorageError(u"Cannot open the database %1: %2"_s.arg(m_description, m_db.lastError().text()));
    }
    if (m_engine == Engine::Sqlite) {
        // In WAL mode (set once the file is known to be ours) a committed transaction survives a
        // crash of the process with NORMAL.
        execSql(u"PRAGMA synchronous = NORMAL"_s);
        execSql(u"PRAGMA foreign_keys = ON"_s);
    } else {
        execSql(u"SET client_min_messages TO WARNING"_s);
    }
    migrate();
}

void SqlStorage::migrate()
{
    const bool hasVersionTable = m_db.tables().contains(u"schema_version"_s);
    int current = 0;
    if (hasVersionTable) {
        QSqlQuery query = prepareOnce(u"SELECT MAX(version) FROM schema_version"_s);
        exec(query);
        if (query.next()) {
            current = query.value(0).toInt();
        }
        query.finish();
    } else if (!m_db.tables().isEmpty() && m_engine == Engine::Sqlite) {
        throw StorageError(u"The file %1 is not a tamlo-server database; it was left untouched."_s.arg(m_description));
    }
    if (current > schemaVersion) {
        throw StorageError(u"The database %1 has schema version %2, newer than this tamlo-server knows (%3). "
                           "It was left untouched; run a newer tamlo-server."_s.arg(m_description)
                               .arg(current)
                               .arg(schemaVersion));
    }
    if (m_engine == Engine::Sqlite) {
        execSql(u"PRAGMA journal_mode = WAL"_s);
    }
    if (current == schemaVersion) {
        return;
    }
    beginTransaction();
    try {
        if (!hasVersionTable) {
            execSql(u"CREATE TABLE schema_version (version INTEGER NOT NULL)"_s);
        }
        for (int version = current + 1; version <= schemaVersion; ++version) {
            for (const QString &statement : migrations().at(version - 1)) {
                execSql(statement);
            }
            QSqlQuery record = prepareOnce(u"INSERT INTO schema_version (version) VALUES (?)"_s);
            record.addBindValue(version);
            exec(record);
        }
        commitTransaction();
    } catch (...) {
        rollbackTransaction();
        throw;
    }
}

QSqlQuery SqlStorage::prepare(const QString &sql)
{
    reconnectIfBroken();
    const auto cached = m_statements.constFind(sql);
    if (cached != m_statements.constEnd()) {
        QSqlQuery query = *cached;
        query.finish();
        return query;
    }
    QSqlQuery query = prepareOnce(sql);
    m_statements.insert(sql, query);
    return query;
}

QSqlQuery SqlStorage::prepareOnce(const QString &sql)
{
    QSqlQuery query(m_db);
    query.setForwardOnly(true);
    if (!query.prepare(sql)) {
        throw StorageError(u"Database error: %1"_s.arg(query.lastError().text()));
    }
    return query;
}

void SqlStorage::exec(QSqlQuery &query)
{
    if (!query.exec()) {
        const QString message = query.lastError().text();
        noteFailure();
        throw StorageError(u"Database error: %1"_s.arg(message));
    }
}

void SqlStorage::execSql(const QString &sql)
{
    QSqlQuery query(m_db);
    if (!query.exec(sql)) {
        const QString message = query.lastError().text();
        noteFailure();
        throw StorageError(u"Database error: %1"_s.arg(message));
    }
}

void SqlStorage::noteFailure()
{
    // A PostgreSQL server that restarted leaves this connection dead; a statement that merely
    // failed leaves it able to answer.
    if (m_engine == Engine::Postgres && !m_broken && !QSqlQuery(m_db).exec(u"SELECT 1"_s)) {
        m_broken = true;
    }
}

void SqlStorage::reconnectIfBroken()
{
    if (!m_broken) {
        return;
    }
    m_statements.clear();
    m_db.close();
    if (!m_db.open()) {
        throw StorageError(u"Cannot reach the database %1: %2"_s.arg(m_description, m_db.lastError().text()));
    }
    m_broken = false;
    execSql(u"SET client_min_messages TO WARNING"_s);
}

void SqlStorage::beginTransaction()
{
    reconnectIfBroken();
    if (!m_db.transaction()) {
        throw StorageError(u"Database error: %1"_s.arg(m_db.lastError().text()));
    }
}

void SqlStorage::commitTransaction()
{
    if (!m_db.commit()) {
        throw StorageError(u"Database error: %1"_s.arg(m_db.lastError().text()));
    }
}

void SqlStorage::rollbackTransaction()
{
    m_db.rollback();
}

std::optional<ServerUser> SqlStorage::oneUser(QSqlQuery &query)
{
    exec(query);
    std::optional<ServerUser> user;
    if (query.next()) {
        user = ServerUser {query.value(0).toString(), query.value(1).toString(), optionalText(query.value(2)),
            query.value(3).toLongLong()};
    }
    query.finish();
    return user;
}

std::optional<ServerUser> SqlStorage::userByEmail(const QString &email)
{
    QSqlQuery query = prepare(u"SELECT id, email, name, created_at FROM users WHERE email = ?"_s);
    query.addBindValue(email);
    return oneUser(query);
}

std::optional<ServerUser> SqlStorage::userById(const QString &id)
{
    QSqlQuery query = prepare(u"SELECT id, email, name, created_at FROM users WHERE id = ?"_s);
    query.addBindValue(id);
    return oneUser(query);
}

ServerUser SqlStorage::createUser(const QString &email, const std::optional<QString> &name, qint64 now)
{
    ServerUser user {QUuid::createUuid().toString(QUuid::WithoutBraces), email, name, now};
    QSqlQuery query = prepare(u"INSERT INTO users (id, email, name, created_at) VALUES (?, ?, ?, ?)"_s);
    query.addBindValue(user.id);
    query.addBindValue(user.email);
    query.addBindValue(nullableText(user.name));
    query.addBindValue(user.createdAt);
    exec(query);
    return user;
}

QList<ServerUser> SqlStorage::users()
{
    QSqlQuery query = prepare(u"SELECT id, email, name, created_at FROM users ORDER BY email"_s);
    exec(query);
    QList<ServerUser> result;
    while (query.next()) {
        result.append({query.value(0).toString(), query.value(1).toString(), optionalText(query.value(2)),
            query.value(3).toLongLong()});
    }
    query.finish();
    return result;
}

bool SqlStorage::deleteUser(const QString &email)
{
    const std::optional<ServerUser> user = userByEmail(email);
    if (!user) {
        return false;
    }
    // The foreign keys cascade as well; naming every table keeps the promise visible and does
    // not depend on a connection having them switched on.
    beginTransaction();
    try {
        for (const QString &table : {u"sessions"_s, u"devices"_s, u"snapshots"_s, u"sync_requests"_s, u"user_days"_s}) {
            QSqlQuery query = prepare(u"DELETE FROM %1 WHERE user_id = ?"_s.arg(table));
            query.addBindValue(user->id);
            exec(query);
        }
        QSqlQuery query = prepare(u"DELETE FROM users WHERE id = ?"_s);
        query.addBindValue(user->id);
        exec(query);
        commitTransaction();
    } catch (...) {
        rollbackTransaction();
        throw;
    }
    return true;
}

void SqlStorage::createSignInLink(const QString &tokenDigest, const QString &email, qint64 now)
{
    QSqlQuery query = prepare(u"INSERT INTO sign_in_links (token_digest, email, created_at) VALUES (?, ?, ?)"_s);
    query.addBindValue(tokenDigest);
    query.addBindValue(email);
    query.addBindValue(now);
    exec(query);
}

std::optional<SignInLink> SqlStorage::signInLink(const QString &tokenDigest)
{
    QSqlQuery query = prepare(u"SELECT email, created_at, used_at FROM sign_in_links WHERE token_digest = ?"_s);
    query.addBindValue(tokenDigest);
    exec(query);
    std::optional<SignInLink> link;
    if (query.next()) {
        link = SignInLink {query.value(0).toString(), query.value(1).toLongLong(), std::nullopt};
        if (!query.value(2).isNull()) {
            link->usedAt = query.value(2).toLongLong();
        }
    }
    query.finish();
    return link;
}

bool SqlStorage::useSignInLink(const QString &tokenDigest, qint64 now)
{
    QSqlQuery query = prepare(u"UPDATE sign_in_links SET used_at = ? WHERE token_digest = ? AND used_at IS NULL"_s);
    query.addBindValue(now);
    query.addBindValue(tokenDigest);
    exec(query);
    return query.numRowsAffected() == 1;
}

void SqlStorage::createSession(const QString &tokenDigest, const QString &userId, qint64 now)
{
    insertSession(tokenDigest, userId, now, SessionKind::App);
}

void SqlStorage::createWebSession(const QString &tokenDigest, const QString &userId, qint64 now)
{
    insertSession(tokenDigest, userId, now, SessionKind::Web);
}

void SqlStorage::insertSession(const QString &tokenDigest, const QString &userId, qint64 now, SessionKind kind)
{
    QSqlQuery query = prepare(u"INSERT INTO sessions (token_digest, user_id, created_at, public_id, kind, last_seen_at)"
                              " VALUES (?, ?, ?, ?, ?, ?)"_s);
    query.addBindValue(tokenDigest);
    query.addBindValue(userId);
    query.addBindValue(now);
    query.addBindValue(QUuid::createUuid().toString(QUuid::Id128));
    query.addBindValue(kind == SessionKind::Web ? u"web"_s : u"app"_s);
    query.addBindValue(now);
    exec(query);
}

std::optional<WebSessionInfo> SqlStorage::webSession(const QString &tokenDigest)
{
    QSqlQuery query = prepare(u"SELECT u.id, u.email, u.name, u.created_at, s.public_id, s.created_at, s.last_seen_at"
                              " FROM sessions s JOIN users u ON u.id = s.user_id"
                              " WHERE s.token_digest = ? AND s.kind = 'web'"_s);
    query.addBindValue(tokenDigest);
    exec(query);
    std::optional<WebSessionInfo> info;
    if (query.next()) {
        info = WebSessionInfo {{query.value(0).toString(), query.value(1).toString(), optionalText(query.value(2)),
                                   query.value(3).toLongLong()},
            query.value(4).toString(), query.value(5).toLongLong(), std::nullopt};
        if (!query.value(6).isNull()) {
            info->lastSeenAt = query.value(6).toLongLong();
        }
    }
    query.finish();
    return info;
}

void SqlStorage::touchSession(const QString &tokenDigest, qint64 now)
{
    QSqlQuery query = prepare(u"UPDATE sessions SET last_seen_at = ? WHERE token_digest = ?"_s);
    query.addBindValue(now);
    query.addBindValue(tokenDigest);
    exec(query);
}

void SqlStorage::noteSessionDevice(const QString &tokenDigest, const QString &deviceId)
{
    QSqlQuery query = prepare(u"UPDATE sessions SET device_id = ? WHERE token_digest = ?"_s);
    query.addBindValue(deviceId);
    query.addBindValue(tokenDigest);
    exec(query);
}

QList<SessionRecord> SqlStorage::sessions(const QString &userId)
{
    QSqlQuery query = prepare(u"SELECT public_id, kind, created_at, last_seen_at, device_id FROM sessions"
                              " WHERE user_id = ? ORDER BY COALESCE(last_seen_at, created_at) DESC, public_id"_s);
    query.addBindValue(userId);
    exec(query);
    QList<SessionRecord> result;
    while (query.next()) {
        SessionRecord record {query.value(0).toString(),
            query.value(1).toString() == u"web"_s ? SessionKind::Web : SessionKind::App, query.value(2).toLongLong(),
            std::nullopt, optionalText(query.value(4))};
        if (!query.value(3).isNull()) {
            record.lastSeenAt = query.value(3).toLongLong();
        }
        result.append(record);
    }
    query.finish();
    return result;
}

bool SqlStorage::revokeSession(const QString &userId, const QString &publicId)
{
    QSqlQuery query = prepare(u"DELETE FROM sessions WHERE user_id = ? AND public_id = ?"_s);
    query.addBindValue(userId);
    query.addBindValue(publicId);
    exec(query);
    return query.numRowsAffected() == 1;
}

void SqlStorage::deleteSession(const QString &tokenDigest)
{
    QSqlQuery query = prepare(u"DELETE FROM sessions WHERE token_digest = ?"_s);
    query.addBindValue(tokenDigest);
    exec(query);
}

QList<DayEntry> SqlStorage::dayEntries(const QString &userId, int count, int offset)
{
    QSqlQuery query = prepare(u"SELECT day, device_id, timezone, uploaded_at FROM user_days WHERE user_id = ?"
                              " ORDER BY day DESC LIMIT ? OFFSET ?"_s);
    query.addBindValue(userId);
    query.addBindValue(count);
    query.addBindValue(offset);
    exec(query);
    QList<DayEntry> result;
    while (query.next()) {
        result.append({query.value(0).toString(), query.value(1).toString(), query.value(2).toString(),
            query.value(3).toLongLong()});
    }
    query.finish();
    return result;
}

int SqlStorage::dayCount(const QString &userId)
{
    QSqlQuery query = prepare(u"SELECT COUNT(*) FROM user_days WHERE user_id = ?"_s);
    query.addBindValue(userId);
    exec(query);
    const int count = query.next() ? query.value(0).toInt() : 0;
    query.finish();
    return count;
}

std::optional<DayEntry> SqlStorage::dayEntry(const QString &userId, const QString &date)
{
    QSqlQuery query
        = prepare(u"SELECT day, device_id, timezone, uploaded_at FROM user_days WHERE user_id = ? AND day = ?"_s);
    query.addBindValue(userId);
    query.addBindValue(date);
    exec(query);
    std::optional<DayEntry> entry;
    if (query.next()) {
        entry = DayEntry {query.value(0).toString(), query.value(1).toString(), query.value(2).toString(),
            query.value(3).toLongLong()};
    }
    query.finish();
    return entry;
}

QList<UploadedDay> SqlStorage::daysBetween(const QString &userId, const QString &first, const QString &last)
{
    QSqlQuery query = prepare(u"SELECT day, id, taken_at, activity_type, project_name, activity_description,"
                              " user_note FROM snapshots WHERE user_id = ? AND day >= ? AND day <= ?"
                              " ORDER BY day, taken_at, id"_s);
    query.addBindValue(userId);
    query.addBindValue(first);
    query.addBindValue(last);
    exec(query);
    return groupedDays(query);
}

QList<UploadedDay> SqlStorage::groupedDays(QSqlQuery &query)
{
    QList<UploadedDay> result;
    while (query.next()) {
        const QString date = query.value(0).toString();
        if (result.isEmpty() || result.last().date != date) {
            result.append(UploadedDay {date, {}});
        }
        result.last().snapshots.append({query.value(1).toString(), query.value(2).toString(), query.value(3).toString(),
            query.value(4).toString(), optionalText(query.value(5)), optionalText(query.value(6))});
    }
    query.finish();
    return result;
}

std::optional<ServerUser> SqlStorage::userForSession(const QString &tokenDigest)
{
    QSqlQuery query = prepare(u"SELECT u.id, u.email, u.name, u.created_at FROM sessions s"
                              " JOIN users u ON u.id = s.user_id WHERE s.token_digest = ?"_s);
    query.addBindValue(tokenDigest);
    return oneUser(query);
}

std::optional<SessionSyncStatus> SqlStorage::syncStatusForSession(const QString &tokenDigest)
{
    // A session that has not uploaded yet has no device: the request stands for it until it does.
    QSqlQuery query = prepare(
        u"SELECT u.id, u.email, u.name, u.created_at,"
        " CASE WHEN d.sync_pending = 0 THEN NULL ELSE r.requested_at END, s.last_seen_at FROM sessions s"
        " JOIN users u ON u.id = s.user_id LEFT JOIN sync_requests r ON r.user_id = u.id"
        " LEFT JOIN devices d ON d.user_id = s.user_id AND d.device_id = s.device_id WHERE s.token_digest = ?"_s);
    query.addBindValue(tokenDigest);
    exec(query);
    std::optional<SessionSyncStatus> status;
    if (query.next()) {
        status = SessionSyncStatus {{query.value(0).toString(), query.value(1).toString(), optionalText(query.value(2)),
                                        query.value(3).toLongLong()},
            std::nullopt};
        if (!query.value(4).isNull()) {
            status->syncRequestedAt = query.value(4).toLongLong();
        }
        if (!query.value(5).isNull()) {
            status->lastSeenAt = query.value(5).toLongLong();
        }
    }
    query.finish();
    return status;
}

void SqlStorage::storeUpload(const QString &userId, const SyncUpload &upload, qint64 now)
{
    beginTransaction();
    try {
        // Many rows a statement: one round trip per hundred records instead of per record.
        QList<std::pair<const UploadedDay *, const UploadedSnapshot *>> rows;
        for (const UploadedDay &day : upload.days) {
            for (const UploadedSnapshot &s : day.snapshots) {
                rows.append({&day, &s});
            }
        }
        std::optional<QSqlQuery> fullBatch;
        for (qsizetype start = 0; start < rows.size(); start += snapshotBatchRows) {
            const qsizetype count = std::min<qsizetype>(snapshotBatchRows, rows.size() - start);
            std::optional<QSqlQuery> partialBatch;
            if (count == snapshotBatchRows && !fullBatch) {
                fullBatch = prepare(snapshotUpsert(count));
            } else if (count != snapshotBatchRows) {
                partialBatch = prepareOnce(snapshotUpsert(count));
            }
            QSqlQuery &query = partialBatch ? *partialBatch : *fullBatch;
            int column = 0;
            for (qsizetype i = start; i < start + count; ++i) {
                const UploadedDay &day = *rows[i].first;
                const UploadedSnapshot &s = *rows[i].second;
                for (const QVariant &value : {QVariant(userId), QVariant(s.id), QVariant(upload.deviceId),
                         QVariant(day.date), QVariant(s.timestamp), QVariant(s.activityType), QVariant(s.projectName),
                         nullableText(s.activityDescription), nullableText(s.userNote), QVariant(now)}) {
                    query.bindValue(column++, value);
                }
            }
            exec(query);
        }
        QSqlQuery device = prepare(
            u"INSERT INTO devices (user_id, device_id, timezone, last_upload_at, backfill_complete)"
            " VALUES (?, ?, ?, ?, ?) ON CONFLICT (user_id, device_id) DO UPDATE SET timezone = excluded.timezone,"
            " last_upload_at = excluded.last_upload_at, sync_pending = 0,"
            " backfill_complete = CASE WHEN devices.backfill_complete = 1 THEN 1 ELSE excluded.backfill_complete END"_s);
        device.addBindValue(userId);
        device.addBindValue(upload.deviceId);
        device.addBindValue(upload.timezone);
        device.addBindValue(now);
        device.addBindValue(upload.backfillComplete ? 1 : 0);
        exec(device);
        for (const UploadedDay &day : upload.days) {
            QSqlQuery entry = prepare(u"INSERT INTO user_days (user_id, day, device_id, timezone, uploaded_at)"
                                      " VALUES (?, ?, ?, ?, ?) ON CONFLICT (user_id, day) DO UPDATE SET"
                                      " device_id = excluded.device_id, timezone = excluded.timezone,"
                                      " uploaded_at = excluded.uploaded_at"_s);
            entry.addBindValue(userId);
            entry.addBindValue(day.date);
            entry.addBindValue(upload.deviceId);
            entry.addBindValue(upload.timezone);
            entry.addBindValue(now);
            exec(entry);
        }
        // The request is over once no device it stands for is still to upload.
        QSqlQuery clear = prepare(u"DELETE FROM sync_requests WHERE user_id = ? AND NOT EXISTS"
                                  " (SELECT 1 FROM devices WHERE user_id = ? AND sync_pending = 1)"_s);
        clear.addBindValue(userId);
        clear.addBindValue(userId);
        exec(clear);
        commitTransaction();
    } catch (...) {
        rollbackTransaction();
        throw;
    }
}

std::optional<qint64> SqlStorage::syncRequestedAt(const QString &userId)
{
    QSqlQuery query = prepare(u"SELECT requested_at FROM sync_requests WHERE user_id = ?"_s);
    query.addBindValue(userId);
    exec(query);
    std::optional<qint64> requestedAt;
    if (query.next()) {
        requestedAt = query.value(0).toLongLong();
    }
    query.finish();
    return requestedAt;
}

void SqlStorage::requestSync(const QString &userId, qint64 now)
{
    // Devices before the request, as an upload takes them, so that the two never wait on each other.
    beginTransaction();
    try {
        QSqlQuery devices = prepare(u"UPDATE devices SET sync_pending = 1 WHERE user_id = ?"_s);
        devices.addBindValue(userId);
        exec(devices);
        QSqlQuery query = prepare(u"INSERT INTO sync_requests (user_id, requested_at) VALUES (?, ?)"
                                  " ON CONFLICT (user_id) DO UPDATE SET requested_at = excluded.requested_at"_s);
        query.addBindValue(userId);
        query.addBindValue(now);
        exec(query);
        commitTransaction();
    } catch (...) {
        rollbackTransaction();
        throw;
    }
}

QList<DeviceRecord> SqlStorage::devices(const QString &userId)
{
    QSqlQuery query = prepare(u"SELECT device_id, timezone, last_upload_at, backfill_complete, sync_pending"
                              " FROM devices WHERE user_id = ? ORDER BY device_id"_s);
    query.addBindValue(userId);
    exec(query);
    QList<DeviceRecord> result;
    while (query.next()) {
        result.append({query.value(0).toString(), query.value(1).toString(), query.value(2).toLongLong(),
            query.value(3).toInt() != 0, query.value(4).toInt() != 0});
    }
    query.finish();
    return result;
}

QList<UploadedDay> SqlStorage::days(const QString &userId)
{
    QSqlQuery query = prepare(u"SELECT day, id, taken_at, activity_type, project_name, activity_description,"
                              " user_note FROM snapshots WHERE user_id = ? ORDER BY day, taken_at, id"_s);
    query.addBindValue(userId);
    exec(query);
    return groupedDays(query);
}

void SqlStorage::backup(const QString &file)
{
    if (m_engine != Engine::Sqlite) {
        throw StorageError(u"backup copies the embedded SQLite database; back up PostgreSQL with pg_dump."_s);
    }
    if (QFileInfo::exists(file)) {
        throw StorageError(u"The backup file %1 already exists; choose a new name."_s.arg(file));
    }
    // VACUUM INTO reads one snapshot of the database, so the copy is consistent while the server writes.
    QSqlQuery query = prepareOnce(u"VACUUM INTO ?"_s);
    query.addBindValue(QFileInfo(file).absoluteFilePath());
    exec(query);
    // The copy holds everyone's activity, and it may land outside the private data folder.
    QFile::setPermissions(file, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
}
