#pragma once

#include "account/activitysyncservice.h"
#include "account/appconfig.h"
#include "account/authservice.h"
#include "account/keychainservice.h"
#include "monitoring/screeneventsource.h"

#include "monitorrig.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QPainter>

namespace TrustTest {
using namespace Qt::StringLiterals;

// No source of screen events at all: these tests drive the ticks and day checks themselves.
struct NoScreenEvents : ScreenEventSource, WakeEventSource
{
};

// The monitor on real parts in a temporary home (or a folder a test has mounted).
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
        // A smaller screen than the rig's, with one window on it; every tick is meant to reach the model.
        grabber.image = QImage(1280, 800, QImage::Format_RGB32);
        grabber.image.fill(Qt::white);
        QPainter(&grabber.image).fillRect(100, 100, 500, 300, Qt::darkBlue);
        settings->setBoolean(SettingsKey::skipUnchangedScreens, false);
    }

    // Built apart from SetUp, so a test can first put the data folder where it wants it; built
    // again, it is the program starting over on the same files.
    void buildServices()
    {
        endMonitor();
        buildParts();
        buildMonitor(nullptr, static_cast<NoScreenEvents *>(nullptr));
    }

    // The monitor started as the program starts it, with its first capture done.
    void startMonitor()
    {
        buildServices();
        monitor->configure();
        ASSERT_TRUE(QTest::qWaitFor([this] { return monitor->captureCount() == 1; }, 10000));
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

    // The app's side of a backend at url: its configuration and the user's session.
    [[nodiscard]] AppConfig backendConfig(const QUrl &url) const
    {
        settings->setString(SettingsKey::convexURL, url.toString());
        return AppConfig(settings.get(), QString(), u"http://127.0.0.1:9"_s, {});
    }
};
} // namespace TrustTest
