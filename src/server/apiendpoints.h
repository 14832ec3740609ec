#pragma once

#include "server/httpreply.h"

#include <QByteArray>

#include <optional>

class QHttpServerRequest;
class Clock;
class RateLimiter;
class SignInService;
class Storage;
struct ServerUser;

// The JSON endpoints the app calls: the token exchange, the upload, the status poll, the session check.
class ApiEndpoints
{
public:
    static constexpr qint64 maxSyncBodyBytes = 32LL * 1024 * 1024;

    ApiEndpoints(Storage *storage, SignInService *signIn, const Clock *clock);
    // Token exchanges per client address are limited once this is set.
    void setRateLimiter(RateLimiter *limiter) { m_limiter = limiter; }

    [[nodiscard]] HttpReply verifyToken(const QHttpServerRequest &request);
    [[nodiscard]] HttpReply sync(const QHttpServerRequest &request);
    [[nodiscard]] HttpReply status(const QHttpServerRequest &request);
    [[nodiscard]] HttpReply me(const QHttpServerRequest &request);

    // Header names compare without regard to case.
    [[nodiscard]] static std::optional<QByteArray> header(const QHttpServerRequest &request, const QByteArray &name);

private:
    [[nodiscard]] static QString bearerToken(const QHttpServerRequest &request);
    [[nodiscard]] std::optional<ServerUser> authenticate(const QHttpServerRequest &request);
    // The session's last activity, written at most once a minute.
    void noteActivity(const QString &token, std::optional<qint64> lastSeenAt);

    Storage *m_storage = nullptr;
    SignInService *m_signIn = nullptr;
    const Clock *m_clock = nullptr;
    RateLimiter *m_limiter = nullptr;
};
