#include "serverfixture.h"

#include <QJsonArray>

using namespace Qt::StringLiterals;

namespace {
QJsonObject snapshotJson(const QString &id, const QString &timestamp, const QString &type = u"Coding"_s)
{
    return QJsonObject {{u"id"_s, id}, {u"timestamp"_s, timestamp}, {u"activityType"_s, type},
        {u"projectName"_s, u"Website"_s}, {u"activityDescription"_s, u"Editing checkout.css in the editor."_s}};
}

QJsonObject body(const QJsonArray &days, bool backfillComplete = false)
{
    return QJsonObject {{u"timezone"_s, u"Europe/Berlin"_s}, {u"deviceId"_s, deviceA},
        {u"backfillComplete"_s, backfillComplete}, {u"days"_s, days}};
}

QByteArray bytes(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QJsonArray oneDay(const QString &type = u"Coding"_s)
{
    return QJsonArray {QJsonObject {{u"date"_s, u"2026-11-16"_s},
        {u"snapshots"_s, QJsonArray {snapshotJson(idA, u"2026-11-16T09:30:12Z"_s, type)}}}};
}
} // namespace

TEST_P(ServerApiTest, SignsInFromTheRegisterPageAndTheLinkWorksOnce)
{
    const HttpResult form = send("GET", u"/register?redirect=tamlo://auth"_s);
    EXPECT_EQ(form.status, 200);
    EXPECT_TRUE(form.text().contains(u"name=\"redirect\" value=\"tamlo://auth\""_s));

    const QString token = linkToken(u"  Ada@Example.org "_s);
    ASSERT_FALSE(token.isEmpty());
    const HttpResult verified = send("POST", u"/auth/verify-token"_s, tokenBody(token));
    ASSERT_EQ(verified.status, 200);
    const QString session = verified.json().value(u"sessionToken"_s).toString();
    EXPECT_EQ(session.size(), 43);
    const QJsonObject user = verified.json().value(u"user"_s).toObject();
    EXPECT_EQ(user.value(u"email"_s).toString(), u"ada@example.org"_s);
    EXPECT_FALSE(user.contains(u"name"_s));

    EXPECT_EQ(send("POST", u"/auth/verify-token"_s, tokenBody(token)).status, 410);
    const HttpResult me = send("GET", u"/auth/me"_s, {}, session);
    EXPECT_EQ(me.status, 200);
    EXPECT_EQ(me.json(), user);
}

TEST_P(ServerApiTest, VerifyTokenAnswersUnknownExpiredAndUnregisteredInThatOrder)
{
    EXPECT_EQ(send("POST", u"/auth/verify-token"_s, tokenBody(u"no-such-token"_s)).status, 401);

    // An address without an account: 404, and the link stays good for when it registers.
    const QString early = linkToken(u"new@example.org"_s, u"/login"_s);
    const HttpResult missing = send("POST", u"/auth/verify-token"_s, tokenBody(early));
    EXPECT_EQ(missing.status, 404);
    EXPECT_EQ(missing.body, R"({"error":"User not found"})");
    linkToken(u"new@example.org"_s, u"/register"_s);
    EXPECT_EQ(send("POST", u"/auth/verify-token"_s, tokenBody(early)).status, 200);

    // Fifteen minutes old is too old, whatever has become of the account since.
    const QString stale = linkToken(u"new@example.org"_s, u"/login"_s);
    clock.advance(15 * 60 - 1);
    const QString fresh = linkToken(u"new@example.org"_s, u"/login"_s);
    clock.advance(1);
    storage->deleteUser(u"new@example.org"_s);
    EXPECT_EQ(send("POST", u"/auth/verify-token"_s, tokenBody(stale)).status, 410);
    EXPECT_EQ(send("POST", u"/auth/verify-token"_s, tokenBody(fresh)).status, 404);
}

TEST_P(ServerApiTest, UploadIsStoredAndARequestStandsForEachDeviceUntilItUploads)
{
    const QString session = sessionFor(u"ada@example.org"_s);
    const QString laptop = sessionFor(u"ada@example.org"_s);
    QJsonObject laptopBody = body({});
    laptopBody[u"deviceId"_s] = u"0C9E4B52-7A31-4E0D-9F6B-3D8A2C5E1F07"_s;
    EXPECT_EQ(send("POST", u"/activity/sync"_s, bytes(laptopBody), laptop).status, 200);
    EXPECT_EQ(send("POST", u"/activity/sync"_s, bytes(body({})), session).status, 200);
    EXPECT_EQ(send("GET", u"/activity/status"_s, {}, session).body, "{}");

    const ServerUser ada = *storage->userByEmail(u"ada@example.org"_s);
    storage->requestSync(ada.id, 1763287200000);
    const QByteArray requested = R"({"syncRequestedAt":1763287200000})";
    EXPECT_EQ(send("GET", u"/activity/status"_s, {}, session).body, requested);

    EXPECT_EQ(send("POST", u"/activity/sync"_s, bytes(body(oneDay())), session).status, 200);
    const QString verbatim = u"Meeting'); DELETE FROM snapshots; -- 東京 🚀 \"x\""_s;
    EXPECT_EQ(send("POST", u"/activity/sync"_s, bytes(body(oneDay(verbatim))), session).status, 200);
    EXPECT_EQ(send("POST", u"/activity/sync"_s, bytes(body({}, true)), session).status, 200);

    // Served for this device only: the laptop, and a computer signed in since, are still asked.
    EXPECT_EQ(send("GET", u"/activity/status"_s, {}, session).body, "{}");
    EXPECT_EQ(send("GET", u"/activity/status"_s, {}, laptop).body, requested);
    const QString newcomer = sessionFor(u"ada@example.org"_s);
    EXPECT_EQ(send("GET", u"/activity/status"_s, {}, newcomer).body, requested);
    EXPECT_EQ(send("POST", u"/activity/sync"_s, bytes(laptopBody), laptop).status, 200);
    EXPECT_EQ(send("GET", u"/activity/status"_s, {}, laptop).body, "{}");
    EXPECT_EQ(storage->syncRequestedAt(ada.id), std::nullopt);
    EXPECT_EQ(send("GET", u"/activity/status"_s, {}, newcomer).body, "{}");
    const QList<UploadedDay> days = storage->days(ada.id);
    ASSERT_EQ(days.size(), 1);
    ASSERT_EQ(days[0].snapshots.size(), 1);
    EXPECT_EQ(days[0].snapshots[0].activityType, verbatim);
    EXPECT_TRUE(storage->devices(ada.id).value(1).backfillComplete);
}

TEST_P(ServerApiTest, WithoutAValidSessionEveryAccountEndpointAnswers401)
{
    const QString session = sessionFor(u"ada@example.org"_s);
    for (const std::optional<QString> &bearer : {std::optional<QString>(), std::optional<QString>(u"forged"_s)}) {
        EXPECT_EQ(send("GET", u"/activity/status"_s, {}, bearer).status, 401);
        EXPECT_EQ(send("GET", u"/auth/me"_s, {}, bearer).status, 401);
        const HttpResult upload = send("POST", u"/activity/sync"_s, bytes(body(oneDay())), bearer);
        EXPECT_EQ(upload.status, 401);
        EXPECT_TRUE(upload.json().value(u"error"_s).isString());
    }
    storage->deleteUser(u"ada@example.org"_s);
    EXPECT_EQ(send("GET", u"/auth/me"_s, {}, session).status, 401);
}

TEST_P(ServerApiTest, EveryBadBodyIs400AndStoresNothing)
{
    const QString session = sessionFor(u"ada@example.org"_s);
    const QJsonObject good = body(oneDay());
    auto withSnapshot = [&](const QString &key, const QJsonValue &value) {
        QJsonObject snapshot = snapshotJson(idA, u"2026-11-16T09:30:12Z"_s);
        snapshot.insert(key, value);
        return body(QJsonArray {QJsonObject {{u"date"_s, u"2026-11-16"_s}, {u"snapshots"_s, QJsonArray {snapshot}}}});
    };
    auto withTop = [&](const QString &key, const QJsonValue &value) {
        QJsonObject copy = good;
        copy.insert(key, value);
        return copy;
    };
    const QJsonObject daySnapshot = oneDay()[0].toObject();
    QJsonArray tooManyDays;
    for (int i = 1; i <= 32; ++i) {
        QJsonObject day = daySnapshot;
        day.insert(u"date"_s, u"2026-10-%1"_s.arg(i, 2, 10, QChar(u'0')));
        tooManyDays.append(day);
    }
    const QList<std::pair<QByteArray, QString>> cases {
        {"{", u"not valid JSON"_s},
        {"[]", u"JSON object"_s},
        {bytes(withTop(u"timezone"_s, u""_s)), u"timezone"_s},
        {bytes(withTop(u"timezone"_s, QString(101, u'x'))), u"timezone"_s},
        {bytes(withTop(u"deviceId"_s, deviceA.toLower())), u"deviceId"_s},
        {bytes(withTop(u"backfillComplete"_s, u"false"_s)), u"backfillComplete"_s},
        {bytes(withTop(u"days"_s, QJsonValue::Null)), u"days must not be null"_s},
        {bytes(withTop(u"days"_s, tooManyDays)), u"at most 31"_s},
        {bytes(withTop(u"days"_s, QJsonArray {daySnapshot, daySnapshot})), u"repeats a day"_s},
        {bytes(withTop(
             u"days"_s, QJsonArray {QJsonObject {{u"date"_s, u"2026-11-16"_s}, {u"snapshots"_s, QJsonArray {}}}})),
            u"must not be empty"_s},
        {bytes(withTop(u"days"_s,
             QJsonArray {
                 QJsonObject {{u"date"_s, u"2026-02-30"_s}, {u"snapshots"_s, daySnapshot.value(u"snapshots"_s)}}})),
            u"days[0].date"_s},
        {bytes(withSnapshot(u"timestamp"_s, u"2026-11-16T09:30:12.500Z"_s)), u"timestamp"_s},
        {bytes(withSnapshot(u"timestamp"_s, u"2026-11-16T10:30:12+01:00"_s)), u"timestamp"_s},
        {bytes(withSnapshot(u"activityType"_s, u""_s)), u"activityType"_s},
        {bytes(withSnapshot(u"projectName"_s, QString(201, u'p'))), u"projectName"_s},
        {bytes(withSnapshot(u"userNote"_s, QString(4097, u'n'))), u"userNote"_s},
        {bytes(withSnapshot(u"activityDescription"_s, QJsonValue::Null)), u"must not be null"_s},
        {bytes(withSnapshot(u"id"_s, u"not-a-uuid"_s)), u"upper-case UUID"_s},
        {bytes(withSnapshot(u"userNote"_s, u"nul\u0000char"_s)), u"NUL"_s},
    };
    for (const auto &[payload, fault] : cases) {
        const HttpResult result = send("POST", u"/activity/sync"_s, payload, session);
        EXPECT_EQ(result.status, 400) << payload.left(200).toStdString();
        const QString error = result.json().value(u"error"_s).toString();
        EXPECT_TRUE(error.contains(fault)) << error.toStdString() << " lacks " << fault.toStdString();
    }
    EXPECT_TRUE(storage->days(storage->userByEmail(u"ada@example.org"_s)->id).isEmpty());
    EXPECT_TRUE(storage->devices(storage->userByEmail(u"ada@example.org"_s)->id).isEmpty());
}

TEST_P(ServerApiTest, SizeAndFramingAreEnforcedAtTheSocket)
{
    const QString session = sessionFor(u"ada@example.org"_s);
    const QByteArray head = "POST /activity/sync HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer " + session.toUtf8()
        + "\r\nContent-Type: application/json\r\n";

    const QByteArray tooLarge = sendRaw(head + "Content-Length: 33554433\r\n\r\n{\"timezone\":");
    EXPECT_TRUE(tooLarge.startsWith("HTTP/1.1 413")) << tooLarge.toStdString();
    const QByteArray chunked = sendRaw(head + "Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n");
    EXPECT_TRUE(chunked.startsWith("HTTP/1.1 411")) << chunked.toStdString();
    const QByteArray noLength = sendRaw(head + "\r\n");
    EXPECT_TRUE(noLength.contains(" 411 ")) << noLength.toStdString();

    // The gate leaves well-formed requests alone, several on one connection included.
    const QByteArray payload = bytes(body(oneDay()));
    const QByteArray request = head + "Content-Length: " + QByteArray::number(payload.size()) + "\r\n\r\n" + payload;
    const QByteArray twice = sendRaw(request + request);
    EXPECT_TRUE(twice.startsWith("HTTP/1.1 200")) << twice.toStdString();
    EXPECT_EQ(storage->days(storage->userByEmail(u"ada@example.org"_s)->id).size(), 1);
}

TEST_P(ServerApiTest, UnknownPathsAndWrongMethodsAreFlatJsonErrors)
{
    const HttpResult unknown = send("GET", u"/activity/unknown"_s);
    EXPECT_EQ(unknown.status, 404);
    EXPECT_EQ(unknown.body, R"({"error":"Not found"})");
    EXPECT_EQ(send("GET", u"/activity/sync"_s).status, 405);
    EXPECT_EQ(send("DELETE", u"/auth/me"_s).status, 405);
    EXPECT_EQ(send("POST", u"/auth/verify-token"_s, "not json").status, 400);
}

TEST_P(ServerApiTest, TheRedirectGuardRefusesAnythingButTheAppAndMakesNoLink)
{
    for (const QString &path : {u"/login?redirect=https://evil.example/steal"_s, u"/login?redirect=tamlo://auth.evil"_s,
             u"/register?redirect=TAMLO://auth"_s}) {
        const HttpResult page = send("GET", path);
        EXPECT_EQ(page.status, 400) << path.toStdString();
        EXPECT_TRUE(page.text().contains(u"only returns to the Tamlo app"_s));
    }
    const HttpResult posted = send("POST", u"/login"_s,
        formBody({{u"redirect"_s, u"https://evil.example"_s}, {u"email"_s, u"ada@example.org"_s}}), std::nullopt,
        "application/x-www-form-urlencoded");
    EXPECT_EQ(posted.status, 400);
    EXPECT_FALSE(callbackToken(posted).has_value());
    EXPECT_EQ(backend->scalar(u"SELECT COUNT(*) FROM sign_in_links"_s).toInt(), 0);

    // Without a redirect the page signs the browser itself in, and no link is made for it.
    const HttpResult browser = send("GET", u"/login"_s);
    EXPECT_EQ(browser.status, 200);
    EXPECT_FALSE(browser.text().contains(u"name=\"redirect\""_s));
    EXPECT_EQ(send("GET", u"/docs/installation"_s).status, 200);
}

TEST_P(ServerApiTest, TheLogHasOneLinePerRequestAndNoSecrets)
{
    const QString token = linkToken(u"secret.person@example.org"_s);
    const HttpResult verified = send("POST", u"/auth/verify-token"_s, tokenBody(token));
    const QString session = verified.json().value(u"sessionToken"_s).toString();
    send("GET", u"/activity/status?probe="_s + session, {}, session);
    sendRaw("POST /activity/sync?t=" + session.toUtf8() + " HTTP/1.1\r\nContent-Length: 99999999999\r\n\r\n");
    send("GET", u"/secret.person@example.org/"_s + token);

    const QString logText = QString::fromUtf8(logBuffer.data());
    const QStringList lines = logText.split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 6) << logText.toStdString();
    EXPECT_TRUE(lines[0].contains(u" GET /register 200 "_s));
    EXPECT_TRUE(lines[1].endsWith(u" POST /register 200 "_s + lines[1].section(u' ', -2, -2) + u" ms"_s));
    EXPECT_TRUE(lines[3].contains(u" GET /activity/status 200 "_s));
    EXPECT_TRUE(lines[4].contains(u" POST /activity/sync 413 "_s));
    EXPECT_TRUE(lines[5].contains(u" GET (other) 404 "_s));
    for (const QString &secret : {token, session, u"secret.person"_s}) {
        EXPECT_FALSE(logText.contains(secret)) << secret.toStdString();
    }
}

TEST_P(LocalModeOffTest, SignInPagesAnswer403)
{
    for (const QString &path : {u"/login?redirect=tamlo://auth"_s, u"/register?redirect=tamlo://auth"_s}) {
        const HttpResult page = send("GET", path);
        EXPECT_EQ(page.status, 403);
        EXPECT_TRUE(page.text().contains(u"signs people in another way"_s));
    }
}

INSTANTIATE_TEST_SUITE_P(Server, ServerApiTest, ::testing::ValuesIn(testBackends()), backendName);

INSTANTIATE_TEST_SUITE_P(Server, LocalModeOffTest, ::testing::ValuesIn(testBackends()), backendName);
