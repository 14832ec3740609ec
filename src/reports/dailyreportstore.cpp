#include "reports/dailyreportstore.h"

#include "core/logmanager.h"
#include "core/storefile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>

using namespace Qt::StringLiterals;

DailyReportStore::DailyReportStore(QString filePath, LogManager *logManager)
    : m_filePath(std::move(filePath)), m_logManager(logManager)
{
    // A folder that cannot be made shows up as a failed save, which says so.
    QDir().mkpath(QFileInfo(m_filePath).absolutePath());
    // What the user did all day is no one else's to read.
    QFile::setPermissions(QFileInfo(m_filePath).absolutePath(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    load();
}

std::optional<DailyReport> DailyReportStore::fetch(const QString &date) const
{
    const auto found = std::find_if(
        m_reports.cbegin(), m_reports.cend(), [&date](const DailyReport &report) { return report.date == date; });
    if (found == m_reports.cend()) {
        return std::nullopt;
    }
    return *found;
}

bool DailyReportStore::hasReport(const QString &date) const
{
    return std::any_of(
        m_reports.cbegin(), m_reports.cend(), [&date](const DailyReport &report) { return report.date == date; });
}

bool DailyReportStore::upsert(const DailyReport &report)
{
    const auto found = std::find_if(m_reports.begin(), m_reports.end(),
        [&report](const DailyReport &stored) { return stored.date == report.date; });
    if (found != m_reports.end()) {
        *found = report;
    } else {
        m_reports.append(report);
    }
    std::stable_sort(
        m_reports.begin(), m_reports.end(), [](const DailyReport &a, const DailyReport &b) { return a.date < b.date; });
    return persist();
}

void DailyReportStore::load()
{
    if (!QFile::exists(m_filePath)) {
        return;
    }
    QByteArray bytes;
    QJsonArray array;
    QString error = StoreFile::readAll(m_filePath, bytes);
    if (error.isEmpty()) {
        error = StoreFile::parseArray(bytes, array);
    }
    QList<DailyReport> reports;
    for (qsizetype i = 0; error.isEmpty() && i < array.size(); ++i) {
        const auto report = array.at(i).isObject() ? DailyReport::fromJson(array.at(i).toObject()) : std::nullopt;
        if (report) {
            reports.append(*report);
        } else {
            error = u"Entry %1 is not a complete daily report."_s.arg(i + 1);
        }
    }
    if (error.isEmpty()) {
        m_reports = reports;
        return;
    }
    const QString keptAs = StoreFile::setAside(m_filePath);
    m_writeBlocked = keptAs.isEmpty();
    m_reports.clear();
    m_logManager->log(u"⚠️ Failed to load daily reports: "_s + error + u' ' + StoreFile::setAsideNotice(keptAs),
        LogType::Warning);
}

bool DailyReportStore::persist()
{
    QString error;
    if (m_writeBlocked) {
        error = u"The unreadable file “%1” is still in its place and is not written over."_s.arg(
            QFileInfo(m_filePath).fileName());
    } else {
        QJsonArray array;
        for (const DailyReport &report : std::as_const(m_reports)) {
            array.append(report.toJson());
        }
        error = StoreFile::writeAtomically(m_filePath, QJsonDocument(array).toJson(QJsonDocument::Compact));
    }
    m_unsaved = !error.isEmpty();
    if (m_unsaved) {
        m_logManager->log(u"❌ Failed to save daily reports: "_s + error, LogType::Error);
    }
    return !m_unsaved;
}
