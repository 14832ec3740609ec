#include "fuzzentrypoints.h"
#include "fuzzenvironment.h"

#include "ai/jsonparseerror.h"
#include "ai/llmerror.h"
#include "ai/llmservice.h"
#include "ai/ollamaresponseparser.h"
#include "ai/transporterror.h"
#include "core/settings.h"
#include "core/userpreferences.h"
#include "fakeclock.h"
#include "standinserver.h"

#include <QCoroTask>
#include <QNetworkAccessManager>
#include <QRegularExpression>

using namespace Qt::StringLiterals;
using FuzzEnvironment::require;

namespace {
void requireNormalized(const QString &text)
{
    require(text == text.trimmed(), "a normalised summary has blanks at its ends");
    static const QRegularExpression twoBlanks(u"\\s\\s"_s, QRegularExpression::UseUnicodePropertiesOption);
    require(!text.contains(twoBlanks), "a normalised summary holds a run of blanks");
    require(!text.contains(QChar(0x00A0)), "a normalised summary holds a no-break space");
    require(OllamaResponseParser::normalizeSummaryText(text) == text, "normalising twice changes the summary");
}

// One stand-in Ollama for the whole run, with the default model installed.
struct OllamaStandIn
{
    StandInServer server;
    QNetworkAccessManager nam;
    LLMService service;
    StandInServer::Reply chatReply;

    OllamaStandIn()
        : service(
            &nam, FuzzEnvironment::settings(), FuzzEnvironment::logManager(), server.url(), FuzzEnvironment::clock())
    {
        server.on("GET", "/api/tags", StandInServer::Reply {200, R"({"models":[{"name":"qwen3-vl:2b"}]})"});
        server.on("POST", "/api/chat", [this](const StandInServer::Request &) { return chatReply; });
        service.configure();
    }
};
// waitFor never returns from a task that throws, so the failure comes out as a value.
struct Analysis
{
    std::optional<AIAnalysisResult> result;
    std::exception_ptr error;
};

QCoro::Task<Analysis> analyze(LLMService *service)
{
    Analysis outcome;
    try {
        outcome.result = co_await service->analyzeScreenshot(QByteArray("\x89PNG"));
    } catch (...) {
        outcome.error = std::current_exception();
    }
    co_return outcome;
}
} // namespace

int FuzzEntry::ollamaResponseParser(const uint8_t *data, size_t size)
{
    const QByteArray body = FuzzEnvironment::bytes(data, size);
    requireNormalized(OllamaResponseParser::normalizeSummaryText(QString::fromUtf8(body)));
    try {
        const QString content = OllamaResponseParser::extractAssistantContent(body);
        require(!content.trimmed().isEmpty(), "the assistant's text is blank");
        const QJsonObject object = OllamaResponseParser::parseJSONObject(content);
        requireNormalized(OllamaResponseParser::parseSummary(object));
    } catch (const LLMError &error) {
        require(
            error.kind() == LLMError::Kind::InvalidResponse, "a reply failed with another kind than invalidResponse");
    } catch (const JsonParseError &) {
    }
    FuzzEnvironment::drainEvents();
    return 0;
}

int FuzzEntry::screenshotReply(const uint8_t *data, size_t size)
{
    static OllamaStandIn ollama;
    ollama.server.clearRequests();
    static constexpr int statuses[] = {200, 200, 200, 201, 400, 404, 500, 503};
    ollama.chatReply.status = size > 0 ? statuses[data[0] % std::size(statuses)] : 200;
    ollama.chatReply.body = size > 0 ? FuzzEnvironment::bytes(data + 1, size - 1) : QByteArray();

    const QStringList categories
        = UserPreferences::parsedList(FuzzEnvironment::settings()->string(SettingsKey::categorizeBy));
    const QStringList projects
        = UserPreferences::parsedList(FuzzEnvironment::settings()->string(SettingsKey::userProjects));
    const Analysis outcome = QCoro::waitFor(analyze(&ollama.service));
    try {
        if (outcome.error) {
            std::rethrow_exception(outcome.error);
        }
        const AIAnalysisResult result = *outcome.result;
        require(ollama.chatReply.status / 100 == 2, "a failing status gave a result");
        require(categories.contains(result.category) || result.category == u"Other"_s,
            "a category outside the user's list");
        require(projects.contains(result.projectName) || result.projectName == u"Other"_s,
            "a project outside the user's list");
    } catch (const LLMError &error) {
        require(error.kind() != LLMError::Kind::OllamaNotRunning, "the installed model was not found");
    } catch (const JsonParseError &) {
        require(ollama.chatReply.status / 100 == 2, "a failing status raised a parser error");
    } catch (const TransportError &) {
        FuzzEnvironment::fail("the stand-in's reply did not arrive");
    }
    FuzzEnvironment::drainEvents();
    return 0;
}
