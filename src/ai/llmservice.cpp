#include "ai/llmservice.h"

#include "ai/activitylogcompactor.h"
#include "ai/jsonparseerror.h"
#include "ai/ollamaresponseparser.h"
#include "ai/transporterror.h"
#include "core/clock.h"
#include "core/logmanager.h"
#include "core/settings.h"
#include "core/textlimits.h"
#include "core/transporttext.h"
#include "core/userpreferences.h"
#include "reports/activityreportcalculator.h"

#include <QCoroNetworkReply>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

#include <memory>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcAi, "tamlo.ai")

namespace {
const QString otherLabel = UserPreferences::otherLabel;

struct ReplyDeleter
{
    void operator()(QNetworkReply *reply) const { reply->deleteLater(); }
};
using ReplyPtr = std::unique_ptr<QNetworkReply, ReplyDeleter>;

bool isSuccess(std::optional<int> status)
{
    return status && *status >= 200 && *status <= 299;
}

// No HTTP reply at all, or one cut short: the connection's own failure, not the server's answer.
bool isTransportFailure(const QNetworkReply *reply, std::optional<int> status)
{
    const QNetworkReply::NetworkError error = reply->error();
    if (error == QNetworkReply::NoError) {
        return false;
    }
    return !status || error < QNetworkReply::ContentAccessDenied;
}

std::optional<int> httpStatus(const QNetworkReply *reply)
{
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid()) {
        return std::nullopt;
    }
    return status.toInt();
}

// The names of a /api/tags reply in the server's order; none when the reply is not of that shape.
std::optional<QStringList> installedNames(const QByteArray &body)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    const QJsonValue models = document.object().value(u"models"_s);
    if (!document.isObject() || !models.isArray()) {
        return std::nullopt;
    }
    const QJsonArray array = models.toArray();
    QStringList names;
    for (const QJsonValue &entry : array) {
        if (!entry.isObject()) {
            return std::nullopt;
        }
        const QJsonValue name = entry.toObject().value(u"name"_s);
        if (name.isString()) {
            names.append(name.toString());
        }
    }
    return names;
}

// The analysis reply carries one object, often inside prose or a fence: keep the outermost braces.
QString cutOutObject(const QString &text)
{
    const qsizetype open = text.indexOf(u'{');
    const qsizetype close = text.lastIndexOf(u'}');
    if (open >= 0 && close >= 0 && open < close) {
        return text.mid(open, close - open + 1);
    }
    return text;
}

std::optional<QString> optionalString(const QJsonObject &object, const QString &key)
{
    const QJsonValue value = object.value(key);
    if (!value.isString()) {
        return std::nullopt;
    }
    return value.toString();
}

QString formatLabelStats(const QList<LabelTimeStat> &stats)
{
    constexpr qsizetype shownEntries = 6;
    QStringList entries;
    for (const LabelTimeStat &stat : stats.first(std::min(shownEntries, stats.size()))) {
        entries.append(stat.name + u" ("_s + ActivityReportCalculator::formatDuration(stat.seconds) + u", "_s
            + QString::number(ActivityReportCalculator::roundedPercentage(stat.percentage)) + u"%)"_s);
    }
    return entries.isEmpty() ? u"n/a"_s : entries.join(u"; "_s);
}

QString formatStatsBlock(
    qint64 totalSeconds, const QList<LabelTimeStat> &projects, const QList<LabelTimeStat> &categories)
{
    return u"- Total active time: "_s + ActivityReportCalculator::formatDuration(totalSeconds) + u"\n- Projects: "_s
        + formatLabelStats(projects) + u"\n- Categories: "_s + formatLabelStats(categories);
}

