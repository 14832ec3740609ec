#pragma once

#include "server/httpreply.h"

#include <QByteArray>
#include <QString>

#include <optional>

class QHttpServerRequest;

// Cookies, form tokens and the headers every reply carries.
namespace WebSecurity {
inline constexpr char sessionCookie[] = "tamlo_session";
inline constexpr char formCookie[] = "tamlo_form"; // the browser's form secret before it signs in
inline constexpr qint64 sessionMaxAgeSeconds = 30LL * 24 * 60 * 60;

// Scripts none, styles from the stylesheet alone, no framing, no form posted elsewhere.
inline constexpr char contentSecurityPolicy[]
    = "default-src 'none'; style-src 'self'; img-src 'self'; form-action 'self'; base-uri 'none'; "
      "frame-ancestors 'none'";

[[nodiscard]] std::optional<QString> cookie(const QHttpServerRequest &request, const QByteArray &name);
// HttpOnly and SameSite=Lax always; Secure when the pages are served over https. An empty value
// with maxAge 0 removes the cookie.
[[nodiscard]] QByteArray setCookie(
    const QByteArray &name, const QString &value, bool secure, std::optional<qint64> maxAge);
// The form token of a signed-in browser, derived from its session token, so another session's does not fit.
[[nodiscard]] QString sessionFormToken(const QString &sessionToken);
[[nodiscard]] bool equalSecrets(const QString &a, const QString &b);
// The headers that go on every reply, page or JSON.
void addSecurityHeaders(HttpReply &reply);
} // namespace WebSecurity
