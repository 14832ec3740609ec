#include "platform/linuxdesktopactions.h"
#include "platform/portalscreengrabber.h"
#include "platform/singleinstance.h"
#include "platform/traypanel.h"

#include "monitorfixture.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTimer>

#include <future>
#include <sys/socket.h>
#include <sys/un.h>

using namespace MonitorTest;

namespace {
// The portal's Screenshot interface as the real one answers: a file, and a signal on the request object.
class StandInPortal : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Screenshot")
public:
    StandInPortal(QDBusConnection bus, QString directory) : m_bus(std::move(bus)), m_directory(std::move(directory)) { }

    bool publish()
    {
        return m_bus.registerObject(u"/org/freedesktop/portal/desktop"_s, this, QDBusConnection::ExportAllSlots)
            && m_bus.registerService(u"org.freedesktop.portal.Desktop"_s);
    }

    uint responseCode = 0;
    int answerDelayMs = 0; // answers this late even when the request was closed meanwhile
    QStringList closedRequests;
    QImage image;
    QList<QVariantMap> calls;
    QString writtenFile;

public Q_SLOTS:
    QDBusObjectPath Screenshot(const QString &, const QVariantMap &options, const QDBusMessage &message)
    {
        calls.append(options);
        const QString path = u"/org/freedesktop/portal/desktop/request/"_s
            + message.service().mid(1).replace(u'.', u'_') + u'/' + options.value(u"handle_token"_s).toString();
        QVariantMap results;
        if (responseCode == 0) {
            writtenFile = m_directory + u"/Screenshot.png"_s;
            image.save(writtenFile, "PNG");
            results.insert(u"uri"_s, QUrl::fromLocalFile(writtenFile).toString());
        }
        m_bus.registerObject(path, u"org.freedesktop.portal.Request"_s, this, QDBusConnection::ExportAllSlots);
        QTimer::singleShot(answerDelayMs, this, [this, path, code = responseCode, results] {
            QDBusMessage signal = QDBusMessage::createSignal(path, u"org.freedesktop.portal.Request"_s, u"Response"_s);
            signal << code << results;
            m_bus.send(signal);
        });
        return QDBusObjectPath(path);
    }

    void Close(const QDBusMessage &message) { closedRequests.append(message.path()); }

private:
    QDBusConnection m_bus;
    QString m_directory;
};

class PortalCaptureTest : public MonitorFixture
{
protected:
    void SetUp() override
    {
        MonitorFixture::SetUp();
        portal->image = QImage(1920, 1080, QImage::Format_RGB32);
        portal->image.fill(QColor(200, 30, 30));
        ASSERT_TRUE(portal->publish());
        buildMonitor(&portalCapture);
    }

    QTemporaryDir portalDir;
    QDBusConnection portalBus = bus.connect(u"portal-service"_s);
    std::unique_ptr<StandInPortal> portal = std::make_unique<StandInPortal>(portalBus, portalDir.path());
    PortalScreenGrabber portalGrabber {bus.connect(u"tamlo"_s)};
    ScreenCaptureService portalCapture {&portalGrabber, nullptr, ScreenCaptureService::SessionType::Wayland};
};

