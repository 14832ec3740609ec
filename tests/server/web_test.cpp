// The signed-in pages and what keeps strangers out: form tokens, cookies, headers, rate limits,
// no address enumeration, revocation, export and deletion, on every engine.
#include "server/accountpages.h"
#include "server/cappedtcpserver.h"
#include "server/ratelimiter.h"
#include "server/smtpmailer.h"
#include "serverfixture.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QProcess>
#include <QSqlQuery>
#include <QSqlRecord>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {
void pause(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

const QByteArray uploadBody
    = R"({"timezone":"Europe/Berlin","deviceId":"5D0A3C7E-1B42-4F6A-8E9D-7C21B04F6A11","backfillComplete":false,)"
      R"("days":[{"date":"2026-11-16","snapshots":[{"id":"6F1C0E2A-8B3D-4E57-9A10-2C4D7B1E3F90",)"
      R"("timestamp":"2026-11-16T09:30:12Z","activityType":"Coding","projectName":"Website",)"
      R"("activityDescription":"Editing checkout.css, in the editor.","userNote":"fixed the header"},)"
      R"({"id":"A14B9E33-0C5D-4D21-B7F8-90E6C3D2F118","timestamp":"2026-11-16T12:01:00Z","activityType":"Other",)"
      R"("projectName":"Other","activityDescription":"Screen Locked"}]}]})";
} // namespace

// A browser of its own: its own cookies, redirects not followed, so that every reply is seen.
class Browser
{
public:
    explicit Browser(QUrl base) : m_base(std::move(base)) { m_nam.setCookieJar(new QNetworkCookieJar(&m_nam)); }

    HttpResult get(const QString &path) { return finished(m_nam.get(request(path))); }
    HttpResult post(const QString &path, const QList<std::pair<QString, QString>> &fields)
    {
        QNetworkRequest r = request(path);
        r.setHeader(QNetworkRequest::ContentTypeHeader, QByteArray("application/x-www-form-urlencoded"));
        return finished(m_nam.post(r, formBody(fields)));
    }
    // The form token of the page at path, fetched as a browser does before it posts.
    QString formToken(const QString &path) { return ::formToken(get(path)); }
    [[nodiscard]] bool hasCookie(const QString &name) const
    {
        const QList<QNetworkCookie> cookies = m_nam.cookieJar()->cookiesForUrl(m_base);
        return std::any_of(
            cookies.begin(), cookies.end(), [&](const QNetworkCookie &c) { return c.name() == name.toLatin1(); });
    }

private:
    QNetworkRequest request(const QString &path) const
    {
        QNetworkRequest r(m_base.resolved(QUrl(path)));
        r.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
        return r;
    }

    QUrl m_base;
    QNetworkAccessManager m_nam;
};

class WebTest : public ServerTest
{
protected:
    void SetUp() override
    {
        ServerTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        limiter = std::make_unique<RateLimiter>(&clock);
        api->setRateLimiter(limiter.get());
        pages->setRateLimiter(limiter.get());
        account = std::make_unique<AccountPages>(storage.get(), pages.get(), &clock);
        server->setAccountPages(account.get());
    }

    // Local mode without a redirect: the form signs the browser in.
    void signIn(Browser &browser, const QString &email)
    {
        const QString token = browser.formToken(u"/register"_s);
        const HttpResult reply = browser.post(u"/register"_s, {{u"csrf"_s, token}, {u"email"_s, email}});
        ASSERT_EQ(reply.status, 303) << reply.text().toStdString();
        ASSERT_TRUE(reply.header("Location").endsWith("/days"));
    }

    std::unique_ptr<RateLimiter> limiter;
    std::unique_ptr<AccountPages> account;
};

