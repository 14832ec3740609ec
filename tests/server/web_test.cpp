#include "serverfixture.h"

#include <QSqlRecord>

namespace {
// Ada's morning as the app uploads it: a record with a note, then the screen locked.
QByteArray adasDay()
{
    QJsonObject coding = record(u"6F1C0E2A-8B3D-4E57-9A10-2C4D7B1E3F90"_s, u"2026-11-16T09:30:12Z"_s);
    coding.insert(u"userNote"_s, u"fixed the header"_s);
    const QJsonObject locked
        = record(u"A14B9E33-0C5D-4D21-B7F8-90E6C3D2F118"_s, u"2026-11-16T12:01:00Z"_s, u"Other"_s, u"Screen Locked"_s);
    return bytes(upload({day(u"2026-11-16"_s, {coding, locked})}));
}
} // namespace

using WebTest = ServerTest;

TEST_F(WebTest, FormPostsWithoutTheirOwnSessionsTokenAreRefusedAndChangeNothing)
{
    Client eve(base);
    signIn(adaMail);
    eve.signIn(eveMail);
    const QString adaId = storage->userByEmail(adaMail)->id;
    QString firstWrong = formToken(u"/sync"_s);
    firstWrong[0] = firstWrong[0] == u'A' ? u'B' : u'A';
    for (const QString &token : {QString(), eve.formToken(u"/sync"_s), firstWrong}) {
        EXPECT_EQ(post(u"/sync"_s, {{u"csrf"_s, token}}).status, 403);
        EXPECT_EQ(post(u"/account/delete"_s, {{u"csrf"_s, token}, {u"confirm"_s, adaMail}}).status, 403);
    }
    EXPECT_EQ(storage->syncRequestedAt(adaId), std::nullopt);
    EXPECT_TRUE(storage->userByEmail(adaMail).has_value());
    EXPECT_EQ(post(u"/sync"_s, {{u"csrf"_s, formToken(u"/sync"_s)}}).status, 303);
    EXPECT_EQ(storage->syncRequestedAt(adaId), clock.now().toMSecsSinceEpoch());
    EXPECT_EQ(post(u"/export"_s, {{u"csrf"_s, formToken(u"/sync"_s)}}).status, 404) << "a page that takes no form";

    // Before signing in, a sign-in post, and a mailed link's, needs the token its own form set in this browser.
    Client stranger(base);
    const QString foreign = formToken(u"/login"_s);
    EXPECT_EQ(stranger.post(u"/login"_s, {{u"csrf"_s, foreign}, {u"email"_s, adaMail}}).status, 403);
    const QString link = links.createLink(adaMail);
    EXPECT_EQ(stranger.post(u"/auth/link"_s, {{u"csrf"_s, foreign}, {u"token"_s, link}}).status, 403);
}

TEST_F(WebTest, EveryReplyCarriesTheSecurityHeadersAndCookiesAreHttpOnlyLaxAndSecureOnlyOverHttps)
{
    Client browser(base);
    const HttpResult form = browser.get(u"/login"_s);
    EXPECT_EQ(
        form.header("Set-Cookie"), "tamlo_form=" + form.formToken().toLatin1() + "; Path=/; HttpOnly; SameSite=Lax");
    const HttpResult signedIn = browser.post(u"/register"_s, {{u"csrf"_s, form.formToken()}, {u"email"_s, adaMail}});
    const QByteArray session = signedIn.header("Set-Cookie");
    EXPECT_TRUE(session.startsWith("tamlo_session=")) << session.toStdString();
    EXPECT_TRUE(session.endsWith("; Path=/; HttpOnly; SameSite=Lax; Max-Age=2592000")) << session.toStdString();
    const QString token = QString::fromLatin1(session.mid(14, 43));
    EXPECT_EQ(backend.scalar(u"SELECT COUNT(*) FROM sessions WHERE token_digest = '%1'"_s.arg(token)).toInt(), 0);

    // Every reply passes the one place that adds them: a page and an API error stand for the rest.
    for (const HttpResult &reply : {form, browser.get(u"/activity/status"_s)}) {
        EXPECT_EQ(reply.header("Content-Security-Policy"),
            "default-src 'none'; style-src 'self'; img-src 'self'; form-action 'self'; base-uri 'none'; "
            "frame-ancestors 'none'");
        EXPECT_EQ(reply.header("X-Frame-Options"), "DENY");
        EXPECT_EQ(reply.header("Referrer-Policy"), "no-referrer");
        EXPECT_EQ(reply.header("X-Content-Type-Options"), "nosniff");
    }

    pages->setPublicUrl(QUrl(u"https://tamlo.example"_s));
    Client secure(base);
    const HttpResult httpsForm = secure.get(u"/login"_s);
    EXPECT_TRUE(httpsForm.header("Set-Cookie").endsWith("; HttpOnly; SameSite=Lax; Secure"));
    const QByteArray secureSession
        = secure.post(u"/register"_s, {{u"csrf"_s, httpsForm.formToken()}, {u"email"_s, eveMail}}).header("Set-Cookie");
    EXPECT_TRUE(secureSession.contains("; Secure")) << secureSession.toStdString();
}