// The log of one attempt: the lines whole when they fit, else both ends around one omission line.
QString daySummaryPrompt(const QString &stats, const QStringList &lines, const QString &noteText, int limit)
{
    QStringList log;
    if (lines.size() <= limit) {
        log = lines;
    } else {
        const qsizetype half = limit / 2;
        log = lines.first(half);
        log.append(u"[…] ("_s + QString::number(lines.size() - 2 * half) + u" additional activity groups omitted)"_s);
        log.append(lines.last(half));
    }
    return u"You are a productivity analyst writing a brief end-of-day narrative for the user.\n\nDay statistics "
           "(already shown in separate report columns — do NOT repeat numbers, percentages, or durations in the "
           "summary):\n"_s
        + stats + u"\n\nActivity log (compacted — for context only; do not enumerate entries):\n"_s + log.join(u'\n')
        + u"\n\nUser-authored notes (weave into the narrative when relevant):\n"_s + noteText
        + u"\n\nRules for \"summary\":\n- Write 2–4 sentences of plain, readable prose with normal spaces between "
          "words.\n- Describe the overall themes of the day: what kind of work dominated, which projects mattered, "
          "general focus.\n- Do NOT list individual tasks, file names, window titles, tools, or step-by-step "
          "activities.\n- Do NOT mention minutes, hours, percentages, or project time breakdowns.\n- Do NOT use "
          "bullet points inside the summary.\n- When user notes exist, reflect their intent or outcomes at a high "
          "level.\n\nReturn ONLY valid JSON with a single field:\n{\"summary\":\"string\"}"_s;
}
} // namespace

QUrl LLMService::defaultBaseUrl()
{
    return QUrl(u"http://127.0.0.1:11434"_s);
}

QStringList LLMService::availableModelNames()
{
    return {defaultModelName, u"qwen3-vl:4b"_s};
}

QString LLMService::analysisPrompt(const QStringList &categories, const QStringList &projects)
{
    // "Other" is appended without looking, so a list that holds it already shows it twice.
    const QString allowedCategories = QStringList(categories + QStringList {otherLabel}).join(u", "_s);
    const QString allowedProjects = QStringList(projects + QStringList {otherLabel}).join(u", "_s);
    return u"Analyze this screenshot and provide a structured response in JSON format with the following fields:\n"
           "- category: Must be exactly one of: "_s
        + allowedCategories + u". Pick the best match for what the user is doing; use \""_s + otherLabel
        + u"\" if none fit.\n- projectName: Must be exactly one of: "_s + allowedProjects
        + u". Infer from window titles, folders, or context; use \""_s + otherLabel
        + u"\" if none fit.\n- activityDescription: A detailed description of the current activity. Include file "
          "names, commit messages, design files, and any notable activity observed.\n\nReturn ONLY valid JSON, no "
          "additional text. Format:\n{\n  \"category\": \"string\",\n  \"projectName\": \"string\",\n  "
          "\"activityDescription\": \"string\"\n}"_s;
}

QJsonObject LLMService::analysisRequestBody(const QString &tag, const QString &prompt, const QString &base64Image)
{
    const QJsonObject message {
        {u"role"_s, u"user"_s},
        {u"content"_s, prompt},
        {u"images"_s, QJsonArray {base64Image}},
    };
    return QJsonObject {
        {u"model"_s, tag},
        {u"messages"_s, QJsonArray {message}},
        {u"stream"_s, false},
        {u"keep_alive"_s, 0},
    };
}

LLMService::LLMService(QNetworkAccessManager *nam, Settings *settings, LogManager *logManager, QUrl baseUrl,
    const Clock *clock, LLMTimeouts timeouts, QObject *parent)
    : QObject(parent)
    , m_nam(nam)
    , m_settings(settings)
    , m_logManager(logManager)
    , m_localModelURL(std::move(baseUrl))
    , m_clock(clock)
    , m_timeouts(timeouts)
{
}

void LLMService::configure()
{
    const std::optional<QString> stored = m_settings->optionalString(SettingsKey::selectedOllamaModel);
    if (stored && availableModelNames().contains(*stored)) {
        setLocalModelName(*stored);
        return;
    }
    setLocalModelName(defaultModelName);
    m_settings->setString(SettingsKey::selectedOllamaModel, defaultModelName);
}

void LLMService::selectModel(const QString &name)
{
    if (!availableModelNames().contains(name)) {
        return;
    }
    setLocalModelName(name);
    m_settings->setString(SettingsKey::selectedOllamaModel, name);
    invalidateInstalledModelsCache();
}

void LLMService::invalidateInstalledModelsCache()
{
    setCachedInstalledModels({}, std::nullopt);
}

