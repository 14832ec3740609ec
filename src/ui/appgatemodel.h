#pragma once

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

class AuthService;

// The gate of the panel: the sign-in screen until a user is signed in, the main screen after. It
// also gives the tray icon its two states.
class AppGateModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Built by the application")
    Q_PROPERTY(bool isAuthenticated READ isAuthenticated NOTIFY isAuthenticatedChanged)
    Q_PROPERTY(Screen screen READ screen NOTIFY isAuthenticatedChanged)
    Q_PROPERTY(bool menuBarIconActive READ menuBarIconActive NOTIFY isAuthenticatedChanged)
    Q_PROPERTY(QString menuBarSymbol READ menuBarSymbol NOTIFY isAuthenticatedChanged)

public:
    enum class Screen {
        Login,
        Content,
    };
    Q_ENUM(Screen)

    explicit AppGateModel(AuthService *authService, QObject *parent = nullptr);

    [[nodiscard]] bool isAuthenticated() const { return m_isAuthenticated; }
    [[nodiscard]] Screen screen() const { return m_isAuthenticated ? Screen::Content : Screen::Login; }
    // The tray icon: a filled circle while signed in, a dotted one while not.
    [[nodiscard]] bool menuBarIconActive() const { return m_isAuthenticated; }
    [[nodiscard]] QString menuBarSymbol() const;

Q_SIGNALS:
    void isAuthenticatedChanged();

private:
    void onAuthenticationChanged();

    AuthService *m_authService = nullptr;
    bool m_isAuthenticated = false;
};
