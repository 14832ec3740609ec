#include "account/sessionsync.h"

#include "account/activitysyncservice.h"
#include "account/authservice.h"

SessionSync::SessionSync(AuthService *authService, ActivitySyncService *syncService, QObject *parent)
    : QObject(parent)
    , m_authService(authService)
    , m_syncService(syncService)
    , m_isAuthenticated(authService->isAuthenticated())
{
    connect(m_authService, &AuthService::isAuthenticatedChanged, this, &SessionSync::onAuthenticationChanged);
}

void SessionSync::restore()
{
    if (m_restored) {
        return;
    }
    m_restored = true;
    if (m_authService->isAuthenticated()) {
        m_syncService->startPeriodicSync();
    }
}

void SessionSync::onAuthenticationChanged()
{
    const bool authenticated = m_authService->isAuthenticated();
    if (authenticated == m_isAuthenticated) {
        return;
    }
    m_isAuthenticated = authenticated;
    if (authenticated) {
        m_syncService->startPeriodicSync();
    } else {
        m_syncService->stopPeriodicSync();
    }
}
