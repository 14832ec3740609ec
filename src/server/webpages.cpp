#include "server/webpages.h"

#include "server/mailer.h"
#include "server/ratelimiter.h"
#include "server/secrettoken.h"
#include "server/signinservice.h"
#include "server/websecurity.h"

#include <QHttpServerRequest>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace {
QString escaped(const QString &text)
{
    return text.toHtmlEscaped();
}

const char *const styleSheet = R"css(:root { --dark: #0B1204; --green: #DAF366; --lime: #F3FFC0; --blue: #D7E2F8;
  --text: #383B26; --border: #292E0D; --window: #F5F5F7; --white: #FFFFFF; }
* { box-sizing: border-box; }
body { margin: 0; background: var(--window); color: var(--text);
  font: 15px/1.5 system-ui, -apple-system, "Segoe UI", Roboto, "DejaVu Sans", sans-serif; }
main { max-width: 30rem; margin: 3rem auto; padding: 0 1rem; }
h1 { color: var(--dark); font-size: 1.5rem; margin: 0 0 1rem; }
h2 { color: var(--dark); font-size: 1.1rem; margin: 1.5rem 0 0.5rem; }
.card { background: var(--white); border-radius: 12px; padding: 1.25rem; }
.card.highlighted { background: rgba(243, 255, 192, 0.45); border: 1px solid var(--green); }
label { display: block; margin: 0.75rem 0 0.25rem; font-weight: 600; }
input { width: 100%; padding: 7px 10px; font: inherit; color: var(--text); background: var(--white);
  border: 1px solid rgba(41, 46, 13, 0.55); border-radius: 8px; }
button, .button { display: inline-block; margin-top: 1rem; padding: 6px 12px; border: 0; border-radius: 8px;
  background: var(--dark); color: var(--white); font: inherit; text-decoration: none; cursor: pointer; }
button:active, .button:active { opacity: 0.85; }
.error { background: rgba(215, 226, 248, 0.35); border-left: 3px solid var(--dark); padding: 0.5rem 0.75rem; }
code, pre { background: var(--white); border-radius: 4px; padding: 2px 6px; font-family: "DejaVu Sans Mono", monospace; }
pre { padding: 6px; overflow-x: auto; }
.muted { opacity: 0.75; font-size: 0.9em; }
a { color: var(--dark); }
main.wide { max-width: 52rem; }
header.bar { background: var(--dark); color: var(--white); }
header.bar nav { max-width: 52rem; margin: 0 auto; padding: 0.6rem 1rem; display: flex; flex-wrap: wrap;
  align-items: center; gap: 0.25rem 1.1rem; }
header.bar a { color: var(--lime); text-decoration: none; }
header.bar a.current { color: var(--green); font-weight: 600; border-bottom: 2px solid var(--green); }
header.bar .brand { color: var(--green); font-weight: 700; margin-right: 0.75rem; }
header.bar form { margin-left: auto; }
header.bar button { margin: 0; padding: 3px 10px; background: transparent; color: var(--lime);
  border: 1px solid rgba(243, 255, 192, 0.5); }
.card + .card, .card + h2 { margin-top: 1rem; }
.card > :first-child { margin-top: 0; }
.card > :last-child { margin-bottom: 0; }
td form.inline button { margin-top: -3px; }
p > .button { margin-top: 0.25rem; }
.day h2 { margin-top: 0; }
.figure { font-size: 1.35rem; font-weight: 600; color: var(--dark); margin: 0.25rem 0 0.5rem; }
.shares { display: grid; grid-template-columns: 1fr 1fr; gap: 0 1.5rem; }
.shares h3 { font-size: 0.85rem; text-transform: uppercase; letter-spacing: 0.04em; margin: 0.5rem 0 0.25rem;
  opacity: 0.75; }
.share { display: grid; grid-template-columns: minmax(0, 1fr) 3.5rem minmax(5ch, max-content); align-items: center;
  gap: 0.5rem; font-size: 0.92rem; }
