#pragma once

#include <QObject>
#include <QString>

#include <chrono>

class ActivitySyncService;
class AuthService;

// Routes the URLs the desktop opens with Tamlo: the web sign-in's callback "tamlo://auth?token=..."
// and the request to upload at once, "tamlo://sync". Any other URL is dropped without a word.
class UrlRouter : public QObject
{
    Q_OBJECT
public:
    static constexpr auto syncDelay = std::chrono::milliseconds(500);

    UrlRouter(AuthService *authService, ActivitySyncService *syncService, QObject *parent = nullptr);

    // Returns at once; the sign-in or the upload runs in a task of its own on the next turn of the
    // event loop and reports its own failures.
    void handleURL(const QString &url);

private:
    void routeSync();
    void routeAuth(const QUrl &url);

    AuthService *m_authService = nullptr;
    ActivitySyncService *m_syncService = nullptr;
};
