#include "llmservicefixture.h"

#include "ai/jsonparseerror.h"
#include "ai/llmerror.h"
#include "ai/transporterror.h"

#include <QSignalSpy>

using namespace Qt::StringLiterals;
using namespace AiTest;

TEST_F(LLMServiceTest, KeepsOnlyAKnownChoiceOfModelAndTellsTheScreens)
{
    settings.setString(SettingsKey::selectedOllamaModel, u"qwen3-vl:4b"_s);
    service.configure();
    EXPECT_EQ(service.localModelName(), u"qwen3-vl:4b"_s);
    settings.setString(SettingsKey::selectedOllamaModel, u"llava:7b"_s);
    service.configure();
    EXPECT_EQ(service.localModelName(), u"qwen3-vl:2b"_s);
    EXPECT_EQ(settings.string(SettingsKey::selectedOllamaModel), u"qwen3-vl:2b"_s);
    settings.remove(SettingsKey::selectedOllamaModel);
    service.configure();
    EXPECT_EQ(settings.optionalString(SettingsKey::selectedOllamaModel), u"qwen3-vl:2b"_s);

    QSignalSpy modelChanged(&service, &LLMService::localModelNameChanged);
    EXPECT_TRUE(waitForResult(service.checkLocalModel()));

    // An unknown name changes nothing, not even the cached list.
    service.selectModel(u"llava:7b"_s);
    EXPECT_EQ(service.localModelName(), u"qwen3-vl:2b"_s);
    EXPECT_EQ(settings.string(SettingsKey::selectedOllamaModel), u"qwen3-vl:2b"_s);
    EXPECT_TRUE(waitForResult(service.checkLocalModel()));
    EXPECT_EQ(modelChanged.count(), 0);
    EXPECT_EQ(server.requestsTo("/api/tags").size(), 1);

    // A new choice asks the server again.
    service.selectModel(u"qwen3-vl:4b"_s);
    EXPECT_EQ(service.property("localModelName").toString(), u"qwen3-vl:4b"_s);
    EXPECT_EQ(settings.string(SettingsKey::selectedOllamaModel), u"qwen3-vl:4b"_s);
    EXPECT_EQ(modelChanged.count(), 1);
    EXPECT_FALSE(waitForResult(service.checkLocalModel()));
    EXPECT_EQ(server.requestsTo("/api/tags").size(), 2);
}

TEST_F(LLMServiceTest, ResolvesExactTagsBeforePrefixesAndOnlyBehindDashOrAt)
{
    const QString wanted = u"qwen3-vl:2b"_s;
    EXPECT_EQ(LLMService::resolveInstalledModel(wanted, {u"qwen3-vl:2b-q4"_s, wanted}), wanted);
    EXPECT_EQ(
        LLMService::resolveInstalledModel(wanted, {u"qwen3-vl:2b-q4"_s, u"qwen3-vl:2b-q8"_s}), u"qwen3-vl:2b-q4"_s);
    EXPECT_EQ(LLMService::resolveInstalledModel(wanted, {u"qwen3-vl:2bx"_s, u"qwen3-vl:2b@sha256-abc"_s}),
        u"qwen3-vl:2b@sha256-abc"_s);
    EXPECT_EQ(LLMService::resolveInstalledModel(u"qwen3-vl"_s, {wanted}), std::nullopt);
    EXPECT_EQ(LLMService::resolveInstalledModel(wanted, {u"Qwen3-VL:2b"_s}), std::nullopt);
    EXPECT_EQ(LLMService::resolveInstalledModel(wanted, {}), std::nullopt);
}

