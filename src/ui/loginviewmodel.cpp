#include "ui/loginviewmodel.h"

#include "account/authservice.h"
#include "ui/desktopactions.h"

using namespace Qt::StringLiterals;

LoginViewModel::LoginViewModel(AuthService *authService, AppConfig config, DesktopActions *desktop, QObject *parent)
    : QObject(parent), m_authService(authService), m_config(std::move(config)), m_desktop(desktop)
{
    connect(m_authService, &AuthService::isLoadingChanged, this, &LoginViewModel::updatePhase);
    connect(m_authService, &AuthService::errorChanged, this, &LoginViewModel::errorChanged);
    connect(m_authService, &AuthService::isAuthenticatedChanged, this, [this] {
        if (m_authService->isAuthenticated()) {
            setOpenedWebLogin(false);
        }
    });
    updatePhase();
}

bool LoginViewModel::showsError() const
{
    return m_authService->error().has_value();
}

QString LoginViewModel::errorText() const
{
    return m_authService->error().value_or(QString());
}

void LoginViewModel::openWebLogin()
{
    m_authService->clearError();
    setOpenedWebLogin(true);
    m_desktop->openUrl(m_config.webAuthURL(u"/login"_s));
}

void LoginViewModel::back()
{
    setOpenedWebLogin(false);
    m_authService->clearError();
}

void LoginViewModel::createAccount()
{
    m_desktop->openUrl(m_config.webAuthURL(u"/register"_s));
}

void LoginViewModel::close()
{
    Q_EMIT quitRequested();
}

void LoginViewModel::setOpenedWebLogin(bool value)
{
    if (m_openedWebLogin == value) {
        return;
    }
    m_openedWebLogin = value;
    Q_EMIT openedWebLoginChanged();
    updatePhase();
}

void LoginViewModel::updatePhase()
{
    // A callback that arrives without "Log in" in this run still shows the verification.
    Phase phase = Phase::Login;
    if (m_authService->isLoading()) {
        phase = Phase::Verifying;
    } else if (m_openedWebLogin) {
        phase = Phase::Waiting;
    }
    if (m_phase == phase) {
        return;
    }
    m_phase = phase;
    Q_EMIT phaseChanged();
}
