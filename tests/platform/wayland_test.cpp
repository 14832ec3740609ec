#include "platform/dbusscreenevents.h"
#include "platform/portalscreengrabber.h"
#include "platform/swayvisiblewindows.h"
#include "platform/traypanel.h"
#include "platform/wlrscreencopygrabber.h"

#include "files.h"
#include "monitorrig.h"
#include "privatedbus.h"

#include <QApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QDirIterator>
#include <QPainter>
#include <QQuickWindow>
#include <QStandardPaths>
#include <QStringList>
#include <QThread>
#include <QTimer>

#include <pwd.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {
constexpr auto ownerOnly = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;

// sway on two headless outputs (as nobody when we are root, which it refuses), pipewire, and session
// buses on which the real portal starts when first asked. The first output shows a grid, the second green.
struct Desktop
{
    QTemporaryDir work {u"/tmp/tamlo-wl-XXXXXX"_s};
    QProcess sway;
    QProcess pipewire;
    QProcessEnvironment busEnvironment;
    QString socket;
    QString ipcSocket;
    std::string problem; // why the desktop is not there
    bool missingPackage = false;

    [[nodiscard]] QString path(const QString &name) const { return work.filePath(name); }

    bool start()
    {
        for (const char *program : {"sway", "swaybg", "pipewire", "xdg-desktop-portal", "xdg-desktop-portal-wlr",
                 "xdg-desktop-portal-gtk", "xlogo", "Xwayland", "foot"}) {
            if (QStandardPaths::findExecutable(QString::fromLatin1(program), {u"/usr/bin"_s, u"/usr/libexec"_s})
                    .isEmpty()) {
                missingPackage = true;
                return fail(program + std::string(" is not installed: run scripts/install-deps.sh"));
            }
        }
        for (const QString &dir : {u"sway"_s, u"run"_s, u"home"_s, u"tmp"_s, u"services"_s}) {
            QDir(work.path()).mkpath(dir);
            QFile::setPermissions(path(dir), ownerOnly);
        }
        QImage grid(1920, 1080, QImage::Format_RGB32);
        QPainter painter(&grid);
        for (int block = 0; block < 16; ++block) {
            painter.fillRect(block / 4 * 480, block % 4 * 270, 480, 270, blockColor(block / 4, block % 4));
        }
        painter.end();
        grid.save(path(u"grid.png"_s));
        writeFile(u"sway.conf"_s,
            u"xwayland enable\noutput HEADLESS-1 mode --custom 1920x1080 position 0 0 bg %1 stretch\n"
            "output HEADLESS-2 mode --custom 1280x1080 position 1920 0 bg #14a03c solid_color\n"_s.arg(
                path(u"grid.png"_s)));

        QStringList command {u"env"_s, u"HOME="_s + path(u"sway"_s), u"XDG_RUNTIME_DIR="_s + path(u"sway"_s),
            u"WLR_BACKENDS=headless"_s, u"WLR_HEADLESS_OUTPUTS=2"_s, u"WLR_LIBINPUT_NO_DEVICES=1"_s,
            u"WLR_RENDERER=pixman"_s, u"sway"_s, u"-c"_s, path(u"sway.conf"_s)};
        if (geteuid() == 0) {
            const passwd *nobody = getpwnam("nobody");
            if (!nobody || chown(QFile::encodeName(path(u"sway"_s)).constData(), nobody->pw_uid, nobody->pw_gid) != 0) {
                return fail("cannot hand a runtime folder to the nobody account");
            }
            QFile::setPermissions(work.path(), ownerOnly | QFile::ReadOther | QFile::ExeOther);
            // setpriv execs sway in its own place, so ending our child ends sway.
            command = QStringList {u"setpriv"_s, u"--reuid=%1"_s.arg(nobody->pw_uid),
                          u"--regid=%1"_s.arg(nobody->pw_gid), u"--clear-groups"_s}
                + command;
        }
        sway.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        sway.start(command.takeFirst(), command);
        if (!QTest::qWaitFor(
                [&] {
                    socket = firstMatch(u"wayland-?"_s);
                    ipcSocket = firstMatch(u"sway-ipc.*.sock"_s);
                    return !socket.isEmpty() && !ipcSocket.isEmpty();
                },
                10000)) {
            return fail("sway did not open its sockets");
        }
        QFile::setPermissions(path(u"sway"_s), ownerOnly | QFile::ExeOther);
        for (const QString &file : {socket, ipcSocket}) {
            QFile::setPermissions(file, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadOther | QFile::WriteOther);
        }

        busEnvironment = QProcessEnvironment::systemEnvironment();
        for (const auto &[name, value] : {std::pair {u"HOME"_s, path(u"home"_s)}, {u"TMPDIR"_s, path(u"tmp"_s)},
                 {u"XDG_RUNTIME_DIR"_s, path(u"run"_s)}, {u"WAYLAND_DISPLAY"_s, socket},
                 {u"XDG_CURRENT_DESKTOP"_s, u"sway"_s}, {u"XDG_SESSION_TYPE"_s, u"wayland"_s}}) {
            busEnvironment.insert(name, value);
        }
        busEnvironment.remove(u"DBUS_SESSION_BUS_ADDRESS"_s);
        pipewire.setProcessEnvironment(busEnvironment);
        pipewire.start(u"pipewire"_s, {});
        if (!QTest::qWaitFor([&] { return QFile::exists(path(u"run/pipewire-0"_s)); }, 10000)) {
            return fail("pipewire did not start");
        }
        // The portal and its backends, but not the document portal, which would mount a FUSE file system.
        for (const QString &name : {u"org.freedesktop.portal.Desktop"_s, u"org.freedesktop.impl.portal.desktop.wlr"_s,
                 u"org.freedesktop.impl.portal.desktop.gtk"_s, u"org.freedesktop.impl.portal.PermissionStore"_s}) {
            QFile::copy(
                u"/usr/share/dbus-1/services/"_s + name + u".service"_s, path(u"services/"_s + name + u".service"_s));
        }
        writeFile(u"bus.conf"_s,
            u"<busconfig><type>session</type><listen>unix:tmpdir=%1</listen><auth>EXTERNAL</auth>"
            "<servicedir>%1/services</servicedir><policy context=\"default\"><allow send_destination=\"*\" "
            "eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow own=\"*\"/></policy>"
            // Room for the portal to outwait its own 25 s time-out on a loaded machine.
            "<limit name=\"service_start_timeout\">90000</limit></busconfig>"_s.arg(work.path()));
        return true;
    }

