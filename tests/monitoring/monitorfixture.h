#pragma once

#include "core/activitysnapshot.h"
#include "platform/dbusscreenevents.h"

#include "monitorrig.h"
#include "privatedbus.h"
#include "standinollama.h"

#include <QDBusConnection>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <QTimer>
#include <QUuid>

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

// The whole monitor on real parts, with screen events from a private D-Bus daemon.
class MonitorFixture : public MonitorRig
{
protected:
    MonitorFixture() : MonitorRig(u"Editing activitymonitor.cpp"_s, u"A calm and focused day of work."_s) { }

    void SetUp() override
    {
        ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
        MonitorRig::SetUp();
        if (HasFatalFailure()) {
            return;
        }
        buildParts();
        sessionBus = std::make_unique<QDBusConnection>(bus.connect(u"monitor-session"_s));
        systemBus = std::make_unique<QDBusConnection>(bus.connect(u"monitor-system"_s));
        events = std::make_unique<DBusScreenEvents>(*sessionBus, *systemBus);

        buildMonitor();
    }

    // A new monitor on the same parts, taking its screenshots through the given service.
    void buildMonitor(ScreenCaptureService *screenCapture = nullptr)
    {
        MonitorRig::buildMonitor(screenCapture, events.get());
    }

    void TearDown() override
    {
        endMonitor();
        events.reset();
        MonitorRig::TearDown();
    }

    [[nodiscard]] qsizetype analysisRequests() const
    {
        qsizetype count = 0;
        for (const auto &request : ollama.requestsTo("/api/chat")) {
            count += request.body.contains("\"images\"") ? 1 : 0;
        }
        return count;
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

    PrivateDBus bus;
    std::unique_ptr<QDBusConnection> sessionBus;
    std::unique_ptr<QDBusConnection> systemBus;
    std::unique_ptr<DBusScreenEvents> events;
};
} // namespace MonitorTest