.share span { overflow: hidden; text-overflow: ellipsis; white-space: nowrap; }
.share .pct { overflow: visible; text-align: right; font-variant-numeric: tabular-nums; }
meter { width: 100%; height: 0.55rem; }
meter::-webkit-meter-bar { background: var(--window); border: 0; border-radius: 4px; height: 0.55rem; }
meter::-webkit-meter-optimum-value { background: var(--dark); border-radius: 4px; }
table { width: 100%; border-collapse: collapse; font-size: 0.92rem; }
th { text-align: left; font-size: 0.8rem; text-transform: uppercase; letter-spacing: 0.04em; opacity: 0.75; }
th, td { padding: 0.4rem 0.5rem; border-bottom: 1px solid var(--window); vertical-align: top; }
td.time { white-space: nowrap; font-variant-numeric: tabular-nums; width: 4rem; }
tr.gap td { color: rgba(56, 59, 38, 0.6); font-style: italic; background: repeating-linear-gradient(
  135deg, var(--white), var(--white) 6px, var(--window) 6px, var(--window) 12px); }
.tag { display: inline-block; padding: 0 6px; border-radius: 4px; background: var(--blue); font-size: 0.85em; }
.tag.project { background: var(--lime); }
.note { display: block; font-size: 0.88em; opacity: 0.8; }
.pager { display: flex; justify-content: space-between; margin-top: 1rem; }
.inline { display: inline; }
.inline button { margin: 0; padding: 3px 10px; }
button.danger { background: #7A1F12; }
.status { display: inline-block; padding: 2px 8px; border-radius: 999px; background: var(--green);
  color: var(--dark); font-size: 0.85em; font-weight: 600; }
.empty { text-align: center; padding: 2rem 1rem; }
)css";
} // namespace

WebPages::WebPages(SignInService *signIn, QUrl publicUrl, bool localSignIn)
    : m_signIn(signIn), m_publicUrl(std::move(publicUrl)), m_localSignIn(localSignIn)
{
}

QString WebPages::link(const QString &path) const
{
    QString origin = m_publicUrl.toString(QUrl::RemoveQuery | QUrl::RemoveFragment | QUrl::StripTrailingSlash);
    return origin + path;
}

HttpReply WebPages::page(
    int status, const QString &title, const QString &content, const QString &head, const QString &navigation) const
{
    return HttpReply::html(status,
        u"<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
        "<title>%1 · Tamlo</title><link rel=\"stylesheet\" href=\"%2\">%3</head>"
        "<body>%4<main%5>%6</main></body></html>\n"_s.arg(escaped(title), escaped(link(u"/style.css"_s)), head,
            navigation, navigation.isEmpty() ? QString() : u" class=\"wide\""_s, content));
}

HttpReply WebPages::redirect(const QString &location)
{
    HttpReply reply = HttpReply::html(303, QString());
    reply.headers.emplaceBack(QByteArray("Location"), location.toUtf8());
    return reply;
}

HttpReply WebPages::tooManyRequests(qint64 retryAfterSeconds) const
{
    HttpReply reply = page(429, u"Too many attempts"_s,
        u"<h1>Too many attempts</h1><div class=\"card\"><p>There have been too many sign-in attempts from here or "
        "for this address. Please wait %1 and try again.</p></div>"_s.arg(retryAfterSeconds < 120
                ? u"%1 seconds"_s.arg(retryAfterSeconds)
                : u"%1 minutes"_s.arg((retryAfterSeconds + 59) / 60)));
    reply.headers.emplaceBack(QByteArray("Retry-After"), QByteArray::number(retryAfterSeconds));
    return reply;
}

HttpReply WebPages::expiredForm() const
{
    return page(403, u"Form expired"_s,
        u"<h1>This form has expired</h1><div class=\"card\"><p>The form was not sent from a page of this server "
        "in this browser, so nothing was done. Go back, reload the page and try again.</p></div>"_s);
}

QUrlQuery WebPages::formFields(const QByteArray &body)
{
    // application/x-www-form-urlencoded: '+' is a space, the rest is percent-encoded UTF-8.
    QByteArray text = body;
    text.replace('+', ' ');
    return QUrlQuery(QString::fromUtf8(text));
}

