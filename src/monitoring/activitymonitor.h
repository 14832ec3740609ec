#pragma once

#include "core/activitysnapshot.h"
#include "core/logmanager.h"
#include "monitoring/screenchangedetector.h"
#include "monitoring/screeneventsource.h"

#include <QByteArray>
#include <QCoroTask>
#include <QDateTime>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <chrono>
#include <optional>

class ActivitySnapshotStore;
class Clock;
class DailyReportService;
class DailyReportStore;
class IdleTimeSource;
class OwnWindowSource;
class LLMService;
class ScreenCaptureService;
class Settings;
class TimedPause;
class VisibleWindowSource;

// The central controller: runs the capture cycle on its timers, follows the screen state,
// records snapshots, holds the figures the screens show and closes finished days.
class ActivityMonitor : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isMonitoring READ isMonitoring NOTIFY isMonitoringChanged)
    Q_PROPERTY(ScreenState screenState READ screenState NOTIFY screenStateChanged)
    Q_PROPERTY(QDateTime lastCaptureTime READ lastCaptureTime NOTIFY lastCaptureTimeChanged)
    Q_PROPERTY(int captureCount READ captureCount NOTIFY captureCountChanged)
    Q_PROPERTY(QString lastError READ lastError NOTIFY lastErrorChanged)
    Q_PROPERTY(int screenshotCount READ screenshotCount NOTIFY screenshotCountChanged)
    Q_PROPERTY(QDateTime lastScreenshotTime READ lastScreenshotTime NOTIFY lastScreenshotTimeChanged)
    Q_PROPERTY(int aiAnalysisCount READ aiAnalysisCount NOTIFY aiAnalysisCountChanged)
    Q_PROPERTY(QList<ActivitySnapshot> latestSnapshots READ latestSnapshots NOTIFY latestSnapshotsChanged)

public:
    static constexpr auto captureInterval = std::chrono::seconds(30);
    static constexpr auto cleanupInterval = std::chrono::seconds(300);
    static constexpr auto dailyCheckInterval = std::chrono::seconds(60);
    static constexpr int maxDatabaseRecords = 1000;
    static constexpr int maxInMemorySnapshots = 20;
    static constexpr int defaultAwayThresholdMinutes = 5;

    // Everything the monitor works with, built once by the composition root. None is owned.
    struct Services
    {
        ActivitySnapshotStore *snapshotStore = nullptr;
        DailyReportStore *reportStore = nullptr;
        // Closes the days and writes the work logs under its export root.
        DailyReportService *reportService = nullptr;
        LLMService *llmService = nullptr;
        LogManager *logManager = nullptr;
        Settings *settings = nullptr;
        const Clock *clock = nullptr;
        ScreenCaptureService *screenCapture = nullptr;
        // Lock, unlock, displays asleep and awake: followed only while monitoring.
        ScreenEventSource *screenEvents = nullptr;
        // Displays awake, for the day rollover: followed from configure() on.
        WakeEventSource *wakeEvents = nullptr;
        // The windows on screen, asked before each grab; none where the desktop cannot tell.
        VisibleWindowSource *visibleWindows = nullptr;
        // A pause that ends by itself; without one, a pause lasts until Resume.
        TimedPause *timedPause = nullptr;
        // How long the input has been idle; without it no tick is ever "Away".
        IdleTimeSource *idleTime = nullptr;
        // Tamlo's own windows, which a screen change leaves out.
        const OwnWindowSource *ownWindows = nullptr;
    };

    // Reads no file and starts nothing.
    explicit ActivityMonitor(const Services &services, QObject *parent = nullptr);
    ~ActivityMonitor() override;

    [[nodiscard]] bool isMonitoring() const { return m_isMonitoring; }
    [[nodiscard]] ScreenState screenState() const { return m_screenState; }
    // Invalid when none has been recorded since launch.
    [[nodiscard]] QDateTime lastCaptureTime() const { return m_lastCaptureTime; }
    [[nodiscard]] int captureCount() const { return m_captureCount; }
    // Empty when there is none.
    [[nodiscard]] QString lastError() const { return m_lastError.value_or(QString()); }
    [[nodiscard]] bool hasError() const { return m_lastError.has_value(); }
    [[nodiscard]] int screenshotCount() const { return m_screenshotCount; }
    [[nodiscard]] QDateTime lastScreenshotTime() const { return m_lastScreenshotTime; }
    [[nodiscard]] int aiAnalysisCount() const { return m_aiAnalysisCount; }
    // Newest first, at most maxInMemorySnapshots.
    [[nodiscard]] QList<ActivitySnapshot> latestSnapshots() const { return m_latestSnapshots; }
    [[nodiscard]] ActivitySnapshotStore *snapshotStore() const { return m_snapshotStore; }
    // The day that is open.
    [[nodiscard]] QDateTime lastSaveDate() const { return m_lastSaveDate; }
    // A tick or a day's close is under way. Nobody awaits them, so whoever ends the monitor's
    // life before the program's (a restart in place) waits for this to turn false first.
    [[nodiscard]] bool hasWorkInFlight() const { return m_ticksInFlight > 0 || m_rolloverInProgress; }

    // The launch sequence; only the first call does anything.
    Q_INVOKABLE void configure();
    Q_INVOKABLE void startMonitoring();
    // Also writes out the day so far; runs in full even when already stopped.
    Q_INVOKABLE void stopMonitoring();
    // Stops until the given time, also across a restart, then starts again by itself.
    void pauseUntil(const QDateTime &end);
    // Attaches a note to the newest snapshot of this launch.
    Q_INVOKABLE void addNoteToCurrentLog(const QString &note);
    // The screens drop a stale error when the model changes.
    Q_INVOKABLE void clearLastError();

    // The steps the timers and the wake event start. Each catches and reports its own failures,
    // so a caller may run one directly, as the timers do, and await it.
    [[nodiscard]] QCoro::Task<> performCapture();
    [[nodiscard]] QCoro::Task<> cleanupOldRecords();
    [[nodiscard]] QCoro::Task<> checkDailyReset();