QCoro::Task<QStringList> LLMService::fetchInstalledModelNames()
{
    // Copies on purpose: QCoro's co_return moves from an lvalue, which would empty the cache.
    if (m_installedModelsFetchedAt && !m_cachedInstalledModels.isEmpty()
        && m_installedModelsFetchedAt->msecsTo(m_clock->now())
            < std::chrono::milliseconds(installedModelsCacheTTL).count()) {
        co_return QStringList(m_cachedInstalledModels);
    }

    QUrl url = m_localModelURL;
    url.setPath(u"/api/tags"_s);
    QNetworkRequest request(url);
    request.setTransferTimeout(int(m_timeouts.tags.count()));
    ReplyPtr reply(m_nam->get(request));
    co_await reply.get();

    const std::optional<int> status = httpStatus(reply.get());
    if (isTransportFailure(reply.get(), status)) {
        qCDebug(lcAi) << "No reply from the model server:" << reply->errorString();
    } else if (!isSuccess(status)) {
        qCDebug(lcAi) << "Model list answered with status" << *status;
    } else if (const std::optional<QStringList> names = installedNames(reply->readAll())) {
        setCachedInstalledModels(*names, m_clock->now());
    }
    co_return QStringList(m_cachedInstalledModels);
}

std::optional<QString> LLMService::resolveInstalledModel(const QString &wanted, const QStringList &installed)
{
    if (installed.contains(wanted)) {
        return wanted;
    }
    for (const QString &name : installed) {
        if (name.size() > wanted.size() && name.startsWith(wanted)) {
            const QChar behind = name.at(wanted.size());
            if (behind == u'-' || behind == u'@') {
                return name;
            }
        }
    }
    return std::nullopt;
}

QCoro::Task<bool> LLMService::checkLocalModel()
{
    const QStringList installed = co_await fetchInstalledModelNames();
    co_return !installed.isEmpty() && resolveInstalledModel(m_localModelName, installed).has_value();
}

QCoro::Task<QString> LLMService::resolvedModelTag()
{
    const QStringList installed = co_await fetchInstalledModelNames();
    if (installed.isEmpty()) {
        throw LLMError::ollamaNotRunning();
    }
    const std::optional<QString> tag = resolveInstalledModel(m_localModelName, installed);
    if (!tag) {
        throw LLMError::localModelNotAvailable(m_localModelName);
    }
    co_return *tag;
}

QCoro::Task<QByteArray> LLMService::postChat(QJsonObject body, std::chrono::milliseconds timeout, QString fallback)
{
    QUrl url = m_localModelURL;
    url.setPath(u"/api/chat"_s);
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
    request.setTransferTimeout(int(timeout.count()));
    ReplyPtr reply(m_nam->post(request, QJsonDocument(body).toJson(QJsonDocument::Compact)));
    body = {};
    co_await reply.get();

    const std::optional<int> status = httpStatus(reply.get());
    if (isTransportFailure(reply.get(), status)) {
        throw TransportError(reply->error(), transportErrorText(reply.get()));
    }
    const QByteArray replyBody = reply->readAll();
    if (!isSuccess(status)) {
        throw parseOllamaError(replyBody, status, fallback);
    }
    co_return replyBody;
}

LLMError LLMService::parseOllamaError(
    const QByteArray &body, std::optional<int> statusCode, const QString &fallback) const
{
    const QJsonValue error = QJsonDocument::fromJson(body).object().value(u"error"_s);
    if (error.isString()) {
        const QString message = error.toString();
        if (message.contains(u"not found"_s, Qt::CaseInsensitive)) {
            return LLMError::localModelNotAvailable(m_localModelName);
        }
        return LLMError::requestFailed(message);
    }
    if (statusCode == 404) {
        return LLMError::localModelNotAvailable(m_localModelName);
    }
    return LLMError::requestFailed(fallback);
}

QCoro::Task<AIAnalysisResult> LLMService::analyzeScreenshot(QByteArray imageData)
{
    co_return co_await analyzeScreenshotWithLocalModel(std::move(imageData));
}