TEST_F(LLMServiceTest, CachesTheInstalledListThirtySecondsNeverEmptyAndKeepsItThroughFailures)
{
    server.on("GET", "/api/tags", StandInServer::Reply {200, tagsBody({})});
    EXPECT_TRUE(waitForResult(service.fetchInstalledModelNames()).isEmpty());
    EXPECT_FALSE(waitForResult(service.checkLocalModel()));
    EXPECT_EQ(server.requestsTo("/api/tags").size(), 2);

    // Names in server order, entries without one skipped.
    server.on("GET", "/api/tags",
        StandInServer::Reply {
            200, R"({"models":[{"model":"nameless"},{"name":"b","x":1},{"name":""},{"name":"a"},{"name":"b"}]})"});
    const QStringList listed {u"b"_s, u""_s, u"a"_s, u"b"_s};
    EXPECT_EQ(waitForResult(service.fetchInstalledModelNames()), listed);
    server.on("GET", "/api/tags", StandInServer::Reply {200, tagsBody({u"qwen3-vl:4b"_s})});
    clock.advance(29);
    EXPECT_EQ(waitForResult(service.fetchInstalledModelNames()), listed);
    EXPECT_EQ(server.requestsTo("/api/tags").size(), 3);
    clock.advance(1);
    EXPECT_EQ(waitForResult(service.fetchInstalledModelNames()), QStringList {u"qwen3-vl:4b"_s});
    EXPECT_EQ(server.requestsTo("/api/tags").size(), 4);
    EXPECT_EQ(server.requestsTo("/api/tags").first().method, "GET");

    // The last step is a server that never answers: the request gives up after three seconds.
    const QList<StandInServer::Reply> failures {
        {.drop = true},
        {500, R"({"error":"boom"})"},
        {200, "not json"},
        {200, "{}"},
        {200, R"({"models":{"name":"x"}})"},
        {200, R"({"models":[{"name":"x"},"y"]})"},
        {.silent = true},
    };
    for (const StandInServer::Reply &failure : failures) {
        clock.advance(31);
        server.on("GET", "/api/tags", failure);
        const qsizetype asked = server.requestsTo("/api/tags").size();
        EXPECT_EQ(waitForResult(service.fetchInstalledModelNames()), QStringList {u"qwen3-vl:4b"_s})
            << failure.body.toStdString();
        EXPECT_GT(server.requestsTo("/api/tags").size(), asked) << "an aged list is never served without asking";
    }
    EXPECT_EQ(nam.transferTimeouts, QList<int>(nam.transferTimeouts.size(), 3000));
    EXPECT_TRUE(messages().isEmpty());
}

TEST_F(LLMServiceTest, MapsEveryFailureToTheUsersWords)
{
    LLMService offline {&nam, &settings, &logManager, QUrl(u"http://127.0.0.1:1"_s), &clock};
    const LLMError notRunning = failureOf<LLMError>(offline.resolvedModelTag());
    EXPECT_EQ(notRunning.kind(), LLMError::Kind::OllamaNotRunning);
    EXPECT_STREQ(
        notRunning.what(), "Ollama is not running. Start the Ollama service or run `ollama serve` in a terminal.");

    const QString notInstalled
        = u"Model \"qwen3-vl:2b\" is not installed. Run `ollama pull qwen3-vl:2b` in a terminal."_s;
    server.on("GET", "/api/tags", StandInServer::Reply {200, tagsBody({u"qwen3-vl:4b"_s})});
    const LLMError missing = failureOf<LLMError>(service.analyzeScreenshot("png"));
    EXPECT_EQ(missing.kind(), LLMError::Kind::LocalModelNotAvailable);
    EXPECT_EQ(missing.payload(), u"qwen3-vl:2b"_s);
    EXPECT_EQ(missing.errorDescription(), notInstalled);
    EXPECT_TRUE(server.requestsTo("/api/chat").isEmpty());

    server.on("GET", "/api/tags", StandInServer::Reply {200, tagsBody({u"qwen3-vl:2b"_s})});
    clock.advance(31);
    struct Case
    {
        StandInServer::Reply reply;
        LLMError::Kind kind;
        QString description;
    };
    const QList<Case> cases {
        {{404, R"({"error":"model 'qwen3-vl:2b' not found"})"}, LLMError::Kind::LocalModelNotAvailable, notInstalled},
        {{404, ""}, LLMError::Kind::LocalModelNotAvailable, notInstalled},
        {{500, R"({"error":"Model Not Found"})"}, LLMError::Kind::LocalModelNotAvailable, notInstalled},
        {{500, R"({"error":"out of memory"})"}, LLMError::Kind::RequestFailed, u"out of memory"_s},
        {{503, R"({"error":42})"}, LLMError::Kind::RequestFailed, u"Local model error"_s},
        {{500, "<html>oops</html>"}, LLMError::Kind::RequestFailed, u"Local model error"_s},
    };
    for (const Case &c : cases) {
        server.on("POST", "/api/chat", c.reply);
        const LLMError error = failureOf<LLMError>(service.analyzeScreenshot("png"));
        EXPECT_EQ(error.kind(), c.kind) << c.reply.body.toStdString();
        EXPECT_EQ(error.errorDescription(), c.description) << c.reply.body.toStdString();
    }

    // The chat's transport error passes through unwrapped.
    server.on("POST", "/api/chat", StandInServer::Reply {.drop = true});
    const TransportError error = failureOf<TransportError>(service.analyzeScreenshot("png"));
    EXPECT_EQ(error.code(), QNetworkReply::RemoteHostClosedError);
    EXPECT_FALSE(error.errorDescription().isEmpty());
}

