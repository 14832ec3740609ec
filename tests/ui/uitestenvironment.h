#pragma once

#include "ai/llmservice.h"
#include "core/activitysnapshotstore.h"
#include "core/apppaths.h"
#include "core/logmanager.h"
#include "core/settings.h"
#include "fakeclock.h"
#include "monitoring/activitymonitor.h"
#include "monitoring/idletimesource.h"
#include "monitoring/screencaptureservice.h"
#include "monitoring/timedpause.h"
#include "platform/xdgautostart.h"
#include "reports/dailyreportservice.h"
#include "reports/dailyreportstore.h"
#include "standinollama.h"
#include "standinserver.h"
#include "stillimagegrabber.h"
#include "ui/desktopactions.h"
#include "ui/mainscreenmodel.h"

#include <QCoroTask>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QTemporaryDir>

#include <functional>
#include <map>
#include <memory>

// Lock, unlock, sleep and wake, fired by the test.
class FakeScreenEvents final : public ScreenEventSource, public WakeEventSource
{
public:
    ScreenEventSource::Token addObserver(ScreenEvent event, std::function<void()> handler) override
    {
        m_observers[++m_next] = {event, std::move(handler)};
        return m_next;
    }
    void removeObserver(ScreenEventSource::Token token) override { m_observers.erase(token); }
    [[nodiscard]] int observerCount() const override { return int(m_observers.size()); }
    WakeEventSource::Token addWakeObserver(std::function<void()> handler) override
    {
        m_wake[++m_next] = std::move(handler);
        return m_next;
    }
    void removeWakeObserver(WakeEventSource::Token token) override { m_wake.erase(token); }
    [[nodiscard]] int wakeObserverCount() const override { return int(m_wake.size()); }

    void fire(ScreenEvent event)
    {
        const auto observers = m_observers;
        for (const auto &[token, observer] : observers) {
            if (observer.first == event) {
                observer.second();
            }
        }
    }

private:
    quint64 m_next = 0;
    std::map<quint64, std::pair<ScreenEvent, std::function<void()>>> m_observers;
    std::map<quint64, std::function<void()>> m_wake;
};

// Input idle for as long as the test says.
struct SetIdleTime final : IdleTimeSource
{
    std::chrono::milliseconds idle {0};
    QCoro::Task<std::optional<std::chrono::milliseconds>> idleTime(std::chrono::milliseconds) override
    {
        co_return idle;
    }
};

// Records what the screens asked of the desktop instead of opening a browser.
class RecordingDesktop final : public DesktopActions
{
public:
    void openUrl(const QUrl &url) override { openedUrls.append(url); }
    [[nodiscard]] bool canOpenPrivacySettings() const override { return hasPrivacySettings; }
    void openPrivacySettings() override { ++privacySettingsOpened; }

    QList<QUrl> openedUrls;
    bool hasPrivacySettings = true;
    int privacySettingsOpened = 0;
};

// Every service the panel shows, built for real under a temporary home, with a stand-in Ollama.
struct UiTestEnvironment
{
    UiTestEnvironment()
        : paths(AppPaths::underHome(home.path()))
        , settings(paths.settingsFile)
        , logManager(&clock)
        , llm(&nam, &settings, &logManager, ollama.url(), &clock)
        , snapshotStore(paths.snapshotsFile(), &logManager, &settings, &clock)
        , reportStore(paths.dailyReportsFile(), &logManager)
        , captureService(nullptr, &grabber, ScreenCaptureService::SessionType::X11)
        , reportService(&llm, &logManager, &settings, &clock, paths.exportRoot)
        , timedPause(&settings, &clock)
        , monitor(ActivityMonitor::Services {.snapshotStore = &snapshotStore,
              .reportStore = &reportStore,
              .reportService = &reportService,
              .llmService = &llm,
              .logManager = &logManager,
              .settings = &settings,
              .clock = &clock,
              .screenCapture = &captureService,
              .screenEvents = &events,
              .wakeEvents = &events,
              .timedPause = &timedPause,
              .idleTime = &idleTime})
        , autostart(home.path() + QStringLiteral("/.config/autostart"), QStringLiteral("tamlo"))
    {
        // Each capture stands for a new screen that the model describes.
        settings.setBoolean(SettingsKey::skipUnchangedScreens, false);
        ollama.on("GET", "/api/tags", [this](const StandInServer::Request &) {
            return StandInServer::Reply {200, StandInOllama::tagsBody(installedModels)};
        });
        ollama.on("POST", "/api/chat", [this](const StandInServer::Request &) {
            return StandInServer::Reply {200, StandInOllama::chatBody(nextAnalysis)};
        });
    }

    // On the session the variables describe; an empty one is X11.
    [[nodiscard]] std::unique_ptr<MainScreenModel> makeMainScreen(const QProcessEnvironment &session = {})
    {
        return std::make_unique<MainScreenModel>(MainScreenModel::Services {&monitor, &llm, &reportService, &logManager,
            &settings, &clock, &desktop, &autostart, &timedPause, session});
    }

    // One real tick: the fake screen, the stand-in model's answer, the store.
    void capture(const QString &category, const QString &project, const QString &description)
    {
        nextAnalysis = QJsonObject {{QStringLiteral("category"), category}, {QStringLiteral("projectName"), project},
            {QStringLiteral("activityDescription"), description}};
        QCoro::waitFor(monitor.performCapture());
        clock.advance(30);
    }

    QTemporaryDir home;
    AppPaths paths;
    Settings settings;
    FakeClock clock {QDateTime(QDate(2026, 3, 9), QTime(9, 5))};
    LogManager logManager;
    QNetworkAccessManager nam;
    StandInServer ollama;
    QStringList installedModels {QStringLiteral("qwen3-vl:2b")};
    QJsonObject nextAnalysis;
    LLMService llm;
    ActivitySnapshotStore snapshotStore;
    DailyReportStore reportStore;
    StillImageGrabber grabber;
    ScreenCaptureService captureService;
    FakeScreenEvents events;
    SetIdleTime idleTime;
    DailyReportService reportService;
    TimedPause timedPause;
    ActivityMonitor monitor;
    RecordingDesktop desktop;
    XdgAutostart autostart;
};