QCoro::Task<AIAnalysisResult> LLMService::analyzeScreenshotWithLocalModel(QByteArray imageData)
{
    const QString tag = co_await resolvedModelTag();
    m_logManager->log(u"🏠 Analyzing with local "_s + tag + u"..."_s, LogType::Info);

    const QStringList projects = UserPreferences::parsedList(m_settings->string(SettingsKey::userProjects));
    const QStringList categories = UserPreferences::parsedList(m_settings->string(SettingsKey::categorizeBy));

    // The image and its Base64 text live only in the body, which goes once the request is sent.
    QJsonObject body
        = analysisRequestBody(tag, analysisPrompt(categories, projects), QString::fromLatin1(imageData.toBase64()));
    imageData.clear();
    const QByteArray replyBody = co_await postChat(std::move(body), m_timeouts.analysis, u"Local model error"_s);

    const QJsonValue envelope = parseJsonValue(replyBody);
    const QJsonValue messageValue = envelope.toObject().value(u"message"_s);
    const QJsonValue content = messageValue.toObject().value(u"content"_s);
    if (!envelope.isObject() || !messageValue.isObject() || !content.isString()) {
        throw LLMError::invalidResponse(u"Invalid Ollama response"_s);
    }
    const QJsonValue parsed = parseJsonValue(cutOutObject(content.toString().trimmed()).toUtf8());
    if (!parsed.isObject()) {
        throw LLMError::invalidResponse(u"AI response not valid JSON"_s);
    }
    const QJsonObject object = parsed.toObject();

    AIAnalysisResult result;
    result.category = UserPreferences::normalizedLabel(optionalString(object, u"category"_s), categories);
    result.projectName = UserPreferences::normalizedLabel(optionalString(object, u"projectName"_s), projects);
    // Kept as the server takes it, so that no record holds its day back from syncing.
    result.activityDescription = TextLimits::fittedText(
        TextLimits::withoutControlCharacters(optionalString(object, u"activityDescription"_s).value_or(QString())));
    co_return result;
}

QCoro::Task<DaySummaryResult> LLMService::generateDaySummary(QList<ActivitySnapshot> snapshots)
{
    const QList<ActivitySnapshot> active = ActivityReportCalculator::activeSnapshots(snapshots);
    if (active.isEmpty()) {
        throw LLMError::invalidResponse(u"No active activity to summarize"_s);
    }
    const QStringList userProjects = UserPreferences::parsedList(m_settings->string(SettingsKey::userProjects));
    const QList<LabelTimeStat> projects = ActivityReportCalculator::projectTimeStats(snapshots, userProjects);
    const QList<LabelTimeStat> categories = ActivityReportCalculator::categoryTimeStats(snapshots);
    const qint64 totalSeconds = qint64(active.size()) * ActivityReportCalculator::secondsPerSnapshot;

    const QStringList lines = ActivityLogCompactor::compactLines(snapshots, daySummaryGroupLimits[0], userProjects);
    const QStringList notes = ActivityLogCompactor::noteLines(snapshots, userProjects);
    const QString stats = formatStatsBlock(totalSeconds, projects, categories);
    const QString noteText = notes.isEmpty() ? u"(none)"_s : notes.join(u'\n');

    std::exception_ptr lastError;
    for (const int limit : daySummaryGroupLimits) {
        try {
            co_return co_await requestDaySummary(daySummaryPrompt(stats, lines, noteText, limit));
        } catch (const std::exception &error) {
            lastError = std::current_exception();
            m_logManager->log(u"⚠️ Day summary attempt failed ("_s + QString::number(limit) + u" groups): "_s
                    + QString::fromUtf8(error.what()),
                LogType::Warning);
        }
    }
    std::rethrow_exception(lastError);
}

QCoro::Task<DaySummaryResult> LLMService::requestDaySummary(QString prompt)
{
    const QString tag = co_await resolvedModelTag();
    const QJsonObject body {
        {u"model"_s, tag},
        {u"messages"_s, QJsonArray {QJsonObject {{u"role"_s, u"user"_s}, {u"content"_s, prompt}}}},
        {u"stream"_s, false},
        {u"keep_alive"_s, 0},
        {u"format"_s, u"json"_s},
        {u"options"_s, QJsonObject {{u"num_predict"_s, 1024}}},
    };
    const QByteArray replyBody = co_await postChat(body, m_timeouts.daySummary, u"Day summary request failed"_s);

    const QString content = OllamaResponseParser::extractAssistantContent(replyBody);
    const QJsonObject object = OllamaResponseParser::parseJSONObject(content);
    const QString summary = OllamaResponseParser::parseSummary(object);
    if (summary.isEmpty()) {
        throw LLMError::invalidResponse(u"Day summary response missing summary field"_s);
    }
    co_return DaySummaryResult {summary, {}};
}

void LLMService::setLocalModelName(const QString &name)
{
    if (m_localModelName == name) {
        return;
    }
    m_localModelName = name;
    Q_EMIT localModelNameChanged();
}

void LLMService::setCachedInstalledModels(const QStringList &names, std::optional<QDateTime> fetchedAt)
{
    m_installedModelsFetchedAt = std::move(fetchedAt);
    m_cachedInstalledModels = names;
}
