#pragma once

#include "account/activitysyncservice.h"
#include "account/appconfig.h"
#include "account/authservice.h"
#include "account/sessionsync.h"
#include "account/urlrouter.h"
#include "ai/llmservice.h"
#include "app/appdelegate.h"
#include "app/launchtarget.h"
#include "core/activitysnapshotstore.h"
#include "core/apppaths.h"
#include "core/clock.h"
#include "core/logmanager.h"
#include "core/settings.h"
#include "monitoring/activitymonitor.h"
#include "monitoring/idletimesource.h"
#include "monitoring/screencaptureservice.h"
#include "monitoring/timedpause.h"
#include "monitoring/visiblewindowsource.h"
#include "platform/dbusidletime.h"
#include "platform/dbusscreenevents.h"
#include "platform/linuxdesktopactions.h"
#include "platform/portalscreengrabber.h"
#include "platform/qtownwindows.h"
#include "platform/wlrscreencopygrabber.h"
#include "platform/x11idletime.h"
#include "platform/x11screengrabber.h"
#include "platform/xdgautostart.h"
#include "reports/dailyreportservice.h"
#include "reports/dailyreportstore.h"
#include "ui/appgatemodel.h"
#include "ui/loginviewmodel.h"
#include "ui/mainscreenmodel.h"

#include <QNetworkAccessManager>
#include <QObject>
#include <QTimer>

#include <memory>

class QQuickView;
class TrayPanel;

// What the delegate starts once the launch has ended, panel or no panel: the stored model choice
// before the first analysis, the monitor's launch sequence, and the sync of a restored session.
class LaunchSequence final : public LaunchTarget
{
public:
    LaunchSequence(LLMService *llmService, ActivityMonitor *monitor, SessionSync *sessionSync)
        : m_llmService(llmService), m_monitor(monitor), m_sessionSync(sessionSync)
    {
    }
    QCoro::Task<> configure() override
    {
        m_llmService->configure();
        m_monitor->configure();
        m_sessionSync->restore();
        co_return;
    }

private:
    LLMService *m_llmService = nullptr;
    ActivityMonitor *m_monitor = nullptr;
    SessionSync *m_sessionSync = nullptr;
};

// The composition root: every service is built here once, in dependency order, and handed down
// by pointer. It also owns the tray item and its panel.
class TamloApp : public QObject
{
    Q_OBJECT
public:
    explicit TamloApp(QObject *parent = nullptr);
    ~TamloApp() override;

    // Sets up the tray item the first time and wires the delegate each time, as a scene
    // evaluation does.
    void body();
    [[nodiscard]] AppDelegate *appDelegate() { return &m_appDelegate; }
    // A message from a second `tamlo` process: show the panel, or open a URL.
    void handleInstanceMessage(const QString &message);

private:
    void buildTray();
    // Once the launch's work is done (catch-up, first tick), a tray user who never opens the
    // panel should not carry the pages that work touched.
    void releaseStartupPages();
    [[nodiscard]] std::unique_ptr<QQuickView> buildPanel();
    // The way this desktop tells which windows are on screen, if it has one.
    [[nodiscard]] static std::unique_ptr<VisibleWindowSource> visibleWindowSource(const QProcessEnvironment &session);

    SystemClock m_clock;
    AppPaths m_paths;
    Settings m_settings;
    LogManager m_logManager;
    QNetworkAccessManager m_nam;
    ActivitySnapshotStore m_snapshotStore;
    DailyReportStore m_reportStore;
    LLMService m_llmService;
    DailyReportService m_reportService;
    X11ScreenGrabber m_x11Grabber;
    PortalScreenGrabber m_portalGrabber;
    WlrScreencopyGrabber m_screencopyGrabber;
    WaylandScreenGrabber m_waylandGrabber;
    ScreenCaptureService m_screenCapture;
    DBusScreenEvents m_screenEvents;
    std::unique_ptr<VisibleWindowSource> m_visibleWindows;
    TimedPause m_timedPause;
    X11IdleTime m_x11IdleTime;
    DBusIdleTime m_mutterIdleTime;
    DBusIdleTime m_screenSaverIdleTime;
    CompositeIdleTimeSource m_idleTime;
    QtOwnWindows m_ownWindows;
    ActivityMonitor m_monitor;
    AppConfig m_appConfig;
    AuthService m_authService;
    ActivitySyncService m_syncService;
    SessionSync m_sessionSync;
    LaunchSequence m_launchSequence;
    UrlRouter m_urlRouter;
    LinuxDesktopActions m_desktop;
    XdgAutostart m_autostart;
    QTimer m_memoryRelief;
    bool m_startupPagesReleased = false;
    MainScreenModel m_mainScreen;
    AppGateModel m_gate;
    LoginViewModel m_login;
    AppDelegate m_appDelegate;
    std::unique_ptr<TrayPanel> m_tray;
};