QString WebPages::field(const QUrlQuery &fields, const QString &name)
{
    return fields.queryItemValue(name, QUrl::FullyDecoded);
}

QString WebPages::clientKey(const QHttpServerRequest &request)
{
    return request.remoteAddress().toString();
}

QString WebPages::hiddenInput(const QString &name, const QString &value)
{
    return u"<input type=\"hidden\" name=\"%1\" value=\"%2\">"_s.arg(escaped(name), escaped(value));
}

WebPages::FormToken WebPages::formToken(const QHttpServerRequest &request)
{
    if (const std::optional<QString> existing = WebSecurity::cookie(request, WebSecurity::formCookie);
        existing && existing->size() == 43) {
        return {*existing, false};
    }
    return {SecretToken::generate(), true};
}

bool WebPages::formTokenMatches(const QHttpServerRequest &request, const QUrlQuery &fields)
{
    const std::optional<QString> cookie = WebSecurity::cookie(request, WebSecurity::formCookie);
    return cookie && WebSecurity::equalSecrets(*cookie, field(fields, u"csrf"_s));
}

HttpReply WebPages::withFormCookie(HttpReply reply, const FormToken &token) const
{
    if (token.isNew) {
        reply.headers.emplaceBack(QByteArray("Set-Cookie"),
            WebSecurity::setCookie(WebSecurity::formCookie, token.value, secureCookies(), std::nullopt));
    }
    return reply;
}

std::optional<qint64> WebPages::limited(const QString &key, bool perEmail)
{
    if (!m_limiter) {
        return std::nullopt;
    }
    return perEmail ? m_limiter->hit(u"email:"_s + key, RateLimiter::signInPerEmail)
                    : m_limiter->hit(u"client:"_s + key, RateLimiter::signInPerClient);
}

HttpReply WebPages::login(const QHttpServerRequest &request)
{
    return signInPage(request, Form::Login);
}

HttpReply WebPages::registration(const QHttpServerRequest &request)
{
    return signInPage(request, Form::Register);
}

HttpReply WebPages::signInPage(const QHttpServerRequest &request, Form form)
{
    if (!m_localSignIn && !m_mailer) {
        return page(403, u"Sign-in"_s,
            u"<h1>This server signs people in another way</h1><div class=\"card\"><p>Signing in by typing an "
            "address is only offered while the server is reachable from this machine alone, and this server is "
            "not.</p><p>Ask whoever runs it for a sign-in link; they can make one with "
            "<code>tamlo-server login-link</code> followed by your address.</p></div>"_s);
    }
    const bool posted = request.method() == QHttpServerRequest::Method::Post;
    const QUrlQuery fields = posted ? formFields(request.body()) : QUrlQuery(request.url());
    const bool forApp = fields.hasQueryItem(u"redirect"_s);
    if (forApp && field(fields, u"redirect"_s) != appRedirect) {
        return page(400, u"Refused"_s,
            u"<h1>This sign-in page only returns to the Tamlo app</h1><div class=\"card\"><p>The page was "
            "opened with a request to send you somewhere other than the Tamlo app, so it was refused and no "
            "sign-in link was made.</p><p>Start signing in again from the Tamlo app.</p></div>"_s);
    }
    const FormToken token = formToken(request);
    if (!posted) {
        return withFormCookie(formPage(200, form, forApp, token, QString(), QString(), QString()), token);
    }
    if (!formTokenMatches(request, fields)) {
        return withFormCookie(expiredForm(), token);
    }
    if (const std::optional<qint64> wait = limited(clientKey(request), false)) {
        return tooManyRequests(*wait);
    }
    const QString email = SignInService::normalizedEmail(field(fields, u"email"_s));
    const QString name = field(fields, u"name"_s).trimmed();
    if (!SignInService::isValidEmail(email)) {
        return formPage(
            400, form, forApp, token, field(fields, u"email"_s), name, u"Please enter a valid e-mail address."_s);
    }
    if (name.size() > SignInService::maxNameLength) {
        return formPage(400, form, forApp, token, email, name,
            u"Please keep the name to %1 characters or fewer."_s.arg(SignInService::maxNameLength));
    }
    if (const std::optional<qint64> wait = limited(email, true)) {
        return tooManyRequests(*wait);
    }
    const std::optional<QString> optionalName = name.isEmpty() ? std::nullopt : std::optional<QString>(name);
    if (m_mailer) {
        return sendLink(form, forApp, email, optionalName);
    }
    if (!forApp) {
        return signInBrowser(form, email, optionalName);
    }
    if (form == Form::Register) {
        m_signIn->registerUser(email, optionalName);
    }
    return callbackPage(m_signIn->createLink(email));
}

