#include "account/activitysyncservice.h"

#include "account/accountlogging.h"
#include "account/authservice.h"
#include "account/backendrequest.h"
#include "core/activitysnapshot.h"
#include "core/activitysnapshotstore.h"
#include "core/clock.h"
#include "core/logmanager.h"
#include "core/maintask.h"
#include "core/settings.h"
#include "core/tamlodatapaths.h"
#include "core/userpreferences.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTimeZone>
#include <QUuid>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {
// The message a failure reply carries: a flat object of strings with the key "error".
std::optional<QString> failureMessage(const QByteArray &body)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isObject()) {
        return std::nullopt;
    }
    const QJsonObject object = document.object();
    for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
        if (!it.value().isString()) {
            return std::nullopt;
        }
    }
    if (!object.contains(u"error"_s)) {
        return std::nullopt;
    }
    return object.value(u"error"_s).toString();
}

// Only whether the key is there matters; its value is never interpreted.
std::optional<bool> decodeSyncRequested(const QByteArray &body)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isObject()) {
        return std::nullopt;
    }
    const QJsonValue value = document.object().value(u"syncRequestedAt"_s);
    if (value.isUndefined() || value.isNull()) {
        return false;
    }
    if (!value.isDouble()) {
        return std::nullopt;
    }
    return true;
}
} // namespace

ActivitySyncService::ActivitySyncService(ActivitySnapshotStore *snapshotStore, AuthService *authService,
    QNetworkAccessManager *nam, AppConfig config, Settings *settings, LogManager *logManager, const Clock *clock,
    BackendTimeouts timeouts, QObject *parent)
    : QObject(parent)
    , m_snapshotStore(snapshotStore)
    , m_authService(authService)
    , m_nam(nam)
    , m_config(std::move(config))
    , m_settings(settings)
    , m_logManager(logManager)
    , m_clock(clock)
    , m_timeouts(timeouts)
    , m_lastSyncDate(settings->date(SettingsKey::activityLastSyncDate))
{
    m_syncTimer.setParent(this);
    m_pollTimer.setParent(this);
    m_syncTimer.setObjectName(u"syncTimer"_s);
    m_pollTimer.setObjectName(u"pollTimer"_s);
    // No tolerance: a coarse timer may drift by up to 5% of the interval.
    m_syncTimer.setTimerType(Qt::PreciseTimer);
    m_pollTimer.setTimerType(Qt::PreciseTimer);
    m_syncTimer.setInterval(syncInterval);
    m_pollTimer.setInterval(pollInterval);
    connect(&m_syncTimer, &QTimer::timeout, this,
        [this] { startTask(this, [this]() -> QCoro::Task<> { co_await syncIfNeeded(false); }); });
    connect(&m_pollTimer, &QTimer::timeout, this,
        [this] { startTask(this, [this]() -> QCoro::Task<> { co_await checkSyncRequest(); }); });
}

void ActivitySyncService::startPeriodicSync()
{
    stopPeriodicSync();
    m_syncTimer.start();
    m_pollTimer.start();
    startTask(this, [this]() -> QCoro::Task<> {
        co_await syncIfNeeded(false);
        if (!m_settings->boolean(SettingsKey::activityHistoricalBackfillDone)) {
            co_await runHistoricalBackfill();
        }
    });
}

void ActivitySyncService::stopPeriodicSync()
{
    m_syncTimer.stop();
    m_pollTimer.stop();
}

QCoro::Task<> ActivitySyncService::syncNow()
{
    if (!m_authService->isAuthenticated()) {
        m_logManager->log(u"⚠️ Sync skipped: not signed in to Tamlo"_s, LogType::Warning);
        co_return;
    }
    co_await syncIfNeeded(true);
}

QCoro::Task<> ActivitySyncService::syncIfNeeded(bool force)
{
    const auto token = m_authService->sessionToken();
    if (!m_authService->isAuthenticated() || !token) {
        co_return;
    }
    if (!force && m_lastSyncDate && m_lastSyncDate->secsTo(m_clock->now()) < syncInterval.count()) {
        co_return;
    }
    const QList<SyncDayPayload> days = todayAndRecentDays();
    if (days.isEmpty()) {
        m_logManager->log(u"⚠️ Sync skipped: no local snapshots for today or yesterday"_s, LogType::Warning);
        co_return;
    }
    co_await uploadDays(*token, days, false);
}

QCoro::Task<> ActivitySyncService::checkSyncRequest()
{
    const auto token = m_authService->sessionToken();
    if (!m_authService->isAuthenticated() || !token) {
        co_return;
    }
    const auto url = AppConfig::endpoint(m_config.convexURL(), u"/activity/status"_s);
    if (!url) {
        co_return;
    }
    const BackendReply reply = co_await BackendRequest::get(m_nam, *url, *token, m_timeouts.status);
    if (!reply.isSuccess()) {
        co_return;
    }
    const auto requested = decodeSyncRequested(reply.body);
    if (!requested) {
        qCInfo(lcAccount) << "Status reply could not be decoded";
        co_return;
    }
    if (*requested) {
        co_await syncNow();
    }
}