// An answer after the time-out has its request closed and the picture it names deleted.
TEST_F(PortalCaptureTest, EachAnswerOfThePortalALateOneAndNoPortalAtAll)
{
    using Kind = ScreenCaptureError::Kind;
    for (const auto &[code, kind] : {std::pair {0u, std::optional<Kind>()}, {1u, Kind::PermissionDenied},
             {2u, Kind::PermissionDenied}, {3u, Kind::CaptureFailed}}) {
        portal->responseCode = code;
        const ScreenGrab grab = QCoro::waitFor(portalGrabber.grab());
        EXPECT_EQ(grab.ok() ? std::nullopt : std::optional(grab.error->kind), kind) << code;
        EXPECT_EQ(grab.image.isNull() ? QColor() : grab.image.pixelColor(9, 9), code ? QColor() : QColor(200, 30, 30));
    }
    QSet<QString> tokens;
    for (const QVariantMap &options : portal->calls) {
        EXPECT_EQ(options.value(u"interactive"_s), QVariant(false));
        tokens.insert(options.value(u"handle_token"_s).toString());
    }
    EXPECT_EQ(tokens.size(), 4);

    PortalScreenGrabber impatient(*sessionBus, std::chrono::milliseconds(200));
    portal->responseCode = 0;
    portal->answerDelayMs = 600;
    const ScreenGrab late = QCoro::waitFor(impatient.grab());
    EXPECT_EQ(late.ok() ? std::nullopt : std::optional(late.error->kind), Kind::CaptureFailed);
    ASSERT_TRUE(waitFor([&] { return portal->closedRequests.size() == 1; }));
    ASSERT_TRUE(QFile::exists(portal->writtenFile));
    EXPECT_TRUE(waitFor([&] { return !QFile::exists(portal->writtenFile); }, 3000));

    portal.reset();
    ASSERT_TRUE(portalBus.unregisterService(u"org.freedesktop.portal.Desktop"_s));
    monitor->startMonitoring();
    ASSERT_TRUE(waitFor([&] { return !monitor->isMonitoring(); }));
    EXPECT_TRUE(monitor->lastError().contains(u"Install "_s)) << monitor->lastError().toStdString();
    EXPECT_EQ(messages().filter(u"then log in again"_s).size(), 1);
}

TEST(DBusScreenEventsTest, SubscriptionsFollowTheObservers)
{
    PrivateDBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
    const QDBusConnection session = bus.connect(u"events-session"_s);
    const QDBusConnection system = bus.connect(u"events-system"_s);
    const auto matchRules = [](const QDBusConnection &connection) {
        QDBusMessage call = QDBusMessage::createMethodCall(u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s,
            u"org.freedesktop.DBus.Debug.Stats"_s, u"GetConnectionStats"_s);
        call << connection.baseService();
        return qdbus_cast<QVariantMap>(connection.call(call).arguments().value(0)).value(u"MatchRules"_s).toInt();
    };
    const auto rules = [&] { return std::pair(matchRules(session), matchRules(system)); };
    DBusScreenEvents events(session, system);
    const auto none = rules();
    const auto lock = events.addObserver(ScreenEvent::Locked, [] {});
    const auto wake = events.addWakeObserver([] {});
    EXPECT_EQ(rules(), std::pair(none.first + 2, none.second + 1)) << "both screen savers and logind";
    events.removeObserver(lock);
    EXPECT_EQ(rules(), std::pair(none.first, none.second + 1));
    events.removeWakeObserver(wake);
    EXPECT_EQ(rules(), none);
}

// What another process gives, run on a thread of its own as it blocks while this one answers.
template<typename Call>
bool fromAnotherProcess(Call call)
{
    auto result = std::async(std::launch::async, call);
    const auto ready = [&] { return result.wait_for(std::chrono::milliseconds(0)) == std::future_status::ready; };
    return QTest::qWaitFor(ready, 5000) && result.get();
}

TEST(SingleInstanceTest, SecondProcessHandsOverToTheFirstAndACrashedOnesSocketIsTakenOver)
{
    QTemporaryDir dir;
    const QString name = dir.filePath(u"tamlo.socket"_s);
    const auto send = [&](const QString &message) {
        return fromAnotherProcess([&] { return SingleInstance::sendToRunning(name, message); });
    };
    EXPECT_FALSE(send(SingleInstance::showPanelMessage)) << "no instance";
    // A bound socket that nobody accepts on, as a killed process leaves it.
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, name.toLocal8Bit().constData(), sizeof(address.sun_path) - 1);
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    ::close(fd);
    EXPECT_FALSE(send(SingleInstance::showPanelMessage)) << "a crashed instance";

    SingleInstance first(name);
    ASSERT_TRUE(first.listen());
    QSignalSpy received(&first, &SingleInstance::messageReceived);
    SingleInstance second(name);
    EXPECT_FALSE(fromAnotherProcess([&] { return second.listen(); }));
    EXPECT_EQ(received.count(), 0) << "probing for a live instance sends it nothing";
    // Both messages end to end: a tamlo:// link in the first run, the panel in the package's.
    const QString url = u"tamlo://auth?token=abc%20def&x=1"_s;
    EXPECT_TRUE(send(SingleInstance::openUrlMessage(url)));
    ASSERT_EQ(received.count(), 1);
    EXPECT_EQ(SingleInstance::urlFromMessage(received.first().first().toString()), url);
    // The longest message taken is 64 KiB, its line feed included.
    EXPECT_TRUE(send(SingleInstance::openUrlMessage(url).leftJustified(64 * 1024 - 1, u'x')));
    EXPECT_FALSE(send(SingleInstance::openUrlMessage(url).leftJustified(64 * 1024, u'x')));
}

