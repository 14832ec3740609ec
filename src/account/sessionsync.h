#pragma once

#include <QObject>

class ActivitySyncService;
class AuthService;

// Runs the periodic sync exactly while a user is signed in, whether or not the panel exists: the
// program starts it at launch for a restored session, and every sign-in and sign-out after that.
class SessionSync : public QObject
{
    Q_OBJECT
public:
    SessionSync(AuthService *authService, ActivitySyncService *syncService, QObject *parent = nullptr);

    // A restored session starts its sync here, since no change of the signed-in state announces
    // it. Only the first call does anything.
    void restore();

private:
    void onAuthenticationChanged();

    AuthService *m_authService = nullptr;
    ActivitySyncService *m_syncService = nullptr;
    bool m_isAuthenticated = false;
    bool m_restored = false;
};
