#pragma once

#include <QList>
#include <QString>
#include <QtGlobal>

#include <optional>
#include <stdexcept>

// A fault of the database itself (unreachable, full, a schema it refuses). Bad input never
// becomes one: it is turned away before it reaches the storage.
class StorageError : public std::runtime_error
{
public:
    explicit StorageError(const QString &message) : std::runtime_error(message.toStdString()) { }
    [[nodiscard]] QString message() const { return QString::fromStdString(what()); }
};

struct ServerUser
{
    QString id;
    QString email;
    std::optional<QString> name;
    qint64 createdAt = 0; // epoch milliseconds

    friend bool operator==(const ServerUser &, const ServerUser &) = default;
};

struct SignInLink
{
    QString email;
    qint64 createdAt = 0;
    std::optional<qint64> usedAt;
};

// One snapshot as the client uploads it; strings are kept exactly as they came.
struct UploadedSnapshot
{
    QString id;
    QString timestamp;
    QString activityType;
    QString projectName;
    std::optional<QString> activityDescription;
    std::optional<QString> userNote;

    friend bool operator==(const UploadedSnapshot &, const UploadedSnapshot &) = default;
};

struct UploadedDay
{
    QString date;
    QList<UploadedSnapshot> snapshots;

    friend bool operator==(const UploadedDay &, const UploadedDay &) = default;
};

struct SyncUpload
{
    QString timezone;
    QString deviceId;
    bool backfillComplete = false;
    QList<UploadedDay> days;
};

// What a status poll needs, read in one statement: the poll is the busiest request there is.
struct SessionSyncStatus
{
    ServerUser user;
    std::optional<qint64> syncRequestedAt; // while the request waits for this session's device
    std::optional<qint64> lastSeenAt; // so that a poll writes only when the last activity has gone stale
};

enum class SessionKind {
    App, // a bearer token held by the app
    Web, // a browser's cookie
};

// A session as its owner sees it; publicId names it in forms, the token never leaves the client.
struct SessionRecord
{
    QString publicId;
    SessionKind kind = SessionKind::App;
    qint64 createdAt = 0;
    std::optional<qint64> lastSeenAt;
    std::optional<QString> deviceId; // the device its last upload came from
};

// A browser's session, read in one statement on every signed-in page.
struct WebSessionInfo
{
    ServerUser user;
    QString publicId;
    qint64 createdAt = 0;
    std::optional<qint64> lastSeenAt;
};

// One stored day as the day list shows it: which device sent it last, and that device's time zone.
struct DayEntry
{
    QString date;
    QString deviceId;
    QString timezone;
    qint64 uploadedAt = 0;
};

struct DeviceRecord
{
    QString deviceId;
    QString timezone;
    qint64 lastUploadAt = 0;
    bool backfillComplete = false;
    bool syncPending = false; // the user's request to sync waits for this device's upload
};

// Everything the server keeps, behind one interface so that the embedded and the shared
// database engines run the same code above them and the same tests below them.
class Storage
{
public:
    virtual ~Storage() = default;

    [[nodiscard]] virtual std::optional<ServerUser> userByEmail(const QString &email) = 0;
    [[nodiscard]] virtual std::optional<ServerUser> userById(const QString &id) = 0;
    // The address must not have an account yet.
    virtual ServerUser createUser(const QString &email, const std::optional<QString> &name, qint64 now) = 0;
    [[nodiscard]] virtual QList<ServerUser> users() = 0;
    // Removes the account and every row holding its data; returns false for an unknown address.
    virtual bool deleteUser(const QString &email) = 0;

    virtual void createSignInLink(const QString &tokenDigest, const QString &email, qint64 now) = 0;
    [[nodiscard]] virtual std::optional<SignInLink> signInLink(const QString &tokenDigest) = 0;
    // Marks a still unused link as used; false when it was used meanwhile.
    virtual bool useSignInLink(const QString &tokenDigest, qint64 now) = 0;

    virtual void createSession(const QString &tokenDigest, const QString &userId, qint64 now) = 0;
    [[nodiscard]] virtual std::optional<ServerUser> userForSession(const QString &tokenDigest) = 0;
    [[nodiscard]] virtual std::optional<SessionSyncStatus> syncStatusForSession(const QString &tokenDigest) = 0;

    // All of it or nothing: snapshots upserted by id within the user, the device recorded, the
    // user's sync request served for this device, and gone once no device waits for it.
    virtual void storeUpload(const QString &userId, const SyncUpload &upload, qint64 now) = 0;
    // The user's request while some device has still to upload for it.
    [[nodiscard]] virtual std::optional<qint64> syncRequestedAt(const QString &userId) = 0;
    // Asks every device of the user, those that have not uploaded yet among them.
    virtual void requestSync(const QString &userId, qint64 now) = 0;

    [[nodiscard]] virtual QList<DeviceRecord> devices(const QString &userId) = 0;
    // Days ascending, each day's snapshots by timestamp.
    [[nodiscard]] virtual QList<UploadedDay> days(const QString &userId) = 0;

    virtual void createWebSession(const QString &tokenDigest, const QString &userId, qint64 now) = 0;
    [[nodiscard]] virtual std::optional<WebSessionInfo> webSession(const QString &tokenDigest) = 0;
    // Records the session's last activity.
    virtual void touchSession(const QString &tokenDigest, qint64 now) = 0;
    // The device whose upload came with this session.
    virtual void noteSessionDevice(const QString &tokenDigest, const QString &deviceId) = 0;
    // Newest first.
    [[nodiscard]] virtual QList<SessionRecord> sessions(const QString &userId) = 0;
    // Ends one of the user's sessions at once; false when the user has no such session.
    virtual bool revokeSession(const QString &userId, const QString &publicId) = 0;
    virtual void deleteSession(const QString &tokenDigest) = 0;

    // Newest first, count at most, after skipping offset.
    [[nodiscard]] virtual QList<DayEntry> dayEntries(const QString &userId, int count, int offset) = 0;
    [[nodiscard]] virtual int dayCount(const QString &userId) = 0;
    [[nodiscard]] virtual std::optional<DayEntry> dayEntry(const QString &userId, const QString &date) = 0;
    // The days from first to last inclusive, ascending, each day's snapshots by timestamp.
    [[nodiscard]] virtual QList<UploadedDay> daysBetween(
        const QString &userId, const QString &first, const QString &last)
        = 0;

    // A consistent copy of the whole database, taken while it is in use.
    virtual void backup(const QString &file) = 0;
};