HttpReply WebPages::sendLink(Form form, bool forApp, const QString &email, const std::optional<QString> &name)
{
    // Registering makes the account at once; either way the same work is done and the same page
    // shown, so neither the page nor its timing tells whether the address had an account.
    if (form == Form::Register) {
        m_signIn->registerUser(email, name);
    }
    QUrl url(link(u"/auth/link"_s));
    QUrlQuery query;
    query.addQueryItem(u"token"_s, m_signIn->createLink(email));
    if (forApp) {
        query.addQueryItem(u"to"_s, u"app"_s);
    }
    url.setQuery(query);
    const QString origin = m_publicUrl.toString(QUrl::RemoveQuery | QUrl::RemoveFragment | QUrl::StripTrailingSlash);
    m_mailer->send(OutgoingMail {email, u"Your Tamlo sign-in link"_s,
        u"Hello,\n\nSomeone, most likely you, asked to sign in to Tamlo at %1 with this address.\n\n"
        "Open this link within 15 minutes to continue%2:\n\n%3\n\nThe link works once. If this address has no "
        "Tamlo account yet, the page it opens tells you how to create one.\n\nIf you did not ask for this, you "
        "can ignore this mail: nothing happens until the link is opened.\n"_s.arg(
            origin, forApp ? u" in the Tamlo app"_s : QString(), url.toString(QUrl::FullyEncoded))});
    return page(200, u"Check your e-mail"_s,
        u"<h1>Check your e-mail</h1><div class=\"card highlighted\"><p>If <strong>%1</strong> can sign in here, "
        "a sign-in link is on its way to it. Open the link within 15 minutes%2.</p></div><p class=\"muted\">No "
        "mail after a few minutes? Look in the spam folder, check the address, and ask again.</p>"_s.arg(
            escaped(email), forApp ? u" on this computer, and it hands you back to the Tamlo app"_s : QString()));
}

HttpReply WebPages::signInBrowser(Form form, const QString &email, const std::optional<QString> &name)
{
    std::optional<ServerUser> user;
    if (form == Form::Register) {
        user = m_signIn->registerUser(email, name);
    } else {
        user = m_signIn->existingUser(email);
    }
    if (!user) {
        return formPage(404, form, false, FormToken {}, email, QString(),
            u"No account has this address yet. Create an account first."_s);
    }
    HttpReply reply = redirect(link(u"/days"_s));
    reply.headers.emplaceBack(QByteArray("Set-Cookie"),
        WebSecurity::setCookie(WebSecurity::sessionCookie, m_signIn->startWebSession(*user), secureCookies(),
            WebSecurity::sessionMaxAgeSeconds));
    return reply;
}