    [[nodiscard]] std::unique_ptr<PrivateDBus> bus(const QString &portalDir = {}) const
    {
        QProcessEnvironment environment = busEnvironment;
        if (!portalDir.isEmpty()) {
            environment.insert(u"XDG_DESKTOP_PORTAL_DIR"_s, portalDir);
        }
        auto bus = std::make_unique<PrivateDBus>(QStringList {u"--config-file="_s + path(u"bus.conf"_s)}, environment);
        // The real backends first, one at a time: the portal, started while they come up, at times
        // waits for an answer that never comes.
        if (portalDir.isEmpty()) {
            const QDBusConnection starter = bus->connect(u"starter"_s);
            for (const QString &backend :
                {u"org.freedesktop.impl.portal.desktop.gtk"_s, u"org.freedesktop.impl.portal.desktop.wlr"_s}) {
                starter.interface()->startService(backend);
            }
        }
        return bus;
    }

    [[nodiscard]] bool swaymsg(const QString &command) const
    {
        QProcess tool;
        tool.start(u"swaymsg"_s, {u"-q"_s, u"-s"_s, ipcSocket, command});
        return tool.waitForFinished(10000) && tool.exitStatus() == QProcess::NormalExit && tool.exitCode() == 0;
    }

    [[nodiscard]] QStringList pictures() const
    {
        QStringList found;
        QDirIterator it(work.path(), {u"*.png"_s, u"*.ppm"_s, u"*.jpg"_s}, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            found.append(it.next());
        }
        found.removeAll(path(u"grid.png"_s));
        return QFile::exists(u"/tmp/out.png"_s) ? found << u"/tmp/out.png"_s : found;
    }

