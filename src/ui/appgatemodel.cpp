#include "ui/appgatemodel.h"

#include "account/authservice.h"

using namespace Qt::StringLiterals;

AppGateModel::AppGateModel(AuthService *authService, QObject *parent)
    : QObject(parent), m_authService(authService), m_isAuthenticated(authService->isAuthenticated())
{
    connect(m_authService, &AuthService::isAuthenticatedChanged, this, &AppGateModel::onAuthenticationChanged);
}

QString AppGateModel::menuBarSymbol() const
{
    return m_isAuthenticated ? u"circle.fill"_s : u"circle.dotted"_s;
}

void AppGateModel::onAuthenticationChanged()
{
    const bool authenticated = m_authService->isAuthenticated();
    if (authenticated == m_isAuthenticated) {
        return;
    }
    m_isAuthenticated = authenticated;
    Q_EMIT isAuthenticatedChanged();
}
