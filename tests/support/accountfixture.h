#pragma once

#include "account/activitysyncservice.h"
#include "account/appconfig.h"
#include "account/authservice.h"
#include "account/keychainservice.h"
#include "core/activitysnapshotstore.h"
#include "core/apppaths.h"
#include "core/logmanager.h"
#include "core/settings.h"
#include "fakeclock.h"
#include "logmessages.h"
#include "standinserver.h"

#include <QNetworkAccessManager>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <memory>

// The real account services against a stand-in backend that accepts every call unless routed otherwise.
class AccountFixture : public ::testing::Test
{
protected:
    AccountFixture()
    {
        m_backend.on("POST", "/auth/verify-token",
            StandInServer::Reply {200, R"({"sessionToken":"sess-1","user":{"id":"u1","email":"ada@example.com"}})"});
        m_backend.on("POST", "/activity/sync", StandInServer::Reply {200, "{}"});
        m_backend.on("GET", "/activity/status", StandInServer::Reply {200, "{}"});
        m_backend.on("GET", "/auth/me", StandInServer::Reply {200, "{}"});
    }

    // The session an earlier run left; before startServices() when a restored session is wanted.
    void storeSession(const QString &token = QStringLiteral("sess-0"))
    {
        KeychainService credentials(m_paths.credentialsDir, QStringLiteral("mirevon.Tamlo"));
        credentials.setValue(token, QStringLiteral("sessionToken"));
        credentials.setValue(QStringLiteral(R"({"id":"u1","email":"ada@example.com"})"), QStringLiteral("userData"));
    }

    [[nodiscard]] AppConfig config() const
    {
        return AppConfig(&m_settings, QString(), m_backend.url().toString(), QStringLiteral("https://web.example"));
    }

    void startServices()
    {
        m_auth = std::make_unique<AuthService>(&m_nam, config(), m_paths.credentialsDir);
        m_sync = makeSyncService();
    }

    [[nodiscard]] std::unique_ptr<ActivitySyncService> makeSyncService()
    {
        return std::make_unique<ActivitySyncService>(
            &m_store, m_auth.get(), &m_nam, config(), &m_settings, &m_log, &m_clock);
    }

    [[nodiscard]] QStringList logMessages() { return ::logMessages(m_log); }

    QTemporaryDir m_home;
    AppPaths m_paths = AppPaths::underHome(m_home.path());
    Settings m_settings {m_paths.settingsFile};
    FakeClock m_clock {QDateTime(QDate(2026, 11, 16), QTime(14, 0), QTimeZone("Europe/Berlin"))};
    LogManager m_log {&m_clock};
    ActivitySnapshotStore m_store {m_paths.snapshotsFile(), &m_log, &m_settings, &m_clock};
    StandInServer m_backend;
    QNetworkAccessManager m_nam;
    std::unique_ptr<AuthService> m_auth;
    std::unique_ptr<ActivitySyncService> m_sync;
};
