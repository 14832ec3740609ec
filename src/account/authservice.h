#pragma once

#include "account/appconfig.h"
#include "account/backendrequest.h"
#include "account/keychainservice.h"
#include "account/tamlouser.h"

#include <QByteArray>
#include <QCoroTask>
#include <QObject>
#include <QString>
#include <QVariant>

#include <chrono>
#include <optional>

class QNetworkAccessManager;

// The signed-in state: exchanges the one-time token from the web sign-in for a session token,
// keeps that session between runs, and ends it.
class AuthService : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isAuthenticated READ isAuthenticated NOTIFY isAuthenticatedChanged)
    Q_PROPERTY(QVariant currentUser READ currentUserValue NOTIFY currentUserChanged)
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY isLoadingChanged)
    Q_PROPERTY(QString error READ errorText NOTIFY errorChanged)

public:
    static constexpr auto serviceId = "mirevon.Tamlo";

    // The stored session is restored here, without asking the backend.
    AuthService(QNetworkAccessManager *nam, AppConfig config, const QString &credentialsDir,
        BackendTimeouts timeouts = {}, QObject *parent = nullptr);

    [[nodiscard]] bool isAuthenticated() const { return m_isAuthenticated; }
    [[nodiscard]] std::optional<TamloUser> currentUser() const { return m_currentUser; }
    [[nodiscard]] bool isLoading() const { return m_isLoading; }
    [[nodiscard]] std::optional<QString> error() const { return m_error; }
    // Read afresh from the stored credentials at each use.
    [[nodiscard]] std::optional<QString> sessionToken() const;

    // Reports only through isLoading, error and isAuthenticated; never throws.
    QCoro::Task<> verifyMagicLinkToken(QString token);
    // Ends the session locally; the backend is not told.
    Q_INVOKABLE void logout();
    Q_INVOKABLE void clearError();

Q_SIGNALS:
    void isAuthenticatedChanged();
    void currentUserChanged();
    void isLoadingChanged();
    void errorChanged();

private:
    [[nodiscard]] QVariant currentUserValue() const;
    [[nodiscard]] QString errorText() const { return m_error.value_or(QString()); }

    void restoreSession();
    void persistSession(const QString &token, const TamloUser &user);
    // Throws AuthError for every reply that is not a success.
    static void validateHTTP(std::optional<int> status, const QByteArray &data);

    void setAuthenticated(bool value);
    void setCurrentUser(const std::optional<TamloUser> &user);
    void setLoading(bool value);
    void setError(const std::optional<QString> &error);

    QNetworkAccessManager *m_nam = nullptr;
    AppConfig m_config;
    BackendTimeouts m_timeouts;
    KeychainService m_storage;
    bool m_isAuthenticated = false;
    std::optional<TamloUser> m_currentUser;
    bool m_isLoading = false;
    std::optional<QString> m_error;
};
