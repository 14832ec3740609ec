#include "llmservicefixture.h"

#include "ai/llmerror.h"

using namespace Qt::StringLiterals;
using namespace AiTest;

namespace {
ActivitySnapshot record(
    QTime time, const QString &project, const QString &description, std::optional<QString> note = std::nullopt)
{
    ActivitySnapshot s;
    s.id = QUuid::createUuid();
    s.timestamp = QDateTime(QDate(2026, 3, 9), time);
    s.aiCategory = u"Coding"_s;
    s.projectName = project;
    s.activityDescription = description;
    s.userNote = std::move(note);
    return s;
}

QString promptOf(const StandInServer::Request &request)
{
    return jsonOf(request.body)[u"messages"_s][0][u"content"_s].toString();
}

const QString rules = u"\n\nRules for \"summary\":\n- Write 2–4 sentences of plain, readable prose with normal spaces "
                      "between words.\n- Describe the overall themes of the day: what kind of work dominated, which "
                      "projects mattered, general focus.\n- Do NOT list individual tasks, file names, window titles, "
                      "tools, or step-by-step activities.\n- Do NOT mention minutes, hours, percentages, or project "
                      "time breakdowns.\n- Do NOT use bullet points inside the summary.\n- When user notes exist, "
                      "reflect their intent or outcomes at a high level.\n\nReturn ONLY valid JSON with a single "
                      "field:\n{\"summary\":\"string\"}"_s;
} // namespace

class DaySummaryTest : public LLMServiceTest
{
protected:
    void SetUp() override
    {
        LLMServiceTest::SetUp();
        server.on(
            "POST", "/api/chat", StandInServer::Reply {200, chatBody(u"{\"summary\":\"A calm day.Mostly code.\"}"_s)});
    }
};

TEST_F(DaySummaryTest, SendsTheWholePromptAndBodyForASmallDay)
{
    settings.setString(SettingsKey::userProjects, u"Website"_s);
    ActivitySnapshot locked = record(QTime(9, 5), u"Other"_s, ActivitySnapshot::screenStateMarker(ScreenState::Locked));
    const DaySummaryResult result
        = waitForResult(service.generateDaySummary({locked, record(QTime(9, 0), u"Website"_s, u"Editing"_s)}));

    EXPECT_EQ(result, (DaySummaryResult {u"A calm day. Mostly code."_s, {}}));
    const auto requests = server.requestsTo("/api/chat");
    ASSERT_EQ(requests.size(), 1);
    const QJsonObject body = jsonOf(requests[0].body);
    EXPECT_EQ(keysOf(body),
        (QStringList {u"format"_s, u"keep_alive"_s, u"messages"_s, u"model"_s, u"options"_s, u"stream"_s}));
    EXPECT_EQ(body[u"model"_s], u"qwen3-vl:2b"_s);
    EXPECT_EQ(body[u"format"_s], u"json"_s);
    EXPECT_EQ(body[u"stream"_s], false);
    EXPECT_EQ(body[u"keep_alive"_s].toInt(-1), 0);
    EXPECT_EQ(body[u"options"_s].toObject(), (QJsonObject {{u"num_predict"_s, 1024}}));
    EXPECT_EQ(keysOf(body[u"messages"_s][0].toObject()), (QStringList {u"content"_s, u"role"_s}));
    EXPECT_EQ(body[u"messages"_s][0][u"role"_s], u"user"_s);
    EXPECT_EQ(promptOf(requests[0]),
        u"You are a productivity analyst writing a brief end-of-day narrative for the user.\n\nDay statistics "
        "(already shown in separate report columns — do NOT repeat numbers, percentages, or durations in the "
        "summary):\n- Total active time: 0m\n- Projects: Website (0m, 100%)\n- Categories: Coding (0m, 100%)"
        "\n\nActivity log (compacted — for context only; do not enumerate entries):\n"
        "[9:00 AM] [Coding] [Website] Editing"
        "\n\nUser-authored notes (weave into the narrative when relevant):\n(none)"_s
            + rules);
    EXPECT_EQ(nam.transferTimeouts.last(), 180000);
}