TEST_P(WebTest, FormPostsWithoutTheirOwnSessionsTokenAreRefusedAndChangeNothing)
{
    Browser ada(baseUrl);
    Browser eve(baseUrl);
    signIn(ada, u"ada@example.org"_s);
    signIn(eve, u"eve@example.org"_s);
    const QString adaId = storage->userByEmail(u"ada@example.org"_s)->id;
    const QString evesToken = eve.formToken(u"/sync"_s);
    const QString adasToken = ada.formToken(u"/sync"_s);
    ASSERT_FALSE(adasToken.isEmpty());

    EXPECT_EQ(ada.post(u"/sync"_s, {}).status, 403);
    EXPECT_EQ(ada.post(u"/sync"_s, {{u"csrf"_s, evesToken}}).status, 403);
    EXPECT_EQ(
        ada.post(u"/account/delete"_s, {{u"csrf"_s, evesToken}, {u"confirm"_s, u"ada@example.org"_s}}).status, 403);
    EXPECT_EQ(storage->syncRequestedAt(adaId), std::nullopt);
    EXPECT_TRUE(storage->userByEmail(u"ada@example.org"_s).has_value());

    const HttpResult accepted = ada.post(u"/sync"_s, {{u"csrf"_s, adasToken}});
    EXPECT_EQ(accepted.status, 303);
    EXPECT_EQ(storage->syncRequestedAt(adaId), clock.now().toMSecsSinceEpoch());

    // Before signing in as well: a sign-in post needs the token its own form set in this browser.
    Browser stranger(baseUrl);
    const QString foreign = ada.formToken(u"/login"_s);
    EXPECT_EQ(stranger.post(u"/login"_s, {{u"csrf"_s, foreign}, {u"email"_s, u"ada@example.org"_s}}).status, 403);
    EXPECT_FALSE(stranger.hasCookie(u"tamlo_session"_s));
}

TEST_P(WebTest, CookiesAreHttpOnlyLaxAndSecureOnlyOverHttps)
{
    Browser browser(baseUrl);
    const HttpResult form = browser.get(u"/login"_s);
    EXPECT_EQ(
        form.header("Set-Cookie"), "tamlo_form=" + formToken(form).toLatin1() + "; Path=/; HttpOnly; SameSite=Lax");
    const HttpResult signedIn
        = browser.post(u"/register"_s, {{u"csrf"_s, formToken(form)}, {u"email"_s, u"ada@example.org"_s}});
    const QByteArray session = signedIn.header("Set-Cookie");
    EXPECT_TRUE(session.startsWith("tamlo_session=")) << session.toStdString();
    EXPECT_TRUE(session.endsWith("; Path=/; HttpOnly; SameSite=Lax; Max-Age=2592000")) << session.toStdString();
    // Only a digest is stored.
    const QString token = QString::fromLatin1(session.mid(14, 43));
    EXPECT_EQ(backend->scalar(u"SELECT COUNT(*) FROM sessions WHERE token_digest = '%1'"_s.arg(token)).toInt(), 0);

    pages->setPublicUrl(QUrl(u"https://tamlo.example"_s));
    Browser secure(baseUrl);
    const HttpResult httpsForm = secure.get(u"/login"_s);
    EXPECT_TRUE(httpsForm.header("Set-Cookie").endsWith("; HttpOnly; SameSite=Lax; Secure"));
    const HttpResult httpsSignedIn
        = secure.post(u"/register"_s, {{u"csrf"_s, formToken(httpsForm)}, {u"email"_s, u"eve@example.org"_s}});
    EXPECT_TRUE(httpsSignedIn.header("Set-Cookie").contains("; Secure"))
        << httpsSignedIn.header("Set-Cookie").toStdString();
}

