#include "ui/mainscreenmodel.h"

#include "ai/llmservice.h"
#include "core/activitysnapshotstore.h"
#include "core/clock.h"
#include "core/logmanager.h"
#include "core/maintask.h"
#include "core/settings.h"
#include "core/tamlodatapaths.h"
#include "core/textlimits.h"
#include "core/userpreferences.h"
#include "monitoring/activitymonitor.h"
#include "monitoring/timedpause.h"
#include "reports/activityreportcalculator.h"
#include "reports/dailyreportservice.h"
#include "ui/aboutmodel.h"
#include "ui/activitycardlistmodel.h"
#include "ui/desktopactions.h"
#include "ui/privacysettingsmodel.h"
#include "ui/reportviewmodel.h"
#include "ui/settingsviewmodel.h"
#include "ui/setupmodel.h"
#include "ui/tamlotheme.h"

#include <QLocale>
#include <QPointer>
#include <QSaveFile>
#include <QTextStream>

using namespace Qt::StringLiterals;

namespace {
constexpr int activityTab = 1;
constexpr int reportTab = 0;
} // namespace

MainScreenModel::MainScreenModel(const Services &services, QObject *parent)
    : QObject(parent)
    , m_services(services)
    , m_report(new ReportViewModel(this))
    , m_activities(new ActivityCardListModel(services.settings, this))
    , m_settingsView(new SettingsViewModel(services.llmService, services.settings, services.loginItem, services.desktop,
          this, new PrivacySettingsModel(services.settings, services.session)))
    , m_setup(new SetupModel(services.llmService, services.settings, services.loginItem, services.desktop, this))
    , m_about(new AboutModel(this))
{
    ActivityMonitor *monitor = m_services.monitor;
    connect(monitor, &ActivityMonitor::isMonitoringChanged, this, [this] {
        Q_EMIT isMonitoringChanged();
        Q_EMIT statusChanged();
        Q_EMIT controlChanged();
    });
    if (m_services.timedPause) {
        connect(m_services.timedPause, &TimedPause::endChanged, this, &MainScreenModel::statusChanged);
    }
    connect(m_settingsView->privacy(), &PrivacySettingsModel::pauseRequested, this,
        [this](TimedPause::Length length) { pauseFor(int(length)); });
    connect(monitor, &ActivityMonitor::screenStateChanged, this, &MainScreenModel::statusChanged);
    connect(monitor, &ActivityMonitor::lastErrorChanged, this, &MainScreenModel::bannerChanged);
    // Each capture rebuilds the Report tab.
    connect(monitor, &ActivityMonitor::captureCountChanged, this, &MainScreenModel::refresh);
    connect(monitor, &ActivityMonitor::latestSnapshotsChanged, this, [this] {
        m_activities->setSnapshots(m_services.monitor->latestSnapshots());
        Q_EMIT noteChanged();
        refresh();
    });
    // A day closed while paused logs its work but moves no counter: today's figures go stale.
    connect(m_services.logManager, &LogManager::logsChanged, this, &MainScreenModel::refresh);
    // A new model makes the last error stale.
    connect(m_services.llmService, &LLMService::localModelNameChanged, monitor, &ActivityMonitor::clearLastError);
    m_activities->setSnapshots(monitor->latestSnapshots());
    refresh();
}

MainScreenModel::BannerAction MainScreenModel::bannerAction(const QString &lastError)
{
    if (lastError.contains(u"permission"_s) || lastError.contains(u"denied"_s)) {
        return BannerAction::OpenSettings;
    }
    if (lastError.contains(u"ollama pull"_s) || lastError.contains(u"not installed"_s)
        || lastError.contains(u"not running"_s)) {
        return BannerAction::Hint;
    }
    return BannerAction::None;
}

bool MainScreenModel::didCompleteInitialSetup() const
{
    return m_services.settings->boolean(SettingsKey::didCompleteInitialSetup);
}

bool MainScreenModel::isMonitoring() const
{
    return m_services.monitor->isMonitoring();
}

// Away is said as such: monitoring goes on, but the time does not count.
QString MainScreenModel::statusText() const
{
    if (isMonitoring()) {
        return m_services.monitor->screenState() == ScreenState::Away ? u"Away"_s : u"Active"_s;
    }
    if (const std::optional<QDateTime> end = m_services.timedPause ? m_services.timedPause->end() : std::nullopt) {
        return u"Paused until "_s + ActivityCardPresentation::hourMinuteText(*end);
    }
    return u"Inactive"_s;
}

QColor MainScreenModel::statusColor() const
{
    if (!isMonitoring()) {
        return TamloTheme::gray();
    }
    return m_services.monitor->screenState() == ScreenState::Away ? TamloTheme::orange() : TamloTheme::green();
}

QString MainScreenModel::controlLabel() const
{
    if (!didCompleteInitialSetup()) {
        return u"Finish Setup"_s;
    }
    return isMonitoring() ? u"Pause"_s : u"Resume"_s;
}

