#include "monitoring/activitymonitor.h"

#include "ai/llmservice.h"
#include "core/activitysnapshotstore.h"
#include "core/clock.h"
#include "core/maintask.h"
#include "core/settings.h"
#include "core/tamlodatapaths.h"
#include "core/textlimits.h"
#include "core/userpreferences.h"
#include "monitoring/privacyexclusions.h"
#include "monitoring/idletimesource.h"
#include "monitoring/ownwindowsource.h"
#include "monitoring/pngencoder.h"
#include "monitoring/screencaptureservice.h"
#include "monitoring/timedpause.h"
#include "monitoring/visiblewindowsource.h"
#include "reports/dailyreportservice.h"
#include "reports/dailyreportstore.h"

#include <QLoggingCategory>

#include <algorithm>
#include <exception>
#include <set>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcMonitoring, "tamlo.monitoring")

namespace {
const QString permissionDeniedText = u"Screen capture permission denied."_s;
// The encoder gives no text of its own for this.
const QString imageConversionFailedText = u"The screenshot could not be encoded as PNG."_s;

// Clears a flag when the scope ends, also when a coroutine frame is destroyed early.
class FlagGuard
{
public:
    explicit FlagGuard(bool &flag) : m_flag(flag) { m_flag = true; }
    ~FlagGuard() { m_flag = false; }
    FlagGuard(const FlagGuard &) = delete;
    FlagGuard &operator=(const FlagGuard &) = delete;

private:
    bool &m_flag;
};

// Counts a running step for as long as its frame lives; a frame that outlives the counter's owner
// leaves it alone.
class CountGuard
{
public:
    CountGuard(const QObject *owner, int &count) : m_owner(owner), m_count(count) { ++m_count; }
    ~CountGuard()
    {
        if (m_owner) {
            --m_count;
        }
    }
    CountGuard(const CountGuard &) = delete;
    CountGuard &operator=(const CountGuard &) = delete;

private:
    QPointer<const QObject> m_owner;
    int &m_count;
};

QDate localDate(const QDateTime &date)
{
    return date.toLocalTime().date();
}
} // namespace

ActivityMonitor::ActivityMonitor(const Services &services, QObject *parent)
    : QObject(parent)
    , m_snapshotStore(services.snapshotStore)
    , m_reportStore(services.reportStore)
    , m_reportService(services.reportService)
    , m_llmService(services.llmService)
    , m_logManager(services.logManager)
    , m_settings(services.settings)
    , m_clock(services.clock)
    , m_screenCapture(services.screenCapture)
    , m_screenEvents(services.screenEvents)
    , m_wakeEvents(services.wakeEvents)
    , m_visibleWindows(services.visibleWindows)
    , m_timedPause(services.timedPause)
    , m_idleTime(services.idleTime)
    , m_ownWindows(services.ownWindows)
    , m_lastSaveDate(services.clock->now())
{
    Q_ASSERT(m_snapshotStore && m_reportStore && m_reportService && m_llmService && m_logManager && m_settings);
    if (m_timedPause) {
        connect(m_timedPause, &TimedPause::ended, this, &ActivityMonitor::startMonitoring);
    }
}

ActivityMonitor::~ActivityMonitor()
{
    // The timers go with their parent; the sources may outlive us.
    unregisterScreenStateObservers();
    unregisterDailyLifecycleObservers();
}

// Capture cycle

void ActivityMonitor::configure()
{
    if (m_isConfigured) {
        return;
    }
    m_isConfigured = true;
    loadLastSaveDate();
    registerDailyLifecycleObservers();
    log(u"📦 Storage configured"_s, LogType::Info);

    // The first screenshot of a launch comes after the catch-up, however long it takes.
    startTask(this, [this]() -> QCoro::Task<> {
        if (!m_rolloverInProgress) {
            FlagGuard guard(m_rolloverInProgress);
            co_await catchUpPendingFinalizations();
        }
        co_await cleanupOldRecords();
        startDailyCheckTimer();
        // A timed pause that outlived the last run goes on, and starts monitoring when it ends.
        if (!m_timedPause || !m_timedPause->resumeStored()) {
            startMonitoring();
        }
    });
}

