#include "app/tamloapp.h"

#include "platform/memoryrelief.h"
#include "platform/singleinstance.h"
#include "platform/swayvisiblewindows.h"
#include "platform/traypanel.h"
#include "platform/x11visiblewindows.h"
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
    , m_waylandGrabber(&m_screencopyGrabber, &m_portalGrabber)
    , m_screenCapture(
          &m_waylandGrabber, &m_x11Grabber, ScreenCaptureService::sessionType(QProcessEnvironment::systemEnvironment()))
    , m_screenEvents(QDBusConnection::sessionBus(), QDBusConnection::systemBus())
    , m_visibleWindows(visibleWindowSource(QProcessEnvironment::systemEnvironment()))
    , m_timedPause(&m_settings, &m_clock)
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
          .visibleWindows = m_visibleWindows.get(),
          .timedPause = &m_timedPause,
          .idleTime = &m_idleTime,
          .ownWindows = &m_ownWindows})
    , m_appConfig(&m_settings)
    , m_authService(&m_nam, m_appConfig, m_paths.credentialsDir)
    , m_syncService(&m_snapshotStore, &m_authService, &m_nam, m_appConfig, &m_settings, &m_logManager, &m_clock)
    , m_sessionSync(&m_authService, &m_syncService)
    , m_launchSequence(&m_llmService, &m_monitor, &m_sessionSync)
    , m_urlRouter(&m_authService, &m_syncService)
    , m_autostart(XdgAutostart::standardAutostartDir(), QCoreApplication::applicationFilePath())
    , m_mainScreen(MainScreenModel::Services {.monitor = &m_monitor,
          .llmService = &m_llmService,
          .reportService = &m_reportService,
          .logManager = &m_logManager,
          .settings = &m_settings,
          .clock = &m_clock,
          .desktop = &m_desktop,
          .loginItem = &m_autostart,
          .timedPause = &m_timedPause,
          .session = QProcessEnvironment::systemEnvironment()})
    , m_gate(&m_authService)
    , m_login(&m_authService, m_appConfig, &m_desktop)
{
    m_appDelegate.setUrlHandler([this](const QString &url) { m_urlRouter.handleURL(url); });
    connect(&m_mainScreen, &MainScreenModel::quitRequested, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
    connect(&m_login, &LoginViewModel::quitRequested, qApp, &QCoreApplication::quit, Qt::QueuedConnection);

    // A tick ends with a record or an error; a moment later its image buffers are free to go back.
    m_memoryRelief.setSingleShot(true);
    m_memoryRelief.setInterval(memoryReliefDelay);
    connect(&m_memoryRelief, &QTimer::timeout, this, &MemoryRelief::releaseFreedMemory);
    const auto afterTick = [this] {
        m_memoryRelief.start();
        releaseStartupPages();
    };
    connect(&m_monitor, &ActivityMonitor::captureCountChanged, this, afterTick);
    connect(&m_monitor, &ActivityMonitor::lastErrorChanged, this, afterTick);

    // The view's own state does not outlive a signed-in user.
    connect(&m_authService, &AuthService::isAuthenticatedChanged, this, [this] {
        if (!m_authService.isAuthenticated()) {
            m_mainScreen.resetViewState();
        }
    });
}

TamloApp::~TamloApp()
{
    // The panel's bindings read the models, so it goes first.
    m_tray.reset();
}

std::unique_ptr<VisibleWindowSource> TamloApp::visibleWindowSource(const QProcessEnvironment &session)
{
    switch (VisibleWindowSource::listingFor(session)) {
    case WindowListing::X11:
        return std::make_unique<X11VisibleWindows>();
    case WindowListing::Sway:
        return std::make_unique<SwayVisibleWindows>(session.value(u"SWAYSOCK"_s));
    case WindowListing::None:
        break;
    }
    return nullptr;
}

void TamloApp::body()
{
    if (!m_tray) {
        buildTray();
    }
    wireAppDelegate(&m_appDelegate, &m_launchSequence);
}

void TamloApp::releaseStartupPages()
{
    if (m_startupPagesReleased || !m_monitor.isMonitoring()) {
        return;
    }
    m_startupPagesReleased = true;
    QTimer::singleShot(memoryReliefDelay, this, [this] {
        if (m_tray && !m_tray->panel()) {
            MemoryRelief::releaseIdlePages();
        }
    });
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
    // A server the user has just started turns the sign-in screen back to "Log in".
    connect(m_tray.get(), &TrayPanel::panelShown, &m_login, &LoginViewModel::checkLocalServer);
    connect(m_tray.get(), &TrayPanel::quitRequested, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
    m_tray->setMonitoring(m_monitor.isMonitoring());
    connect(&m_monitor, &ActivityMonitor::isMonitoringChanged, this,
        [this] { m_tray->setMonitoring(m_monitor.isMonitoring()); });
    connect(m_tray.get(), &TrayPanel::pauseRequested, &m_mainScreen,
        [this](TimedPause::Length length) { m_mainScreen.pauseFor(int(length)); });
    connect(m_tray.get(), &TrayPanel::resumeRequested, &m_monitor, &ActivityMonitor::startMonitoring);
    // The scene hands some of its objects to the event loop to delete; the pages go after them.
    connect(m_tray.get(), &TrayPanel::panelReleased, this, [this] {
        m_mainScreen.resetViewState();
        QTimer::singleShot(memoryReliefDelay, this, &MemoryRelief::releaseIdlePages);
    });
    // An export that finishes while the panel is hidden or gone still reaches the user: the panel
    // comes back with its save dialog.
    connect(&m_mainScreen, &MainScreenModel::saveFileRequested, this, [this] {
        if (!m_tray->panel() || !m_tray->panel()->isVisible()) {
            m_tray->showPanel();
        }
    });
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
