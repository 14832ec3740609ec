#pragma once

#include "account/activitysyncservice.h"
#include "account/appconfig.h"
#include "account/authservice.h"
#include "account/keychainservice.h"
#include "monitoring/screeneventsource.h"

#include "monitorrig.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPainter>

namespace TrustTest {
using namespace Qt::StringLiterals;

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

// The monitor on real parts in a temporary home (or a folder a test has mounted), with screen
// events that never come.
class FaultFixture : public MonitorRig
{
protected:
    FaultFixture() : MonitorRig(u"Editing faults_test.cpp"_s, u"A focused day."_s) { }

    void SetUp() override
    {
        MonitorRig::SetUp();
        // Short enough that a server that never answers costs a test seconds, not minutes.
        llmTimeouts = {.tags = std::chrono::seconds(1),
            .analysis = std::chrono::seconds(2),
            .daySummary = std::chrono::seconds(2)};
        // A smaller screen than the rig's, with one window on it.
        grabber.image = QImage(1280, 800, QImage::Format_RGB32);
        grabber.image.fill(Qt::white);
        QPainter(&grabber.image).fillRect(100, 100, 500, 300, Qt::darkBlue);
        // The screen stands still, yet every tick here is meant to reach the model.
        settings->setBoolean(SettingsKey::skipUnchangedScreens, false);
    }

    // Built apart from SetUp, so a test can first put the data folder where it wants it; built
    // again, it is the program starting over on the same files.
    void buildServices(ScreenCaptureService *screenCapture = nullptr)
    {
        endMonitor();
        buildParts();
        buildMonitor(screenCapture, &events);
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

    QuietScreenEvents events;
};
} // namespace TrustTest