void ActivityMonitor::startMonitoring()
{
    if (m_isMonitoring) {
        return;
    }
    m_settings->setBoolean(SettingsKey::userIntentionallyStopped, false);
    if (m_timedPause) {
        m_timedPause->clear();
    }
    setMonitoring(true);
    setLastError(std::nullopt);
    log(u"🚀 Monitoring started"_s, LogType::Info);
    registerScreenStateObservers();

    // The first tick does not wait for the timer; it runs once this call has returned.
    startTask(this, [this] { return performCapture(); });

    m_timer = new QTimer(this);
    m_timer->setObjectName(u"captureTimer"_s);
    // No tolerance: a coarse timer may drift by up to 5% of the interval.
    m_timer->setTimerType(Qt::PreciseTimer);
    m_timer->setInterval(captureInterval);
    connect(m_timer, &QTimer::timeout, this, [this] { startTask(this, [this] { return performCapture(); }); });

    m_cleanupTimer = new QTimer(this);
    m_cleanupTimer->setObjectName(u"cleanupTimer"_s);
    m_cleanupTimer->setTimerType(Qt::PreciseTimer);
    m_cleanupTimer->setInterval(cleanupInterval);
    connect(
        m_cleanupTimer, &QTimer::timeout, this, [this] { startTask(this, [this] { return cleanupOldRecords(); }); });

    m_cleanupTimer->start();
    m_timer->start();
}

void ActivityMonitor::stopMonitoring()
{
    m_settings->setBoolean(SettingsKey::userIntentionallyStopped, true);
    setMonitoring(false);
    for (QPointer<QTimer> *timer : {&m_timer, &m_cleanupTimer}) {
        if (*timer) {
            (*timer)->stop();
            (*timer)->deleteLater();
            *timer = nullptr;
        }
    }
    unregisterScreenStateObservers();
    startTask(this, [this]() -> QCoro::Task<> {
        co_await saveDailyData();
        co_await exportWorkLogForDay(m_clock->now());
    });
    log(u"🛑 Monitoring stopped"_s, LogType::Info);
}

void ActivityMonitor::pauseUntil(const QDateTime &end)
{
    if (!m_timedPause) {
        return;
    }
    if (m_isMonitoring) {
        stopMonitoring();
    }
    m_timedPause->start(end);
}

void ActivityMonitor::clearLastError()
{
    setLastError(std::nullopt);
}

QCoro::Task<> ActivityMonitor::performCapture()
{
    const CountGuard running(this, m_ticksInFlight);
    if (m_screenState == ScreenState::Locked || m_screenState == ScreenState::Sleeping) {
        co_await recordScreenStateSnapshot();
        co_return;
    }
    if (co_await skipAsPrivate()) {
        co_return;
    }
    const std::optional<CapturedScreenshot> screenshot = co_await captureScreenshot();
    if (!screenshot) {
        co_return;
    }
    setScreenshotCount(m_screenshotCount + 1);
    setLastScreenshotTime(m_clock->now());
    if (co_await recordWithoutAnalysis(*screenshot)) {
        co_return;
    }
    const QString context = labelContext();
    if (const std::optional<ActivitySnapshot> analysed = co_await analyzeWithAI(screenshot->data, screenshot->hash)) {
        m_screenChanges.rememberAnalysis(screenshot->thumbnail, *analysed, context);
    }
}

void ActivityMonitor::registerScreenStateObservers()
{
    if (!m_screenEvents) {
        return;
    }
    // Never a second set, whatever called this.
    unregisterScreenStateObservers();

    struct Transition
    {
        ScreenEvent event;
        ScreenState state;
        QString message;
    };
    const Transition transitions[] = {
        {ScreenEvent::Locked, ScreenState::Locked, u"🔒 Screen locked - pausing capture"_s},
        {ScreenEvent::Unlocked, ScreenState::Active, u"🔓 Screen unlocked - resuming capture"_s},
        {ScreenEvent::DisplaysSleep, ScreenState::Sleeping, u"😴 Display sleeping - pausing capture"_s},
        {ScreenEvent::DisplaysWake, ScreenState::Active, u"☀️ Display woke - resuming capture"_s},
    };
    for (const Transition &transition : transitions) {
        const QPointer<ActivityMonitor> self(this);
        const ScreenState state = transition.state;
        const QString message = transition.message;
        m_screenStateObservers.append(m_screenEvents->addObserver(transition.event, [self, state, message] {
            if (self) {
                QMetaObject::invokeMethod(
                    self, [self, state, message] { self->applyScreenEvent(state, message); }, Qt::QueuedConnection);
            }
        }));
    }
}

