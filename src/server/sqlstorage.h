#pragma once

#include "server/storage.h"

#include <QHash>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QUrl>

#include <memory>

// The storage on Qt SQL. Both engines run the same schema and statements; they differ only in
// how a connection is set up and in what a backup is.
class SqlStorage final : public Storage
{
public:
    enum class Engine {
        Sqlite,
        Postgres,
    };

    // The schema version this build writes; a database that says more is refused untouched.
    static constexpr int schemaVersion = 3;

    // Opens (creating when needed) and migrates. Throws StorageError with a text for the operator.
    [[nodiscard]] static std::unique_ptr<SqlStorage> openSqlite(const QString &file);
    [[nodiscard]] static std::unique_ptr<SqlStorage> openPostgres(const QUrl &url);

    ~SqlStorage() override;
    SqlStorage(const SqlStorage &) = delete;
    SqlStorage &operator=(const SqlStorage &) = delete;

    [[nodiscard]] Engine engine() const { return m_engine; }
    // Tests reach past the interface to prove what is and is not stored.
    [[nodiscard]] QSqlDatabase database() const { return m_db; }

    [[nodiscard]] std::optional<ServerUser> userByEmail(const QString &email) override;
    [[nodiscard]] std::optional<ServerUser> userById(const QString &id) override;
    ServerUser createUser(const QString &email, const std::optional<QString> &name, qint64 now) override;
    [[nodiscard]] QList<ServerUser> users() override;
    bool deleteUser(const QString &email) override;

    void createSignInLink(const QString &tokenDigest, const QString &email, qint64 now) override;
    [[nodiscard]] std::optional<SignInLink> signInLink(const QString &tokenDigest) override;
    bool useSignInLink(const QString &tokenDigest, qint64 now) override;

    void createSession(const QString &tokenDigest, const QString &userId, qint64 now) override;
    [[nodiscard]] std::optional<ServerUser> userForSession(const QString &tokenDigest) override;
    [[nodiscard]] std::optional<SessionSyncStatus> syncStatusForSession(const QString &tokenDigest) override;

    void storeUpload(const QString &userId, const SyncUpload &upload, qint64 now) override;
    [[nodiscard]] std::optional<qint64> syncRequestedAt(const QString &userId) override;
    void requestSync(const QString &userId, qint64 now) override;

    [[nodiscard]] QList<DeviceRecord> devices(const QString &userId) override;
    [[nodiscard]] QList<UploadedDay> days(const QString &userId) override;

    void createWebSession(const QString &tokenDigest, const QString &userId, qint64 now) override;
    [[nodiscard]] std::optional<WebSessionInfo> webSession(const QString &tokenDigest) override;
    void touchSession(const QString &tokenDigest, qint64 now) override;
    void noteSessionDevice(const QString &tokenDigest, const QString &deviceId) override;
    [[nodiscard]] QList<SessionRecord> sessions(const QString &userId) override;
    bool revokeSession(const QString &userId, const QString &publicId) override;
    void deleteSession(const QString &tokenDigest) override;

    [[nodiscard]] QList<DayEntry> dayEntries(const QString &userId, int count, int offset) override;
    [[nodiscard]] int dayCount(const QString &userId) override;
    [[nodiscard]] std::optional<DayEntry> dayEntry(const QString &userId, const QString &date) override;
    [[nodiscard]] QList<UploadedDay> daysBetween(
        const QString &userId, const QString &first, const QString &last) override;

    void backup(const QString &file) override;

private:
    SqlStorage(Engine engine, QSqlDatabase db, QString description);

    void open();
    void migrate();
    // A statement used on every request is compiled once and kept; the copy shares it. A reader
    // calls finish() when done, so that no read transaction outlives the call.
    [[nodiscard]] QSqlQuery prepare(const QString &sql);
    [[nodiscard]] QSqlQuery prepareOnce(const QString &sql);
    void exec(QSqlQuery &query);
    void execSql(const QString &sql);
    void noteFailure();
    // Opens the connection again after it was lost; the request that found it lost has failed.
    void reconnectIfBroken();
    [[nodiscard]] std::optional<ServerUser> oneUser(QSqlQuery &query);
    [[nodiscard]] static QList<UploadedDay> groupedDays(QSqlQuery &query);
    void insertSession(const QString &tokenDigest, const QString &userId, qint64 now, SessionKind kind);
    void beginTransaction();
    void commitTransaction();
    void rollbackTransaction();

    Engine m_engine;
    QSqlDatabase m_db;
    QString m_connectionName;
    QString m_description; // where the database is, for messages; never holds a password
    QHash<QString, QSqlQuery> m_statements;
    bool m_broken = false;
};
