#include "serverfixture.h"

TEST_F(ServerTest, ALinkSignsInOnceWithinFifteenMinutesAndOnlyARegisteredAddress)
{
    // An address without an account: 404, and the link stays good for when it registers.
    const QString early = linkToken(u"  Ada@Example.org "_s, u"/login"_s);
    const HttpResult missing = verify(early);
    EXPECT_EQ(missing.status, 404);
    EXPECT_EQ(missing.body, R"({"error":"User not found"})");
    linkToken(adaMail, u"/register"_s);
    const HttpResult verified = verify(early);
    ASSERT_EQ(verified.status, 200);
    const QString session = verified.json().value(u"sessionToken"_s).toString();
    const QJsonObject user = verified.json().value(u"user"_s).toObject();
    EXPECT_EQ(user, (QJsonObject {{u"id"_s, storage->userByEmail(adaMail)->id}, {u"email"_s, adaMail}}));
    EXPECT_EQ(send("GET", u"/auth/me"_s, {}, session).json(), user);
    const HttpResult again = verify(early);
    EXPECT_EQ(again.status, 410);
    EXPECT_EQ(again.body, R"({"error":"This sign-in link has expired or was already used"})");

    // Fifteen minutes old is too old, whatever has become of the account since.
    const QString stale = linkToken(adaMail, u"/login"_s);
    clock.advance(15 * 60 - 1);
    const QString fresh = linkToken(adaMail, u"/login"_s);
    clock.advance(1);
    storage->deleteUser(adaMail);
    EXPECT_EQ(verify(stale).status, 410);
    EXPECT_EQ(verify(fresh).status, 404);
    EXPECT_EQ(send("GET", u"/auth/me"_s, {}, session).status, 401);
}

// Each endpoint's answers, and the log's line for each: its path without query or unknown parts,
// its status, and no token or address.
TEST_F(ServerTest, EachEndpointAnswersItsStatusAndBodyAndIsLoggedWithoutSecrets)
{
    const QString session = sessionFor(adaMail);
    const QByteArray unauthorized = R"({"error":"Unauthorized"})";
    const QList<std::tuple<QByteArray, QString, QByteArray, std::optional<QString>, int, QByteArray>> cases {
        {"POST", u"/activity/sync"_s, oneDay(), session, 200, R"({"days":1,"snapshots":1})"},
        {"GET", u"/activity/status?probe="_s + session, {}, session, 200, "{}"},
        {"GET", u"/activity/status"_s, {}, {}, 401, unauthorized},
        {"POST", u"/activity/sync"_s, oneDay(), u"forged"_s, 401, unauthorized},
        {"POST", u"/auth/verify-token"_s, "not json", {}, 400,
            R"({"error":"The body must be a JSON object with a string token"})"},
        {"POST", u"/auth/verify-token"_s, bytes(QJsonObject {{u"token"_s, u"no-such-token"_s}}), {}, 401,
            R"({"error":"Invalid sign-in link"})"},
        {"GET", u"/ada@example.org/"_s + session, {}, {}, 404, R"({"error":"Not found"})"},
        {"GET", u"/activity/sync"_s, {}, session, 405, R"({"error":"Method not allowed"})"},
    };
    for (const auto &[method, path, body, bearer, status, reply] : cases) {
        SCOPED_TRACE(method.toStdString() + ' ' + path.toStdString());
        const HttpResult answer = send(method, path, body, bearer);
        EXPECT_EQ(answer.status, status);
        EXPECT_EQ(answer.body, reply);
    }
    sendRaw("POST /activity/sync?t=" + session.toUtf8() + " HTTP/1.1\r\nContent-Length: 99999999999\r\n\r\n");

    const QString logText = QString::fromUtf8(logBuffer.data());
    const QStringList lines = logText.split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 3 + cases.size() + 1) << logText.toStdString();
    EXPECT_TRUE(lines[1].endsWith(u" POST /register 200 "_s + lines[1].section(u' ', -2, -2) + u" ms"_s));
    EXPECT_TRUE(lines[4].contains(u" GET /activity/status 200 "_s)) << lines[4].toStdString();
    EXPECT_TRUE(lines[9].contains(u" GET (other) 404 "_s)) << lines[9].toStdString();
    EXPECT_TRUE(lines.last().contains(u" POST /activity/sync 413 "_s)) << lines.last().toStdString();
    for (const QString &secret : {session, adaMail}) {
        EXPECT_FALSE(logText.contains(secret)) << secret.toStdString();
    }
}