TEST_F(DaySummaryTest, ShowsTheSixLargestProjectsAndTheNotes)
{
    QList<ActivitySnapshot> day;
    for (int project = 0; project < 10; ++project) {
        for (int i = 0; i <= project; ++i) {
            day.append(record(QTime(8, 0).addSecs(600 * project + 30 * i), u"P%1"_s.arg(project), u"Work"_s));
        }
    }
    day[3].userNote = u"  shipped v2 "_s;
    waitForResult(service.generateDaySummary(day));
    const QString prompt = promptOf(server.requestsTo("/api/chat").first());
    EXPECT_TRUE(prompt.contains(u"\n- Total active time: 27m\n- Projects: P9 (5m, 18%); P8 (4m, 16%); P7 (4m, 15%); "
                                "P6 (3m, 13%); P5 (3m, 11%); P4 (2m, 9%)\n- Categories: Coding (27m, 100%)\n"_s))
        << prompt.toStdString();
    EXPECT_TRUE(prompt.contains(u"weave into the narrative when relevant):\n- [8:20 AM] [P2] shipped v2\n\nRules"_s));
}

TEST_F(DaySummaryTest, RetriesWithAShorterLogAndWarnsOncePerFailure)
{
    QList<ActivitySnapshot> day;
    for (int i = 0; i < 60; ++i) {
        day.append(record(QTime(8, 0).addSecs(60 * i), u"Website"_s, u"step %1"_s.arg(i)));
    }
    int attempt = 0;
    server.on("POST", "/api/chat", [&attempt](const StandInServer::Request &) {
        return ++attempt < 3 ? StandInServer::Reply {500, R"({"error":"context too long"})"}
                             : StandInServer::Reply {200, chatBody(u"{\"summary\":\"Done.\"}"_s)};
    });

    EXPECT_EQ(waitForResult(service.generateDaySummary(day)).summary, u"Done."_s);

    const auto requests = server.requestsTo("/api/chat");
    ASSERT_EQ(requests.size(), 3);
    const auto logOf = [&](int i) {
        const QString prompt = promptOf(requests[i]);
        const qsizetype from = prompt.indexOf(u"entries):\n"_s) + 10;
        return prompt.mid(from, prompt.indexOf(u"\n\nUser-authored"_s) - from).split(u'\n');
    };
    // 51 compacted lines: 25, the compactor's marker, 25.
    const QStringList first = logOf(0);
    ASSERT_EQ(first.size(), 51);
    EXPECT_EQ(first[24], u"[8:24 AM] [Coding] [Website] step 24"_s);
    EXPECT_EQ(first[25], u"[…] (1 additional activity groups omitted)"_s);
    EXPECT_EQ(first[26], u"[8:35 AM] [Coding] [Website] step 35"_s);
    const QStringList second = logOf(1);
    ASSERT_EQ(second.size(), 31);
    EXPECT_EQ(second[15], u"[…] (21 additional activity groups omitted)"_s);
    const QStringList third = logOf(2);
    ASSERT_EQ(third.size(), 15);
    EXPECT_EQ(third[7], u"[…] (37 additional activity groups omitted)"_s);
    EXPECT_EQ(third.last(), u"[8:59 AM] [Coding] [Website] step 59"_s);

    EXPECT_EQ(messages(),
        (QStringList {u"⚠️ Day summary attempt failed (50 groups): context too long"_s,
            u"⚠️ Day summary attempt failed (30 groups): context too long"_s}));
}

TEST_F(DaySummaryTest, TurnsUnusableRepliesIntoTheirOwnErrors)
{
    const QList<ActivitySnapshot> day {record(QTime(9, 0), u"A"_s, u"B"_s)};
    server.on("POST", "/api/chat", StandInServer::Reply {200, chatBody(u"{\"summary\":\"  \"}"_s)});
    EXPECT_EQ(failureOf<LLMError>(service.generateDaySummary(day)).errorDescription(),
        u"Day summary response missing summary field"_s);
    server.on("POST", "/api/chat", StandInServer::Reply {500, "busy"});
    EXPECT_EQ(failureOf<LLMError>(service.generateDaySummary(day)).errorDescription(), u"Day summary request failed"_s);
    server.on("POST", "/api/chat",
        StandInServer::Reply {
            200, R"({"message":{"content":"","thinking":"<think>x</think>{\"summary\":\"Fine.\"}"}})"});
    EXPECT_EQ(waitForResult(service.generateDaySummary(day)).summary, u"Fine."_s);
}