TEST_P(WebTest, EveryReplyCarriesTheSecurityHeaders)
{
    Browser browser(baseUrl);
    signIn(browser, u"ada@example.org"_s);
    QList<HttpResult> replies;
    for (const QString &path :
        {u"/"_s, u"/login"_s, u"/register?redirect=tamlo://auth"_s, u"/docs/installation"_s, u"/style.css"_s,
            u"/days"_s, u"/days/2026-11-16"_s, u"/sync"_s, u"/devices"_s, u"/export"_s, u"/export/tamlo-data.json"_s,
            u"/account"_s, u"/auth/link?token=x"_s, u"/no/such/page"_s, u"/activity/status"_s}) {
        replies.append(browser.get(path));
    }
    replies.append(browser.post(u"/sync"_s, {}));
    for (const HttpResult &reply : replies) {
        EXPECT_EQ(reply.header("Content-Security-Policy"),
            "default-src 'none'; style-src 'self'; img-src 'self'; form-action 'self'; base-uri 'none'; "
            "frame-ancestors 'none'");
        EXPECT_EQ(reply.header("X-Frame-Options"), "DENY");
        EXPECT_EQ(reply.header("Referrer-Policy"), "no-referrer");
        EXPECT_EQ(reply.header("X-Content-Type-Options"), "nosniff");
        // No page has a script, nor a style of its own.
        EXPECT_FALSE(reply.text().contains(u"<script"_s));
        EXPECT_FALSE(reply.text().contains(u"style=\""_s));
    }
}

TEST_P(WebTest, RateLimitsAnswer429WithRetryAfterAndRecover)
{
    Browser browser(baseUrl);
    const QString token = browser.formToken(u"/login?redirect=tamlo://auth"_s);
    auto ask = [&](const QString &email) {
        return browser.post(u"/login"_s, {{u"redirect"_s, u"tamlo://auth"_s}, {u"csrf"_s, token}, {u"email"_s, email}});
    };
    // One address: five links in half an hour.
    for (int i = 0; i < RateLimiter::signInPerEmail.limit; ++i) {
        ASSERT_EQ(ask(u"ada@example.org"_s).status, 200);
    }
    const HttpResult limited = ask(u"ADA@example.org"_s);
    EXPECT_EQ(limited.status, 429);
    EXPECT_EQ(limited.header("Retry-After"), "1800");
    EXPECT_TRUE(limited.text().contains(u"Too many attempts"_s));
    EXPECT_EQ(ask(u"bob@example.org"_s).status, 200);

    // One client: twenty posts in ten minutes, whatever the addresses (seven so far, the refused one too).
    for (int i = 7; i < RateLimiter::signInPerClient.limit - 1; ++i) {
        ASSERT_EQ(ask(u"user%1@example.org"_s.arg(i)).status, 200) << i;
    }
    ASSERT_EQ(ask(u"carol@example.org"_s).status, 200);
    const HttpResult clientLimited = ask(u"dave@example.org"_s);
    EXPECT_EQ(clientLimited.status, 429);
    EXPECT_EQ(clientLimited.header("Retry-After"), "600");
    clock.advance(599);
    EXPECT_EQ(ask(u"dave@example.org"_s).header("Retry-After"), "1");
    clock.advance(1);
    EXPECT_EQ(ask(u"dave@example.org"_s).status, 200);
    clock.advance(30 * 60);
    EXPECT_EQ(ask(u"ada@example.org"_s).status, 200);

    // The token exchange: a flat JSON error, and guessing stops.
    for (int i = 0; i < RateLimiter::tokenExchangePerClient.limit; ++i) {
        ASSERT_EQ(send("POST", u"/auth/verify-token"_s, tokenBody(u"guess-%1"_s.arg(i))).status, 401);
    }
    const HttpResult guessing = send("POST", u"/auth/verify-token"_s, tokenBody(u"guess"_s));
    EXPECT_EQ(guessing.status, 429);
    EXPECT_EQ(guessing.body, R"({"error":"Too many sign-in attempts; try again later"})");
    clock.advance(10 * 60);
    EXPECT_EQ(send("POST", u"/auth/verify-token"_s, tokenBody(u"guess"_s)).status, 401);

    // Per address too: links made for one address can be tried ten times in half an hour.
    QStringList links;
    for (int i = 0; i < RateLimiter::tokenExchangePerEmail.limit + 1; ++i) {
        links.append(ServerTest::signIn->createLink(u"zoe@example.org"_s));
    }
    for (int i = 0; i < RateLimiter::tokenExchangePerEmail.limit; ++i) {
        ASSERT_EQ(send("POST", u"/auth/verify-token"_s, tokenBody(links[i])).status, 404);
    }
    const HttpResult perAddress = send("POST", u"/auth/verify-token"_s, tokenBody(links.last()));
    EXPECT_EQ(perAddress.status, 429);
    EXPECT_EQ(send("POST", u"/auth/verify-token"_s, tokenBody(u"guess"_s)).status, 401);
}

