#pragma once

#include "server/httpreply.h"

#include <QString>
#include <QUrl>

class QHttpServerRequest;
class SignInService;

// The server-rendered pages: sign-in and registration in local mode, the installation guide,
// the stylesheet. Plain HTML that works without JavaScript.
class WebPages
{
public:
    // The one callback the sign-in pages will send a browser to; anything else is refused.
    static inline const QString appRedirect = QStringLiteral("tamlo://auth");

    // publicUrl is the origin every page and link is built on; in local mode anyone who can
    // reach the pages signs in by typing an address.
    WebPages(SignInService *signIn, QUrl publicUrl, bool localSignIn);

    [[nodiscard]] HttpReply login(const QHttpServerRequest &request);
    [[nodiscard]] HttpReply registration(const QHttpServerRequest &request);
    [[nodiscard]] HttpReply installationGuide() const;
    [[nodiscard]] HttpReply home() const;
    [[nodiscard]] static HttpReply stylesheet();
    // When the port is only known after binding.
    void setPublicUrl(const QUrl &url) { m_publicUrl = url; }

private:
    enum class Form {
        Login,
        Register,
    };

    [[nodiscard]] HttpReply signInPage(const QHttpServerRequest &request, Form form);
    [[nodiscard]] HttpReply formPage(
        int status, Form form, const QString &email, const QString &name, const QString &error) const;
    [[nodiscard]] HttpReply callbackPage(const QString &token) const;
    [[nodiscard]] HttpReply page(
        int status, const QString &title, const QString &content, const QString &head = QString()) const;
    [[nodiscard]] QString link(const QString &path) const;

    SignInService *m_signIn = nullptr;
    QUrl m_publicUrl;
    bool m_localSignIn = false;
};
