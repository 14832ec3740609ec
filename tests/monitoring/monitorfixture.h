#pragma once

#include "ai/llmservice.h"
#include "core/activitysnapshotstore.h"
#include "core/apppaths.h"
#include "core/logmanager.h"
#include "core/settings.h"
#include "monitoring/activitymonitor.h"
#include "monitoring/screencaptureservice.h"
#include "platform/dbusscreenevents.h"
#include "reports/dailyreportservice.h"
#include "reports/dailyreportstore.h"

#include "fakeclock.h"
#include "logmessages.h"
#include "privatedbus.h"
#include "standinollama.h"
#include "standinserver.h"
#include "stillimagegrabber.h"

#include <QCoroTask>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <memory>

namespace MonitorTest {
using namespace Qt::StringLiterals;

using StandInOllama::chatBody;

inline QDateTime at(int year, int month, int day, int hour, int minute = 0, int second = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second));
}

// An analysed record of coding on Tamlo, as an earlier tick would have stored it.
inline ActivitySnapshot recordAt(const QDateTime &time, const QString &description)
{
    ActivitySnapshot snapshot;
    snapshot.id = QUuid::createUuid();
    snapshot.timestamp = time;
    snapshot.aiCategory = u"Coding"_s;
    snapshot.projectName = u"Tamlo"_s;
    snapshot.activityDescription = description;
    return snapshot;
}

// The whole monitor on real parts: stores in a temporary home, the model client against a
// stand-in Ollama, screen events from a private D-Bus daemon, and a fake clock.
class MonitorFixture : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(home.isValid());
        ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
        paths = AppPaths::underHome(home.path());
        settings = std::make_unique<Settings>(paths.settingsFile);
        settings->setString(SettingsKey::userProjects, u"Tamlo, Garden"_s);
        settings->setString(SettingsKey::categorizeBy, u"Coding, Writing"_s);

        ollama.on("GET", "/api/tags", StandInServer::Reply {200, StandInOllama::tagsBody({u"qwen3-vl:2b"_s})});
        ollama.on("POST", "/api/chat", [this](const StandInServer::Request &request) { return chat(request); });

        logManager = std::make_unique<LogManager>(&clock);
        snapshotStore
            = std::make_unique<ActivitySnapshotStore>(paths.snapshotsFile(), logManager.get(), settings.get(), &clock);
        reportStore = std::make_unique<DailyReportStore>(paths.dailyReportsFile(), logManager.get());
        llm = std::make_unique<LLMService>(&nam, settings.get(), logManager.get(), ollama.url(), &clock);
        llm->configure();
        reportService = std::make_unique<DailyReportService>(
            llm.get(), logManager.get(), settings.get(), &clock, paths.exportRoot);
        capture = std::make_unique<ScreenCaptureService>(nullptr, &grabber, ScreenCaptureService::SessionType::X11);
        sessionBus = std::make_unique<QDBusConnection>(bus.connect(u"monitor-session"_s));
        systemBus = std::make_unique<QDBusConnection>(bus.connect(u"monitor-system"_s));
        events = std::make_unique<DBusScreenEvents>(*sessionBus, *systemBus);

        buildMonitor();
    }

    // A new monitor on the same parts, taking its screenshots through the given service.
    void buildMonitor(ScreenCaptureService *screenCapture = nullptr)
    {
        monitor.reset();
        monitor = std::make_unique<ActivityMonitor>(ActivityMonitor::Services {
            .snapshotStore = snapshotStore.get(),
            .reportStore = reportStore.get(),
            .reportService = reportService.get(),
            .llmService = llm.get(),
            .logManager = logManager.get(),
            .settings = settings.get(),
            .clock = &clock,
            .screenCapture = screenCapture ? screenCapture : capture.get(),
            .screenEvents = events.get(),
            .wakeEvents = events.get(),
        });
    }

    void TearDown() override
    {
        monitor.reset();
        events.reset();
        QTest::qWait(0);
    }

    // Analysis requests carry an image; the day summary does not.
    StandInServer::Reply chat(const StandInServer::Request &request)
    {
        if (request.body.contains("\"images\"")) {
            if (analysisReply) {
                return *analysisReply;
            }
            return StandInServer::Reply {200,
                chatBody(QJsonObject {{u"category"_s, u"Coding"_s}, {u"projectName"_s, u"Tamlo"_s},
                    {u"activityDescription"_s, u"Editing activitymonitor.cpp"_s}}),
                "application/json", analysisDelayMs};
        }
        if (summaryReply) {
            return *summaryReply;
        }
        return StandInServer::Reply {200, chatBody(QJsonObject {{u"summary"_s, u"A calm and focused day of work."_s}})};
    }

    [[nodiscard]] qsizetype analysisRequests() const
    {
        qsizetype count = 0;
        for (const auto &request : ollama.requestsTo("/api/chat")) {
            count += request.body.contains("\"images\"") ? 1 : 0;
        }
        return count;
    }

    // Event log messages, oldest first, once the log has caught up.
    [[nodiscard]] QStringList messages()
    {
        QTest::qWait(0);
        return logMessages(*logManager);
    }

    [[nodiscard]] qsizetype countOf(const QString &message) { return messages().count(message); }

    [[nodiscard]] QTimer *timer(const QString &name) const
    {
        QTimer *found = monitor->findChild<QTimer *>(name);
        return found && found->isActive() ? found : nullptr;
    }

    template<typename Predicate>
    static bool waitFor(Predicate predicate, int timeoutMs = 10000)
    {
        return QTest::qWaitFor(predicate, timeoutMs);
    }

    void sendScreenSaver(const QString &interface, bool active)
    {
        PrivateDBus::roundTrip(*sessionBus);
        ASSERT_TRUE(bus.sendScreenSaverActive(interface, active));
    }

    void sendPrepareForSleep(bool sleeping)
    {
        PrivateDBus::roundTrip(*systemBus);
        ASSERT_TRUE(bus.sendPrepareForSleep(sleeping));
    }

    QTemporaryDir home;
    AppPaths paths;
    FakeClock clock {QDateTime(QDate(2026, 3, 9), QTime(10, 0))};
    PrivateDBus bus;
    StandInServer ollama;
    QNetworkAccessManager nam;
    StillImageGrabber grabber;
    std::optional<StandInServer::Reply> analysisReply;
    std::optional<StandInServer::Reply> summaryReply;
    int analysisDelayMs = 0;

    std::unique_ptr<Settings> settings;
    std::unique_ptr<LogManager> logManager;
    std::unique_ptr<ActivitySnapshotStore> snapshotStore;
    std::unique_ptr<DailyReportStore> reportStore;
    std::unique_ptr<LLMService> llm;
    std::unique_ptr<DailyReportService> reportService;
    std::unique_ptr<ScreenCaptureService> capture;
    std::unique_ptr<QDBusConnection> sessionBus;
    std::unique_ptr<QDBusConnection> systemBus;
    std::unique_ptr<DBusScreenEvents> events;
    std::unique_ptr<ActivityMonitor> monitor;
};
} // namespace MonitorTest