void ActivityMonitor::unregisterScreenStateObservers()
{
    if (m_screenEvents) {
        for (const ScreenEventSource::Token token : std::as_const(m_screenStateObservers)) {
            m_screenEvents->removeObserver(token);
        }
    }
    m_screenStateObservers.clear();
}

void ActivityMonitor::applyScreenEvent(ScreenState state, const QString &message)
{
    setScreenState(state);
    log(message, LogType::Info);
}

// Screen capture

QCoro::Task<std::optional<ActivityMonitor::CapturedScreenshot>> ActivityMonitor::captureScreenshot()
{
    ScreenGrab grab = ScreenGrab::failure(ScreenCaptureError::Kind::NoDisplayAvailable);
    std::optional<QString> thrown;
    const QPointer<ActivityMonitor> alive(this);
    if (m_screenCapture) {
        try {
            grab = co_await m_screenCapture->captureScreen();
        } catch (const std::exception &error) {
            thrown = QString::fromUtf8(error.what());
        }
    }
    // A tick can outlive the monitor: at quit, the replies it waits for are cancelled.
    if (!alive) {
        co_return std::nullopt;
    }

    if (thrown) {
        setLastError(u"Screenshot failed: "_s + *thrown);
    } else if (!grab.ok()) {
        if (grab.error->kind == ScreenCaptureError::Kind::PermissionDenied) {
            setLastError(permissionDeniedText);
            stopMonitoring();
        } else if (grab.error->kind == ScreenCaptureError::Kind::Unavailable) {
            setLastError(u"Screenshot failed: "_s + grab.error->description());
            stopMonitoring();
        } else {
            setLastError(u"Screenshot failed: "_s + grab.error->description());
        }
    } else if (const QImage scaled = ScreenCaptureService::scaledDown(grab.image, ScreenCaptureService::maxImageWidth);
               const std::optional<QByteArray> data = PngEncoder::encode(scaled)) {
        const QString hash = ScreenCaptureService::sha256Hex(*data);
        co_return CapturedScreenshot {
            *data, hash, ScreenThumbnail::of(scaled, hash, ownWindowAreas(grab.image, scaled))};
    } else {
        setLastError(u"Screenshot failed: "_s + imageConversionFailedText);
    }

    const QString text = lastError().isEmpty() ? u"Unknown error"_s : lastError();
    log(u"❌ "_s + text, LogType::Error);
    co_return std::nullopt;
}

// Privacy

QCoro::Task<bool> ActivityMonitor::skipAsPrivate()
{
    // Read at each tick, so an edited list counts from the next one on.
    const PrivacyExclusions exclusions = PrivacyExclusions::fromSettings(*m_settings);
    if (!m_visibleWindows || exclusions.isEmpty()) {
        co_return false;
    }
    const QPointer<ActivityMonitor> alive(this);
    const VisibleWindowList list = co_await m_visibleWindows->visibleWindows();
    if (!alive) {
        co_return true;
    }
    if (list.failure) {
        // Not knowing what is on screen is no licence to look.
        qCWarning(lcMonitoring) << "Window list unavailable:" << *list.failure;
        log(u"⚠️ Window list unavailable - tick skipped as private"_s, LogType::Warning);
    } else if (exclusions.excludesAny(list.windows)) {
        log(u"🙈 Tick skipped as private"_s, LogType::Info);
    } else {
        co_return false;
    }

    const QDateTime now = m_clock->now();
    ActivitySnapshot snapshot;
    snapshot.id = QUuid::createUuid();
    snapshot.timestamp = now;
    snapshot.aiCategory = UserPreferences::otherLabel;
    snapshot.projectName = UserPreferences::otherLabel;
    snapshot.activityDescription = ActivitySnapshot::privateMarker;
    storeSnapshot(snapshot);
    setLastCaptureTime(now);
    setCaptureCount(m_captureCount + 1);
    co_return true;
}

// Presence