TEST_P(WebTest, RevokingASessionLocksItsAppOutAtOnce)
{
    const QString appSession = sessionFor(u"ada@example.org"_s);
    ASSERT_EQ(send("POST", u"/activity/sync"_s, uploadBody, appSession).status, 200);
    Browser browser(baseUrl);
    signIn(browser, u"ada@example.org"_s);
    const HttpResult devices = browser.get(u"/devices"_s);
    EXPECT_TRUE(devices.text().contains(u"Tamlo app on <code>5D0A3C7E</code>"_s)) << devices.text().toStdString();
    // Every time names its zone: the device's last upload in its own, the sessions' in UTC.
    EXPECT_TRUE(devices.text().contains(u"<td>16 Nov 2026, 11:00 Europe/Berlin</td>"_s));
    EXPECT_TRUE(devices.text().contains(u"<td>16 Nov 2026, 10:00 UTC</td>"_s));
    const QList<SessionRecord> sessions = storage->sessions(storage->userByEmail(u"ada@example.org"_s)->id);
    const auto app = std::find_if(
        sessions.begin(), sessions.end(), [](const SessionRecord &s) { return s.kind == SessionKind::App; });
    ASSERT_NE(app, sessions.end());
    ASSERT_TRUE(devices.text().contains(app->publicId));

    const HttpResult revoked
        = browser.post(u"/sessions/sign-out"_s, {{u"csrf"_s, formToken(devices)}, {u"session"_s, app->publicId}});
    EXPECT_EQ(revoked.status, 303);
    EXPECT_EQ(send("POST", u"/activity/sync"_s, uploadBody, appSession).status, 401);
    EXPECT_EQ(send("GET", u"/auth/me"_s, {}, appSession).status, 401);
    // The browser's own session goes on; another user's session cannot be named from here.
    EXPECT_EQ(browser.get(u"/days"_s).status, 200);
    const QString eves = sessionFor(u"eve@example.org"_s);
    const QString eveId = storage->sessions(storage->userByEmail(u"eve@example.org"_s)->id).value(0).publicId;
    browser.post(u"/sessions/sign-out"_s, {{u"csrf"_s, browser.formToken(u"/devices"_s)}, {u"session"_s, eveId}});
    EXPECT_EQ(send("GET", u"/auth/me"_s, {}, eves).status, 200);
}