    ~Desktop()
    {
        for (QProcess *process : {&pipewire, &sway}) {
            process->terminate();
            if (!process->waitForFinished(5000)) {
                process->kill();
                process->waitForFinished();
            }
        }
    }

private:
    bool fail(std::string text)
    {
        problem = std::move(text);
        return false;
    }

    void writeFile(const QString &name, const QString &text) const
    {
        writeBytes(path(name), text.toUtf8());
        QFile::setPermissions(path(name), QFile::permissions(path(name)) | QFile::ReadOther);
    }

    [[nodiscard]] QString firstMatch(const QString &pattern) const
    {
        const QFileInfoList found = QDir(path(u"sway"_s)).entryInfoList({pattern}, QDir::System);
        return found.isEmpty() ? QString() : found.first().absoluteFilePath();
    }
};

// A StatusNotifierWatcher, as KDE's panel and GNOME's AppIndicator extension run one.
class StandInWatcher : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered MEMBER hostRegistered CONSTANT)
    Q_PROPERTY(int ProtocolVersion MEMBER protocolVersion CONSTANT)
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems MEMBER items)
public:
    bool publish(QDBusConnection bus)
    {
        return bus.registerObject(u"/StatusNotifierWatcher"_s, this,
                   QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllProperties)
            && bus.registerService(u"org.kde.StatusNotifierWatcher"_s);
    }

    bool hostRegistered = true;
    int protocolVersion = 0;
    QStringList items; // the bus names of the registered items; each serves /StatusNotifierItem

public Q_SLOTS:
    void RegisterStatusNotifierItem(const QString &service, const QDBusMessage &message)
    {
        items.append(service.startsWith(u'/') ? message.service() : service);
    }
    void RegisterStatusNotifierHost(const QString &) { }
};

Desktop *desktop = nullptr;
std::unique_ptr<PrivateDBus> sessionBus; // the program's own session bus, for the portal, the tray and the screen saver
StandInWatcher *watcher = nullptr;

// A Screenshot (and so Access) backend behind the real portal: the code set, after the delay; a
// picture only for a request not closed first.
class StandInBackend : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.impl.portal.Screenshot")
public:
    StandInBackend(QDBusConnection bus, QString dir) : m_bus(std::move(bus)), m_dir(std::move(dir)) { }

    uint screenshotCode = 0;
    int delayMs = 0;
    QStringList closedRequests;

public Q_SLOTS:
    uint Screenshot(const QDBusObjectPath &handle, const QString &, const QString &, const QVariantMap &,
        const QDBusMessage &message, QVariantMap &)
    {
        message.setDelayedReply(true);
        m_bus.registerObject(
            handle.path(), u"org.freedesktop.impl.portal.Request"_s, this, QDBusConnection::ExportAllSlots);
        QTimer::singleShot(delayMs, this, [this, handle, message] {
            m_bus.unregisterObject(handle.path());
            const bool closed = closedRequests.contains(handle.path());
            QVariantMap results;
            if (!closed && screenshotCode == 0) {
                QImage(64, 64, QImage::Format_RGB32).save(m_dir + u"/late.png"_s);
                results.insert(u"uri"_s, QUrl::fromLocalFile(m_dir + u"/late.png"_s).toString());
            }
            m_bus.send(message.createReply(QVariantList {closed ? 2u : screenshotCode, results}));
        });
        return 0;
    }

    void Close(const QDBusMessage &message) { closedRequests.append(message.path()); }

private:
    QDBusConnection m_bus;
    QString m_dir;
};

class WaylandTest : public MonitorRig
{
protected:
    WaylandTest() : MonitorRig(u"Reading mail on sway"_s, u"A day on Wayland."_s) { }

    void SetUp() override
    {
        if (desktop->missingPackage) {
            GTEST_SKIP() << desktop->problem;
        }
        ASSERT_TRUE(desktop->problem.empty()) << desktop->problem;
        MonitorRig::SetUp();
        settings->setBoolean(SettingsKey::skipUnchangedScreens, false);
        buildParts();
    }