HttpReply WebPages::emailLink(const QHttpServerRequest &request)
{
    const bool posted = request.method() == QHttpServerRequest::Method::Post;
    const QUrlQuery fields = posted ? formFields(request.body()) : QUrlQuery(request.url());
    const QString linkToken = field(fields, u"token"_s);
    const FormToken token = formToken(request);
    if (linkToken.isEmpty()) {
        return page(400, u"Incomplete link"_s,
            u"<h1>This link is incomplete</h1><div class=\"card\"><p>Open the whole link from the mail, or ask for "
            "a new one.</p></div>"_s);
    }
    if (!posted && field(fields, u"to"_s) == u"app"_s) {
        return callbackPage(linkToken);
    }
    if (!posted) {
        // Opening the link uses nothing up, so a mail scanner that follows it signs nobody in.
        return withFormCookie(
            page(200, u"Sign in"_s,
                u"<h1>Sign in to Tamlo</h1><div class=\"card highlighted\"><p>Continue to sign "
                "in to Tamlo in this browser.</p><form method=\"post\" action=\"%1\">%2%3"
                "<button type=\"submit\">Continue</button></form></div>"_s.arg(escaped(link(u"/auth/link"_s)),
                    hiddenInput(u"token"_s, linkToken), hiddenInput(u"csrf"_s, token.value))),
            token);
    }
    if (!formTokenMatches(request, fields)) {
        return withFormCookie(expiredForm(), token);
    }
    if (m_limiter) {
        if (const std::optional<qint64> wait
            = m_limiter->hit(u"exchange:"_s + clientKey(request), RateLimiter::tokenExchangePerClient)) {
            return tooManyRequests(*wait);
        }
        const std::optional<QString> email = m_signIn->linkEmail(linkToken);
        if (const std::optional<qint64> wait = email
                ? m_limiter->hit(u"exchange-email:"_s + *email, RateLimiter::tokenExchangePerEmail)
                : std::nullopt) {
            return tooManyRequests(*wait);
        }
    }
    const SignInService::Verification verification = m_signIn->verify(linkToken, SessionKind::Web);
    switch (verification.outcome) {
    case SignInService::Outcome::UnknownToken:
        return page(400, u"Invalid link"_s,
            u"<h1>This sign-in link is not valid</h1><div class=\"card\"><p>Ask for a new one on the <a "
            "href=\"%1\">sign-in page</a>.</p></div>"_s.arg(escaped(link(u"/login"_s))));
    case SignInService::Outcome::Expired:
        return page(410, u"Link expired"_s,
            u"<h1>This sign-in link has expired</h1><div class=\"card\"><p>A link works once, within 15 minutes. "
            "Ask for a new one on the <a href=\"%1\">sign-in page</a>.</p></div>"_s.arg(escaped(link(u"/login"_s))));
    case SignInService::Outcome::UserNotFound:
        return page(404, u"No account"_s,
            u"<h1>No account has this address</h1><div class=\"card\"><p>Create one on the <a "
            "href=\"%1\">registration page</a>; the link it sends signs you in.</p></div>"_s.arg(
                escaped(link(u"/register"_s))));
    case SignInService::Outcome::SignedIn:
        break;
    }
    HttpReply reply = redirect(link(u"/days"_s));
    reply.headers.emplaceBack(QByteArray("Set-Cookie"),
        WebSecurity::setCookie(
            WebSecurity::sessionCookie, verification.sessionToken, secureCookies(), WebSecurity::sessionMaxAgeSeconds));
    return reply;
}

HttpReply WebPages::formPage(int status, Form form, bool forApp, const FormToken &token, const QString &email,
    const QString &name, const QString &error) const
{
    const bool login = form == Form::Login;
    const QString action = link(login ? u"/login"_s : u"/register"_s);
    const QString other
        = link((login ? u"/register"_s : u"/login"_s) + (forApp ? u"?redirect=tamlo%3A%2F%2Fauth"_s : QString()));
    QString content = login ? u"<h1>Sign in to Tamlo</h1>"_s : u"<h1>Create your Tamlo account</h1>"_s;
    content += u"<div class=\"card\">"_s;
    if (!error.isEmpty()) {
        content += u"<p class=\"error\" role=\"alert\">%1</p>"_s.arg(escaped(error));
    }
    if (m_mailer) {
        content += u"<p class=\"muted\">Enter your e-mail address and Tamlo sends you a link that signs you in: "
                   "no password.</p>"_s;
    } else {
        content += u"<p class=\"muted\">This server runs on your own machine, so your e-mail address is all it "
                   "asks for: no password, and no e-mail is sent.</p>"_s;
    }
    content += u"<form method=\"post\" action=\"%1\">"_s.arg(escaped(action));
    if (forApp) {
        content += hiddenInput(u"redirect"_s, appRedirect);
    }
    // A page re-shown after a refused post keeps the browser's token.
    content += hiddenInput(u"csrf"_s, token.value);
    content += u"<label for=\"email\">E-mail address</label>"
               "<input id=\"email\" name=\"email\" type=\"email\" autocomplete=\"email\" required value=\"%1\">"_s.arg(
                   escaped(email));
    if (!login) {
        content += u"<label for=\"name\">Name <span class=\"muted\">(optional)</span></label>"
                   "<input id=\"name\" name=\"name\" type=\"text\" autocomplete=\"name\" value=\"%1\">"_s.arg(
                       escaped(name));
    }
    content += u"<button type=\"submit\">%1</button></form></div><p class=\"muted\">%2 <a href=\"%3\">%4</a></p>"_s.arg(
        login ? (m_mailer ? u"Send me a link"_s : u"Sign in"_s) : u"Create account"_s,
        login ? u"New to Tamlo?"_s : u"Already have an account?"_s, escaped(other),
        login ? u"Create an account"_s : u"Sign in"_s);
    return page(status, login ? u"Sign in"_s : u"Create account"_s, content);
}

