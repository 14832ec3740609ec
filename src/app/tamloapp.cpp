#include "app/tamloapp.h"

#include "platform/memoryrelief.h"
#include "platform/singleinstance.h"
#include "platform/traypanel.h"
#include "ui/tamlotheme.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QLoggingCategory>
#include <QProcessEnvironment>
#include <QQmlEngine>
#include <QQuickView>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcApp, "tamlo.app")

namespace {
const QSize panelSize(320, 600);
constexpr auto memoryReliefDelay = std::chrono::seconds(1);
// Long enough that a glance shortly after keeps the panel as it was left.
constexpr auto panelReleaseDelay = std::chrono::minutes(1);
} // namespace

TamloApp::TamloApp(QObject *parent)
    : QObject(parent)
    , m_paths(AppPaths::standard())
    , m_settings(m_paths.settingsFile)
    , m_logManager(&m_clock)
    , m_snapshotStore(m_paths.snapshotsFile(), &m_logManager, &m_settings, &m_clock)
    , m_reportStore(m_paths.dailyReportsFile(), &m_logManager)
    , m_llmService(&m_nam, &m_settings, &m_logManager, LLMService::defaultBaseUrl(), &m_clock)
    , m_reportService(&m_llmService, &m_logManager, &m_settings, &m_clock, m_paths.exportRoot)
    , m_portalGrabber(QDBusConnection::sessionBus())
    , m_screenCapture(
          &m_portalGrabber, &m_x11Grabber, ScreenCaptureService::sessionType(QProcessEnvironment::systemEnvironment()))
    , m_screenEvents(QDBusConnection::sessionBus(), QDBusConnection::systemBus())
    , m_x11IdleTime(qgetenv("DISPLAY"))
    , m_mutterIdleTime(DBusIdleTime::mutter(QDBusConnection::sessionBus()))
    , m_screenSaverIdleTime(DBusIdleTime::screenSaver(QDBusConnection::sessionBus()))
    // Under Wayland the X server sees only the input of X clients, so it is not asked there.
    , m_idleTime(m_screenCapture.session() == ScreenCaptureService::SessionType::Wayland
              ? QList<IdleTimeSource *> {&m_mutterIdleTime, &m_screenSaverIdleTime}
              : QList<IdleTimeSource *> {&m_x11IdleTime, &m_mutterIdleTime, &m_screenSaverIdleTime})
    , m_monitor(ActivityMonitor::Services {.snapshotStore = &m_snapshotStore,
          .reportStore = &m_reportStore,
          .reportService = &m_reportService,
          .llmService = &m_llmService,
          .logManager = &m_logManager,
          .settings = &m_settings,
          .clock = &m_clock,
          .screenCapture = &m_screenCapture,
          .screenEvents = &m_screenEvents,
          .wakeEvents = &m_screenEvents,
          .idleTime = &m_idleTime,
          .ownWindows = &m_ownWindows})
    , m_launchTarget(&m_monitor)
    , m_appConfig(&m_settings)
    , m_authService(&m_nam, m_appConfig, m_paths.credentialsDir)
    , m_syncService(&m_snapshotStore, &m_authService, &m_nam, m_appConfig, &m_settings, &m_logManager, &m_clock)
    , m_urlRouter(&m_authService, &m_syncService)
    , m_autostart(XdgAutostart::standardAutostartDir(), QCoreApplication::applicationFilePath())
    , m_mainScreen(MainScreenModel::Services {.monitor = &m_monitor,
          .llmService = &m_llmService,
          .reportService = &m_reportService,
          .logManager = &m_logManager,
          .settings = &m_settings,
          .clock = &m_clock,
          .desktop = &m_desktop,
          .loginItem = &m_autostart})
    , m_gate(&m_authService, &m_syncService)
    , m_login(&m_authService, m_appConfig, &m_desktop)
{
    m_appDelegate.setUrlHandler([this](const QString &url) { m_urlRouter.handleURL(url); });
    connect(&m_mainScreen, &MainScreenModel::quitRequested, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
    connect(&m_login, &LoginViewModel::quitRequested, qApp, &QCoreApplication::quit, Qt::QueuedConnection);

    // A tick ends with a record or an error; a moment later its image buffers are free to go back.
    m_memoryRelief.setSingleShot(true);
    m_memoryRelief.setInterval(memoryReliefDelay);
    connect(&m_memoryRelief, &QTimer::timeout, this, &MemoryRelief::releaseFreedMemory);
    const auto afterTick = [this] { m_memoryRelief.start(); };
    connect(&m_monitor, &ActivityMonitor::captureCountChanged, this, afterTick);
    connect(&m_monitor, &ActivityMonitor::lastErrorChanged, this, afterTick);
}

TamloApp::~TamloApp()
{
    // The panel's bindings read the models, so it goes first.
    m_tray.reset();
}

void TamloApp::body()
{
    if (!m_tray) {
        buildTray();
    }
    wireAppDelegate(&m_appDelegate, &m_launchTarget);
}

std::unique_ptr<QQuickView> TamloApp::buildPanel()
{
    auto panel = std::make_unique<QQuickView>();
    panel->setColor(TamloTheme::surfaceWindow());
    panel->resize(panelSize);
    panel->setResizeMode(QQuickView::SizeRootObjectToView);
    panel->engine()->addImportPath(u"qrc:/"_s);
    panel->setInitialProperties({
        {u"gate"_s, QVariant::fromValue(&m_gate)},
        {u"login"_s, QVariant::fromValue(&m_login)},
        {u"main"_s, QVariant::fromValue(&m_mainScreen)},
    });
    panel->setSource(QUrl(u"qrc:/Tamlo/Ui/qml/AppGateView.qml"_s));
    for (const QQmlError &error : panel->errors()) {
        qCWarning(lcApp) << error.toString();
    }
    return panel;
}

void TamloApp::buildTray()
{
    m_tray = std::make_unique<TrayPanel>([this] { return buildPanel(); }, panelReleaseDelay);
    m_tray->setSignedIn(m_gate.menuBarIconActive());
    connect(&m_gate, &AppGateModel::isAuthenticatedChanged, this,
        [this] { m_tray->setSignedIn(m_gate.menuBarIconActive()); });
    connect(m_tray.get(), &TrayPanel::panelShown, &m_mainScreen, &MainScreenModel::panelShown);
    connect(m_tray.get(), &TrayPanel::quitRequested, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
    // The scene hands some of its objects to the event loop to delete; the pages go after them.
    connect(m_tray.get(), &TrayPanel::panelReleased, this,
        [this] { QTimer::singleShot(memoryReliefDelay, this, &MemoryRelief::releaseIdlePages); });
    // Without a tray there is no icon to click, so the panel opens as a window at once.
    if (!m_tray->hasTray()) {
        m_tray->showPanel();
    }
}

void TamloApp::handleInstanceMessage(const QString &message)
{
    const QString url = SingleInstance::urlFromMessage(message);
    if (!url.isEmpty()) {
        m_appDelegate.handleURLEvent(url);
    } else if (message == SingleInstance::showPanelMessage && m_tray) {
        m_tray->showPanel();
    }
}
