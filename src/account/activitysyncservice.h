#pragma once

#include "account/appconfig.h"
#include "account/backendrequest.h"
#include "account/syncrequestbody.h"

#include <QCoroTask>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <optional>

class ActivitySnapshotStore;
class AuthService;
class Clock;
class LogManager;
class QNetworkAccessManager;
class Settings;
struct ActivitySnapshot;

// Uploads the signed-in user's activity: today and yesterday at most every 15 minutes or when the
// backend asks, and once per installation the last 90 days. Nothing is ever marked as sent.
class ActivitySyncService : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QDateTime lastSyncDate READ lastSyncDateValue NOTIFY lastSyncDateChanged)
    Q_PROPERTY(bool isSyncing READ isSyncing NOTIFY isSyncingChanged)
    Q_PROPERTY(QString lastError READ lastErrorText NOTIFY lastErrorChanged)

public:
    // Also the minimum age of the last accepted upload for a run that is not forced.
    static constexpr auto syncInterval = std::chrono::seconds(900);
    static constexpr auto pollInterval = std::chrono::seconds(60);
    static constexpr int backfillDepthDays = 90;
    static constexpr int backfillBatchDays = 7;

    ActivitySyncService(ActivitySnapshotStore *snapshotStore, AuthService *authService, QNetworkAccessManager *nam,
        AppConfig config, Settings *settings, LogManager *logManager, const Clock *clock, BackendTimeouts timeouts = {},
        QObject *parent = nullptr);

    [[nodiscard]] std::optional<QDateTime> lastSyncDate() const { return m_lastSyncDate; }
    [[nodiscard]] bool isSyncing() const { return m_isSyncing; }
    [[nodiscard]] std::optional<QString> lastError() const { return m_lastError; }
    [[nodiscard]] bool isPeriodicSyncRunning() const { return m_syncTimer.isActive(); }

    // Starts both timers (replacing running ones) and one run at once, followed by the backfill
    // while that is still pending for this installation.
    void startPeriodicSync();
    // Runs already under way go on to their end.
    void stopPeriodicSync();
    QCoro::Task<> syncNow();

    // The steps the timers run. None of them throws; each reports through lastError or the event log.
    QCoro::Task<> syncIfNeeded(bool force);
    QCoro::Task<> checkSyncRequest();
    QCoro::Task<> runHistoricalBackfill();
    QCoro::Task<> uploadDays(QString token, QList<SyncDayPayload> days, bool backfillComplete);
    QCoro::Task<> validateSessionBeforeLogout(QString token);

    // Today, then yesterday, each only when it has records.
    [[nodiscard]] QList<SyncDayPayload> todayAndRecentDays() const;
    // The installation's id, made and stored on first use.
    [[nodiscard]] QString deviceId();

Q_SIGNALS:
    void lastSyncDateChanged();
    void isSyncingChanged();
    void lastErrorChanged();

private:
    [[nodiscard]] QHash<QString, QList<ActivitySnapshot>> snapshotsGroupedByLocalDate() const;
    [[nodiscard]] SyncDayPayload dayPayload(const QString &label, const QList<ActivitySnapshot> &snapshots) const;
    [[nodiscard]] QDateTime lastSyncDateValue() const { return m_lastSyncDate.value_or(QDateTime()); }
    [[nodiscard]] QString lastErrorText() const { return m_lastError.value_or(QString()); }
    void setSyncing(bool value);
    void setLastError(const std::optional<QString> &error);

    ActivitySnapshotStore *m_snapshotStore = nullptr;
    AuthService *m_authService = nullptr;
    QNetworkAccessManager *m_nam = nullptr;
    AppConfig m_config;
    Settings *m_settings = nullptr;
    LogManager *m_logManager = nullptr;
    const Clock *m_clock = nullptr;
    BackendTimeouts m_timeouts;

    std::optional<QDateTime> m_lastSyncDate;
    bool m_isSyncing = false;
    std::optional<QString> m_lastError;
    QTimer m_syncTimer;
    QTimer m_pollTimer;
};