// Closed, the panel only hides; hidden for the delay it is released, to be built afresh when shown.
TEST(TrayPanelTest, WithoutATrayThePanelIsAWindowThatHidesAndIsReleasedAfterTheDelay)
{
    int built = 0;
    TrayPanel tray(
        [&built] {
            ++built;
            auto window = std::make_unique<QQuickWindow>();
            window->resize(320, 600);
            return window;
        },
        std::chrono::milliseconds(300));
    ASSERT_FALSE(tray.hasTray()) << "the offscreen platform has no tray";
    EXPECT_EQ(tray.panel(), nullptr) << "nothing is built before it is first shown";
    QSignalSpy shown(&tray, &TrayPanel::panelShown);
    QSignalSpy released(&tray, &TrayPanel::panelReleased);
    tray.showPanel();
    QWindow *panel = tray.panel();
    ASSERT_TRUE(panel && panel->isVisible());
    EXPECT_EQ(panel->minimumSize(), panel->maximumSize()) << "the window manager may not resize it either way";
    // Shown again within the delay: the pending release is called off.
    panel->close();
    EXPECT_FALSE(panel->isVisible());
    tray.togglePanel();
    EXPECT_TRUE(panel->isVisible());
    QTest::qWait(500);
    tray.togglePanel();
    EXPECT_EQ(std::pair(tray.panel(), panel->isVisible()), std::pair(panel, false)) << "hidden, not destroyed";
    ASSERT_TRUE(released.wait(2000));
    EXPECT_EQ(tray.panel(), nullptr);
    tray.togglePanel();
    EXPECT_TRUE(tray.panel() && tray.panel()->isVisible());
    EXPECT_EQ(std::pair(built, int(shown.count())), std::pair(2, 3));
}

// "Open Settings" opens the privacy page of the desktop in use, and is offered nowhere else.
TEST(DesktopActionsTest, PrivacySettingsOpenTheDesktopsOwnPage)
{
    QTemporaryDir bin;
    const QString opened = bin.filePath(u"opened"_s);
    for (const char *program : {"gnome-control-center", "systemsettings"}) {
        QFile script(bin.filePath(QString::fromLatin1(program)));
        ASSERT_TRUE(script.open(QIODevice::WriteOnly));
        script.write(QByteArray("#!/bin/sh\necho \"") + program + " $*\" > '" + opened.toUtf8() + "'\n");
        script.setPermissions(script.permissions() | QFile::ExeOwner);
    }
    // The desktops, the PATH (the scripts' when empty) and the command run; none: not offered.
    const std::tuple<QString, QString, QByteArray> rows[] = {{u"ubuntu:GNOME"_s, {}, "gnome-control-center privacy"},
        {u"KDE"_s, {}, "systemsettings"}, {u"XFCE"_s, {}, {}}, {u"GNOME"_s, u"/nonexistent"_s, {}}};
    for (const auto &[desktops, path, command] : rows) {
        SCOPED_TRACE(desktops.toStdString());
        QProcessEnvironment environment;
        environment.insert(u"XDG_CURRENT_DESKTOP"_s, desktops);
        environment.insert(u"PATH"_s, path.isEmpty() ? bin.path() : path);
        LinuxDesktopActions desktop(environment);
        QFile::remove(opened);
        EXPECT_EQ(desktop.canOpenPrivacySettings(), !command.isEmpty());
        desktop.openPrivacySettings();
        if (!command.isEmpty()) {
            QFile output(opened);
            ASSERT_TRUE(QTest::qWaitFor([&] { return output.size() > 0; }, 5000));
            ASSERT_TRUE(output.open(QIODevice::ReadOnly));
            EXPECT_EQ(output.readAll().trimmed(), command);
        }
    }
}
} // namespace

#include "desktop_test.moc"
