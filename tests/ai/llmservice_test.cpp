#include "ai/jsonparseerror.h"
#include "ai/llmerror.h"
#include "ai/llmservice.h"
#include "ai/transporterror.h"
#include "core/settings.h"

#include "fakeclock.h"
#include "logmessages.h"
#include "records.h"
#include "standinollama.h"
#include "standinserver.h"
#include "waitforresult.h"

#include <QJsonArray>
#include <QNetworkAccessManager>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using StandInOllama::chatBody;
using StandInOllama::tagsBody;

namespace {
QString promptOf(const StandInServer::Request &request)
{
    return request.json()[u"messages"_s][0][u"content"_s].toString();
}

ActivitySnapshot at(QTime time, const QString &project, const QString &description)
{
    return recordAt(QDateTime(QDate(2026, 3, 9), time), u"Coding"_s, project, description);
}

const QString notInstalled = u"Model \"qwen3-vl:2b\" is not installed. Run `ollama pull qwen3-vl:2b` in a terminal."_s;

class LLMServiceTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(home.isValid());
        installed({u"qwen3-vl:2b"_s});
    }

    void installed(const QStringList &names)
    {
        server.on("GET", "/api/tags", StandInServer::Reply {200, tagsBody(names)});
    }

    void answer(const QString &content)
    {
        server.on("POST", "/api/chat", StandInServer::Reply {200, chatBody(content)});
    }

    QTemporaryDir home;
    Settings settings {home.filePath(u"Tamlo.conf"_s)};
    FakeClock clock;
    LogManager logManager {&clock};
    QNetworkAccessManager nam;
    StandInServer server;
    LLMService service {&nam, &settings, &logManager, server.url(), &clock};
};
} // namespace

TEST_F(LLMServiceTest, KeepsOnlyAKnownChoiceOfModelAndCachesTheInstalledListThirtySecondsNeverEmpty)
{
    settings.setString(SettingsKey::selectedOllamaModel, u"qwen3-vl:4b"_s);
    service.configure();
    settings.setString(SettingsKey::selectedOllamaModel, u"llava:7b"_s);
    service.configure();
    EXPECT_EQ(service.localModelName(), u"qwen3-vl:2b"_s);
    EXPECT_EQ(settings.string(SettingsKey::selectedOllamaModel), u"qwen3-vl:2b"_s);
    // An unknown name changes nothing, not even the cached list; a new choice asks the server again.
    EXPECT_TRUE(waitForResult(service.checkLocalModel()));
    service.selectModel(u"llava:7b"_s);
    EXPECT_TRUE(waitForResult(service.checkLocalModel()));
    service.selectModel(u"qwen3-vl:4b"_s);
    EXPECT_EQ(settings.string(SettingsKey::selectedOllamaModel), u"qwen3-vl:4b"_s);
    EXPECT_FALSE(waitForResult(service.checkLocalModel()));
    EXPECT_EQ(server.requestsTo("/api/tags").size(), 2);

    // An empty list is asked for again; names come in server order, entries without one skipped.
    installed({});
    clock.advance(31);
    EXPECT_FALSE(waitForResult(service.checkLocalModel()));
    EXPECT_TRUE(waitForResult(service.fetchInstalledModelNames()).isEmpty());
    EXPECT_EQ(server.requestsTo("/api/tags").size(), 4);
    server.on("GET", "/api/tags",
        StandInServer::Reply {200, R"({"models":[{"model":"nameless"},{"name":"b","x":1},{"name":""},{"name":"a"}]})"});
    const QStringList listed {u"b"_s, u""_s, u"a"_s};
    EXPECT_EQ(waitForResult(service.fetchInstalledModelNames()), listed);
    installed({u"qwen3-vl:4b"_s});
    clock.advance(29);
    EXPECT_EQ(waitForResult(service.fetchInstalledModelNames()), listed);
    clock.advance(1);
    EXPECT_EQ(waitForResult(service.fetchInstalledModelNames()), QStringList {u"qwen3-vl:4b"_s});
    // A failed fetch keeps the last list, and an aged list is never served without asking.
    for (const StandInServer::Reply &failure :
        {StandInServer::Reply {.drop = true}, {500, R"({"error":"boom"})"}, {200, "not json"}, {200, "{}"},
            {200, R"({"models":{"name":"x"}})"}, {200, R"({"models":[{"name":"x"},"y"]})"}}) {
        clock.advance(31);
        server.on("GET", "/api/tags", failure);
        const qsizetype asked = server.requestsTo("/api/tags").size();
        EXPECT_EQ(waitForResult(service.fetchInstalledModelNames()), QStringList {u"qwen3-vl:4b"_s})
            << failure.body.toStdString();
        EXPECT_GT(server.requestsTo("/api/tags").size(), asked);
    }
    EXPECT_TRUE(logMessages(logManager).isEmpty());

    // Exact tags before prefixes, and a prefix only behind a dash or an at sign.
    const QString wanted = u"qwen3-vl:2b"_s;
    for (const auto &[names, resolved] : QList<std::pair<QStringList, std::optional<QString>>> {
             {{u"qwen3-vl:2b-q4"_s, wanted}, wanted}, {{u"qwen3-vl:2b-q4"_s, u"qwen3-vl:2b-q8"_s}, u"qwen3-vl:2b-q4"_s},
             {{u"qwen3-vl:2bx"_s, u"qwen3-vl:2b@sha256-abc"_s}, u"qwen3-vl:2b@sha256-abc"_s},
             {{u"Qwen3-VL:2b"_s, u"qwen3-vl"_s}, std::nullopt}}) {
        EXPECT_EQ(LLMService::resolveInstalledModel(wanted, names), resolved) << names.join(u' ').toStdString();
    }
}