TEST_P(WebTest, ExportHoldsExactlyWhatWasUploaded)
{
    const QString appSession = sessionFor(u"ada@example.org"_s);
    ASSERT_EQ(send("POST", u"/activity/sync"_s, uploadBody, appSession).status, 200);
    Browser browser(baseUrl);
    signIn(browser, u"ada@example.org"_s);

    const HttpResult json = browser.get(u"/export/tamlo-data.json"_s);
    EXPECT_EQ(json.status, 200);
    EXPECT_EQ(json.header("Content-Disposition"), "attachment; filename=\"tamlo-data.json\"");
    const QJsonObject exported = QJsonDocument::fromJson(json.body).object();
    EXPECT_EQ(exported[u"days"_s].toArray(), QJsonDocument::fromJson(uploadBody).object()[u"days"_s].toArray());
    EXPECT_EQ(exported[u"user"_s][u"email"_s].toString(), u"ada@example.org"_s);

    const HttpResult csv = browser.get(u"/export/tamlo-days.csv"_s);
    EXPECT_EQ(csv.status, 200);
    // The app's work-log columns, and its rule for commas in texts.
    EXPECT_EQ(csv.text(),
        u"Timestamp,Category,Project,Summary,Note\n"
        "2026-11-16T09:30:12Z,Coding,Website,Editing checkout.css  in the editor.,fixed the header\n"
        "2026-11-16T12:01:00Z,Other,Other,Screen Locked,"_s);

    // A day's page: the figures of the report arithmetic, the lock as a gap, the device's zone.
    const HttpResult day = browser.get(u"/days/2026-11-16"_s);
    EXPECT_TRUE(day.text().contains(u"<td class=\"time\">10:30</td>"_s)) << day.text().toStdString();
    EXPECT_TRUE(
        day.text().contains(u"<tr class=\"gap\"><td class=\"time\">13:01</td><td colspan=\"2\">Screen locked"_s));
    EXPECT_TRUE(day.text().contains(u"Times in Europe/Berlin"_s));
    // Two private ticks: one row with their span, and a minute of worked time under Other.
    QByteArray privateDay = uploadBody;
    privateDay.replace("6F1C0E2A", "6F1C0E2B")
        .replace("A14B9E33", "A14B9E34")
        .replace("2026-11-16", "2026-11-17")
        .replace("Screen Locked", "Private")
        .replace(R"("Coding")", R"("Other")");
    privateDay.replace(R"("Website")", R"("Other")").replace("Editing checkout.css, in the editor.", "Private");
    ASSERT_EQ(send("POST", u"/activity/sync"_s, privateDay, appSession).status, 200);
    const QString unseen = browser.get(u"/days/2026-11-17"_s).text();
    EXPECT_TRUE(unseen.contains(u"<td class=\"time\">10:30</td><td colspan=\"2\">Private until 13:01</td>"_s))
        << unseen.toStdString();
    EXPECT_TRUE(unseen.contains(u"<p class=\"figure\">1m active</p>"_s));
    EXPECT_EQ(browser.get(u"/days/2026-02-30"_s).status, 404);
    EXPECT_EQ(browser.get(u"/days/..%2F..%2Fetc"_s).status, 404);
}

// Each run of one marker is one gap named for it; a marker this server does not know is a text.
TEST_P(WebTest, DayPageNamesEachRunOfMarkersAndShowsUnknownOnesAsText)
{
    QByteArray body = uploadBody;
    QByteArray records;
    int second = 0;
    for (const char *marker : {"Away", "Away", "Away", "Screen Shared", "Screen Locked"}) {
        records += R"(,{"id":"00000000-0000-4000-8000-0000000000)" + QByteArray::number(10 + second)
            + R"(","timestamp":"2026-11-16T12:3)" + QByteArray::number(second / 2) + (second % 2 ? ":30Z" : ":00Z")
            + R"(","activityType":"Other","projectName":"Other","activityDescription":")" + marker + "\"}";
        ++second;
    }
    body.insert(body.lastIndexOf("]}]}"), records);
    ASSERT_EQ(send("POST", u"/activity/sync"_s, body, sessionFor(u"ada@example.org"_s)).status, 200);
    Browser browser(baseUrl);
    signIn(browser, u"ada@example.org"_s);
    const QString page = browser.get(u"/days/2026-11-16"_s).text();
    EXPECT_TRUE(page.contains(u"<td class=\"time\">13:30</td><td colspan=\"2\">Away until 13:31</td></tr><tr><td "_s
                              "class=\"time\">13:31</td><td><span class=\"tag\">Other</span> <span class=\"tag "
                              "project\">Other</span></td><td>Screen Shared</td></tr><tr class=\"gap\"><td "
                              "class=\"time\">13:32</td><td colspan=\"2\">Screen locked</td>"_s))
        << page.toStdString();
}