    void capturingThrough(PrivateDBus &bus, WlrScreencopyGrabber *screencopy, std::chrono::milliseconds timeout = 20s)
    {
        ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
        portal = std::make_unique<PortalScreenGrabber>(bus.connect(u"tamlo"_s), timeout);
        wayland = std::make_unique<WaylandScreenGrabber>(screencopy, portal.get());
        service = std::make_unique<ScreenCaptureService>(
            wayland.get(), nullptr, ScreenCaptureService::SessionType::Wayland);
        buildMonitor(service.get(), &events);
    }

    DBusScreenEvents events {QDBusConnection::sessionBus(), QDBusConnection::sessionBus()};
    std::unique_ptr<PortalScreenGrabber> portal;
    std::unique_ptr<WaylandScreenGrabber> wayland;
    std::unique_ptr<ScreenCaptureService> service;
};

// The model gets the first output scaled to 1200 wide either way; no portal file outlives the tick.
TEST_F(WaylandTest, TheModelGetsTheFirstOutputScaledAndNoPictureIsLeft)
{
    WlrScreencopyGrabber screencopy;
    for (const bool viaScreencopy : {true, false}) {
        SCOPED_TRACE(viaScreencopy ? "screencopy" : "portal");
        capturingThrough(*sessionBus, viaScreencopy ? &screencopy : nullptr);
        const qsizetype sent = ollama.requestsTo("/api/chat").size();
        QCoro::waitFor(monitor->performCapture());
        ASSERT_EQ(ollama.requestsTo("/api/chat").size(), sent + 1) << monitor->lastError().toStdString();
        const QJsonObject body = QJsonDocument::fromJson(ollama.requestsTo("/api/chat").at(sent).body).object();
        const QImage picture = QImage::fromData(
            QByteArray::fromBase64(body[u"messages"_s][0][u"images"_s][0].toString().toLatin1()), "PNG");
        ASSERT_EQ(picture.size(), QSize(1200, 675));
        for (int block = 0; block < 16; ++block) {
            const QPoint middle(block / 4 * 300 + 150, block % 4 * 169 + 84);
            EXPECT_EQ(picture.pixelColor(middle).rgb(), blockColor(block / 4, block % 4).rgb()) << block;
        }
        EXPECT_EQ(desktop->pictures(), QStringList());
        EXPECT_EQ(QDBusConnection::sessionBus().interface()->isServiceRegistered(u"org.freedesktop.portal.Desktop"_s),
            !viaScreencopy);
    }
}

// No Screenshot behind the portal (wlr without an Access backend) says what to install, once; a
// refusal stops monitoring; a backend slower than the time-out has its request closed and writes nothing.
TEST_F(WaylandTest, RealPortalFailuresAreSaidOnceAndLeaveNoFile)
{
    QTemporaryDir standIn;
    std::unique_ptr<PrivateDBus> bus;
    std::unique_ptr<StandInBackend> backend;
    // The portal at times waits out a 25 s time-out of its own before answering anyone: started with
    // room for that, and with the event loop running, from which the backend answers.
    const auto startPortal = [&](bool withBackend) {
        bus = desktop->bus(standIn.path());
        if (withBackend) {
            QDBusConnection backendBus = bus->connect(u"backend"_s);
            backend = std::make_unique<StandInBackend>(backendBus, standIn.path());
            backendBus.registerObject(
                u"/org/freedesktop/portal/desktop"_s, backend.get(), QDBusConnection::ExportAllSlots);
            ASSERT_TRUE(backendBus.registerService(u"org.freedesktop.impl.portal.desktop.standin"_s));
        }
        QDBusMessage start = QDBusMessage::createMethodCall(
            u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s, u"org.freedesktop.DBus"_s, u"StartServiceByName"_s);
        start << u"org.freedesktop.portal.Desktop"_s << 0u;
        QDBusPendingCall call = bus->connect(u"portal-starter"_s).asyncCall(start, 90000);
        ASSERT_TRUE(QTest::qWaitFor([&] { return call.isFinished(); }, 95000));
        ASSERT_FALSE(call.isError()) << call.error().message().toStdString();
    };

    ASSERT_NO_FATAL_FAILURE(startPortal(false));
    capturingThrough(*bus, nullptr);
    monitor->startMonitoring();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !monitor->isMonitoring(); }, 20000));
    EXPECT_TRUE(monitor->lastError().contains(u"xdg-desktop-portal-gtk"_s)) << monitor->lastError().toStdString();
    EXPECT_EQ(messages().filter(u"❌"_s).size(), 1);

    QFile portalFile(standIn.filePath(u"standin.portal"_s));
    ASSERT_TRUE(portalFile.open(QIODevice::WriteOnly));
    portalFile.write("[portal]\nDBusName=org.freedesktop.impl.portal.desktop.standin\nInterfaces="
                     "org.freedesktop.impl.portal.Screenshot;org.freedesktop.impl.portal.Access;\nUseIn=sway\n");
    portalFile.close();
    ASSERT_NO_FATAL_FAILURE(startPortal(true));
    capturingThrough(*bus, nullptr, 1s);
    backend->screenshotCode = 2;
    monitor->startMonitoring();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !monitor->isMonitoring(); }, 10000));
    EXPECT_EQ(monitor->lastError(), u"Screen capture permission denied."_s);
    backend->screenshotCode = 0;
    backend->delayMs = 2000;
    const ScreenGrab grab = QCoro::waitFor(service->captureScreen());
    EXPECT_EQ(grab.error->kind, ScreenCaptureError::Kind::CaptureFailed);
    QTest::qWait(2500);
    EXPECT_EQ(backend->closedRequests.size(), 1);
    EXPECT_FALSE(QFile::exists(standIn.filePath(u"late.png"_s)));
}

