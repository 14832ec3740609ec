#pragma once

#include "ai/llmservice.h"
#include "core/activitysnapshotstore.h"
#include "core/apppaths.h"
#include "core/logmanager.h"
#include "core/settings.h"
#include "monitoring/activitymonitor.h"
#include "monitoring/screencaptureservice.h"
#include "monitoring/timedpause.h"
#include "monitoring/visiblewindowsource.h"
#include "reports/dailyreportservice.h"
#include "reports/dailyreportstore.h"

#include "countinggrabber.h"
#include "fakeclock.h"
#include "logmessages.h"
#include "standinollama.h"
#include "standinserver.h"
#include "stillimagegrabber.h"

#include <QCoroTask>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

// The monitor and the services under it on real parts, a stand-in Ollama, a still screen and a fake clock.
class MonitorRig : public ::testing::Test
{
protected:
    // The model describes every screenshot as coding on Tamlo with activity, and every day as daySummary.
    MonitorRig(const QString &activity, const QString &daySummary)
        : goodAnalysis {200,
            StandInOllama::chatBody(QJsonObject {{QStringLiteral("category"), QStringLiteral("Coding")},
                {QStringLiteral("projectName"), QStringLiteral("Tamlo")},
                {QStringLiteral("activityDescription"), activity}})}
        , analysis(goodAnalysis)
        , summary {200, StandInOllama::chatBody(QJsonObject {{QStringLiteral("summary"), daySummary}})}
    {
    }

    void SetUp() override
    {
        ASSERT_TRUE(home.isValid());
        paths = AppPaths::underHome(home.path());
        settings = std::make_unique<Settings>(paths.settingsFile);
        settings->setString(SettingsKey::userProjects, QStringLiteral("Tamlo, Garden"));
        settings->setString(SettingsKey::categorizeBy, QStringLiteral("Coding, Writing"));

        ollama.on(
            "GET", "/api/tags", StandInServer::Reply {200, StandInOllama::tagsBody({QStringLiteral("qwen3-vl:2b")})});
        // Analysis requests carry an image; the day summary does not.
        ollama.on("POST", "/api/chat", [this](const StandInServer::Request &request) {
            return request.body.contains("\"images\"") ? analysis : summary;
        });
        logManager = std::make_unique<LogManager>(&clock);
    }

    void TearDown() override
    {
        endMonitor();
        QTest::qWait(0);
    }

    // A tick or a day's close still running would resume on a monitor that is gone.
    void endMonitor()
    {
        if (monitor) {
            EXPECT_TRUE(QTest::qWaitFor([this] { return !monitor->hasWorkInFlight(); }, 30000));
        }
        monitor.reset();
    }

    // Everything under the monitor, afresh: building it again is a restart on the same data.
    void buildParts()
    {
        snapshotStore
            = std::make_unique<ActivitySnapshotStore>(paths.snapshotsFile(), logManager.get(), settings.get(), &clock);
        reportStore = std::make_unique<DailyReportStore>(paths.dailyReportsFile(), logManager.get());
        llm = std::make_unique<LLMService>(&nam, settings.get(), logManager.get(), ollama.url(), &clock, llmTimeouts);
        llm->configure();
        reportService = std::make_unique<DailyReportService>(
            llm.get(), logManager.get(), settings.get(), &clock, paths.exportRoot);
        capture = std::make_unique<ScreenCaptureService>(nullptr, &grabber, ScreenCaptureService::SessionType::X11);
    }

    // A new monitor on the parts, taking its screenshots through screenCapture (the still screen when null).
    template<typename Events>
    void buildMonitor(ScreenCaptureService *screenCapture, Events *events)
    {
        endMonitor();
        // A restart: the pause is known again only from what was stored.
        timedPause = std::make_unique<TimedPause>(settings.get(), &clock);
        monitor = std::make_unique<ActivityMonitor>(ActivityMonitor::Services {
            .snapshotStore = snapshotStore.get(),
            .reportStore = reportStore.get(),
            .reportService = reportService.get(),
            .llmService = llm.get(),
            .logManager = logManager.get(),
            .settings = settings.get(),
            .clock = &clock,
            .screenCapture = screenCapture ? screenCapture : capture.get(),
            .screenEvents = events,
            .wakeEvents = events,
            .visibleWindows = visibleWindows,
            .timedPause = timedPause.get(),
            .idleTime = idleTime,
            .ownWindows = ownWindows,
        });
    }

    void tick()
    {
        clock.advance(30);
        QCoro::waitFor(monitor->performCapture());
    }

    // Until visibleWindows lists a window of this title, or no longer does.
    void waitUntilListed(const QString &title, bool shown)
    {
        ASSERT_TRUE(QTest::qWaitFor(
            [&] {
                const QList<VisibleWindow> list = QCoro::waitFor(visibleWindows->visibleWindows()).windows;
                return std::any_of(list.cbegin(), list.cend(), [&](const VisibleWindow &w) { return w.title == title; })
                    == shown;
            },
            10000))
            << title.toStdString() << (shown ? " never listed" : " still listed");
    }

    // One tick; true when it was recorded as private with nothing grabbed and nothing sent.
    bool tickWasPrivate(const CountingGrabber &grabs)
    {
        const int grabsBefore = grabs.grabs;
        const qsizetype sentBefore = ollama.requestsTo("/api/chat").size();
        tick();
        const bool grabbed = grabs.grabs > grabsBefore;
        const bool sent = ollama.requestsTo("/api/chat").size() > sentBefore;
        const bool isPrivate = snapshotStore->fetchAll().last().isPrivate();
        EXPECT_TRUE(grabbed == sent && sent != isPrivate) << "a tick either looks and asks the model, or is private";
        return isPrivate && !grabbed;
    }

    [[nodiscard]] QStringList messages() const
    {
        QTest::qWait(0);
        return logMessages(*logManager);
    }

    QTemporaryDir home;
    AppPaths paths;
    FakeClock clock {QDateTime(QDate(2026, 3, 9), QTime(10, 0))};
    StandInServer ollama;
    const StandInServer::Reply goodAnalysis;
    StandInServer::Reply analysis;
    StandInServer::Reply summary;
    QNetworkAccessManager nam;
    StillImageGrabber grabber;

    std::unique_ptr<Settings> settings;
    std::unique_ptr<LogManager> logManager;
    std::unique_ptr<ActivitySnapshotStore> snapshotStore;
    std::unique_ptr<DailyReportStore> reportStore;
    std::unique_ptr<LLMService> llm;
    LLMTimeouts llmTimeouts;
    std::unique_ptr<DailyReportService> reportService;
    std::unique_ptr<ScreenCaptureService> capture;
    VisibleWindowSource *visibleWindows = nullptr; // none: nothing is asked before a grab
    std::unique_ptr<TimedPause> timedPause;
    IdleTimeSource *idleTime = nullptr; // none: never away
    const OwnWindowSource *ownWindows = nullptr;
    std::unique_ptr<ActivityMonitor> monitor;
};
