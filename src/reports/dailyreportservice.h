#pragma once

#include "core/activitysnapshot.h"
#include "reports/dailyreport.h"

#include <QCoroTask>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

class Clock;
class DailyReportStore;
class LLMService;
class LogManager;
class Settings;

// A file of the documents folder that could not be written.
struct ReportFileError
{
    QString description;
};

// What became of a finished day, so the caller knows whether its records may leave the store.
enum class DayFinalization {
    NoRecords, // nothing to finalise; nothing was written
    WorkLogFailed, // no report was made: keep the records, the day is still pending
    ReportNotSaved, // the report is in memory and in the table, but daily-reports.json was not written
    Stored, // work log and report are on disk
};

// Turns a finished day's snapshots into a DailyReport, its work log and the reports table.
// It holds no state of its own: a day can be finalised any number of times and the last wins.
class DailyReportService
{
public:
    // exportRoot is the documents folder of Tamlo (~/Documents/Tamlo), where the CSV files go.
    DailyReportService(LLMService *llmService, LogManager *logManager, const Settings *settings, const Clock *clock,
        QString exportRoot);

    // Writes the work log, asks the model for the narrative (composing one from the figures when
    // the model fails), stores the report and rewrites the reports table. Never throws.
    [[nodiscard]] QCoro::Task<DayFinalization> generateAndPersist(
        QDateTime date, QList<ActivitySnapshot> snapshots, DailyReportStore *reportStore);
    // Today's report for export; stores and writes nothing. None for no snapshots. Never throws.
    [[nodiscard]] QCoro::Task<std::optional<DailyReport>> buildTodayReport(QList<ActivitySnapshot> snapshots);

    // The day's work log under exportRoot/WorkLogs/<yyyy-MM-dd>.csv, replaced whole.
    [[nodiscard]] std::optional<ReportFileError> exportWorkLog(
        const QList<ActivitySnapshot> &snapshots, const QDateTime &date) const;
    // exportRoot/Daily-Reports.csv with one row per report, replaced whole.
    [[nodiscard]] std::optional<ReportFileError> exportDailyReportsCSV(const QList<DailyReport> &reports) const;

    [[nodiscard]] QString exportRoot() const { return m_exportRoot; }

    // One row per snapshot, oldest first; commas and line feeds in texts become blanks, nothing is quoted.
    [[nodiscard]] static QString workLogCSVContent(
        const QList<ActivitySnapshot> &snapshots, const QStringList &userProjects);
    // One row per report, in the order given; cells are quoted when they must be, the summary always.
    [[nodiscard]] static QString dailyReportCSVContent(const QList<DailyReport> &reports, bool includeHeader);
    [[nodiscard]] static QString formatDuration(qint64 seconds);
    // The narrative used when the model could not write one.
    [[nodiscard]] static QString fallbackSummary(
        const QList<LabelTimeStat> &projects, const QList<LabelTimeStat> &categories, const QString &message);

private:
    [[nodiscard]] QStringList userProjects() const;

    LLMService *m_llmService = nullptr;
    LogManager *m_logManager = nullptr;
    const Settings *m_settings = nullptr;
    const Clock *m_clock = nullptr;
    QString m_exportRoot;
};