QCoro::Task<bool> ActivityMonitor::recordWithoutAnalysis(CapturedScreenshot screenshot)
{
    // Input idle on a screen that keeps changing (a call, a film, a build) is not away.
    const bool still = m_screenChanges.stillSinceLastTick(screenshot.thumbnail);
    const QPointer<ActivityMonitor> alive(this);
    const bool away = still && co_await isAwayFromInput();
    if (!alive) {
        co_return true;
    }
    if (away) {
        // A lock or a sleep that came while the desktop answered keeps its own state.
        if (m_screenState == ScreenState::Active || m_screenState == ScreenState::Away) {
            if (m_screenState == ScreenState::Active) {
                log(u"🚶 No input and a still screen - away"_s, LogType::Info);
            }
            setScreenState(ScreenState::Away);
            co_await recordScreenStateSnapshot();
            co_return true;
        }
    }
    if (m_screenState == ScreenState::Away) {
        setScreenState(ScreenState::Active);
        log(u"👋 No longer away - resuming analysis"_s, LogType::Info);
    }
    if (!m_settings->boolean(SettingsKey::skipUnchangedScreens, true)) {
        co_return false;
    }
    const std::optional<ActivitySnapshot> analysed
        = m_screenChanges.reusableAnalysis(screenshot.thumbnail, m_clock->now(), labelContext());
    if (!analysed) {
        co_return false;
    }
    recordReusedAnalysis(*analysed, screenshot.hash);
    co_return true;
}

QCoro::Task<bool> ActivityMonitor::isAwayFromInput()
{
    const int minutes = m_settings->integer(SettingsKey::awayThresholdMinutes, defaultAwayThresholdMinutes);
    if (minutes <= 0 || !m_idleTime) {
        co_return false;
    }
    const std::chrono::milliseconds threshold = std::chrono::minutes(minutes);
    const QPointer<ActivityMonitor> alive(this);
    const std::optional<std::chrono::milliseconds> idle = co_await m_idleTime->idleTime(threshold);
    if (!alive) {
        co_return false;
    }
    if (!idle) {
        if (!m_reportedNoIdleTime) {
            m_reportedNoIdleTime = true;
            log(u"⚠️ This desktop does not tell how long the input has been idle - time away is not detected"_s,
                LogType::Warning);
        }
        co_return false;
    }
    co_return *idle >= threshold;
}

void ActivityMonitor::recordReusedAnalysis(const ActivitySnapshot &analysed, const QString &imageHash)
{
    const QDateTime now = m_clock->now();
    ActivitySnapshot snapshot;
    snapshot.id = QUuid::createUuid();
    snapshot.timestamp = now;
    snapshot.aiCategory = analysed.aiCategory;
    snapshot.imageHash = imageHash;
    snapshot.projectName = analysed.projectName;
    snapshot.activityDescription = analysed.activityDescription;
    storeSnapshot(snapshot);

    setLastCaptureTime(now);
    setCaptureCount(m_captureCount + 1);
    log(u"♻️ Screen unchanged - reused ["_s + snapshot.aiCategory + u"] "_s
            + snapshot.activityDescription.value_or(QString()),
        LogType::Info);
}

QList<QRect> ActivityMonitor::ownWindowAreas(const QImage &grabbed, const QImage &scaled) const
{
    QList<QRect> areas = m_ownWindows ? m_ownWindows->ownWindowAreas() : QList<QRect>();
    const double factor = grabbed.width() > 0 ? double(scaled.width()) / grabbed.width() : 1.0;
    for (QRect &area : areas) {
        area = QRectF(QPointF(area.topLeft()) * factor, QSizeF(area.size()) * factor).toAlignedRect();
    }
    return areas;
}

QString ActivityMonitor::labelContext() const
{
    return m_settings->string(SettingsKey::userProjects) + u'\n' + m_settings->string(SettingsKey::categorizeBy) + u'\n'
        + m_settings->string(SettingsKey::selectedOllamaModel);
}

// Snapshot recording

QCoro::Task<std::optional<ActivitySnapshot>> ActivityMonitor::analyzeWithAI(QByteArray imageData, QString imageHash)
{
    AIAnalysisResult result;
    std::optional<QString> failure;
    const QPointer<ActivityMonitor> alive(this);
    try {
        result = co_await m_llmService->analyzeScreenshot(std::move(imageData));
    } catch (const std::exception &error) {
        failure = QString::fromUtf8(error.what());
    } catch (...) {
        failure = u"Unknown error"_s;
    }

    if (!alive) {
        co_return std::nullopt;
    }
    if (failure) {
        setLastError(u"AI analysis failed: "_s + *failure);
        log(u"⚠️ "_s + lastError(), LogType::Warning);
        co_return std::nullopt;
    }

    const QDateTime now = m_clock->now();
    ActivitySnapshot snapshot;
    snapshot.id = QUuid::createUuid();
    snapshot.timestamp = now;
    snapshot.aiCategory = result.category;
    snapshot.imageHash = imageHash;
    snapshot.projectName = result.projectName;
    snapshot.activityDescription = result.activityDescription;
    storeSnapshot(snapshot);

    log(u"["_s + result.category + u"] "_s + result.activityDescription, LogType::Ai, result.category);
    setLastCaptureTime(now);
    setCaptureCount(m_captureCount + 1);
    setAiAnalysisCount(m_aiAnalysisCount + 1);
    setLastError(std::nullopt);
    co_return snapshot;
}

