#pragma once

#include "ai/llmerror.h"
#include "core/activitysnapshot.h"

#include <QByteArray>
#include <QCoroTask>
#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <chrono>
#include <optional>

class Clock;
class LogManager;
class QNetworkAccessManager;
class Settings;

// What the vision model made of one screenshot; both labels are from the user's lists or "Other".
struct AIAnalysisResult
{
    QString category;
    QString projectName;
    QString activityDescription;

    friend bool operator==(const AIAnalysisResult &, const AIAnalysisResult &) = default;
};

// The narrative of a day. The summary is never empty; majorTasks stays empty.
struct DaySummaryResult
{
    QString summary;
    QStringList majorTasks;

    friend bool operator==(const DaySummaryResult &, const DaySummaryResult &) = default;
};

// How long each kind of request to the model server may take; tests shorten them.
struct LLMTimeouts
{
    std::chrono::milliseconds tags = std::chrono::seconds(3);
    std::chrono::milliseconds analysis = std::chrono::seconds(60);
    std::chrono::milliseconds daySummary = std::chrono::seconds(180);
};

// The one client of the local Ollama server: model choice, installed models, analysis and day summary.
//
// Errors raised by the suspending calls: LLMError (ai/llmerror.h) for what the service decides,
// TransportError (ai/transporterror.h) when a request got no HTTP reply, JsonParseError
// (ai/jsonparseerror.h) when a reply is not JSON. All derive from std::exception, and what()
// is the user-facing message in UTF-8.
class LLMService : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString localModelName READ localModelName NOTIFY localModelNameChanged)
    Q_PROPERTY(QStringList availableModelNames READ availableModelNames CONSTANT)

public:
    static inline const QString defaultModelName = QStringLiteral("qwen3-vl:2b");
    static constexpr auto installedModelsCacheTTL = std::chrono::seconds(30);
    // Group limits of the day summary's attempts, in order.
    static constexpr int daySummaryGroupLimits[] = {50, 30, 15};

    // http://127.0.0.1:11434, the base of every request in production.
    [[nodiscard]] static QUrl defaultBaseUrl();
    // The only two models that can be chosen, the recommended one first.
    [[nodiscard]] static QStringList availableModelNames();

    LLMService(QNetworkAccessManager *nam, Settings *settings, LogManager *logManager, QUrl baseUrl, const Clock *clock,
        LLMTimeouts timeouts = {}, QObject *parent = nullptr);

    // Loads the stored choice; an unknown stored name is replaced on disk by the default.
    Q_INVOKABLE void configure();
    // Ignores names outside availableModelNames(); otherwise stores the choice and empties the cache.
    Q_INVOKABLE void selectModel(const QString &name);

    [[nodiscard]] QString localModelName() const { return m_localModelName; }
    [[nodiscard]] QString currentModelName() const { return m_localModelName; }

    // Never fails: an unreachable server gives the cached list, empty when nothing was cached.
    [[nodiscard]] QCoro::Task<QStringList> fetchInstalledModelNames();
    // An exact entry anywhere wins; else the first entry that extends the name with "-" or "@".
    [[nodiscard]] static std::optional<QString> resolveInstalledModel(
        const QString &wanted, const QStringList &installed);
    [[nodiscard]] QCoro::Task<bool> checkLocalModel();
    // Raises LLMError::ollamaNotRunning for an empty list, localModelNotAvailable for no match.
    [[nodiscard]] QCoro::Task<QString> resolvedModelTag();
    void invalidateInstalledModelsCache();

    // The analysis prompt for the user's parsed lists; both offer "Other" as well.
    [[nodiscard]] static QString analysisPrompt(const QStringList &categories, const QStringList &projects);
    // The /api/chat body of one analysis, with the image already in standard Base64.
    [[nodiscard]] static QJsonObject analysisRequestBody(
        const QString &tag, const QString &prompt, const QString &base64Image);

    // imageData: the PNG bytes of the capture, sent as they are.
    [[nodiscard]] QCoro::Task<AIAnalysisResult> analyzeScreenshot(QByteArray imageData);

    // The narrative of a day from the whole day's snapshots, inactive ones included. Makes up to
    // three attempts with a shorter log each, logging a warning for each failed one, and raises the
    // last attempt's error; raises LLMError::invalidResponse("No active activity to summarize")
    // without any request when nothing was active.
    [[nodiscard]] QCoro::Task<DaySummaryResult> generateDaySummary(QList<ActivitySnapshot> snapshots);

Q_SIGNALS:
    void localModelNameChanged();

private:
    struct HttpReply
    {
        std::optional<int> statusCode;
        QByteArray body;
    };

    [[nodiscard]] QCoro::Task<AIAnalysisResult> analyzeScreenshotWithLocalModel(QByteArray imageData);
    [[nodiscard]] QCoro::Task<DaySummaryResult> requestDaySummary(QString prompt);
    // Sends one /api/chat request; a reply outside 2xx raises parseOllamaError(..., fallback).
    [[nodiscard]] QCoro::Task<QByteArray> postChat(
        QJsonObject body, std::chrono::milliseconds timeout, QString fallback);
    [[nodiscard]] LLMError parseOllamaError(
        const QByteArray &body, std::optional<int> statusCode, const QString &fallback) const;

    void setLocalModelName(const QString &name);
    void setCachedInstalledModels(const QStringList &names, std::optional<QDateTime> fetchedAt);

    QNetworkAccessManager *m_nam = nullptr;
    Settings *m_settings = nullptr;
    LogManager *m_logManager = nullptr;
    QUrl m_localModelURL;
    const Clock *m_clock = nullptr;
    LLMTimeouts m_timeouts;

    QString m_localModelName = defaultModelName;
    QStringList m_cachedInstalledModels;
    std::optional<QDateTime> m_installedModelsFetchedAt;
};