TEST_F(LLMServiceTest, MapsEveryFailureToTheUsersWords)
{
    installed({u"qwen3-vl:4b"_s});
    EXPECT_EQ(failureOf<LLMError>(service.analyzeScreenshot("png")).errorDescription(), notInstalled);
    EXPECT_TRUE(server.requestsTo("/api/chat").isEmpty());

    installed({u"qwen3-vl:2b"_s});
    clock.advance(31);
    using Kind = LLMError::Kind;
    for (const auto &[reply, kind, description] : QList<std::tuple<StandInServer::Reply, Kind, QString>> {
             {{404, R"({"error":"model 'qwen3-vl:2b' not found"})"}, Kind::LocalModelNotAvailable, notInstalled},
             {{404, ""}, Kind::LocalModelNotAvailable, notInstalled},
             {{500, R"({"error":"Model Not Found"})"}, Kind::LocalModelNotAvailable, notInstalled},
             {{500, R"({"error":"out of memory"})"}, Kind::RequestFailed, u"out of memory"_s},
             {{503, R"({"error":42})"}, Kind::RequestFailed, u"Local model error"_s},
             {{500, "<html>oops</html>"}, Kind::RequestFailed, u"Local model error"_s},
             {{200, R"({"message":{"thinking":"{}"}})"}, Kind::InvalidResponse, u"Invalid Ollama response"_s},
             {{200, chatBody(u"[\"Coding\"]"_s)}, Kind::InvalidResponse, u"AI response not valid JSON"_s}}) {
        server.on("POST", "/api/chat", reply);
        const LLMError error = failureOf<LLMError>(service.analyzeScreenshot("png"));
        EXPECT_EQ(std::pair(error.kind(), error.errorDescription()), std::pair(kind, description))
            << reply.body.toStdString();
    }

    // Text that holds no single object, and the chat's transport error, pass through unwrapped.
    answer(u"{\"category\":\"a\"} and {\"category\":\"b\"}"_s);
    failureOf<JsonParseError>(service.analyzeScreenshot("png"));
    server.on("POST", "/api/chat", StandInServer::Reply {.drop = true});
    EXPECT_EQ(failureOf<TransportError>(service.analyzeScreenshot("png")).code(), QNetworkReply::RemoteHostClosedError);
}