QCoro::Task<> ActivityMonitor::recordScreenStateSnapshot()
{
    const ScreenState state = m_screenState;
    const QDateTime now = m_clock->now();
    const QString marker = ActivitySnapshot::screenStateMarker(state);

    ActivitySnapshot snapshot;
    snapshot.id = QUuid::createUuid();
    snapshot.timestamp = now;
    snapshot.activityDescription = marker;
    storeSnapshot(snapshot);

    setLastCaptureTime(now);
    setCaptureCount(m_captureCount + 1);

    QString word = u"active"_s;
    if (state == ScreenState::Locked) {
        word = u"locked"_s;
    } else if (state == ScreenState::Sleeping) {
        word = u"sleeping"_s;
    } else if (state == ScreenState::Away) {
        word = u"away"_s;
    }
    log(u"["_s + word + u"] "_s + marker, LogType::Info);
    co_return;
}

void ActivityMonitor::storeSnapshot(const ActivitySnapshot &snapshot)
{
    m_snapshotStore->add(snapshot);
    ++m_currentDayRecordCount;
    m_latestSnapshots.prepend(snapshot);
    if (m_latestSnapshots.size() > maxInMemorySnapshots) {
        m_latestSnapshots.removeLast();
    }
    Q_EMIT latestSnapshotsChanged();
}

void ActivityMonitor::addNoteToCurrentLog(const QString &note)
{
    // The note field tells the user the limit as they type; what goes past it is not kept.
    const QString trimmed = TextLimits::fittedText(TextLimits::withoutControlCharacters(note).trimmed());
    if (trimmed.isEmpty() || m_latestSnapshots.isEmpty()) {
        return;
    }
    const QUuid id = m_latestSnapshots.first().id;
    m_snapshotStore->updateNote(id, trimmed);

    const auto entry = std::find_if(m_latestSnapshots.begin(), m_latestSnapshots.end(),
        [&id](const ActivitySnapshot &snapshot) { return snapshot.id == id; });
    if (entry != m_latestSnapshots.end()) {
        entry->userNote = trimmed;
        const QStringList projects = UserPreferences::parsedList(m_settings->string(SettingsKey::userProjects));
        const QString project = UserPreferences::normalizedLabel(trimmed, projects);
        if (project != UserPreferences::otherLabel) {
            entry->projectName = project;
        }
        Q_EMIT latestSnapshotsChanged();
    }
    log(u"📝 Note added to current log"_s, LogType::Info);
}

QCoro::Task<> ActivityMonitor::cleanupOldRecords()
{
    const qsizetype before = m_snapshotStore->count();
    m_snapshotStore->trim(maxDatabaseRecords, *m_reportStore);
    const qsizetype removed = before - m_snapshotStore->count();
    if (removed >= 1) {
        log(u"🧹 Cleaned up "_s + QString::number(removed) + u" old records"_s, LogType::Info);
    }
    co_return;
}

// Day rollover

void ActivityMonitor::loadLastSaveDate()
{
    if (const std::optional<QDateTime> stored = m_settings->date(SettingsKey::lastDailySaveDate)) {
        m_lastSaveDate = *stored;
        return;
    }
    const QDateTime today = startOfDay(m_clock->now());
    QDateTime earliest = today;
    const QList<ActivitySnapshot> records = m_snapshotStore->fetchAll();
    for (const ActivitySnapshot &record : records) {
        const QDateTime day = startOfDay(record.timestamp);
        if (day < earliest) {
            earliest = day;
        }
    }
    m_lastSaveDate = earliest;
}

void ActivityMonitor::registerDailyLifecycleObservers()
{
    if (!m_wakeEvents) {
        return;
    }
    const QPointer<ActivityMonitor> self(this);
    m_lifecycleObservers.append(m_wakeEvents->addWakeObserver([self] {
        if (self) {
            startTask(self, [self] { return self->checkDailyReset(); });
        }
    }));
}

