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
#include "standinserver.h"
#include "ui/desktopactions.h"

#include <QNetworkAccessManager>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <memory>

// The browser, as far as the sign-in screen uses it: the pages it was asked to open.
class BrowserRecorder final : public DesktopActions
{
public:
    void openUrl(const QUrl &url) override { openedUrls.append(url); }
    [[nodiscard]] bool canOpenPrivacySettings() const override { return false; }
    void openPrivacySettings() override { }

    QList<QUrl> openedUrls;
};

// The real account services under a temporary home, with a stand-in backend.
class SignInFixture : public ::testing::Test
{
protected:
    SignInFixture()
    {
        m_backend.on("POST", "/auth/verify-token", signedInReply());
        m_backend.on("POST", "/activity/sync", StandInServer::Reply {.status = 200, .body = "{}"});
        m_backend.on("GET", "/activity/status", StandInServer::Reply {.status = 200, .body = "{}"});
        m_backend.on("GET", "/auth/me", StandInServer::Reply {.status = 200, .body = "{}"});
    }

    static StandInServer::Reply signedInReply()
    {
        return StandInServer::Reply {
            .status = 200, .body = R"({"sessionToken":"sess-1","user":{"id":"u1","email":"ada@example.com"}})"};
    }

    void storeSession()
    {
        KeychainService credentials(m_paths.credentialsDir, QStringLiteral("mirevon.Tamlo"));
        credentials.setValue(QStringLiteral("sess-0"), QStringLiteral("sessionToken"));
        credentials.setValue(QStringLiteral(R"({"id":"u1","email":"ada@example.com"})"), QStringLiteral("userData"));
    }

    [[nodiscard]] AppConfig config() const
    {
        return AppConfig(&m_settings, QString(), m_backend.url().toString(), QStringLiteral("https://web.example"));
    }

    // After storeSession() when a restored session is wanted.
    void startServices()
    {
        m_auth = std::make_unique<AuthService>(&m_nam, config(), m_paths.credentialsDir);
        m_sync = std::make_unique<ActivitySyncService>(
            &m_store, m_auth.get(), &m_nam, config(), &m_settings, &m_log, &m_clock);
    }

    QTemporaryDir m_home;
    AppPaths m_paths = AppPaths::underHome(m_home.path());
    Settings m_settings {m_paths.settingsFile};
    FakeClock m_clock {QDateTime(QDate(2026, 11, 16), QTime(14, 0), QTimeZone("Europe/Berlin"))};
    LogManager m_log {&m_clock};
    ActivitySnapshotStore m_store {m_paths.snapshotsFile(), &m_log, &m_settings, &m_clock};
    StandInServer m_backend;
    QNetworkAccessManager m_nam;
    BrowserRecorder m_browser;
    std::unique_ptr<AuthService> m_auth;
    std::unique_ptr<ActivitySyncService> m_sync;
};
