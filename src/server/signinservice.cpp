#include "server/signinservice.h"

#include "core/clock.h"
#include "server/secrettoken.h"

#include <QUrlQuery>

using namespace Qt::StringLiterals;

SignInService::SignInService(Storage *storage, const Clock *clock) : m_storage(storage), m_clock(clock) { }

QString SignInService::normalizedEmail(const QString &email)
{
    return email.trimmed().toLower();
}

bool SignInService::isValidEmail(const QString &normalized)
{
    if (normalized.isEmpty() || normalized.size() > maxEmailLength) {
        return false;
    }
    const qsizetype at = normalized.indexOf(u'@');
    if (at <= 0 || at != normalized.lastIndexOf(u'@') || at == normalized.size() - 1) {
        return false;
    }
    for (const QChar c : normalized) {
        if (c.isSpace() || c.category() == QChar::Other_Control) {
            return false;
        }
    }
    return true;
}

QUrl SignInService::appCallback(const QString &token)
{
    QUrl url(u"tamlo://auth"_s);
    QUrlQuery query;
    query.addQueryItem(u"token"_s, token);
    url.setQuery(query);
    return url;
}

QString SignInService::createLink(const QString &email)
{
    const QString token = SecretToken::generate();
    m_storage->createSignInLink(SecretToken::digest(token), normalizedEmail(email), now());
    return token;
}

std::optional<ServerUser> SignInService::existingUser(const QString &email)
{
    return m_storage->userByEmail(normalizedEmail(email));
}

ServerUser SignInService::registerUser(const QString &email, const std::optional<QString> &name)
{
    const QString normalized = normalizedEmail(email);
    if (std::optional<ServerUser> existing = m_storage->userByEmail(normalized)) {
        return *existing;
    }
    return m_storage->createUser(normalized, name, now());
}

std::optional<QString> SignInService::linkEmail(const QString &token)
{
    const std::optional<SignInLink> link = m_storage->signInLink(SecretToken::digest(token));
    return link ? std::optional<QString>(link->email) : std::nullopt;
}

SignInService::Verification SignInService::verify(const QString &token)
{
    return verify(token, SessionKind::App);
}

QString SignInService::startWebSession(const ServerUser &user)
{
    const QString sessionToken = SecretToken::generate();
    m_storage->createWebSession(SecretToken::digest(sessionToken), user.id, now());
    return sessionToken;
}

SignInService::Verification SignInService::verify(const QString &token, SessionKind kind)
{
    const QString digest = SecretToken::digest(token);
    const std::optional<SignInLink> link = m_storage->signInLink(digest);
    if (!link) {
        return {Outcome::UnknownToken, {}, std::nullopt};
    }
    const qint64 lifetime = std::chrono::duration_cast<std::chrono::milliseconds>(linkLifetime).count();
    if (link->usedAt || now() - link->createdAt >= lifetime) {
        return {Outcome::Expired, {}, std::nullopt};
    }
    // The link stays unused, so it works once the address has registered.
    const std::optional<ServerUser> user = m_storage->userByEmail(link->email);
    if (!user) {
        return {Outcome::UserNotFound, {}, std::nullopt};
    }
    if (!m_storage->useSignInLink(digest, now())) {
        return {Outcome::Expired, {}, std::nullopt};
    }
    if (kind == SessionKind::Web) {
        return {Outcome::SignedIn, startWebSession(*user), user};
    }
    const QString sessionToken = SecretToken::generate();
    m_storage->createSession(SecretToken::digest(sessionToken), user->id, now());
    return {Outcome::SignedIn, sessionToken, user};
}

std::optional<ServerUser> SignInService::userForSessionToken(const QString &token)
{
    if (token.isEmpty()) {
        return std::nullopt;
    }
    return m_storage->userForSession(SecretToken::digest(token));
}

qint64 SignInService::now() const
{
    return m_clock->now().toMSecsSinceEpoch();
}
