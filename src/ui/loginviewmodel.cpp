#include "ui/loginviewmodel.h"

#include "account/authservice.h"
#include "account/backendprobe.h"
#include "core/maintask.h"
#include "ui/desktopactions.h"

#include <QPointer>

using namespace Qt::StringLiterals;

namespace {
// A server on this machine answers in milliseconds; a wedged one is given a moment.
constexpr auto localServerTimeout = std::chrono::seconds(2);
} // namespace

LoginViewModel::LoginViewModel(AuthService *authService, AppConfig config, DesktopActions *desktop, QObject *parent)
    : QObject(parent), m_authService(authService), m_config(std::move(config)), m_desktop(desktop)
{
    connect(m_authService, &AuthService::isLoadingChanged, this, &LoginViewModel::updatePhase);
    connect(m_authService, &AuthService::errorChanged, this, &LoginViewModel::errorChanged);
    connect(m_authService, &AuthService::isAuthenticatedChanged, this, [this] {
        if (m_authService->isAuthenticated()) {
            setOpenedWebLogin(false);
        } else {
            checkLocalServer();
        }
    });
    updatePhase();
    checkLocalServer();
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

QString LoginViewModel::localServerText() const
{
    return u"Tamlo signs in through the Tamlo server on this computer, and nothing answers at %1. "
           "Start it once in a terminal; from then on it starts with your session:"_s.arg(
               m_config.localDefaultBackend().value_or(QUrl()).authority());
}

QString LoginViewModel::startServerCommand()
{
    return u"systemctl --user enable --now tamlo-server"_s;
}

void LoginViewModel::checkLocalServer()
{
    // Signed in, the screen is not shown; signing out checks again.
    const std::optional<QUrl> url = m_authService->isAuthenticated() ? std::nullopt : m_config.localDefaultBackend();
    if (!url) {
        setLocalServerMissing(false);
        return;
    }
    QPointer<LoginViewModel> self(this);
    startTask(this, [self, url = *url]() -> QCoro::Task<> {
        const bool answers = co_await BackendProbe::acceptsConnections(url, localServerTimeout);
        if (self) {
            self->setLocalServerMissing(!answers);
        }
    });
}

void LoginViewModel::setLocalServerMissing(bool missing)
{
    if (m_localServerMissing == missing) {
        return;
    }
    m_localServerMissing = missing;
    Q_EMIT localServerMissingChanged();
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