TEST_P(WebTest, DeletingTheAccountLeavesNoRowOfItsDataAndEndsEverySession)
{
    const QString appSession = sessionFor(u"ada@example.org"_s);
    ASSERT_EQ(send("POST", u"/activity/sync"_s, uploadBody, appSession).status, 200);
    const QString eveSession = sessionFor(u"eve@example.org"_s);
    ASSERT_EQ(send("POST", u"/activity/sync"_s, uploadBody, eveSession).status, 200);
    Browser browser(baseUrl);
    signIn(browser, u"ada@example.org"_s);
    const ServerUser ada = *storage->userByEmail(u"ada@example.org"_s);
    storage->requestSync(ada.id, 1);
    const QString token = browser.formToken(u"/account"_s);

    EXPECT_EQ(
        browser.post(u"/account/delete"_s, {{u"csrf"_s, token}, {u"confirm"_s, u"eve@example.org"_s}}).status, 400);
    const HttpResult deleted
        = browser.post(u"/account/delete"_s, {{u"csrf"_s, token}, {u"confirm"_s, u" Ada@Example.org"_s}});
    EXPECT_EQ(deleted.status, 200);
    EXPECT_TRUE(deleted.header("Set-Cookie").startsWith("tamlo_session=; "));

    // Every table, every column: neither the id nor the address is left, but in the sign-in links,
    // which belong to the address and not to the account.
    QSqlDatabase db = storage->database();
    for (const QString &table : db.tables()) {
        if (table == u"sign_in_links"_s || table == u"schema_version"_s) {
            continue;
        }
        const QSqlRecord columns = db.record(table);
        for (int i = 0; i < columns.count(); ++i) {
            QSqlQuery query(db);
            query.prepare(
                u"SELECT COUNT(*) FROM %1 WHERE CAST(%2 AS TEXT) IN (?, ?)"_s.arg(table, columns.fieldName(i)));
            query.addBindValue(ada.id);
            query.addBindValue(ada.email);
            ASSERT_TRUE(query.exec() && query.next()) << table.toStdString();
            EXPECT_EQ(query.value(0).toInt(), 0) << table.toStdString() << "." << columns.fieldName(i).toStdString();
        }
    }
    // Eve's rows all stay.
    for (const auto &[table, rows] : {std::pair {u"snapshots"_s, 2}, {u"devices"_s, 1}, {u"sessions"_s, 1}}) {
        EXPECT_EQ(backend->scalar(u"SELECT COUNT(*) FROM %1"_s.arg(table)).toInt(), rows) << table.toStdString();
    }
    EXPECT_EQ(send("POST", u"/activity/sync"_s, uploadBody, appSession).status, 401);
    EXPECT_EQ(browser.get(u"/days"_s).status, 303);
    EXPECT_EQ(send("GET", u"/auth/me"_s, {}, eveSession).status, 200);
}

TEST_P(WebTest, SignedOutBrowsersAreSentToSignInAndLimitsHoldAtTheSocket)
{
    {
        Browser browser(baseUrl);
        const HttpResult days = browser.get(u"/days"_s);
        EXPECT_EQ(days.status, 303);
        EXPECT_TRUE(days.header("Location").endsWith("/login"));
        EXPECT_EQ(browser.post(u"/sync"_s, {}).status, 403);
    }
    pause(100); // the browser's keep-alive connections are closed with it

    // One client holds a bounded number of connections.
    std::vector<std::unique_ptr<QTcpSocket>> sockets;
    for (int i = 0; i < CappedTcpServer::maxConnectionsPerClient; ++i) {
        sockets.push_back(std::make_unique<QTcpSocket>());
        sockets.back()->connectToHost(QHostAddress::LocalHost, server->port());
        pause(2); // the server takes each one, so the listen queue never fills
    }
    pause(200);
    for (const auto &socket : sockets) {
        ASSERT_EQ(socket->state(), QAbstractSocket::ConnectedState);
    }
    const QByteArray refused = sendRaw("GET /activity/status HTTP/1.1\r\nHost: x\r\n\r\n");
    EXPECT_TRUE(refused.startsWith("HTTP/1.1 429 ")) << refused.toStdString();
    EXPECT_TRUE(refused.contains("Retry-After: "));
    sockets.clear();
    pause(100);
    const QByteArray again = sendRaw("GET /activity/status HTTP/1.1\r\nHost: x\r\n\r\n");
    EXPECT_TRUE(again.startsWith("HTTP/1.1 401 ")) << again.toStdString();

    // A form is small: a larger body is turned away before it is read.
    const QByteArray large = sendRaw("POST /login HTTP/1.1\r\nHost: x\r\nContent-Length: 70000\r\n\r\n");
    EXPECT_TRUE(large.startsWith("HTTP/1.1 413 ")) << large.toStdString();
}