QString MainScreenModel::controlIcon() const
{
    if (!didCompleteInitialSetup()) {
        return u"checkmark.circle.fill"_s;
    }
    return isMonitoring() ? u"pause.fill"_s : u"play.fill"_s;
}

bool MainScreenModel::showPauseChoices() const
{
    return m_services.timedPause && didCompleteInitialSetup() && isMonitoring();
}

QStringList MainScreenModel::pauseChoices()
{
    return PrivacySettingsModel::pauseChoices();
}

void MainScreenModel::pauseFor(int choice)
{
    if (choice >= 0 && choice < pauseChoices().size()) {
        m_services.monitor->pauseUntil(TimedPause::endOf(TimedPause::Length(choice), m_services.clock->now()));
    }
}

void MainScreenModel::setSelectedTab(int tab)
{
    if (m_selectedTab == tab) {
        return;
    }
    m_selectedTab = tab;
    Q_EMIT selectedTabChanged();
    Q_EMIT bannerChanged();
    refresh();
}

void MainScreenModel::setShowingAbout(bool value)
{
    if (m_showingAbout == value) {
        return;
    }
    m_showingAbout = value;
    Q_EMIT showingAboutChanged();
}

bool MainScreenModel::showBanner() const
{
    return didCompleteInitialSetup() && m_selectedTab == activityTab && m_services.monitor->hasError();
}

QString MainScreenModel::bannerText() const
{
    return m_services.monitor->lastError();
}

bool MainScreenModel::showSettingsButton() const
{
    return bannerAction(bannerText()) == BannerAction::OpenSettings && m_services.desktop->canOpenPrivacySettings();
}

bool MainScreenModel::showBannerHint() const
{
    return bannerAction(bannerText()) == BannerAction::Hint;
}

void MainScreenModel::setPendingNote(const QString &note)
{
    if (m_pendingNote == note) {
        return;
    }
    m_pendingNote = note;
    Q_EMIT noteChanged();
}

bool MainScreenModel::noteFieldEnabled() const
{
    // Notes go to the newest record of this launch, so the in-memory list decides, not the store.
    return !m_services.monitor->latestSnapshots().isEmpty();
}

bool MainScreenModel::addNoteEnabled() const
{
    return noteFieldEnabled() && !m_pendingNote.trimmed().isEmpty();
}

QString MainScreenModel::noteLimitText() const
{
    constexpr qsizetype warnWhenLeft = 200;
    const qsizetype left = TextLimits::maxTextLength - TextLimits::characterCount(m_pendingNote.trimmed());
    const QLocale locale;
    if (left < 0) {
        return u"A note holds %1 characters; this one is %2 over and will be cut."_s.arg(
            locale.toString(TextLimits::maxTextLength), locale.toString(-left));
    }
    if (left <= warnWhenLeft) {
        return left == 1 ? u"1 character left"_s : u"%1 characters left"_s.arg(locale.toString(left));
    }
    return {};
}

QString MainScreenModel::exportReportLabel() const
{
    return m_isExportingDailyReport ? u"Exporting…"_s : u"Export daily report"_s;
}

std::optional<MainScreenModel::ExportKind> MainScreenModel::pendingExportKind() const
{
    if (m_pendingExports.isEmpty()) {
        return std::nullopt;
    }
    return m_pendingExports.first().kind;
}

QString MainScreenModel::pendingSaveFileName() const
{
    return m_pendingExports.isEmpty() ? QString() : m_pendingExports.first().suggestedFileName;
}

void MainScreenModel::panelShown()
{
    m_services.llmService->configure();
    m_activities->setSnapshots(m_services.monitor->latestSnapshots());
    Q_EMIT didCompleteInitialSetupChanged();
    Q_EMIT controlChanged();
    Q_EMIT bannerChanged();
    Q_EMIT noteChanged();
    refresh();
}

void MainScreenModel::resetViewState()
{
    setSelectedTab(reportTab);
    setPendingNote(QString());
    setShowingAbout(false);
}

void MainScreenModel::refresh()
{
    setTodaySnapshotCount(m_services.monitor->snapshotStore()->fetchToday().size());
    if (m_selectedTab == reportTab) {
        refreshReport();
    }
}

void MainScreenModel::refreshReport()
{
    const QList<ActivitySnapshot> active
        = ActivityReportCalculator::activeSnapshots(m_services.monitor->snapshotStore()->fetchToday());
    m_report->setReport(int(active.size() * ActivityReportCalculator::secondsPerSnapshot),
        ActivityReportCalculator::projectShares(active, *m_services.settings),
        ActivityReportCalculator::categoryShares(active));
}

void MainScreenModel::triggerControl()
{
    if (!didCompleteInitialSetup()) {
        finishSetup();
    } else if (isMonitoring()) {
        m_services.monitor->stopMonitoring();
    } else {
        m_services.monitor->startMonitoring();
    }
}