TEST_F(WebTest, RateLimitsAnswer429WithRetryAfterAndRecover)
{
    Client browser(base);
    const QString token = browser.formToken(u"/login?redirect=tamlo://auth"_s);
    auto ask = [&](const QString &email) {
        return browser.post(u"/login"_s, {{u"redirect"_s, u"tamlo://auth"_s}, {u"csrf"_s, token}, {u"email"_s, email}});
    };
    // Five links an address in half an hour; twenty posts a client in ten minutes, the refused one too.
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(ask(adaMail).status, 200);
    }
    const HttpResult limited = ask(u"ADA@example.org"_s);
    EXPECT_EQ(std::tuple(limited.status, limited.header("Retry-After")), std::tuple(429, QByteArray("1800")));
    EXPECT_TRUE(limited.text().contains(u"Too many attempts"_s));
    for (int i = 6; i < 20; ++i) {
        ASSERT_EQ(ask(u"user%1@example.org"_s.arg(i)).status, 200) << i;
    }
    EXPECT_EQ(ask(u"dave@example.org"_s).header("Retry-After"), "600");
    clock.advance(599);
    EXPECT_EQ(ask(u"dave@example.org"_s).header("Retry-After"), "1");
    clock.advance(1);
    EXPECT_EQ(ask(u"dave@example.org"_s).status, 200);

    // The token exchange: thirty guesses a client in ten minutes, ten tries of one address's links in half an hour.
    for (int i = 0; i < 30; ++i) {
        ASSERT_EQ(verify(u"guess-%1"_s.arg(i)).status, 401);
    }
    const HttpResult guessing = verify(u"guess"_s);
    EXPECT_EQ(std::tuple(guessing.status, guessing.body),
        std::tuple(429, QByteArray(R"({"error":"Too many sign-in attempts; try again later"})")));
    clock.advance(10 * 60);
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(verify(links.createLink(u"zoe@example.org"_s)).status, 404);
    }
    EXPECT_EQ(verify(links.createLink(u"zoe@example.org"_s)).status, 429);
    EXPECT_EQ(verify(u"guess"_s).status, 401);
}

