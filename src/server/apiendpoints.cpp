#include "server/apiendpoints.h"

#include "core/clock.h"
#include "server/ratelimiter.h"
#include "server/secrettoken.h"
#include "server/signinservice.h"
#include "server/storage.h"
#include "server/syncuploadparser.h"

#include <QHttpServerRequest>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {
QJsonObject userObject(const ServerUser &user)
{
    QJsonObject object {{u"id"_s, user.id}, {u"email"_s, user.email}};
    if (user.name) {
        object.insert(u"name"_s, *user.name);
    }
    return object;
}

HttpReply unauthorized(const QString &message)
{
    HttpReply reply = HttpReply::error(401, message);
    reply.headers.emplaceBack(QByteArray("WWW-Authenticate"), QByteArray("Bearer"));
    return reply;
}
} // namespace

ApiEndpoints::ApiEndpoints(Storage *storage, SignInService *signIn, const Clock *clock)
    : m_storage(storage), m_signIn(signIn), m_clock(clock)
{
}

std::optional<QByteArray> ApiEndpoints::header(const QHttpServerRequest &request, const QByteArray &name)
{
    for (const auto &[key, value] : request.headers()) {
        if (key.compare(name, Qt::CaseInsensitive) == 0) {
            return value;
        }
    }
    return std::nullopt;
}

QString ApiEndpoints::bearerToken(const QHttpServerRequest &request)
{
    const QByteArray authorization = header(request, "authorization").value_or(QByteArray()).trimmed();
    if (authorization.size() <= 7 || authorization.left(7).compare("bearer ", Qt::CaseInsensitive) != 0) {
        return {};
    }
    return QString::fromLatin1(authorization.mid(7).trimmed());
}

std::optional<ServerUser> ApiEndpoints::authenticate(const QHttpServerRequest &request)
{
    const QString token = bearerToken(request);
    if (token.isEmpty()) {
        return std::nullopt;
    }
    const std::optional<SessionSyncStatus> session = m_storage->syncStatusForSession(SecretToken::digest(token));
    if (!session) {
        return std::nullopt;
    }
    noteActivity(token, session->lastSeenAt);
    return session->user;
}

void ApiEndpoints::noteActivity(const QString &token, std::optional<qint64> lastSeenAt)
{
    constexpr qint64 touchIntervalMs = 60 * 1000;
    const qint64 now = m_clock->now().toMSecsSinceEpoch();
    if (!lastSeenAt || now - *lastSeenAt >= touchIntervalMs) {
        m_storage->touchSession(SecretToken::digest(token), now);
    }
}

HttpReply ApiEndpoints::verifyToken(const QHttpServerRequest &request)
{
    if (m_limiter) {
        if (const std::optional<qint64> wait = m_limiter->hit(
                u"exchange:"_s + request.remoteAddress().toString(), RateLimiter::tokenExchangePerClient)) {
            HttpReply reply = HttpReply::error(429, u"Too many sign-in attempts; try again later"_s);
            reply.headers.emplaceBack(QByteArray("Retry-After"), QByteArray::number(*wait));
            return reply;
        }
    }
    const QJsonDocument document = QJsonDocument::fromJson(request.body());
    const QJsonValue token = document.object().value(u"token"_s);
    if (!document.isObject() || !token.isString() || token.toString().isEmpty()) {
        return HttpReply::error(400, u"The body must be a JSON object with a string token"_s);
    }
    if (m_limiter) {
        const std::optional<QString> email = m_signIn->linkEmail(token.toString());
        if (const std::optional<qint64> wait = email
                ? m_limiter->hit(u"exchange-email:"_s + *email, RateLimiter::tokenExchangePerEmail)
                : std::nullopt) {
            HttpReply reply = HttpReply::error(429, u"Too many sign-in attempts; try again later"_s);
            reply.headers.emplaceBack(QByteArray("Retry-After"), QByteArray::number(*wait));
            return reply;
        }
    }
    const SignInService::Verification verification = m_signIn->verify(token.toString());
    switch (verification.outcome) {
    case SignInService::Outcome::UnknownToken:
        return HttpReply::error(401, u"Invalid sign-in link"_s);
    case SignInService::Outcome::Expired:
        return HttpReply::error(410, u"This sign-in link has expired or was already used"_s);
    case SignInService::Outcome::UserNotFound:
        return HttpReply::error(404, u"User not found"_s);
    case SignInService::Outcome::SignedIn:
        break;
    }
    return HttpReply::json(
        200, QJsonObject {{u"sessionToken"_s, verification.sessionToken}, {u"user"_s, userObject(*verification.user)}});
}

HttpReply ApiEndpoints::sync(const QHttpServerRequest &request)
{
    // The socket turns away larger declared bodies before they are read; this holds the rule
    // should a request ever reach here some other way.
    if (!header(request, "content-length")) {
        return HttpReply::error(411, u"A request body needs a Content-Length header."_s);
    }
    if (request.body().size() > maxSyncBodyBytes) {
        return HttpReply::error(413, u"The request body is larger than 32 MiB."_s);
    }
    const std::optional<ServerUser> user = authenticate(request);
    if (!user) {
        return unauthorized(u"Unauthorized"_s);
    }
    const SyncUploadParser::Result parsed = SyncUploadParser::parse(request.body());
    if (!parsed.upload) {
        return HttpReply::error(400, parsed.error);
    }
    m_storage->storeUpload(user->id, *parsed.upload, m_clock->now().toMSecsSinceEpoch());
    m_storage->noteSessionDevice(SecretToken::digest(bearerToken(request)), parsed.upload->deviceId);
    qsizetype snapshots = 0;
    for (const UploadedDay &day : parsed.upload->days) {
        snapshots += day.snapshots.size();
    }
    return HttpReply::json(200,
        QJsonObject {{u"days"_s, static_cast<double>(parsed.upload->days.size())},
            {u"snapshots"_s, static_cast<double>(snapshots)}});
}

HttpReply ApiEndpoints::status(const QHttpServerRequest &request)
{
    const QString token = bearerToken(request);
    const std::optional<SessionSyncStatus> status
        = token.isEmpty() ? std::nullopt : m_storage->syncStatusForSession(SecretToken::digest(token));
    if (!status) {
        return unauthorized(u"Unauthorized"_s);
    }
    noteActivity(token, status->lastSeenAt);
    QJsonObject object;
    if (status->syncRequestedAt) {
        object.insert(u"syncRequestedAt"_s, static_cast<double>(*status->syncRequestedAt));
    }
    return HttpReply::json(200, object);
}

HttpReply ApiEndpoints::me(const QHttpServerRequest &request)
{
    const std::optional<ServerUser> user = authenticate(request);
    if (!user) {
        return unauthorized(u"Unauthorized"_s);
    }
    return HttpReply::json(200, userObject(*user));
}
