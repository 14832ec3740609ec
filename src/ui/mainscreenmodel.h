#pragma once

#include "ui/aboutmodel.h"
#include "ui/activitycardlistmodel.h"
#include "ui/reportviewmodel.h"
#include "ui/settingsviewmodel.h"
#include "ui/setupmodel.h"

#include <QObject>
#include <QString>
#include <QUrl>
#include <QtQml/qqmlregistration.h>

#include <optional>

class ActivityMonitor;
class Clock;
class DailyReportService;
class DesktopActions;
class LLMService;
class LogManager;
class LoginItem;
class Settings;

// The main screen: header status, setup or tabs, the error banner, the control row, the note
// field and both exports. Every decision the panel shows is made here.
class MainScreenModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Built by the application")
    Q_PROPERTY(bool didCompleteInitialSetup READ didCompleteInitialSetup NOTIFY didCompleteInitialSetupChanged)
    Q_PROPERTY(bool isMonitoring READ isMonitoring NOTIFY isMonitoringChanged)
    Q_PROPERTY(QString statusText READ statusText NOTIFY statusChanged)
    Q_PROPERTY(QColor statusColor READ statusColor NOTIFY statusChanged)
    Q_PROPERTY(QString controlLabel READ controlLabel NOTIFY controlChanged)
    Q_PROPERTY(QString controlIcon READ controlIcon NOTIFY controlChanged)
    Q_PROPERTY(int selectedTab READ selectedTab WRITE setSelectedTab NOTIFY selectedTabChanged)
    Q_PROPERTY(bool showingAbout READ showingAbout WRITE setShowingAbout NOTIFY showingAboutChanged)
    Q_PROPERTY(bool showBanner READ showBanner NOTIFY bannerChanged)
    Q_PROPERTY(QString bannerText READ bannerText NOTIFY bannerChanged)
    Q_PROPERTY(bool showSettingsButton READ showSettingsButton NOTIFY bannerChanged)
    Q_PROPERTY(bool showBannerHint READ showBannerHint NOTIFY bannerChanged)
    Q_PROPERTY(QString pendingNote READ pendingNote WRITE setPendingNote NOTIFY noteChanged)
    Q_PROPERTY(bool noteFieldEnabled READ noteFieldEnabled NOTIFY noteChanged)
    Q_PROPERTY(bool addNoteEnabled READ addNoteEnabled NOTIFY noteChanged)
    Q_PROPERTY(bool showNoteHint READ showNoteHint NOTIFY noteChanged)
    Q_PROPERTY(bool exportLogsEnabled READ exportLogsEnabled NOTIFY exportChanged)
    Q_PROPERTY(bool exportReportEnabled READ exportReportEnabled NOTIFY exportChanged)
    Q_PROPERTY(QString exportReportLabel READ exportReportLabel NOTIFY exportChanged)
    Q_PROPERTY(bool isExportingDailyReport READ isExportingDailyReport NOTIFY exportChanged)
    Q_PROPERTY(ReportViewModel *report READ report CONSTANT)
    Q_PROPERTY(ActivityCardListModel *activities READ activities CONSTANT)
    Q_PROPERTY(SettingsViewModel *settingsView READ settingsView CONSTANT)
    Q_PROPERTY(SetupModel *setup READ setup CONSTANT)
    Q_PROPERTY(AboutModel *about READ about CONSTANT)