// What was uploaded, exactly, in the export and on the pages; then the app revoked and the account
// deleted, which ends their access and leaves no row of Ada's data.
TEST_F(WebTest, PagesShowExactlyWhatWasUploadedAndRevokingOrDeletingEndsAccessAndLeavesNoRow)
{
    const QString appSession = sessionFor(adaMail);
    clock.advance(60 * 60);
    ASSERT_EQ(sync(adasDay(), appSession).status, 200);
    const QString eveSession = sessionFor(eveMail);
    ASSERT_EQ(sync(adasDay(), eveSession).status, 200);
    Client browser(base);
    browser.signIn(adaMail);

    const HttpResult json = browser.get(u"/export/tamlo-data.json"_s);
    EXPECT_EQ(json.header("Content-Disposition"), "attachment; filename=\"tamlo-data.json\"");
    EXPECT_EQ(json.json()[u"days"_s].toArray(), QJsonDocument::fromJson(adasDay())[u"days"_s].toArray());
    EXPECT_EQ(json.json()[u"devices"_s][0][u"lastUploadAt"_s].toString(), u"2026-11-16T11:00:00Z"_s);
    // The app's work-log columns, and its rule for commas in texts.
    EXPECT_EQ(browser.get(u"/export/tamlo-days.csv"_s).text(),
        u"Timestamp,Category,Project,Summary,Note\n"
        "2026-11-16T09:30:12Z,Coding,Website,Editing checkout.css  in the editor.,fixed the header\n"
        "2026-11-16T12:01:00Z,Other,Other,Screen Locked,"_s);

    auto appSessionOf = [&](const QString &email) {
        const QString userId = storage->userByEmail(email)->id;
        return backend.scalar(u"SELECT public_id FROM sessions WHERE kind = 'app' AND user_id = '%1'"_s.arg(userId));
    };
    const QString devices = browser.get(u"/devices"_s).text();
    EXPECT_TRUE(devices.contains(u"Tamlo app on <code>5D0A3C7E</code>"_s)) << devices.toStdString();
    // Every time names its zone: the device's last upload in its own, the app's sign-in and last call in UTC.
    EXPECT_TRUE(devices.contains(u"<td>16 Nov 2026, 12:00 Europe/Berlin</td>"_s));
    EXPECT_TRUE(devices.contains(u"<td>16 Nov 2026, 10:00 UTC</td><td>16 Nov 2026, 11:00 UTC</td>"_s));
    const QString app = appSessionOf(adaMail).toString();

    // Later that day: a run of one marker is one gap named for it, a run of private ticks one row.
    QJsonArray markers;
    int n = 10;
    for (const QString &marker : {u"Away"_s, u"Away"_s, u"Away"_s, u"Private"_s, u"Private"_s, u"Screen Locked"_s}) {
        const QDateTime at = QDateTime(QDate(2026, 11, 16), QTime(12, 25), Qt::UTC).addSecs(30 * n);
        markers.append(
            record(u"00000000-0000-4000-8000-0000000000%1"_s.arg(n++), at.toString(Qt::ISODate), u"Other"_s, marker));
    }
    clock.advance(60);
    ASSERT_EQ(sync(bytes(upload({day(u"2026-11-16"_s, markers)})), appSession).status, 200);
    const QString page = browser.get(u"/days/2026-11-16"_s).text();
    EXPECT_TRUE(page.contains(u"Times in Europe/Berlin"_s));
    EXPECT_TRUE(page.contains(u"<td class=\"time\">10:30</td>"_s)) << page.toStdString();
    EXPECT_TRUE(page.contains(u"<tr class=\"gap\"><td class=\"time\">13:01</td><td colspan=\"2\">Screen locked"_s));
    EXPECT_TRUE(page.contains(u"13:30</td><td colspan=\"2\">Away until 13:31</td></tr><tr class=\"gap\"><td class=\""_s
                              "time\">13:31</td><td colspan=\"2\">Private until 13:32</td></tr><tr class=\"gap\"><td "
                              "class=\"time\">13:32</td><td colspan=\"2\">Screen locked</td>"_s));
    EXPECT_EQ(browser.get(u"/days/2026-02-30"_s).status, 404);
    EXPECT_EQ(browser.get(u"/days/..%2F..%2Fetc"_s).status, 404);

    // Revoked, the app is out at once; another user's session cannot be named here.
    const QString token = browser.formToken(u"/devices"_s);
    EXPECT_EQ(browser.post(u"/sessions/sign-out"_s, {{u"csrf"_s, token}, {u"session"_s, app}}).status, 303);
    EXPECT_EQ(send("GET", u"/auth/me"_s, {}, appSession).status, 401);
    browser.post(u"/sessions/sign-out"_s, {{u"csrf"_s, token}, {u"session"_s, appSessionOf(eveMail).toString()}});
    EXPECT_EQ(send("GET", u"/auth/me"_s, {}, eveSession).status, 200);

    const ServerUser ada = *storage->userByEmail(adaMail);
    storage->requestSync(ada.id, 1);
    EXPECT_EQ(browser.post(u"/account/delete"_s, {{u"csrf"_s, token}, {u"confirm"_s, eveMail}}).status, 400);
    const HttpResult deleted
        = browser.post(u"/account/delete"_s, {{u"csrf"_s, token}, {u"confirm"_s, u" Ada@Example.org"_s}});
    EXPECT_EQ(deleted.status, 200);
    EXPECT_TRUE(deleted.header("Set-Cookie").startsWith("tamlo_session=; "));

    // Every table, every column: neither the id nor the address is left, but in the sign-in links,
    // which belong to the address and not to the account.
    QSqlDatabase db = storage->database();
    for (const QString &table : db.tables()) {
        const QSqlRecord columns = db.record(table);
        for (int i = 0; i < columns.count() && table != u"sign_in_links"_s; ++i) {
            QSqlQuery query(db);
            query.prepare(
                u"SELECT COUNT(*) FROM %1 WHERE CAST(%2 AS TEXT) IN (?, ?)"_s.arg(table, columns.fieldName(i)));
            query.addBindValue(ada.id);
            query.addBindValue(ada.email);
            ASSERT_TRUE(query.exec() && query.next()) << table.toStdString();
            EXPECT_EQ(query.value(0).toInt(), 0) << table.toStdString() << "." << columns.fieldName(i).toStdString();
        }
    }
    for (const auto &[table, rows] : {std::pair {u"snapshots"_s, 2}, {u"devices"_s, 1}, {u"sessions"_s, 1}}) {
        EXPECT_EQ(backend.scalar(u"SELECT COUNT(*) FROM %1"_s.arg(table)).toInt(), rows) << table.toStdString();
    }
}
