#pragma once

#include "account/activitysyncservice.h"
#include "account/appconfig.h"
#include "account/authservice.h"
#include "account/keychainservice.h"
#include "ai/llmservice.h"
#include "core/activitysnapshotstore.h"
#include "core/apppaths.h"
#include "core/logmanager.h"
#include "core/settings.h"
#include "monitoring/activitymonitor.h"
#include "monitoring/screencaptureservice.h"
#include "monitoring/screengrabber.h"
#include "reports/dailyreportservice.h"
#include "reports/dailyreportstore.h"

#include "fakeclock.h"
#include "standinserver.h"

#include <QCoroTask>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QPainter>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>

namespace TrustTest {
using namespace Qt::StringLiterals;

// A screen that always shows the same picture.
class StillScreen final : public ScreenGrabber
{
public:
    QCoro::Task<ScreenGrab> grab() override
    {
        QImage image(1280, 800, QImage::Format_RGB32);
        image.fill(Qt::white);
        QPainter(&image).fillRect(100, 100, 500, 300, Qt::darkBlue);
        co_return ScreenGrab::success(image);
    }
};

// Screen events that never come: these tests drive the ticks and day checks themselves.
class QuietScreenEvents final : public ScreenEventSource, public WakeEventSource
{
public:
    ScreenEventSource::Token addObserver(ScreenEvent, std::function<void()>) override { return ++m_next; }
    void removeObserver(ScreenEventSource::Token) override { }
    [[nodiscard]] int observerCount() const override { return 0; }
    WakeEventSource::Token addWakeObserver(std::function<void()>) override { return ++m_next; }
    void removeWakeObserver(WakeEventSource::Token) override { }
    [[nodiscard]] int wakeObserverCount() const override { return 0; }

private:
    quint64 m_next = 0;
};

inline QByteArray analysisReply()
{
    const QJsonObject content {{u"category"_s, u"Coding"_s}, {u"projectName"_s, u"Tamlo"_s},
        {u"activityDescription"_s, u"Editing faults_test.cpp"_s}};
    const QJsonObject message {{u"role"_s, u"assistant"_s},
        {u"content"_s, QString::fromUtf8(QJsonDocument(content).toJson(QJsonDocument::Compact))}};
    return QJsonDocument(QJsonObject {{u"message"_s, message}, {u"done"_s, true}}).toJson(QJsonDocument::Compact);
}

// The monitor and the services under it on real parts: stores in a temporary home (or a folder a
// test has mounted), the model client against a stand-in Ollama, and a fake clock.
class FaultFixture : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(home.isValid());
        paths = AppPaths::underHome(home.path());
        settings = std::make_unique<Settings>(paths.settingsFile);
        settings->setString(SettingsKey::userProjects, u"Tamlo, Garden"_s);
        settings->setString(SettingsKey::categorizeBy, u"Coding, Writing"_s);
        ollama.on("GET", "/api/tags", StandInServer::Reply {200, R"({"models":[{"name":"qwen3-vl:2b"}]})"});
        ollama.on("POST", "/api/chat", [this](const StandInServer::Request &request) {
            return request.body.contains("\"images\"") ? analysis : summary;
        });
        logManager = std::make_unique<LogManager>(&clock);
    }

    // Built apart from SetUp, so a test can first put the data folder where it wants it.
    void buildServices(ScreenCaptureService *screenCapture = nullptr)
    {
        snapshotStore
            = std::make_unique<ActivitySnapshotStore>(paths.snapshotsFile(), logManager.get(), settings.get(), &clock);
        reportStore = std::make_unique<DailyReportStore>(paths.dailyReportsFile(), logManager.get());
        llm = std::make_unique<LLMService>(
            &nam, settings.get(), logManager.get(), ollamaUrl.isEmpty() ? ollama.url() : ollamaUrl, &clock);
        llm->configure();
        reportService = std::make_unique<DailyReportService>(
            llm.get(), logManager.get(), settings.get(), &clock, paths.exportRoot);
        capture = std::make_unique<ScreenCaptureService>(nullptr, &screen, ScreenCaptureService::SessionType::X11);
        monitor = std::make_unique<ActivityMonitor>(ActivityMonitor::Services {
            .snapshotStore = snapshotStore.get(),
            .reportStore = reportStore.get(),
            .reportService = reportService.get(),
            .llmService = llm.get(),
            .logManager = logManager.get(),
            .settings = settings.get(),
            .clock = &clock,
            .screenCapture = screenCapture ? screenCapture : capture.get(),
            .screenEvents = &events,
            .wakeEvents = &events,
        });
    }

    void TearDown() override
    {
        monitor.reset();
        QTest::qWait(0);
    }

    void tick()
    {
        clock.advance(30);
        QCoro::waitFor(monitor->performCapture());
    }

    // Event log messages, oldest first, once the log has caught up.
    [[nodiscard]] QStringList messages() const
    {
        QTest::qWait(0);
        QStringList result;
        for (const LogEntry &entry : logManager->logs()) {
            result.prepend(entry.message);
        }
        return result;
    }

    [[nodiscard]] bool logged(const QString &prefix) const
    {
        const QStringList all = messages();
        return std::any_of(all.cbegin(), all.cend(), [&prefix](const QString &m) { return m.startsWith(prefix); });
    }

    // The records in snapshots.json as any reader sees them; -1 when the file is not whole.
    [[nodiscard]] qsizetype recordsOnDisk() const
    {
        QFile file(paths.snapshotsFile());
        if (!file.open(QIODevice::ReadOnly)) {
            return 0;
        }
        const QJsonDocument document = QJsonDocument::fromJson(file.readAll());
        return document.isArray() ? document.array().size() : -1;
    }

    QTemporaryDir home;
    AppPaths paths;
    FakeClock clock {QDateTime(QDate(2026, 3, 9), QTime(10, 0))};
    std::unique_ptr<Settings> settings;
    std::unique_ptr<LogManager> logManager;
    StandInServer ollama;
    QUrl ollamaUrl; // the stand-in's when empty
    StandInServer::Reply analysis {200, analysisReply()};
    StandInServer::Reply summary {200, R"({"message":{"content":"{\"summary\":\"A focused day.\"}"}})"};
    QNetworkAccessManager nam;
    StillScreen screen;
    QuietScreenEvents events;
    std::unique_ptr<ActivitySnapshotStore> snapshotStore;
    std::unique_ptr<DailyReportStore> reportStore;
    std::unique_ptr<LLMService> llm;
    std::unique_ptr<DailyReportService> reportService;
    std::unique_ptr<ScreenCaptureService> capture;
    std::unique_ptr<ActivityMonitor> monitor;
};
} // namespace TrustTest