TEST_F(ServerTest, UploadIsStoredAndARequestStandsForEachDeviceUntilItUploads)
{
    const QString session = sessionFor(adaMail);
    const QString laptop = sessionFor(adaMail);
    const QByteArray laptopUpload = bytes(upload({}, u"0C9E4B52-7A31-4E0D-9F6B-3D8A2C5E1F07"_s));
    EXPECT_EQ(sync(laptopUpload, laptop).status, 200);
    EXPECT_EQ(sync(bytes(upload({})), session).status, 200);

    const ServerUser ada = *storage->userByEmail(adaMail);
    storage->requestSync(ada.id, 1763287200000);
    const QByteArray requested = R"({"syncRequestedAt":1763287200000})";
    auto status = [&](const QString &bearer) { return send("GET", u"/activity/status"_s, {}, bearer).body; };
    EXPECT_EQ(status(session), requested);

    EXPECT_EQ(sync(bytes(upload({}, deviceA, true)), session).status, 200);

    // Served for this device only: the laptop, and a computer signed in since, are still asked.
    EXPECT_EQ(status(session), "{}");
    EXPECT_EQ(status(laptop), requested);
    const QString newcomer = sessionFor(adaMail);
    EXPECT_EQ(status(newcomer), requested);
    EXPECT_EQ(sync(laptopUpload, laptop).status, 200);
    EXPECT_EQ(status(laptop), "{}");
    EXPECT_EQ(storage->syncRequestedAt(ada.id), std::nullopt);
    EXPECT_EQ(status(newcomer), "{}");
    EXPECT_TRUE(storage->devices(ada.id).value(1).backfillComplete);
}

TEST_F(ServerTest, EveryBadBodyIs400AndStoresNothingAndOnlyTheExactFormsPass)
{
    const QString session = sessionFor(adaMail);
    const QJsonObject good = QJsonDocument::fromJson(oneDay()).object();
    const QJsonArray records = good[u"days"_s][0][u"snapshots"_s].toArray();
    auto withTop = [&](const QString &key, const QJsonValue &value) {
        QJsonObject copy = good;
        copy.insert(key, value);
        return bytes(copy);
    };
    auto withRecord = [&](const QString &key, const QJsonValue &value) {
        QJsonObject changed = records[0].toObject();
        changed.insert(key, value);
        return withTop(u"days"_s, QJsonArray {day(u"2026-11-16"_s, {changed})});
    };
    QJsonArray tooManyDays;
    for (int i = 1; i <= 32; ++i) {
        tooManyDays.append(day(u"2026-10-%1"_s.arg(i, 2, 10, QChar(u'0')), records));
    }
    // 200 emoji are 400 UTF-16 units but 200 characters: a label may be that long, and no longer.
    const QString emoji = u"🚀"_s.repeated(200);
    QList<std::pair<QByteArray, QString>> cases {
        {"{", u"not valid JSON"_s},
        {"[]", u"JSON object"_s},
        {withTop(u"timezone"_s, QString(101, u'x')), u"timezone"_s},
        {withTop(u"deviceId"_s, deviceA.toLower()), u"deviceId"_s},
        {withTop(u"backfillComplete"_s, u"false"_s), u"backfillComplete"_s},
        {withTop(u"days"_s, QJsonValue::Null), u"days must not be null"_s},
        {withTop(u"days"_s, tooManyDays), u"at most 31"_s},
        {withTop(u"days"_s, QJsonArray {day(u"2026-11-16"_s, records), day(u"2026-11-16"_s, records)}),
            u"repeats a day"_s},
        {withTop(u"days"_s, QJsonArray {day(u"2026-11-16"_s, {})}), u"must not be empty"_s},
        {withRecord(u"activityType"_s, u"x"_s + emoji),
            u"snapshots[0].activityType must be 1 to 200 characters long"_s},
        {withRecord(u"userNote"_s, QString(4097, u'n')), u"userNote"_s},
        {withRecord(u"activityDescription"_s, QJsonValue::Null), u"must not be null"_s},
        {withRecord(u"userNote"_s, u"nul\u0000char"_s), u"NUL"_s},
    };
    for (const QString &date : {u"2026-02-30"_s, u"2026-1-31"_s}) {
        cases.append({withTop(u"days"_s, QJsonArray {day(date, records)}), u"days[0].date"_s});
    }
    for (const QString &time : {u"2026-11-16T09:30:12.500Z"_s, u"2023-02-29T10:00:00Z"_s, u"2026-11-16T24:00:00Z"_s,
             u"2026-11-16 09:30:12Z"_s, u"2026-11-16T09:30:12z"_s, u"2026-11-16T09:30:1٢Z"_s}) {
        cases.append({withRecord(u"timestamp"_s, time), u"timestamp"_s});
    }
    for (const QString &id : {u"not-a-uuid"_s, u"6F1C0E2A-8B3D-4E57-9A10-2C4D7B1E3F9G"_s}) {
        cases.append({withRecord(u"id"_s, id), u"upper-case UUID"_s});
    }
    for (const auto &[payload, fault] : cases) {
        SCOPED_TRACE(payload.left(200).toStdString());
        const HttpResult result = sync(payload, session);
        EXPECT_EQ(result.status, 400);
        EXPECT_TRUE(result.json().value(u"error"_s).toString().contains(fault)) << result.text().toStdString();
    }
    const QString ada = storage->userByEmail(adaMail)->id;
    EXPECT_TRUE(storage->days(ada).isEmpty());
    EXPECT_TRUE(storage->devices(ada).isEmpty());

    // A leap day's last second, labels of 200 characters, and keys the upload does not define pass.
    for (const QByteArray &accepted : {withRecord(u"timestamp"_s, u"2024-02-29T23:59:59Z"_s),
             withRecord(u"projectName"_s, emoji), withRecord(u"imageHash"_s, u"abc"_s), withTop(u"extra"_s, good)}) {
        EXPECT_EQ(sync(accepted, session).status, 200) << accepted.left(200).toStdString();
    }
}