TEST_F(LLMServiceTest, SendsTheExactAnalysisRequestToTheResolvedTagAndNormalisesTheLabels)
{
    installed({u"llava"_s, u"qwen3-vl:2b-instruct"_s});
    settings.setString(SettingsKey::categorizeBy, u"Coding, Browsing\nOther"_s);
    settings.setString(SettingsKey::userProjects, u"Website"_s);
    answer(u"{}"_s);
    waitForResult(service.analyzeScreenshot(QByteArray("\x89PNG\r\n\x1a\n\x00\xff\xfe", 11)));

    const auto requests = server.requestsTo("/api/chat");
    ASSERT_EQ(requests.size(), 1);
    EXPECT_EQ(requests[0].headers.value("content-type"), "application/json");
    const QString prompt
        = u"Analyze this screenshot and provide a structured response in JSON format with the following fields:\n"
          "- category: Must be exactly one of: Coding, Browsing, Other, Other. Pick the best match for what the user "
          "is doing; use \"Other\" if none fit.\n"
          "- projectName: Must be exactly one of: Website, Other. Infer from window titles, folders, or context; use "
          "\"Other\" if none fit.\n"
          "- activityDescription: A detailed description of the current activity. Include file names, commit "
          "messages, design files, and any notable activity observed.\n\n"
          "Return ONLY valid JSON, no additional text. Format:\n{\n  \"category\": \"string\",\n  \"projectName\": "
          "\"string\",\n  \"activityDescription\": \"string\"\n}"_s;
    EXPECT_EQ(requests[0].json(),
        (QJsonObject {{u"model"_s, u"qwen3-vl:2b-instruct"_s}, {u"stream"_s, false}, {u"keep_alive"_s, 0},
            {u"messages"_s,
                QJsonArray {QJsonObject {{u"role"_s, u"user"_s}, {u"content"_s, prompt},
                    {u"images"_s, QJsonArray {u"iVBORw0KGgoA//4="_s}}}}}}));
    EXPECT_EQ(logMessages(logManager).last(), u"🏠 Analyzing with local qwen3-vl:2b-instruct..."_s);

    // The object is cut out of whatever surrounds it, and its labels take the user's spelling or Other.
    settings.setString(SettingsKey::userProjects, u"Website, Tamlo App"_s);
    answer(u"Here you go:\n```json\n{\"category\": \"CODING\", \"projectName\": \"tamlo\", \"activityDescription\": "
           u"3}\n```\nDone."_s);
    EXPECT_EQ(
        waitForResult(service.analyzeScreenshot("png")), (AIAnalysisResult {u"Coding"_s, u"Tamlo App"_s, QString()}));
}

