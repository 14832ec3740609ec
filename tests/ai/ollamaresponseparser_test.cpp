#include "ai/jsonparseerror.h"
#include "ai/llmerror.h"
#include "ai/ollamaresponseparser.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
namespace Parser = OllamaResponseParser;

namespace {
QByteArray envelope(const QJsonObject &message)
{
    return QJsonDocument(QJsonObject {{u"message"_s, message}}).toJson(QJsonDocument::Compact);
}

template<typename Call>
QString invalidResponseText(const Call &call)
{
    try {
        (void)call();
    } catch (const LLMError &error) {
        EXPECT_EQ(error.kind(), LLMError::Kind::InvalidResponse);
        return error.errorDescription();
    }
    ADD_FAILURE() << "no LLMError";
    return {};
}
} // namespace

TEST(OllamaResponseParserTest, TakesContentFirstAndThinkingOnlyInPlaceOfABlankAnswer)
{
    EXPECT_EQ(Parser::extractAssistantContent(envelope({{u"content"_s, u" {\"a\":1} "_s}, {u"thinking"_s, u"h"_s}})),
        u" {\"a\":1} "_s);
    EXPECT_EQ(Parser::extractAssistantContent(envelope({{u"content"_s, u" \n\t"_s}, {u"thinking"_s, u" idea "_s}})),
        u" idea "_s);
    EXPECT_EQ(invalidResponseText([] { return Parser::extractAssistantContent("[1]"); }),
        u"Invalid Ollama response envelope"_s);
    for (const QByteArray &body : {QByteArray(R"({"done":true})"), QByteArray(R"({"message":"text"})"),
             envelope({{u"content"_s, u"  "_s}, {u"thinking"_s, 5}})}) {
        EXPECT_EQ(invalidResponseText([&] { return Parser::extractAssistantContent(body); }),
            u"Empty response from local model"_s);
    }
    EXPECT_THROW((void)Parser::extractAssistantContent("not json"), JsonParseError);
}

TEST(OllamaResponseParserTest, FindsTheObjectBehindFencesReasoningAndProseOrSaysWhyNot)
{
    for (const QString &text :
        {u"{\"summary\":\"A\"}"_s, u"```json\n{\"summary\":\"A\"}\n```"_s, u"```\n{\"summary\":\"A\"}```"_s,
            u"<think>I could answer {\"summary\":\"wrong\"} or not}</think>\n{\"summary\":\"A\"}"_s,
            u"<THINK >first</think>middle<Think>{\"x\":1}</think> ```json\n{\"summary\":\"A\"}\n```"_s,
            u"<redacted_reasoning>{oops}</redacted_reasoning>{\"summary\":\"A\"}"_s,
            u"Sure! Here it is: {\"summary\":\"A\"} Hope this helps."_s, u"\"{\\\"summary\\\":\\\"A\\\"}\""_s}) {
        EXPECT_EQ(Parser::parseJSONObject(text), (QJsonObject {{u"summary"_s, u"A"_s}})) << text.toStdString();
    }
    EXPECT_EQ(invalidResponseText([] { return Parser::parseJSONObject(u"no braces at all"_s); }),
        u"Day summary response not valid JSON: illegal value"_s);
    // Every reading parses, none to an object: there is no parser message to give.
    EXPECT_EQ(invalidResponseText([] { return Parser::parseJSONObject(u"[1, 2]"_s); }),
        u"Day summary response not valid JSON"_s);
}

TEST(OllamaResponseParserTest, ReadsTheSummaryOrTheOneUnderAnalysisAsOneLineWithABlankAfterEachSentence)
{
    const auto summaryOf
        = [](const char *json) { return Parser::parseSummary(QJsonDocument::fromJson(json).object()); };
    EXPECT_EQ(summaryOf(R"({"summary":"  Good day.  "})"), u"Good day."_s);
    EXPECT_EQ(summaryOf(R"({"summary":"   ","analysis":{"summary":"Nested."}})"), u"Nested."_s);
    EXPECT_EQ(summaryOf(R"({"summary":5,"analysis":{"summary":"Nested."}})"), u"Nested."_s);
    for (const char *none :
        {R"({"summary":5})", R"({"analysis":"Flat."})", R"({"analysis":{"analysis":{"summary":"x"}}})"}) {
        EXPECT_EQ(summaryOf(none), QString()) << none;
    }
    EXPECT_EQ(Parser::normalizeSummaryText(u" Worked\u00a0on  the\nsite.Then mail!Done?Yes \t"_s),
        u"Worked on the site. Then mail! Done? Yes"_s);
    EXPECT_EQ(Parser::normalizeSummaryText(u"Version 3.5 shipped in report.pdf\u2003today"_s),
        u"Version 3.5 shipped in report. pdf today"_s);
}
