#include "reports/dailyreportservice.h"

#include "core/referencedate.h"
#include "core/settings.h"
#include "core/storefile.h"
#include "core/tamlodatapaths.h"
#include "core/userpreferences.h"

#include <QDir>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {
const QString workLogHeader = u"Timestamp,Category,Project,Summary,Note"_s;
const QString reportsHeader = u"Date,TotalTime,Projects,Categories,Summary,MajorTasks"_s;
const QString reportsFileName = u"Daily-Reports.csv"_s;

// The work log never quotes: a line feed or a comma becomes one blank, so every row keeps five fields.
QString cleanWorkLogText(QString text)
{
    return text.replace(u'\n', u' ').replace(u',', u' ');
}

QString quoted(QString cell)
{
    return u'"' + cell.replace(u'"', u"\"\""_s) + u'"';
}

QString escapedCell(const QString &cell)
{
    if (cell.contains(u',') || cell.contains(u'\n') || cell.contains(u'"')) {
        return quoted(cell);
    }
    return cell;
}

QString formatLabelStats(const QList<LabelTimeStat> &stats)
{
    QStringList entries;
    for (const LabelTimeStat &stat : stats) {
        // One step: a second .arg() would read a "%1" typed into a label as its own marker.
        entries.append(u"%1 (%2, %3%)"_s.arg(stat.name, ActivityReportCalculator::formatDuration(stat.seconds),
            QString::number(ActivityReportCalculator::roundedPercentage(stat.percentage))));
    }
    return entries.join(u"; "_s);
}

QString formatMajorTasks(const QStringList &tasks)
{
    QStringList entries;
    for (const QString &task : tasks) {
        entries.append(u"• "_s + task);
    }
    return entries.join(u"; "_s);
}

std::optional<ReportFileError> writeUnderRoot(const QString &root, const QString &path, const QString &content)
{
    const QString directoryError = TamloDataPaths::ensureExportDirectories(root);
    if (!directoryError.isEmpty()) {
        return ReportFileError {directoryError};
    }
    const QString writeError = StoreFile::writeAtomically(path, content.toUtf8());
    if (!writeError.isEmpty()) {
        return ReportFileError {u"“%1” couldn’t be saved: %2"_s.arg(QDir(root).relativeFilePath(path), writeError)};
    }
    return std::nullopt;
}
} // namespace

DailyReportService::DailyReportService(
    LLMService *llmService, LogManager *logManager, const Settings *settings, const Clock *clock, QString exportRoot)
    : m_llmService(llmService)
    , m_logManager(logManager)
    , m_settings(settings)
    , m_clock(clock)
    , m_exportRoot(std::move(exportRoot))
{
}

std::optional<ReportFileError> DailyReportService::exportWorkLog(
    const QList<ActivitySnapshot> &snapshots, const QDateTime &date) const
{
    const QString path
        = QDir(TamloDataPaths::workLogsDir(m_exportRoot)).filePath(TamloDataPaths::dateLabel(date) + u".csv"_s);
    return writeUnderRoot(m_exportRoot, path, workLogCSVContent(snapshots, userProjects()));
}

std::optional<ReportFileError> DailyReportService::exportDailyReportsCSV(const QList<DailyReport> &reports) const
{
    return writeUnderRoot(
        m_exportRoot, QDir(m_exportRoot).filePath(reportsFileName), dailyReportCSVContent(reports, true));
}

QString DailyReportService::workLogCSVContent(const QList<ActivitySnapshot> &snapshots, const QStringList &userProjects)
{
    QList<ActivitySnapshot> ordered = snapshots;
    std::stable_sort(ordered.begin(), ordered.end(),
        [](const ActivitySnapshot &a, const ActivitySnapshot &b) { return a.timestamp < b.timestamp; });
    QStringList rows;
    rows.reserve(ordered.size());
    for (const ActivitySnapshot &snapshot : std::as_const(ordered)) {
        rows.append(QStringList {
            ReferenceDate::toIso8601(snapshot.timestamp),
            cleanWorkLogText(snapshot.aiCategory),
            cleanWorkLogText(snapshot.effectiveProjectName(userProjects)),
            cleanWorkLogText(snapshot.activityDescription.value_or(QString())),
            cleanWorkLogText(snapshot.userNote.value_or(QString())),
        }
                        .join(u','));
    }
    return workLogHeader + u'\n' + rows.join(u'\n');
}

QString DailyReportService::dailyReportCSVContent(const QList<DailyReport> &reports, bool includeHeader)
{
    QStringList rows;
    rows.reserve(reports.size());
    for (const DailyReport &report : reports) {
        rows.append(QStringList {
            escapedCell(report.date),
            escapedCell(formatDuration(report.totalActiveSeconds)),
            escapedCell(formatLabelStats(report.projects)),
            escapedCell(formatLabelStats(report.categories)),
            quoted(report.summary), // always quoted, comma or not
            escapedCell(formatMajorTasks(report.majorTasks)),
        }
                        .join(u','));
    }
    const QString table = rows.join(u'\n');
    return includeHeader ? reportsHeader + u'\n' + table : table;
}

QString DailyReportService::formatDuration(qint64 seconds)
{
    return ActivityReportCalculator::formatDuration(seconds);
}

QStringList DailyReportService::userProjects() const
{
    return UserPreferences::parsedList(m_settings->string(SettingsKey::userProjects));
}