// E-mail sign-in with a real SMTP peer: aiosmtpd on 127.0.0.1, printing each mail it takes.
class EmailSignInTest : public WebTest
{
protected:
    void SetUp() override
    {
        localSignIn = false;
        WebTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        QTcpServer probe;
        ASSERT_TRUE(probe.listen(QHostAddress::LocalHost, 0));
        const quint16 port = probe.serverPort();
        probe.close();
        smtp.start(u"/usr/bin/python3"_s,
            {u"-u"_s, u"-m"_s, u"aiosmtpd"_s, u"-n"_s, u"-l"_s, u"127.0.0.1:%1"_s.arg(port), u"-c"_s,
                u"aiosmtpd.handlers.Debugging"_s, u"stdout"_s});
        if (!smtp.waitForStarted(5000)) {
            GTEST_SKIP() << "python3 is not installed";
        }
        bool up = false;
        for (int i = 0; i < 50 && !up; ++i) {
            QTcpSocket probeSocket;
            probeSocket.connectToHost(QHostAddress::LocalHost, port);
            up = probeSocket.waitForConnected(200);
            if (!up) {
                pause(100);
            }
            if (smtp.state() == QProcess::NotRunning) {
                GTEST_SKIP() << "python3-aiosmtpd is not installed";
            }
        }
        ASSERT_TRUE(up);
        mailer = std::make_unique<SmtpMailer>(SmtpSettings {
            u"127.0.0.1"_s, port, SmtpSettings::Security::None, {}, {}, {u"Tamlo"_s, u"tamlo@localhost"_s}});
        pages->setMailer(mailer.get());
    }

    void TearDown() override
    {
        mailer.reset();
        smtp.kill();
        smtp.waitForFinished(5000);
        WebTest::TearDown();
    }

    // The links of all mails caught so far, in order.
    QStringList mailedLinks()
    {
        mailer->waitForAll();
        pause(200);
        mails += QString::fromUtf8(smtp.readAllStandardOutput());
        static const QRegularExpression link(u"http://\\S+/auth/link\\?\\S+"_s);
        QStringList links;
        for (auto it = link.globalMatch(mails); it.hasNext();) {
            links.append(it.next().captured(0));
        }
        return links;
    }

    QProcess smtp;
    QString mails;
    std::unique_ptr<SmtpMailer> mailer;
};

TEST_P(EmailSignInTest, KnownAndUnknownAddressesGetTheSamePageInTheSameTime)
{
    storage->createUser(u"ada@example.org"_s, std::nullopt, 0);
    Browser browser(baseUrl);
    int asked = 0;
    for (const QString &path : {u"/login"_s, u"/register"_s}) {
        const QString token = browser.formToken(path);
        auto ask = [&](const QString &email) {
            QElapsedTimer timer;
            timer.start();
            const HttpResult reply = browser.post(path, {{u"csrf"_s, token}, {u"email"_s, email}});
            ++asked;
            return std::pair {reply, timer.nsecsElapsed()};
        };
        QList<qint64> known;
        QList<qint64> unknown;
        for (int i = 0; i < 4; ++i) {
            const QString stranger = u"nobody%1@example.org"_s.arg(asked);
            const auto [a, aTime] = ask(u"ada@example.org"_s);
            const auto [b, bTime] = ask(stranger);
            ASSERT_EQ(a.status, 200);
            ASSERT_EQ(b.status, 200);
            EXPECT_EQ(a.text(), b.text().replace(stranger, u"ada@example.org"_s)) << path.toStdString();
            known.append(aTime);
            unknown.append(bTime);
        }
        std::sort(known.begin(), known.end());
        std::sort(unknown.begin(), unknown.end());
        // Mail goes out in the background: neither reply waits for it, so both take the same few milliseconds.
        const qint64 slower = std::max(known[1], unknown[1]);
        const qint64 faster = std::min(known[1], unknown[1]);
        EXPECT_LT(slower, faster * 3 + 20'000'000) << path.toStdString() << ": " << known[1] << " vs " << unknown[1];
        clock.advance(60 * 60); // past the per-address limit for the next round
    }
    EXPECT_EQ(mailedLinks().size(), asked);
}

