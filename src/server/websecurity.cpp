#include "server/websecurity.h"

#include <QCryptographicHash>
#include <QHttpServerRequest>
#include <QMessageAuthenticationCode>

using namespace Qt::StringLiterals;

std::optional<QString> WebSecurity::cookie(const QHttpServerRequest &request, const QByteArray &name)
{
    for (const auto &[key, value] : request.headers()) {
        if (key.compare("cookie", Qt::CaseInsensitive) != 0) {
            continue;
        }
        for (const QByteArray &pair : value.split(';')) {
            const qsizetype equals = pair.indexOf('=');
            if (equals > 0 && pair.left(equals).trimmed() == name) {
                const QByteArray cookieValue = pair.mid(equals + 1).trimmed();
                if (!cookieValue.isEmpty()) {
                    return QString::fromLatin1(cookieValue);
                }
            }
        }
    }
    return std::nullopt;
}

QByteArray WebSecurity::setCookie(
    const QByteArray &name, const QString &value, bool secure, std::optional<qint64> maxAge)
{
    QByteArray header = name + '=' + value.toLatin1() + "; Path=/; HttpOnly; SameSite=Lax";
    if (secure) {
        header += "; Secure";
    }
    if (maxAge) {
        header += "; Max-Age=" + QByteArray::number(*maxAge);
    }
    return header;
}

QString WebSecurity::sessionFormToken(const QString &sessionToken)
{
    const QByteArray mac
        = QMessageAuthenticationCode::hash("tamlo form token", sessionToken.toUtf8(), QCryptographicHash::Sha256);
    return QString::fromLatin1(mac.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

bool WebSecurity::equalSecrets(const QString &a, const QString &b)
{
    const QByteArray x = a.toUtf8();
    const QByteArray y = b.toUtf8();
    if (x.size() != y.size() || x.isEmpty()) {
        return false;
    }
    unsigned char difference = 0;
    for (qsizetype i = 0; i < x.size(); ++i) {
        difference |= static_cast<unsigned char>(x[i] ^ y[i]);
    }
    return difference == 0;
}

void WebSecurity::addSecurityHeaders(HttpReply &reply)
{
    reply.headers.emplaceBack(QByteArray("Content-Security-Policy"), QByteArray(contentSecurityPolicy));
    reply.headers.emplaceBack(QByteArray("X-Frame-Options"), QByteArray("DENY"));
    reply.headers.emplaceBack(QByteArray("Referrer-Policy"), QByteArray("no-referrer"));
    reply.headers.emplaceBack(QByteArray("Cross-Origin-Opener-Policy"), QByteArray("same-origin"));
}
