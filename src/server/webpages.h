#pragma once

#include "server/httpreply.h"

#include <QString>
#include <QUrl>

#include <optional>

class Mailer;
class QHttpServerRequest;
class RateLimiter;
class SignInService;
class QUrlQuery;

// The server-rendered pages: sign-in and registration (in local mode by typing an address, else
// by a link sent by e-mail), the page an e-mailed link opens, the installation guide, the
// stylesheet. Plain HTML that works without JavaScript; every form carries a form token.
class WebPages
{
public:
    // The one callback the sign-in pages will send a browser to; anything else is refused.
    static inline const QString appRedirect = QStringLiteral("tamlo://auth");

    // publicUrl is the origin every page and link is built on; in local mode anyone who can
    // reach the pages signs in by typing an address.
    WebPages(SignInService *signIn, QUrl publicUrl, bool localSignIn);

    // Sign-in by e-mail where local mode is off. Without a mailer such a server refuses sign-in.
    void setMailer(Mailer *mailer) { m_mailer = mailer; }
    void setRateLimiter(RateLimiter *limiter) { m_limiter = limiter; }

    [[nodiscard]] HttpReply login(const QHttpServerRequest &request);
    [[nodiscard]] HttpReply registration(const QHttpServerRequest &request);
    // Where an e-mailed link leads: on to the app, or a button that signs this browser in.
    [[nodiscard]] HttpReply emailLink(const QHttpServerRequest &request);
    [[nodiscard]] HttpReply installationGuide() const;
    [[nodiscard]] HttpReply home() const;
    [[nodiscard]] static HttpReply stylesheet();
    // When the port is only known after binding.
    void setPublicUrl(const QUrl &url) { m_publicUrl = url; }

    // Shared with the signed-in pages.
    [[nodiscard]] HttpReply page(int status, const QString &title, const QString &content,
        const QString &head = QString(), const QString &navigation = QString()) const;
    [[nodiscard]] QString link(const QString &path) const;
    [[nodiscard]] bool secureCookies() const { return m_publicUrl.scheme() == QStringLiteral("https"); }
    [[nodiscard]] static HttpReply redirect(const QString &location);
    [[nodiscard]] HttpReply tooManyRequests(qint64 retryAfterSeconds) const;
    [[nodiscard]] HttpReply expiredForm() const;
    [[nodiscard]] static QUrlQuery formFields(const QByteArray &body);
    [[nodiscard]] static QString field(const QUrlQuery &fields, const QString &name);
    [[nodiscard]] static QString clientKey(const QHttpServerRequest &request);
    [[nodiscard]] static QString hiddenInput(const QString &name, const QString &value);

private:
    enum class Form {
        Login,
        Register,
    };
    // A browser's form secret before it signs in: the cookie it holds, or a new one to set.
    struct FormToken
    {
        QString value;
        bool isNew = false;
    };

    [[nodiscard]] HttpReply signInPage(const QHttpServerRequest &request, Form form);
    [[nodiscard]] HttpReply sendLink(Form form, bool forApp, const QString &email, const std::optional<QString> &name);
    [[nodiscard]] HttpReply signInBrowser(Form form, const QString &email, const std::optional<QString> &name);
    [[nodiscard]] HttpReply formPage(int status, Form form, bool forApp, const FormToken &token, const QString &email,
        const QString &name, const QString &error) const;
    [[nodiscard]] HttpReply callbackPage(const QString &token) const;
    [[nodiscard]] HttpReply withFormCookie(HttpReply reply, const FormToken &token) const;
    [[nodiscard]] static FormToken formToken(const QHttpServerRequest &request);
    [[nodiscard]] static bool formTokenMatches(const QHttpServerRequest &request, const QUrlQuery &fields);
    [[nodiscard]] std::optional<qint64> limited(const QString &key, bool perEmail);

    SignInService *m_signIn = nullptr;
    QUrl m_publicUrl;
    bool m_localSignIn = false;
    Mailer *m_mailer = nullptr;
    RateLimiter *m_limiter = nullptr;
};
