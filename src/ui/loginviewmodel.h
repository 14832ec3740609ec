#pragma once

#include "account/appconfig.h"

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

class AuthService;
class DesktopActions;

// The sign-in screen: opens the web sign-in in the browser and shows the phases of the exchange
// that follows (waiting for the browser, verifying the callback), with the sign-in's error.
class LoginViewModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Built by the application")
    Q_PROPERTY(Phase phase READ phase NOTIFY phaseChanged)
    Q_PROPERTY(bool openedWebLogin READ openedWebLogin NOTIFY openedWebLoginChanged)
    Q_PROPERTY(bool showsError READ showsError NOTIFY errorChanged)
    Q_PROPERTY(QString errorText READ errorText NOTIFY errorChanged)
    Q_PROPERTY(bool localServerMissing READ localServerMissing NOTIFY localServerMissingChanged)
    Q_PROPERTY(QString localServerText READ localServerText NOTIFY localServerMissingChanged)
    Q_PROPERTY(QString startServerCommand READ startServerCommand CONSTANT)

public:
    enum class Phase {
        Login,
        // The browser was opened; the user signs in there.
        Waiting,
        // A callback arrived and its token is being exchanged.
        Verifying,
    };
    Q_ENUM(Phase)

    LoginViewModel(AuthService *authService, AppConfig config, DesktopActions *desktop, QObject *parent = nullptr);

    [[nodiscard]] Phase phase() const { return m_phase; }
    [[nodiscard]] bool openedWebLogin() const { return m_openedWebLogin; }
    [[nodiscard]] bool showsError() const;
    [[nodiscard]] QString errorText() const;
    // The build's own server on this machine does not answer, so its sign-in page cannot load:
    // the screen says how to start it instead of offering "Log in".
    [[nodiscard]] bool localServerMissing() const { return m_localServerMissing; }
    [[nodiscard]] QString localServerText() const;
    [[nodiscard]] static QString startServerCommand();

    // "Log in" and "Open login page again".
    Q_INVOKABLE void openWebLogin();
    Q_INVOKABLE void back();
    // Opens the registration page; the screen stays where it is.
    Q_INVOKABLE void createAccount();
    Q_INVOKABLE void close();
    // "Try again", and each time the panel is shown.
    Q_INVOKABLE void checkLocalServer();

Q_SIGNALS:
    void phaseChanged();
    void openedWebLoginChanged();
    void errorChanged();
    void localServerMissingChanged();
    void quitRequested();

private:
    void setOpenedWebLogin(bool value);
    void updatePhase();
    void setLocalServerMissing(bool missing);

    AuthService *m_authService = nullptr;
    AppConfig m_config;
    DesktopActions *m_desktop = nullptr;
    bool m_openedWebLogin = false;
    Phase m_phase = Phase::Login;
    bool m_localServerMissing = false;
};