QCoro::Task<> ActivitySyncService::runHistoricalBackfill()
{
    const auto token = m_authService->sessionToken();
    if (!token) {
        co_return;
    }
    const QHash<QString, QList<ActivitySnapshot>> grouped = snapshotsGroupedByLocalDate();
    const QDate today = m_clock->now().toLocalTime().date();
    QStringList labels;
    // Today is the regular sync's, which covers yesterday as well.
    for (int offset = 1; offset <= backfillDepthDays; ++offset) {
        const QDate day = today.addDays(-offset);
        if (!day.isValid()) {
            continue;
        }
        const QString label = TamloDataPaths::dateLabel(day.startOfDay());
        if (grouped.contains(label)) {
            labels.append(label);
        }
    }
    std::sort(labels.begin(), labels.end());

    // A failed batch is not noticed: the history is sent once, and the backend merges repeats.
    for (qsizetype first = 0; first < labels.size(); first += backfillBatchDays) {
        QList<SyncDayPayload> batch;
        for (const QString &label : labels.mid(first, backfillBatchDays)) {
            batch.append(dayPayload(label, grouped.value(label)));
        }
        co_await uploadDays(*token, batch, false);
    }
    m_settings->setBoolean(SettingsKey::activityHistoricalBackfillDone, true);
    co_await uploadDays(*token, {}, true);
}

QCoro::Task<> ActivitySyncService::uploadDays(QString token, QList<SyncDayPayload> days, bool backfillComplete)
{
    const QString base = m_config.convexURL();
    if (base.isEmpty()) {
        co_return;
    }
    const auto url = AppConfig::endpoint(base, u"/activity/sync"_s);
    if (!url) {
        co_return;
    }
    setSyncing(true);
    setLastError(std::nullopt);

    const SyncRequestBody body {
        .timezone = QString::fromUtf8(QTimeZone::systemTimeZoneId()),
        .deviceId = deviceId(),
        .backfillComplete = backfillComplete,
        .days = days,
    };
    const BackendReply reply = co_await BackendRequest::postJson(m_nam, *url, token, body.encoded(), m_timeouts.upload);

    if (!reply.status) {
        if (!reply.transportError.isNull()) {
            setLastError(reply.transportError);
            m_logManager->log(u"❌ Activity sync error: "_s + reply.transportError, LogType::Error);
        }
    } else if (*reply.status == 401) {
        // A rejected upload alone is not proof that the session is gone.
        co_await validateSessionBeforeLogout(token);
    } else if (reply.isSuccess()) {
        m_lastSyncDate = m_clock->now();
        m_settings->setDate(SettingsKey::activityLastSyncDate, *m_lastSyncDate);
        Q_EMIT lastSyncDateChanged();
        m_logManager->log(u"☁️ Activity synced (%1 day(s))"_s.arg(days.size()), LogType::Success);
    } else {
        const QString message = failureMessage(reply.body).value_or(u"Sync failed (HTTP %1)"_s.arg(*reply.status));
        setLastError(message);
        m_logManager->log(u"❌ Activity sync failed: "_s + message, LogType::Error);
    }
    setSyncing(false);
}

QCoro::Task<> ActivitySyncService::validateSessionBeforeLogout(QString token)
{
    const auto url = AppConfig::endpoint(m_config.convexURL(), u"/auth/me"_s);
    if (!url) {
        m_authService->logout();
        co_return;
    }
    const BackendReply reply = co_await BackendRequest::get(m_nam, *url, token, m_timeouts.sessionCheck);
    if (reply.status == 401) {
        m_authService->logout();
    }
}

QList<SyncDayPayload> ActivitySyncService::todayAndRecentDays() const
{
    const QHash<QString, QList<ActivitySnapshot>> grouped = snapshotsGroupedByLocalDate();
    const QDate today = m_clock->now().toLocalTime().date();
    QStringList labels {TamloDataPaths::dateLabel(today.startOfDay())};
    if (const QDate yesterday = today.addDays(-1); yesterday.isValid()) {
        labels.append(TamloDataPaths::dateLabel(yesterday.startOfDay()));
    }
    QList<SyncDayPayload> days;
    for (const QString &label : labels) {
        const auto it = grouped.constFind(label);
        if (it != grouped.constEnd()) {
            days.append(dayPayload(label, *it));
        }
    }
    return days;
}

QString ActivitySyncService::deviceId()
{
    if (const auto stored = m_settings->optionalString(SettingsKey::tamloDeviceId)) {
        return *stored;
    }
    const QString id = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    m_settings->setString(SettingsKey::tamloDeviceId, id);
    return id;
}

QHash<QString, QList<ActivitySnapshot>> ActivitySyncService::snapshotsGroupedByLocalDate() const
{
    QHash<QString, QList<ActivitySnapshot>> grouped;
    for (const ActivitySnapshot &snapshot : m_snapshotStore->fetchAll()) {
        grouped[TamloDataPaths::dateLabel(snapshot.timestamp)].append(snapshot);
    }
    return grouped;
}

SyncDayPayload ActivitySyncService::dayPayload(const QString &label, const QList<ActivitySnapshot> &snapshots) const
{
    // The user's projects are read at the point of use, so a note naming a new project counts at once.
    return SyncDayPayload::from(
        label, snapshots, UserPreferences::parsedList(m_settings->string(SettingsKey::userProjects)));
}

void ActivitySyncService::setSyncing(bool value)
{
    if (m_isSyncing == value) {
        return;
    }
    m_isSyncing = value;
    Q_EMIT isSyncingChanged();
}

void ActivitySyncService::setLastError(const std::optional<QString> &error)
{
    if (m_lastError == error) {
        return;
    }
    m_lastError = error;
    Q_EMIT lastErrorChanged();
}