void MainScreenModel::finishSetup()
{
    m_services.llmService->configure();
    m_services.settings->setBoolean(SettingsKey::didCompleteInitialSetup, true);
    Q_EMIT didCompleteInitialSetupChanged();
    Q_EMIT controlChanged();
    Q_EMIT bannerChanged();
    refresh();
}

void MainScreenModel::addNote()
{
    if (!addNoteEnabled()) {
        return;
    }
    m_services.monitor->addNoteToCurrentLog(m_pendingNote);
    setPendingNote(QString());
}

void MainScreenModel::exportTodayLogs()
{
    const QList<ActivitySnapshot> snapshots = m_services.monitor->snapshotStore()->fetchToday();
    if (snapshots.isEmpty()) {
        return;
    }
    const QStringList projects = UserPreferences::parsedList(m_services.settings->string(SettingsKey::userProjects));
    queueExport(PendingExport {ExportKind::WorkLog, DailyReportService::workLogCSVContent(snapshots, projects),
        u"Tamlo_WorkLog_"_s + TamloDataPaths::dateLabel(m_services.clock->now()) + u".csv"_s});
}

void MainScreenModel::exportTodayDailyReport()
{
    const QList<ActivitySnapshot> snapshots = m_services.monitor->snapshotStore()->fetchToday();
    if (snapshots.isEmpty() || m_isExportingDailyReport) {
        return;
    }
    setExportingDailyReport(true);
    m_services.logManager->log(u"📊 Exporting today's daily report…"_s, LogType::Info);
    QPointer<MainScreenModel> self(this);
    DailyReportService *service = m_services.reportService;
    startTask(this, [self, service, snapshots]() -> QCoro::Task<> {
        const std::optional<DailyReport> report = co_await service->buildTodayReport(snapshots);
        if (!self) {
            co_return;
        }
        self->setExportingDailyReport(false);
        if (!report) {
            self->m_services.logManager->log(u"⚠️ No activity to export as daily report"_s, LogType::Warning);
            co_return;
        }
        self->queueExport(
            PendingExport {ExportKind::DailyReport, DailyReportService::dailyReportCSVContent({*report}, true),
                u"Tamlo_Daily_Report_"_s + report->date + u".csv"_s});
    });
}

void MainScreenModel::queueExport(PendingExport pending)
{
    m_pendingExports.append(std::move(pending));
    // One dialog at a time; the next one opens once this one is answered.
    if (m_pendingExports.size() == 1) {
        Q_EMIT pendingSaveChanged();
        Q_EMIT saveFileRequested(m_pendingExports.first().suggestedFileName);
    }
}

void MainScreenModel::completeExport(const QUrl &fileUrl)
{
    if (m_pendingExports.isEmpty()) {
        return;
    }
    const PendingExport pending = m_pendingExports.takeFirst();
    announceNextExport();
    QSaveFile file(fileUrl.toLocalFile());
    QString error;
    if (!fileUrl.isLocalFile()) {
        error = u"Not a local file: "_s + fileUrl.toString();
    } else if (!file.open(QIODevice::WriteOnly)) {
        error = file.errorString();
    } else if (file.write(pending.csv.toUtf8()) < 0 || !file.commit()) {
        error = file.errorString();
    }
    if (pending.kind == ExportKind::WorkLog) {
        if (!error.isEmpty()) {
            QTextStream(stdout) << u"Error saving CSV: "_s << error << Qt::endl;
        }
        return;
    }
    if (error.isEmpty()) {
        m_services.logManager->log(u"✅ Daily report exported"_s, LogType::Success);
    } else {
        m_services.logManager->log(u"❌ Daily report export failed: "_s + error, LogType::Error);
    }
}

void MainScreenModel::cancelExport()
{
    if (!m_pendingExports.isEmpty()) {
        m_pendingExports.removeFirst();
        announceNextExport();
    }
}

void MainScreenModel::announceNextExport()
{
    Q_EMIT pendingSaveChanged();
    if (!m_pendingExports.isEmpty()) {
        Q_EMIT saveFileRequested(m_pendingExports.first().suggestedFileName);
    }
}

void MainScreenModel::openPrivacySettings()
{
    m_services.desktop->openPrivacySettings();
}

void MainScreenModel::quit()
{
    Q_EMIT quitRequested();
}

void MainScreenModel::setExportingDailyReport(bool value)
{
    if (m_isExportingDailyReport == value) {
        return;
    }
    m_isExportingDailyReport = value;
    Q_EMIT exportChanged();
}

void MainScreenModel::setTodaySnapshotCount(qsizetype count)
{
    if (m_todaySnapshotCount == count) {
        return;
    }
    m_todaySnapshotCount = count;
    Q_EMIT exportChanged();
}