// An hour of ticks records every one and leaves nothing on disk; the lock pauses them.
TEST_F(WaylandTest, AHundredTicksRecordEachScreenAndTheLockPausesThem)
{
    WlrScreencopyGrabber screencopy;
    capturingThrough(*sessionBus, &screencopy);
    monitor->startMonitoring();
    for (int i = 1; i < 100; ++i) {
        tick();
    }
    ASSERT_TRUE(QTest::qWaitFor([&] { return monitor->aiAnalysisCount() == 100; }, 30000))
        << monitor->lastError().toStdString();
    EXPECT_EQ(snapshotStore->count(), 100);
    EXPECT_EQ(desktop->pictures(), QStringList());

    for (const bool locked : {true, false}) {
        PrivateDBus::roundTrip(QDBusConnection::sessionBus());
        ASSERT_TRUE(sessionBus->sendScreenSaverActive(u"org.freedesktop.ScreenSaver"_s, locked));
        const ScreenState state = locked ? ScreenState::Locked : ScreenState::Active;
        ASSERT_TRUE(QTest::qWaitFor([&] { return monitor->screenState() == state; }, 5000));
        tick();
        EXPECT_EQ(monitor->aiAnalysisCount(), locked ? 100 : 101);
    }
}

TEST_F(WaylandTest, TheTrayIconRegistersAndActivationOpensThePanel)
{
    TrayPanel tray([] { return std::make_unique<QQuickWindow>(); }, 1h);
    ASSERT_TRUE(tray.hasTray());
    ASSERT_TRUE(QTest::qWaitFor([&] { return !watcher->items.isEmpty(); }, 5000));
    QDBusMessage activate = QDBusMessage::createMethodCall(
        watcher->items.last(), u"/StatusNotifierItem"_s, u"org.kde.StatusNotifierItem"_s, u"Activate"_s);
    activate << 0 << 0;
    QDBusConnection::sessionBus().asyncCall(activate); // the item answers from this very thread
    ASSERT_TRUE(QTest::qWaitFor([&] { return tray.panel() && tray.panel()->isVisible(); }, 5000));
}

// Windows started by sway, in its session: Xwayland ones by WM_CLASS instance, native ones by app_id.
class SwayPrivacyTest : public WaylandTest
{
protected:
    void SetUp() override
    {
        WaylandTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        visibleWindows = &source;
        buildMonitor(&screen, &events);
    }

    void run(const QString &command) { ASSERT_TRUE(desktop->swaymsg(command)) << command.toStdString(); }

