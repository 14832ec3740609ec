#pragma once

#include "platform/dbusscreenevents.h"

#include "monitorrig.h"
#include "privatedbus.h"
#include "records.h"

#include <QDBusConnection>
#include <QJsonDocument>
#include <QTimer>

#include <memory>

namespace MonitorTest {
using namespace Qt::StringLiterals;

inline QDateTime at(int year, int month, int day, int hour, int minute = 0, int second = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second));
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
        const QList<StandInServer::Request> requests = ollama.requestsTo("/api/chat");
        return std::count_if(requests.cbegin(), requests.cend(),
            [](const StandInServer::Request &request) { return request.body.contains("\"images\""); });
    }

    [[nodiscard]] qsizetype countOf(const QString &message) const { return messages().count(message); }

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

    void sendScreenSaver(bool active, const QString &interface = u"org.freedesktop.ScreenSaver"_s)
    {
        PrivateDBus::roundTrip(*sessionBus);
        ASSERT_TRUE(bus.sendScreenSaverActive(interface, active));
    }

    void sendPrepareForSleep(bool sleeping)
    {
        PrivateDBus::roundTrip(*systemBus);
        ASSERT_TRUE(bus.sendPrepareForSleep(sleeping));
    }

    void addRecord(const QDateTime &time, const QString &description = u"Writing code"_s)
    {
        snapshotStore->add(recordAt(time, u"Coding"_s, u"Tamlo"_s, description));
    }

    PrivateDBus bus;
    std::unique_ptr<QDBusConnection> sessionBus;
    std::unique_ptr<QDBusConnection> systemBus;
    std::unique_ptr<DBusScreenEvents> events;
};
} // namespace MonitorTest