public:
    // What the banner offers below the message, decided by keywords of the error.
    enum class BannerAction {
        None,
        OpenSettings,
        Hint,
    };
    Q_ENUM(BannerAction)

    enum class ExportKind {
        WorkLog,
        DailyReport,
    };

    struct Services
    {
        ActivityMonitor *monitor = nullptr;
        LLMService *llmService = nullptr;
        DailyReportService *reportService = nullptr;
        LogManager *logManager = nullptr;
        Settings *settings = nullptr;
        const Clock *clock = nullptr;
        DesktopActions *desktop = nullptr;
        LoginItem *loginItem = nullptr;
    };

    explicit MainScreenModel(const Services &services, QObject *parent = nullptr);

    [[nodiscard]] static BannerAction bannerAction(const QString &lastError);

    [[nodiscard]] bool didCompleteInitialSetup() const;
    [[nodiscard]] bool isMonitoring() const;
    [[nodiscard]] QString statusText() const;
    [[nodiscard]] QColor statusColor() const;
    [[nodiscard]] QString controlLabel() const;
    [[nodiscard]] QString controlIcon() const;
    [[nodiscard]] int selectedTab() const { return m_selectedTab; }
    void setSelectedTab(int tab);
    [[nodiscard]] bool showingAbout() const { return m_showingAbout; }
    void setShowingAbout(bool value);
    [[nodiscard]] bool showBanner() const;
    [[nodiscard]] QString bannerText() const;
    [[nodiscard]] bool showSettingsButton() const;
    [[nodiscard]] bool showBannerHint() const;
    [[nodiscard]] QString pendingNote() const { return m_pendingNote; }
    void setPendingNote(const QString &note);
    [[nodiscard]] bool noteFieldEnabled() const;
    [[nodiscard]] bool addNoteEnabled() const;
    [[nodiscard]] bool showNoteHint() const { return !noteFieldEnabled(); }
    [[nodiscard]] bool exportLogsEnabled() const { return m_todaySnapshotCount > 0; }
    [[nodiscard]] bool exportReportEnabled() const { return m_todaySnapshotCount > 0 && !m_isExportingDailyReport; }
    [[nodiscard]] QString exportReportLabel() const;
    [[nodiscard]] bool isExportingDailyReport() const { return m_isExportingDailyReport; }
    [[nodiscard]] ReportViewModel *report() const { return m_report; }
    [[nodiscard]] ActivityCardListModel *activities() const { return m_activities; }
    [[nodiscard]] SettingsViewModel *settingsView() const { return m_settingsView; }
    [[nodiscard]] SetupModel *setup() const { return m_setup; }
    [[nodiscard]] AboutModel *about() const { return m_about; }
    // The export waiting for the user to pick a place, if any.
    [[nodiscard]] std::optional<ExportKind> pendingExportKind() const;

    // The panel came on screen.
    Q_INVOKABLE void panelShown();
    // Re-reads today's records for the Report tab and the export buttons.
    Q_INVOKABLE void refresh();
    // "Pause" or "Resume", or "Finish Setup" during setup.
    Q_INVOKABLE void triggerControl();
    Q_INVOKABLE void finishSetup();
    Q_INVOKABLE void addNote();
    Q_INVOKABLE void exportTodayLogs();
    Q_INVOKABLE void exportTodayDailyReport();
    // The save dialog's answer for the pending export.
    Q_INVOKABLE void completeExport(const QUrl &fileUrl);
    Q_INVOKABLE void cancelExport();
    Q_INVOKABLE void openSystemSettings();
    Q_INVOKABLE void quit();

Q_SIGNALS:
    void didCompleteInitialSetupChanged();
    void isMonitoringChanged();
    void statusChanged();
    void controlChanged();
    void selectedTabChanged();
    void showingAboutChanged();
    void bannerChanged();
    void noteChanged();
    void exportChanged();
    // Ask the user where to save; answered by completeExport() or cancelExport().
    void saveFileRequested(const QString &suggestedFileName);
    void quitRequested();

private:
    struct PendingExport
    {
        ExportKind kind;
        QString csv;
    };

    void refreshReport();
    void setExportingDailyReport(bool value);
    void setTodaySnapshotCount(qsizetype count);

    Services m_services;
    ReportViewModel *m_report = nullptr;
    ActivityCardListModel *m_activities = nullptr;
    SettingsViewModel *m_settingsView = nullptr;
    SetupModel *m_setup = nullptr;
    AboutModel *m_about = nullptr;

    int m_selectedTab = 0;
    bool m_showingAbout = false;
    QString m_pendingNote;
    bool m_isExportingDailyReport = false;
    qsizetype m_todaySnapshotCount = 0;
    std::optional<PendingExport> m_pendingExport;
};