TEST_F(LLMServiceTest, DaySummarySendsTheWholePromptWithTheSixLargestProjectsAndTheNotes)
{
    answer(u"{\"summary\":\"A calm day.Mostly code.\"}"_s);
    settings.setString(SettingsKey::userProjects, u"Website"_s);
    const ActivitySnapshot locked = markerAt(QDateTime(QDate(2026, 3, 9), QTime(9, 5)), ScreenState::Locked);
    EXPECT_EQ(waitForResult(service.generateDaySummary({locked, at(QTime(9, 0), u"Website"_s, u"Editing"_s)})),
        (DaySummaryResult {u"A calm day. Mostly code."_s, {}}));
    const auto requests = server.requestsTo("/api/chat");
    ASSERT_EQ(requests.size(), 1);
    const QString prompt
        = u"You are a productivity analyst writing a brief end-of-day narrative for the user.\n\nDay statistics "
          "(already shown in separate report columns — do NOT repeat numbers, percentages, or durations in the "
          "summary):\n- Total active time: 0m\n- Projects: Website (0m, 100%)\n- Categories: Coding (0m, 100%)"
          "\n\nActivity log (compacted — for context only; do not enumerate entries):\n"
          "[9:00 AM] [Coding] [Website] Editing"
          "\n\nUser-authored notes (weave into the narrative when relevant):\n(none)"
          "\n\nRules for \"summary\":\n- Write 2–4 sentences of plain, readable prose with normal spaces "
          "between words.\n- Describe the overall themes of the day: what kind of work dominated, which "
          "projects mattered, general focus.\n- Do NOT list individual tasks, file names, window titles, "
          "tools, or step-by-step activities.\n- Do NOT mention minutes, hours, percentages, or project "
          "time breakdowns.\n- Do NOT use bullet points inside the summary.\n- When user notes exist, "
          "reflect their intent or outcomes at a high level.\n\nReturn ONLY valid JSON with a single "
          "field:\n{\"summary\":\"string\"}"_s;
    EXPECT_EQ(requests[0].json(),
        (QJsonObject {{u"model"_s, u"qwen3-vl:2b"_s}, {u"format"_s, u"json"_s}, {u"stream"_s, false},
            {u"keep_alive"_s, 0}, {u"options"_s, QJsonObject {{u"num_predict"_s, 1024}}},
            {u"messages"_s, QJsonArray {QJsonObject {{u"role"_s, u"user"_s}, {u"content"_s, prompt}}}}}));

    QList<ActivitySnapshot> day;
    for (int project = 0; project < 10; ++project) {
        for (int i = 0; i <= project; ++i) {
            day.append(at(QTime(8, 0).addSecs(600 * project + 30 * i), u"P%1"_s.arg(project), u"Work"_s));
        }
    }
    day[3].userNote = u"  shipped v2 "_s;
    waitForResult(service.generateDaySummary(day));
    const QString large = promptOf(server.requestsTo("/api/chat").last());
    EXPECT_TRUE(large.contains(u"\n- Total active time: 27m\n- Projects: P9 (5m, 18%); P8 (4m, 16%); P7 (4m, 15%); "
                               "P6 (3m, 13%); P5 (3m, 11%); P4 (2m, 9%)\n- Categories: Coding (27m, 100%)\n"_s))
        << large.toStdString();
    EXPECT_TRUE(large.contains(u"weave into the narrative when relevant):\n- [8:20 AM] [P2] shipped v2\n\nRules"_s));
}

TEST_F(LLMServiceTest, DaySummaryRetriesWithAShorterLogAndTurnsUnusableRepliesIntoTheirOwnErrors)
{
    QList<ActivitySnapshot> day;
    for (int i = 0; i < 60; ++i) {
        day.append(at(QTime(8, 0).addSecs(60 * i), u"Website"_s, u"step %1"_s.arg(i)));
    }
    int attempt = 0;
    server.on("POST", "/api/chat", [&attempt](const StandInServer::Request &) {
        return ++attempt < 3 ? StandInServer::Reply {500, R"({"error":"context too long"})"}
                             : StandInServer::Reply {200, chatBody(u"{\"summary\":\"Done.\"}"_s)};
    });
    EXPECT_EQ(waitForResult(service.generateDaySummary(day)).summary, u"Done."_s);
    const auto requests = server.requestsTo("/api/chat");
    ASSERT_EQ(requests.size(), 3);
    // Each log is both ends of the compacted lines around one omission line.
    for (const auto &[i, size, marker, omitted] : {std::tuple {0, 51, 25, 1}, {1, 31, 15, 21}, {2, 15, 7, 37}}) {
        const QString prompt = promptOf(requests[i]);
        const qsizetype from = prompt.indexOf(u"entries):\n"_s) + 10;
        const QStringList log = prompt.mid(from, prompt.indexOf(u"\n\nUser-authored"_s) - from).split(u'\n');
        ASSERT_EQ(log.size(), size);
        EXPECT_EQ(log[marker], u"[…] (%1 additional activity groups omitted)"_s.arg(omitted));
        EXPECT_EQ(log.last(), u"[8:59 AM] [Coding] [Website] step 59"_s);
    }

    const QList<ActivitySnapshot> small {at(QTime(9, 0), u"A"_s, u"B"_s)};
    answer(u"{\"summary\":\"  \"}"_s);
    EXPECT_EQ(failureOf<LLMError>(service.generateDaySummary(small)).errorDescription(),
        u"Day summary response missing summary field"_s);
    server.on("POST", "/api/chat", StandInServer::Reply {500, "busy"});
    EXPECT_EQ(
        failureOf<LLMError>(service.generateDaySummary(small)).errorDescription(), u"Day summary request failed"_s);
}