TEST_P(EmailSignInTest, TheMailedLinkSignsTheBrowserInOnceOrHandsTheAppItsToken)
{
    Browser browser(baseUrl);
    const HttpResult registered = browser.post(
        u"/register"_s, {{u"csrf"_s, browser.formToken(u"/register"_s)}, {u"email"_s, u"ada@example.org"_s}});
    ASSERT_EQ(registered.status, 200);
    EXPECT_TRUE(registered.text().contains(u"Check your e-mail"_s));
    EXPECT_FALSE(browser.hasCookie(u"tamlo_session"_s));
    const QStringList links = mailedLinks();
    ASSERT_EQ(links.size(), 1);
    // A sender with a name: the mail server took the bare address, and the name stays in From:.
    EXPECT_TRUE(mails.contains(u"\nFrom: Tamlo <tamlo@localhost>\n"_s)) << mails.toStdString();
    EXPECT_TRUE(QRegularExpression(u"\nMessage-ID: <[0-9a-f-]{36}@localhost>\n"_s).match(mails).hasMatch());
    EXPECT_EQ(mailer->check(), QString());
    const QString path = QUrl(links[0]).toString(QUrl::RemoveScheme | QUrl::RemoveAuthority);

    // Opening the link (as a mail scanner would) uses nothing up; its form does.
    const HttpResult landing = browser.get(path);
    EXPECT_EQ(landing.status, 200);
    const QString linkToken = QUrlQuery(QUrl(links[0])).queryItemValue(u"token"_s);
    EXPECT_EQ(browser.post(u"/auth/link"_s, {{u"token"_s, linkToken}}).status, 403);
    const HttpResult signedIn
        = browser.post(u"/auth/link"_s, {{u"csrf"_s, formToken(landing)}, {u"token"_s, linkToken}});
    EXPECT_EQ(signedIn.status, 303);
    EXPECT_EQ(browser.get(u"/days"_s).status, 200);
    EXPECT_EQ(browser.post(u"/auth/link"_s, {{u"csrf"_s, formToken(landing)}, {u"token"_s, linkToken}}).status, 410);

    // From the app: the page hands the token on to tamlo://auth, and the app exchanges it.
    const HttpResult appForm = browser.get(u"/login?redirect=tamlo://auth"_s);
    browser.post(u"/login"_s,
        {{u"redirect"_s, u"tamlo://auth"_s}, {u"csrf"_s, formToken(appForm)}, {u"email"_s, u"ada@example.org"_s}});
    const QString appLink = mailedLinks().value(1);
    ASSERT_TRUE(appLink.contains(u"to=app"_s)) << appLink.toStdString();
    const HttpResult handOver = browser.get(QUrl(appLink).toString(QUrl::RemoveScheme | QUrl::RemoveAuthority));
    const std::optional<QString> callback = callbackToken(handOver);
    ASSERT_TRUE(callback.has_value());
    EXPECT_EQ(send("POST", u"/auth/verify-token"_s, tokenBody(*callback)).status, 200);
}

INSTANTIATE_TEST_SUITE_P(Server, WebTest, ::testing::ValuesIn(testBackends()), backendName);
INSTANTIATE_TEST_SUITE_P(Server, EmailSignInTest, ::testing::ValuesIn(testBackends()), backendName);
