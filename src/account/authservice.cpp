#include "account/authservice.h"

#include "account/accountlogging.h"
#include "account/autherror.h"
#include "account/backendrequest.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {
const QString sessionTokenKey = u"sessionToken"_s;
const QString userDataKey = u"userData"_s;

// A failure shown with the underlying layer's own wording: the network's, or the decoder's.
class DescribedError : public std::exception
{
public:
    explicit DescribedError(QString description) : m_description(std::move(description)), m_what(m_description.toUtf8())
    {
    }
    [[nodiscard]] QString description() const { return m_description; }
    [[nodiscard]] const char *what() const noexcept override { return m_what.constData(); }

private:
    QString m_description;
    QByteArray m_what;
};

DescribedError missingValue()
{
    return DescribedError(u"The data couldn’t be read because it is missing."_s);
}

DescribedError wrongFormat()
{
    return DescribedError(u"The data couldn’t be read because it isn’t in the correct format."_s);
}

struct VerifyTokenResponse
{
    QString sessionToken;
    TamloUser user;
};

QString requiredString(const QJsonObject &object, const QString &key)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull()) {
        throw missingValue();
    }
    if (!value.isString()) {
        throw wrongFormat();
    }
    return value.toString();
}

QJsonObject requiredObject(const QJsonValue &value)
{
    if (value.isUndefined() || value.isNull()) {
        throw missingValue();
    }
    if (!value.isObject()) {
        throw wrongFormat();
    }
    return value.toObject();
}

VerifyTokenResponse decodeVerifyTokenResponse(const QByteArray &body)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        throw wrongFormat();
    }
    const QJsonObject root = document.object();
    VerifyTokenResponse response;
    response.sessionToken = requiredString(root, u"sessionToken"_s);
    const QJsonObject user = requiredObject(root.value(u"user"_s));
    response.user.id = requiredString(user, u"id"_s);
    response.user.email = requiredString(user, u"email"_s);
    const QJsonValue name = user.value(u"name"_s);
    if (name.isString()) {
        response.user.name = name.toString();
    } else if (!name.isUndefined() && !name.isNull()) {
        throw wrongFormat();
    }
    return response;
}

std::optional<QString> errorField(const QByteArray &data)
{
    const QJsonDocument document = QJsonDocument::fromJson(data);
    const QJsonValue error = document.object().value(u"error"_s);
    if (!document.isObject() || !error.isString()) {
        return std::nullopt;
    }
    return error.toString();
}
} // namespace

AuthService::AuthService(QNetworkAccessManager *nam, AppConfig config, const QString &credentialsDir,
    BackendTimeouts timeouts, QObject *parent)
    : QObject(parent)
    , m_nam(nam)
    , m_config(std::move(config))
    , m_timeouts(timeouts)
    , m_storage(credentialsDir, QString::fromLatin1(serviceId))
{
    restoreSession();
}

std::optional<QString> AuthService::sessionToken() const
{
    return m_storage.value(sessionTokenKey);
}

QCoro::Task<> AuthService::verifyMagicLinkToken(QString token)
{
    setError(std::nullopt);
    setLoading(true);
    try {
        const QString base = m_config.convexURL();
        if (base.isEmpty()) {
            throw AuthError(AuthError::Kind::ConvexNotConfigured);
        }
        const auto url = AppConfig::endpoint(base, u"/auth/verify-token"_s);
        if (!url) {
            throw AuthError(AuthError::Kind::InvalidURL);
        }
        const QByteArray body = QJsonDocument(QJsonObject {{u"token"_s, token}}).toJson(QJsonDocument::Compact);
        const BackendReply reply
            = co_await BackendRequest::postJson(m_nam, *url, QString(), body, m_timeouts.verifyToken);
        if (!reply.status && !reply.transportError.isNull()) {
            throw DescribedError(reply.transportError);
        }
        validateHTTP(reply.status, reply.body);
        const VerifyTokenResponse response = decodeVerifyTokenResponse(reply.body);
        persistSession(response.sessionToken, response.user);
    } catch (const AuthError &error) {
        setError(error.errorDescription());
    } catch (const DescribedError &error) {
        setError(error.description());
    } catch (const std::exception &error) {
        setError(QString::fromUtf8(error.what()));
    }
    setLoading(false);
}

void AuthService::logout()
{
    m_storage.deleteAll();
    setCurrentUser(std::nullopt);
    setAuthenticated(false);
    setError(std::nullopt);
}

void AuthService::clearError()
{
    setError(std::nullopt);
}

QVariant AuthService::currentUserValue() const
{
    return m_currentUser ? QVariant::fromValue(*m_currentUser) : QVariant();
}

void AuthService::restoreSession()
{
    const auto token = m_storage.value(sessionTokenKey);
    if (!token || token->isEmpty()) {
        return;
    }
    const auto userData = m_storage.value(userDataKey);
    if (!userData) {
        return;
    }
    // An undecodable user leaves the stored keys alone; the next sign-in replaces them.
    const auto user = TamloUser::decode(userData->toUtf8());
    if (!user) {
        qCInfo(lcAccount) << "Stored user could not be decoded; starting signed out";
        return;
    }
    setCurrentUser(user);
    setAuthenticated(true);
}

void AuthService::persistSession(const QString &token, const TamloUser &user)
{
    const QString userData = QString::fromUtf8(user.encoded());
    // Each key is its own write; a failed write still leaves the session in memory for this run.
    m_storage.setValue(token, sessionTokenKey);
    m_storage.setValue(userData, userDataKey);
    setCurrentUser(user);
    setAuthenticated(true);
}

void AuthService::validateHTTP(std::optional<int> status, const QByteArray &data)
{
    if (!status) {
        throw AuthError(AuthError::Kind::InvalidResponse, u"No HTTP response"_s);
    }
    const int code = *status;
    if (code >= 200 && code <= 299) {
        return;
    }
    if (code == 401 || code == 403) {
        throw AuthError(AuthError::Kind::Unauthorized);
    }
    const auto message = errorField(data);
    if (code == 404) {
        if (message && message->contains(u"not found"_s, Qt::CaseSensitive)) {
            throw AuthError(AuthError::Kind::EmailNotFound);
        }
        throw AuthError(AuthError::Kind::ServerError, u"404 Not Found"_s);
    }
    if (code == 410) {
        throw AuthError(AuthError::Kind::TokenExpired);
    }
    if (message) {
        throw AuthError(AuthError::Kind::ServerError, *message);
    }
    throw AuthError(AuthError::Kind::ServerError, u"HTTP "_s + QString::number(code));
}

void AuthService::setAuthenticated(bool value)
{
    if (m_isAuthenticated == value) {
        return;
    }
    m_isAuthenticated = value;
    Q_EMIT isAuthenticatedChanged();
}

void AuthService::setCurrentUser(const std::optional<TamloUser> &user)
{
    if (m_currentUser == user) {
        return;
    }
    m_currentUser = user;
    Q_EMIT currentUserChanged();
}

void AuthService::setLoading(bool value)
{
    if (m_isLoading == value) {
        return;
    }
    m_isLoading = value;
    Q_EMIT isLoadingChanged();
}

void AuthService::setError(const std::optional<QString> &error)
{
    if (m_error == error) {
        return;
    }
    m_error = error;
    Q_EMIT errorChanged();
}