HttpReply WebPages::callbackPage(const QString &token) const
{
    const QString callback = SignInService::appCallback(token).toString(QUrl::FullyEncoded);
    HttpReply reply = page(200, u"Opening Tamlo"_s,
        u"<h1>Opening Tamlo…</h1><div class=\"card highlighted\"><p>Your browser should now offer to open Tamlo, "
        "which then signs you in.</p><a class=\"button\" href=\"%1\">Open Tamlo</a></div>"
        "<h2>If nothing happens</h2><p>Choose <strong>Open Tamlo</strong> above, and if your browser asks "
        "whether to open the link with Tamlo, allow it.</p><p>Still nothing? Your desktop does not know yet that "
        "Tamlo opens <code>tamlo://</code> links: start Tamlo once from its menu entry, then choose <strong>Open "
        "Tamlo</strong> again.</p><p>The link works once, within 15 "
        "minutes. If it has expired, start signing in again from the Tamlo app.</p>"_s.arg(escaped(callback)),
        u"<meta http-equiv=\"refresh\" content=\"0;url=%1\">"_s.arg(escaped(callback)));
    // The page carries a one-time secret: no cache may keep it (and the referrer policy of every
    // page keeps it out of any referrer).
    reply.headers.emplaceBack(QByteArray("Cache-Control"), QByteArray("no-store"));
    return reply;
}

HttpReply WebPages::installationGuide() const
{
    return page(200, u"Installation"_s,
        u"<h1>Installing the local AI</h1><p>Tamlo describes your screen with a vision model that runs on your "
        "own computer under Ollama. Screenshots never leave the machine.</p>"
        "<div class=\"card\"><h2>1. Install Ollama from ollama.com</h2><p>On Linux:</p>"
        "<pre>curl -fsSL https://ollama.com/install.sh | sh</pre><p>The installer starts Ollama as a service. "
        "Tamlo expects it at <code>http://127.0.0.1:11434</code>, where it listens by default; if it is not "
        "running, start it with <code>ollama serve</code>.</p>"
        "<h2>2. Run: ollama pull qwen3-vl:2b</h2><pre>ollama pull qwen3-vl:2b</pre><p>This is Tamlo's default "
        "model. On a machine with more memory you can use the larger one instead:</p>"
        "<pre>ollama pull qwen3-vl:4b</pre><p>Then choose it in Tamlo's settings.</p>"
        "<h2>3. Check</h2><p><code>ollama list</code> shows the model, and Tamlo's settings show "
        "<strong>Model ready</strong>.</p></div>"_s);
}

HttpReply WebPages::home() const
{
    return page(200, u"Server"_s,
        u"<h1>Tamlo server</h1><div class=\"card\"><p>This server keeps the activity that the Tamlo app syncs. "
        "To connect the app, open Tamlo and choose <strong>Sign in</strong> on its sign-in screen.</p>"
        "<p><a class=\"button\" href=\"%1\">See your days</a></p>"
        "<p><a href=\"%2\">Installing the local AI</a></p></div>"_s.arg(
            escaped(link(u"/login"_s)), escaped(link(u"/docs/installation"_s))));
}

HttpReply WebPages::stylesheet()
{
    return HttpReply {200, "text/css; charset=utf-8", QByteArray(styleSheet), {}};
}