    void open(const QString &command, const QString &title)
    {
        run(u"exec "_s + command);
        waitUntilListed(title, true);
    }

    SwayVisibleWindows source {desktop->ipcSocket};
    WlrScreencopyGrabber screencopy;
    WaylandScreenGrabber wlr {&screencopy, nullptr};
    CountingGrabber grabs {wlr};
    ScreenCaptureService screen {&grabs, nullptr, ScreenCaptureService::SessionType::Wayland};
};

// KeePassXC, native, beside a focused Xwayland editor and focused; in each place sway can put it;
// then through Xwayland.
TEST_F(SwayPrivacyTest, AnExcludedWindowOnAnyShownWorkspaceStopsTheGrab)
{
    open(u"xlogo -name editor -title Notes"_s, u"Notes"_s);
    EXPECT_FALSE(tickWasPrivate(grabs));

    const QString vault = u"[app_id=org.keepassxc.KeePassXC] "_s;
    // foot refuses a locale that is not UTF-8.
    open(u"LC_ALL=C.UTF-8 foot --app-id=org.keepassxc.KeePassXC --title=Passwords sleep 600"_s, u"Passwords"_s);
    run(u"[title=^Notes$] focus"_s);
    EXPECT_TRUE(tickWasPrivate(grabs)) << "visible but not focused";
    run(vault + u"focus"_s);
    EXPECT_TRUE(tickWasPrivate(grabs)) << "focused";
    EXPECT_EQ(messages().count(u"🙈 Tick skipped as private"_s), 2);
    EXPECT_FALSE(messages().join(u'\n').contains(u"Passwords"_s)) << "the log never names it";

    for (const auto &[command, shown] : {std::pair {"move scratchpad", false}, {"scratchpad show", true},
             {"move container to output HEADLESS-2", true}, {"move container to workspace 3", false}}) {
        SCOPED_TRACE(command);
        run(vault + QString::fromLatin1(command));
        waitUntilListed(u"Passwords"_s, shown);
        EXPECT_EQ(tickWasPrivate(grabs), shown);
    }

    open(u"xlogo -name keepassxc -title Vault"_s, u"Vault"_s);
    EXPECT_TRUE(tickWasPrivate(grabs)) << "an Xwayland window, by its class";
}
} // namespace

int main(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    Desktop session;
    desktop = &session;
    if (GTEST_FLAG_GET(list_tests)) {
        return RUN_ALL_TESTS();
    }
    if (!session.start()) {
        qputenv("QT_QPA_PLATFORM", "offscreen"); // the tests only report why there is no desktop
    } else {
        sessionBus = session.bus();
        qputenv("DBUS_SESSION_BUS_ADDRESS", sessionBus->address().toUtf8());
        qputenv("WAYLAND_DISPLAY", session.socket.toUtf8());
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(session.path(u"run"_s)));
        qputenv("QT_QPA_PLATFORM", "wayland");
        qputenv("XDG_SESSION_TYPE", "wayland");
        qputenv("QT_QUICK_BACKEND", "software");
    }
    QApplication app(argc, argv);
    const auto gridShown = [] {
        const std::optional<ScreenGrab> grab = QCoro::waitFor(WlrScreencopyGrabber().capture());
        return grab && grab->ok() && grab->image.pixelColor(240, 135).rgb() == blockColor(0, 0).rgb();
    };
    if (sessionBus && !QTest::qWaitFor(gridShown, 10000)) {
        session.problem = "the first output never showed its background";
    }
    // On a connection and a thread of its own, since the tray asks it with a blocking call.
    QThread watcherThread;
    StandInWatcher standInWatcher;
    standInWatcher.moveToThread(&watcherThread);
    watcherThread.start();
    watcher = &standInWatcher;
    standInWatcher.publish(sessionBus ? sessionBus->connect(u"watcher"_s) : QDBusConnection::sessionBus());
    const int result = RUN_ALL_TESTS();
    watcherThread.quit();
    watcherThread.wait();
    QDBusConnection::disconnectFromBus(QDBusConnection::sessionBus().name());
    sessionBus.reset();
    return result;
}

#include "wayland_test.moc"
