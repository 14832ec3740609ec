// The part of DailyReportService that waits for the local model.
#include "reports/dailyreportservice.h"

#include "ai/llmservice.h"
#include "ai/ollamaresponseparser.h"
#include "core/clock.h"
#include "core/logmanager.h"
#include "core/tamlodatapaths.h"
#include "reports/dailyreportstore.h"
#include "reports/reportslogging.h"

#include <exception>

using namespace Qt::StringLiterals;

namespace {
struct Narrative
{
    QString summary;
    QStringList majorTasks;
    std::optional<QString> failure; // the model's error message when the fallback was used
};

// The errors of the local AI carry their user-facing text in what(), in UTF-8.
QString messageOf(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const std::exception &exception) {
        return QString::fromUtf8(exception.what());
    } catch (...) {
        qCWarning(lcReports) << "The day summary failed with an error of an unknown type";
        return u"Unknown error"_s;
    }
}

// The model's narrative, or the one composed from the figures when the model fails.
QCoro::Task<Narrative> narrate(LLMService *llmService, QList<ActivitySnapshot> snapshots, QList<LabelTimeStat> projects,
    QList<LabelTimeStat> categories)
{
    std::exception_ptr error;
    try {
        const DaySummaryResult result = co_await llmService->generateDaySummary(snapshots);
        co_return Narrative {result.summary, result.majorTasks, std::nullopt};
    } catch (...) {
        error = std::current_exception();
    }
    const QString message = messageOf(error);
    co_return Narrative {DailyReportService::fallbackSummary(projects, categories, message), {}, message};
}
} // namespace

QCoro::Task<DayFinalization> DailyReportService::generateAndPersist(
    QDateTime date, QList<ActivitySnapshot> snapshots, DailyReportStore *reportStore)
{
    const QString label = TamloDataPaths::dateLabel(date);
    if (snapshots.isEmpty()) {
        m_logManager->log(u"⚠️ No records to finalize for "_s + label, LogType::Warning);
        co_return DayFinalization::NoRecords;
    }

    if (const auto error = exportWorkLog(snapshots, date)) {
        m_logManager->log(u"❌ Work log export failed: "_s + error->description, LogType::Error);
        co_return DayFinalization::WorkLogFailed;
    }
    m_logManager->log(
        u"📄 Work log saved: WorkLogs/%1.csv (%2 records)"_s.arg(label).arg(snapshots.size()), LogType::Success);

    const QStringList projectsList = userProjects();
    DailyReport report {
        .date = label,
        .totalActiveSeconds = ActivityReportCalculator::totalActiveSeconds(snapshots),
        .projects = ActivityReportCalculator::projectTimeStats(snapshots, projectsList),
        .categories = ActivityReportCalculator::categoryTimeStats(snapshots),
    };

    m_logManager->log(u"🤖 Generating daily summary for "_s + label + u"…"_s, LogType::Info);
    const Narrative narrative = co_await narrate(m_llmService, snapshots, report.projects, report.categories);
    if (narrative.failure) {
        m_logManager->log(u"⚠️ Daily summary failed, using fallback: "_s + *narrative.failure, LogType::Warning);
    } else {
        m_logManager->log(u"✅ Daily summary generated"_s, LogType::Success);
    }
    report.summary = narrative.summary;
    report.majorTasks = narrative.majorTasks;
    report.generatedAt = m_clock->now();

    // From here to the end nothing suspends: the store and the table change together.
    const bool stored = reportStore->upsert(report);
    if (const auto error = exportDailyReportsCSV(reportStore->reports())) {
        m_logManager->log(u"❌ Daily report CSV export failed: "_s + error->description, LogType::Error);
    } else {
        m_logManager->log(u"📊 Daily report saved: Daily-Reports.csv"_s, LogType::Success);
    }
    co_return stored ? DayFinalization::Stored : DayFinalization::ReportNotSaved;
}

QCoro::Task<std::optional<DailyReport>> DailyReportService::buildTodayReport(QList<ActivitySnapshot> snapshots)
{
    if (snapshots.isEmpty()) {
        co_return std::nullopt;
    }
    const QDateTime now = m_clock->now();
    DailyReport report {
        .date = TamloDataPaths::dateLabel(now),
        .totalActiveSeconds = ActivityReportCalculator::totalActiveSeconds(snapshots),
        .projects = ActivityReportCalculator::projectTimeStats(snapshots, userProjects()),
        .categories = ActivityReportCalculator::categoryTimeStats(snapshots),
    };
    const Narrative narrative = co_await narrate(m_llmService, snapshots, report.projects, report.categories);
    report.summary = narrative.summary;
    report.majorTasks = narrative.majorTasks;
    report.generatedAt = m_clock->now();
    co_return report;
}

QString DailyReportService::fallbackSummary(
    const QList<LabelTimeStat> &projects, const QList<LabelTimeStat> &categories, const QString &message)
{
    const QString topProject = projects.isEmpty() ? u"general work"_s : projects.first().name;
    const QString topCategory = categories.isEmpty() ? u"mixed activities"_s : categories.first().name;
    // Normalised as a whole, so the error's own line breaks are flattened too.
    return OllamaResponseParser::normalizeSummaryText(u"Most of the day focused on "_s + topProject + u", mainly "_s
        + topCategory + u" work."_s + u" (AI summary unavailable: "_s + message + u")"_s);
}