// Size and framing are held at the socket, before a request is read.
TEST_F(ServerTest, TheSocketTurnsAwayWhatIsTooLargeOrUnframedAndPassesTheRest)
{
    const QString session = sessionFor(adaMail);
    const QByteArray head = "POST /activity/sync HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer " + session.toUtf8()
        + "\r\nContent-Type: application/json\r\n";
    const QList<std::pair<QByteArray, QByteArray>> refused {
        {head + "Content-Length: 33554433\r\n\r\n{\"timezone\":", "HTTP/1.1 413 "},
        {head + "Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n", "HTTP/1.1 411 "},
        {head + "\r\n", "HTTP/1.1 411 "},
        {"POST /login HTTP/1.1\r\nHost: x\r\nContent-Length: 70000\r\n\r\n", "HTTP/1.1 413 "}, // forms are small
    };
    for (const auto &[request, answer] : refused) {
        const QByteArray reply = sendRaw(request);
        EXPECT_TRUE(reply.startsWith(answer)) << reply.toStdString();
    }
    EXPECT_TRUE(sendRaw(refused.last().first).endsWith(R"({"error":"The request body is larger than 64 KiB."})"));
    // Several on one connection included.
    const QByteArray request = head + "Content-Length: " + QByteArray::number(oneDay().size()) + "\r\n\r\n" + oneDay();
    const QByteArray twice = sendRaw(request + request);
    EXPECT_TRUE(twice.startsWith("HTTP/1.1 200")) << twice.toStdString();
    EXPECT_EQ(storage->days(storage->userByEmail(adaMail)->id).size(), 1);
}

TEST_F(ServerTest, TheRedirectGuardRefusesAnythingButTheAppAndWithoutAWayToSignInThePagesAnswer403)
{
    const HttpResult page = send("GET", u"/login?redirect=tamlo://auth.evil"_s);
    EXPECT_EQ(page.status, 400);
    EXPECT_TRUE(page.text().contains(u"only returns to the Tamlo app"_s));
    const HttpResult posted = post(u"/login"_s, {{u"redirect"_s, u"https://evil.example"_s}, {u"email"_s, adaMail}});
    EXPECT_EQ(posted.status, 400);
    EXPECT_FALSE(posted.text().contains(u"token="_s));
    EXPECT_EQ(backend.scalar(u"SELECT COUNT(*) FROM sign_in_links"_s).toInt(), 0);
    // Without a redirect the page signs the browser itself in, and no link is made for it.
    EXPECT_FALSE(send("GET", u"/login"_s).text().contains(u"name=\"redirect\""_s));

    // Neither local sign-in nor a mail server: nobody can sign in here, and the pages say so.
    localSignIn = false;
    start();
    for (const QString &path : {u"/login?redirect=tamlo://auth"_s, u"/register"_s}) {
        const HttpResult page = send("GET", path);
        EXPECT_EQ(page.status, 403);
        EXPECT_TRUE(page.text().contains(u"signs people in another way"_s));
    }
}
