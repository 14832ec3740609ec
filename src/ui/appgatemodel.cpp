#include "ui/appgatemodel.h"

#include "account/activitysyncservice.h"
#include "account/authservice.h"

using namespace Qt::StringLiterals;

AppGateModel::AppGateModel(AuthService *authService, ActivitySyncService *syncService, QObject *parent)
    : QObject(parent)
    , m_authService(authService)
    , m_syncService(syncService)
    , m_isAuthenticated(authService->isAuthenticated())
{
    connect(m_authService, &AuthService::isAuthenticatedChanged, this, &AppGateModel::onAuthenticationChanged);
}

QString AppGateModel::menuBarSymbol() const
{
    return m_isAuthenticated ? u"circle.fill"_s : u"circle.dotted"_s;
}

void AppGateModel::appeared()
{
    if (m_authService->isAuthenticated()) {
        m_syncService->startPeriodicSync();
    }
}

void AppGateModel::onAuthenticationChanged()
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
    Q_EMIT isAuthenticatedChanged();
}