Q_SIGNALS:
    void isMonitoringChanged();
    void screenStateChanged();
    void lastCaptureTimeChanged();
    void captureCountChanged();
    void lastErrorChanged();
    void screenshotCountChanged();
    void lastScreenshotTimeChanged();
    void aiAnalysisCountChanged();
    void latestSnapshotsChanged();

private:
    struct CapturedScreenshot
    {
        QByteArray data; // PNG
        QString hash; // SHA-256, lower-case hex
        ScreenThumbnail thumbnail;
    };

    // Capture cycle
    void registerScreenStateObservers();
    void unregisterScreenStateObservers();
    void applyScreenEvent(ScreenState state, const QString &message);

    // Screen capture
    [[nodiscard]] QCoro::Task<std::optional<CapturedScreenshot>> captureScreenshot();

    // Privacy: true when an excluded window is on screen and the tick was recorded as private.
    [[nodiscard]] QCoro::Task<bool> skipAsPrivate();

    // Presence: true when the tick has been recorded as "Away" or with the last analysis again.
    [[nodiscard]] QCoro::Task<bool> recordWithoutAnalysis(CapturedScreenshot screenshot);
    [[nodiscard]] QCoro::Task<bool> isAwayFromInput();
    void recordReusedAnalysis(const ActivitySnapshot &analysed, const QString &imageHash);
    // Tamlo's own windows, in the pixels of the scaled screenshot.
    [[nodiscard]] QList<QRect> ownWindowAreas(const QImage &grabbed, const QImage &scaled) const;
    // What an analysis's labels depend on besides the screen: the user's lists and the model.
    [[nodiscard]] QString labelContext() const;

    // Snapshot recording; gives the recorded snapshot.
    [[nodiscard]] QCoro::Task<std::optional<ActivitySnapshot>> analyzeWithAI(QByteArray imageData, QString imageHash);
    [[nodiscard]] QCoro::Task<> recordScreenStateSnapshot();
    // The four storing steps; holds no suspension.
    void storeSnapshot(const ActivitySnapshot &snapshot);

    // Day rollover
    void loadLastSaveDate();
    void registerDailyLifecycleObservers();
    void unregisterDailyLifecycleObservers();
    void startDailyCheckTimer();
    [[nodiscard]] QCoro::Task<> catchUpPendingFinalizations();
    // True when the day has a stored report afterwards, so its records could go.
    [[nodiscard]] QCoro::Task<bool> finalizeDay(QDateTime date, bool removeFromStore);
    [[nodiscard]] QCoro::Task<> deleteDayRecords(QDateTime before);
    [[nodiscard]] QCoro::Task<> saveDailyData();
    [[nodiscard]] QCoro::Task<> exportWorkLogForDay(QDateTime date);
    void resetDay(const QDateTime &now);
    [[nodiscard]] QDateTime startOfDay(const QDateTime &date) const;
    [[nodiscard]] std::optional<QDateTime> endOfDay(const QDateTime &date) const;
    [[nodiscard]] bool hasReportFor(const QDateTime &day) const;

    void setMonitoring(bool value);
    void setScreenState(ScreenState value);
    void setLastCaptureTime(const QDateTime &value);
    void setCaptureCount(int value);
    void setLastError(const std::optional<QString> &value);
    void setScreenshotCount(int value);
    void setLastScreenshotTime(const QDateTime &value);
    void setAiAnalysisCount(int value);
    void log(const QString &message, LogType type, const std::optional<QString> &category = std::nullopt) const;

    ActivitySnapshotStore *m_snapshotStore = nullptr;
    DailyReportStore *m_reportStore = nullptr;
    DailyReportService *m_reportService = nullptr;
    LLMService *m_llmService = nullptr;
    LogManager *m_logManager = nullptr;
    Settings *m_settings = nullptr;
    const Clock *m_clock = nullptr;
    ScreenCaptureService *m_screenCapture = nullptr;
    ScreenEventSource *m_screenEvents = nullptr;
    WakeEventSource *m_wakeEvents = nullptr;
    VisibleWindowSource *m_visibleWindows = nullptr;
    TimedPause *m_timedPause = nullptr;
    IdleTimeSource *m_idleTime = nullptr;
    const OwnWindowSource *m_ownWindows = nullptr;

    bool m_isMonitoring = false;
    ScreenState m_screenState = ScreenState::Active;
    QDateTime m_lastCaptureTime;
    int m_captureCount = 0;
    std::optional<QString> m_lastError;
    int m_screenshotCount = 0;
    QDateTime m_lastScreenshotTime;
    int m_aiAnalysisCount = 0;
    QList<ActivitySnapshot> m_latestSnapshots;

    // Children named captureTimer, cleanupTimer and dailyCheckTimer while they exist.
    QPointer<QTimer> m_timer;
    QPointer<QTimer> m_cleanupTimer;
    QPointer<QTimer> m_dailyCheckTimer;

    QDateTime m_lastSaveDate;
    int m_currentDayRecordCount = 0;
    QList<ScreenEventSource::Token> m_screenStateObservers;
    QList<WakeEventSource::Token> m_lifecycleObservers;
    bool m_isConfigured = false;
    // Set while a check or catch-up is finalising, so overlapping checks do not finalise a day twice.
    bool m_rolloverInProgress = false;
    int m_ticksInFlight = 0;

    ScreenChangeDetector m_screenChanges;
    bool m_reportedNoIdleTime = false;
};
