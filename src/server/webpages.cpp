#include "server/webpages.h"

#include "server/signinservice.h"

#include <QHttpServerRequest>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace {
QString escaped(const QString &text)
{
    return text.toHtmlEscaped();
}

// application/x-www-form-urlencoded: '+' is a space, the rest is percent-encoded UTF-8.
QUrlQuery formFields(const QByteArray &body)
{
    QByteArray text = body;
    text.replace('+', ' ');
    return QUrlQuery(QString::fromUtf8(text));
}

QString field(const QUrlQuery &fields, const QString &name)
{
    return fields.queryItemValue(name, QUrl::FullyDecoded);
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

HttpReply WebPages::page(int status, const QString &title, const QString &content, const QString &head) const
{
    return HttpReply::html(status,
        u"<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
        "<title>%1 · Tamlo</title><link rel=\"stylesheet\" href=\"%2\">%3</head>"
        "<body><main>%4</main></body></html>\n"_s.arg(escaped(title), escaped(link(u"/style.css"_s)), head, content));
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
    if (!m_localSignIn) {
        return page(403, u"Sign-in"_s,
            u"<h1>This server signs people in another way</h1><div class=\"card\"><p>Signing in by typing an "
            "address is only offered while the server is reachable from this machine alone, and this server is "
            "not.</p><p>Ask whoever runs it for a sign-in link; they can make one with "
            "<code>tamlo-server login-link</code> followed by your address.</p></div>"_s);
    }
    const bool posted = request.method() == QHttpServerRequest::Method::Post;
    const QUrlQuery fields = posted ? formFields(request.body()) : QUrlQuery(request.url());
    if (!fields.hasQueryItem(u"redirect"_s)) {
        return page(400, u"Start in the app"_s,
            u"<h1>Start signing in from the Tamlo app</h1><div class=\"card\"><p>Open Tamlo and choose "
            "<strong>Sign in</strong> or <strong>Create account</strong> on its sign-in screen. It opens this "
            "page with the address to call it back at, which this page needs.</p></div>"_s);
    }
    if (field(fields, u"redirect"_s) != appRedirect) {
        return page(400, u"Refused"_s,
            u"<h1>This sign-in page only returns to the Tamlo app</h1><div class=\"card\"><p>The page was "
            "opened with a request to send you somewhere other than the Tamlo app, so it was refused and no "
            "sign-in link was made.</p><p>Start signing in again from the Tamlo app.</p></div>"_s);
    }
    if (!posted) {
        return formPage(200, form, QString(), QString(), QString());
    }
    const QString email = SignInService::normalizedEmail(field(fields, u"email"_s));
    const QString name = field(fields, u"name"_s).trimmed();
    if (!SignInService::isValidEmail(email)) {
        return formPage(400, form, field(fields, u"email"_s), name, u"Please enter a valid e-mail address."_s);
    }
    if (name.size() > SignInService::maxNameLength) {
        return formPage(400, form, email, name,
            u"Please keep the name to %1 characters or fewer."_s.arg(SignInService::maxNameLength));
    }
    if (form == Form::Register) {
        m_signIn->registerUser(email, name.isEmpty() ? std::nullopt : std::optional<QString>(name));
    }
    return callbackPage(m_signIn->createLink(email));
}

HttpReply WebPages::formPage(
    int status, Form form, const QString &email, const QString &name, const QString &error) const
{
    const bool login = form == Form::Login;
    const QString action = link(login ? u"/login"_s : u"/register"_s);
    const QString other = link((login ? u"/register"_s : u"/login"_s) + u"?redirect=tamlo%3A%2F%2Fauth"_s);
    QString content = login ? u"<h1>Sign in to Tamlo</h1>"_s : u"<h1>Create your Tamlo account</h1>"_s;
    content += u"<div class=\"card\">"_s;
    if (!error.isEmpty()) {
        content += u"<p class=\"error\" role=\"alert\">%1</p>"_s.arg(escaped(error));
    }
    content += u"<p class=\"muted\">This server runs on your own machine, so your e-mail address is all it "
               "asks for: no password, and no e-mail is sent.</p>"
               "<form method=\"post\" action=\"%1\"><input type=\"hidden\" name=\"redirect\" value=\"%2\">"
               "<label for=\"email\">E-mail address</label>"
               "<input id=\"email\" name=\"email\" type=\"email\" autocomplete=\"email\" required value=\"%3\">"_s.arg(
                   escaped(action), escaped(appRedirect), escaped(email));
    if (!login) {
        content += u"<label for=\"name\">Name <span class=\"muted\">(optional)</span></label>"
                   "<input id=\"name\" name=\"name\" type=\"text\" autocomplete=\"name\" value=\"%1\">"_s.arg(
                       escaped(name));
    }
    content += u"<button type=\"submit\">%1</button></form></div><p class=\"muted\">%2 <a href=\"%3\">%4</a></p>"_s.arg(
        login ? u"Sign in"_s : u"Create account"_s, login ? u"New to Tamlo?"_s : u"Already have an account?"_s,
        escaped(other), login ? u"Create an account"_s : u"Sign in"_s);
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
    // The page carries a one-time secret: no cache may keep it, and no referrer may leak it.
    reply.headers.emplaceBack(QByteArray("Cache-Control"), QByteArray("no-store"));
    reply.headers.emplaceBack(QByteArray("Referrer-Policy"), QByteArray("no-referrer"));
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
        "To sign in, open Tamlo and choose <strong>Sign in</strong> on its sign-in screen.</p>"
        "<p><a href=\"%1\">Installing the local AI</a></p></div>"_s.arg(escaped(link(u"/docs/installation"_s))));
}

HttpReply WebPages::stylesheet()
{
    return HttpReply {200, "text/css; charset=utf-8", QByteArray(styleSheet), {}};
}