TEST_F(LLMServiceTest, SendsTheExactAnalysisRequestToTheResolvedTag)
{
    server.on("GET", "/api/tags", StandInServer::Reply {200, tagsBody({u"llava"_s, u"qwen3-vl:2b-instruct"_s})});
    settings.setString(SettingsKey::categorizeBy, u"Coding, Browsing\nOther"_s);
    settings.setString(SettingsKey::userProjects, u"Website"_s);
    server.on("POST", "/api/chat",
        StandInServer::Reply {200, chatBody(u"{\"category\":\"coding\",\"projectName\":\"website\"}"_s)});
    const QByteArray image("\x89PNG\r\n\x1a\n\x00\xff\xfe", 11);

    waitForResult(service.analyzeScreenshot(image));

    const auto requests = server.requestsTo("/api/chat");
    ASSERT_EQ(requests.size(), 1);
    EXPECT_EQ(requests[0].method, "POST");
    EXPECT_EQ(requests[0].headers.value("content-type"), "application/json");
    EXPECT_FALSE(requests[0].body.contains('\n')) << "the body is compact";
    const QJsonObject body = jsonOf(requests[0].body);
    EXPECT_EQ(keysOf(body), (QStringList {u"keep_alive"_s, u"messages"_s, u"model"_s, u"stream"_s}));
    EXPECT_EQ(body[u"model"_s], u"qwen3-vl:2b-instruct"_s);
    EXPECT_EQ(body[u"stream"_s], false);
    EXPECT_TRUE(body[u"keep_alive"_s].isDouble());
    EXPECT_EQ(body[u"keep_alive"_s].toInt(-1), 0);
    ASSERT_EQ(body[u"messages"_s].toArray().size(), 1);
    const QJsonObject message = body[u"messages"_s].toArray()[0].toObject();
    EXPECT_EQ(keysOf(message), (QStringList {u"content"_s, u"images"_s, u"role"_s}));
    EXPECT_EQ(message[u"role"_s], u"user"_s);
    EXPECT_EQ(message[u"images"_s].toArray(), QJsonArray {u"iVBORw0KGgoA//4="_s});
    EXPECT_EQ(message[u"content"_s].toString(),
        u"Analyze this screenshot and provide a structured response in JSON format with the following fields:\n"
        "- category: Must be exactly one of: Coding, Browsing, Other, Other. Pick the best match for what the user "
        "is doing; use \"Other\" if none fit.\n"
        "- projectName: Must be exactly one of: Website, Other. Infer from window titles, folders, or context; use "
        "\"Other\" if none fit.\n"
        "- activityDescription: A detailed description of the current activity. Include file names, commit "
        "messages, design files, and any notable activity observed.\n\n"
        "Return ONLY valid JSON, no additional text. Format:\n{\n  \"category\": \"string\",\n  \"projectName\": "
        "\"string\",\n  \"activityDescription\": \"string\"\n}"_s);
    EXPECT_EQ(nam.transferTimeouts.last(), 60000);
    EXPECT_EQ(messages(), QStringList {u"🏠 Analyzing with local qwen3-vl:2b-instruct..."_s});
}