void ActivityMonitor::unregisterDailyLifecycleObservers()
{
    if (m_wakeEvents) {
        for (const WakeEventSource::Token token : std::as_const(m_lifecycleObservers)) {
            m_wakeEvents->removeWakeObserver(token);
        }
    }
    m_lifecycleObservers.clear();
}

void ActivityMonitor::startDailyCheckTimer()
{
    if (m_dailyCheckTimer) {
        m_dailyCheckTimer->stop();
        m_dailyCheckTimer->deleteLater();
    }
    m_dailyCheckTimer = new QTimer(this);
    m_dailyCheckTimer->setObjectName(u"dailyCheckTimer"_s);
    m_dailyCheckTimer->setTimerType(Qt::PreciseTimer);
    m_dailyCheckTimer->setInterval(dailyCheckInterval);
    connect(
        m_dailyCheckTimer, &QTimer::timeout, this, [this] { startTask(this, [this] { return checkDailyReset(); }); });
    m_dailyCheckTimer->start();
}

QCoro::Task<> ActivityMonitor::checkDailyReset()
{
    // One check at a time: a second one would finalise the same day again while the first waits
    // for the model. The running check ends with its own catch-up, so nothing is missed.
    if (m_rolloverInProgress) {
        qCDebug(lcMonitoring) << "Day check skipped: another one is running";
        co_return;
    }
    FlagGuard guard(m_rolloverInProgress);

    const QDateTime now = m_clock->now();
    if (localDate(now) != localDate(m_lastSaveDate)) {
        log(u"📅 New day detected — finalizing previous day"_s, LogType::Info);
        co_await finalizeDay(m_lastSaveDate, true);
        co_await deleteDayRecords(startOfDay(now));
        resetDay(now);
        log(u"🔄 Daily reset completed"_s, LogType::Success);
    }
    co_await catchUpPendingFinalizations();
}

QCoro::Task<> ActivityMonitor::catchUpPendingFinalizations()
{
    const QDateTime today = startOfDay(m_clock->now());
    std::set<QDate> pending;
    const QList<ActivitySnapshot> records = m_snapshotStore->fetchAll();
    for (const ActivitySnapshot &record : records) {
        const QDateTime day = startOfDay(record.timestamp);
        if (day < today && !hasReportFor(day)) {
            pending.insert(day.date());
        }
    }

    for (const QDate &date : pending) {
        const QDateTime day = date.startOfDay();
        log(u"📅 Catching up — finalizing "_s + TamloDataPaths::dateLabel(day), LogType::Info);
        co_await finalizeDay(day, true);
    }

    if (startOfDay(m_lastSaveDate) < today) {
        resetDay(m_clock->now());
    }
}

QCoro::Task<bool> ActivityMonitor::finalizeDay(QDateTime date, bool removeFromStore)
{
    co_await saveDailyData();
    const QDateTime start = startOfDay(date);
    const std::optional<QDateTime> end = endOfDay(date);
    if (!end) {
        co_return false;
    }
    const QList<ActivitySnapshot> records = m_snapshotStore->fetch(start, *end, true);
    const DayFinalization outcome = co_await m_reportService->generateAndPersist(date, records, m_reportStore);

    // A day whose report is not safely on disk keeps its records, so it can be finalised again.
    const bool stored = outcome == DayFinalization::Stored;
    if (!stored && !records.isEmpty()) {
        qCWarning(lcMonitoring) << "Keeping the records of" << TamloDataPaths::dateLabel(start)
                                << "since its report was not stored";
    }
    if (removeFromStore && stored) {
        m_snapshotStore->deleteRange(start, *end);
    }
    co_return stored;
}

QCoro::Task<> ActivityMonitor::deleteDayRecords(QDateTime before)
{
    const qsizetype count = m_snapshotStore->count();
    // Only days whose report is on disk: a past day without one still goes through the catch-up,
    // and one whose report could not be written keeps its records until it is.
    std::set<QDate> reported;
    const QList<ActivitySnapshot> records = m_snapshotStore->fetchAll();
    for (const ActivitySnapshot &record : records) {
        if (record.timestamp < before && m_reportStore->hasSavedReport(TamloDataPaths::dateLabel(record.timestamp))) {
            reported.insert(localDate(record.timestamp));
        }
    }
    for (const QDate &date : reported) {
        const QDateTime start = date.startOfDay();
        if (const std::optional<QDateTime> end = endOfDay(start)) {
            m_snapshotStore->deleteRange(start, std::min(*end, before));
        }
    }
    const qsizetype removed = count - m_snapshotStore->count();
    if (removed >= 1) {
        log(u"🗑️ Removed "_s + QString::number(removed) + u" records from previous day"_s, LogType::Info);
    }
    co_return;
}