TEST_F(LLMServiceTest, WithoutUserListsThePromptOffersOtherAlone)
{
    server.on("POST", "/api/chat",
        StandInServer::Reply {200, chatBody(u"{\"category\":\"Coding\",\"projectName\":\"Website\"}"_s)});
    const AIAnalysisResult result = waitForResult(service.analyzeScreenshot("png"));
    EXPECT_EQ(result, (AIAnalysisResult {u"Other"_s, u"Other"_s, QString()}));
    const QString prompt = jsonOf(server.requestsTo("/api/chat")[0].body)[u"messages"_s][0][u"content"_s].toString();
    EXPECT_TRUE(prompt.contains(u"exactly one of: Other. Pick"_s));
    EXPECT_TRUE(prompt.contains(u"exactly one of: Other. Infer"_s));
}

TEST_F(LLMServiceTest, CutsTheObjectOutOfTheReplyAndNormalisesItsLabels)
{
    settings.setString(SettingsKey::categorizeBy, u"Coding, Design Review"_s);
    settings.setString(SettingsKey::userProjects, u"Website, Tamlo App"_s);
    struct Case
    {
        QString content;
        AIAnalysisResult expected;
    };
    const QList<Case> cases {
        {u"Here you go:\n```json\n{\"category\": \"CODING\", \"projectName\": \"tamlo\"}\n```\nDone."_s,
            {u"Coding"_s, u"Tamlo App"_s, QString()}},
        {u"  {\"category\":\"Other\",\"projectName\":7,\"activityDescription\":\"  Editing main.cpp \"}\n"_s,
            {u"Other"_s, u"Other"_s, u"  Editing main.cpp "_s}},
        {u"{\"category\":\"review\",\"projectName\":\"Blog\",\"activityDescription\":3}"_s,
            {u"Design Review"_s, u"Other"_s, QString()}},
    };
    for (const Case &c : cases) {
        server.on("POST", "/api/chat", StandInServer::Reply {200, chatBody(c.content)});
        EXPECT_EQ(waitForResult(service.analyzeScreenshot("png")), c.expected) << c.content.toStdString();
    }
}

TEST_F(LLMServiceTest, RejectsRepliesThatHoldNoSingleObject)
{
    for (const QString &content :
        {u"{\"category\":\"a\"} and {\"category\":\"b\"}"_s, u"} nothing here {"_s, u"no json at all"_s}) {
        server.on("POST", "/api/chat", StandInServer::Reply {200, chatBody(content)});
        failureOf<JsonParseError>(service.analyzeScreenshot("png"));
    }

    server.on("POST", "/api/chat", StandInServer::Reply {200, chatBody(u"[\"Coding\", \"Website\"]"_s)});
    EXPECT_EQ(
        failureOf<LLMError>(service.analyzeScreenshot("png")).errorDescription(), u"AI response not valid JSON"_s);

    for (const QByteArray &body : {QByteArray(R"({"message":{"thinking":"{}"}})"), QByteArray(R"({"message":"x"})"),
             QByteArray(R"([{"message":{"content":"{}"}}])")}) {
        server.on("POST", "/api/chat", StandInServer::Reply {200, body});
        const LLMError error = failureOf<LLMError>(service.analyzeScreenshot("png"));
        EXPECT_EQ(error.kind(), LLMError::Kind::InvalidResponse);
        EXPECT_EQ(error.errorDescription(), u"Invalid Ollama response"_s) << body.toStdString();
    }

    server.on("POST", "/api/chat", StandInServer::Reply {200, "<html>"});
    failureOf<JsonParseError>(service.analyzeScreenshot("png"));
}