QCoro::Task<> ActivityMonitor::saveDailyData()
{
    m_snapshotStore->save();
    log(u"💾 Daily data saved: "_s + QString::number(m_currentDayRecordCount) + u" records"_s, LogType::Success);
    co_return;
}

QCoro::Task<> ActivityMonitor::exportWorkLogForDay(QDateTime date)
{
    const QDateTime start = startOfDay(date);
    const std::optional<QDateTime> end = endOfDay(date);
    if (!end) {
        co_return;
    }
    const QString label = TamloDataPaths::dateLabel(start);
    const QList<ActivitySnapshot> records = m_snapshotStore->fetch(start, *end, true);
    if (records.isEmpty()) {
        log(u"⚠️ No records to export for "_s + label, LogType::Warning);
        co_return;
    }
    if (const std::optional<ReportFileError> error = m_reportService->exportWorkLog(records, date)) {
        log(u"❌ Work log export failed: "_s + error->description, LogType::Error);
        co_return;
    }
    log(u"📄 Work log saved: WorkLogs/"_s + label + u".csv ("_s + QString::number(records.size()) + u" records)"_s,
        LogType::Success);
}

void ActivityMonitor::resetDay(const QDateTime &now)
{
    m_lastSaveDate = now;
    m_settings->setDate(SettingsKey::lastDailySaveDate, now);
    m_currentDayRecordCount = 0;
    setCaptureCount(0);
    setScreenshotCount(0);
    setAiAnalysisCount(0);
    if (!m_latestSnapshots.isEmpty()) {
        m_latestSnapshots.clear();
        Q_EMIT latestSnapshotsChanged();
    }
}

QDateTime ActivityMonitor::startOfDay(const QDateTime &date) const
{
    return localDate(date).startOfDay();
}

std::optional<QDateTime> ActivityMonitor::endOfDay(const QDateTime &date) const
{
    const QDateTime end = localDate(date).addDays(1).startOfDay();
    if (!end.isValid()) {
        return std::nullopt;
    }
    return end;
}

bool ActivityMonitor::hasReportFor(const QDateTime &day) const
{
    return m_reportStore->hasReport(TamloDataPaths::dateLabel(day));
}

// Published fields

void ActivityMonitor::setMonitoring(bool value)
{
    if (m_isMonitoring == value) {
        return;
    }
    m_isMonitoring = value;
    Q_EMIT isMonitoringChanged();
}

void ActivityMonitor::setScreenState(ScreenState value)
{
    if (m_screenState == value) {
        return;
    }
    m_screenState = value;
    Q_EMIT screenStateChanged();
}

void ActivityMonitor::setLastCaptureTime(const QDateTime &value)
{
    if (m_lastCaptureTime == value) {
        return;
    }
    m_lastCaptureTime = value;
    Q_EMIT lastCaptureTimeChanged();
}

void ActivityMonitor::setCaptureCount(int value)
{
    if (m_captureCount == value) {
        return;
    }
    m_captureCount = value;
    Q_EMIT captureCountChanged();
}

void ActivityMonitor::setLastError(const std::optional<QString> &value)
{
    if (m_lastError == value) {
        return;
    }
    m_lastError = value;
    Q_EMIT lastErrorChanged();
}

void ActivityMonitor::setScreenshotCount(int value)
{
    if (m_screenshotCount == value) {
        return;
    }
    m_screenshotCount = value;
    Q_EMIT screenshotCountChanged();
}

void ActivityMonitor::setLastScreenshotTime(const QDateTime &value)
{
    if (m_lastScreenshotTime == value) {
        return;
    }
    m_lastScreenshotTime = value;
    Q_EMIT lastScreenshotTimeChanged();
}

void ActivityMonitor::setAiAnalysisCount(int value)
{
    if (m_aiAnalysisCount == value) {
        return;
    }
    m_aiAnalysisCount = value;
    Q_EMIT aiAnalysisCountChanged();
}

void ActivityMonitor::log(const QString &message, LogType type, const std::optional<QString> &category) const
{
    m_logManager->log(message, type, category);
}
