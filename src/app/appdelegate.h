#pragma once

#include <QObject>
#include <QString>

#include <functional>

class LaunchTarget;

// Receives the launch and the opened URLs, and starts the monitor's launch sequence once both
// the panel has been built and the launch has ended, whichever of the two comes second.
class AppDelegate : public QObject
{
    Q_OBJECT
public:
    using UrlHandler = std::function<void(const QString &url)>;

    explicit AppDelegate(QObject *parent = nullptr);

    [[nodiscard]] LaunchTarget *monitor() const { return m_monitor; }
    void setMonitor(LaunchTarget *monitor) { m_monitor = monitor; }
    [[nodiscard]] bool didFinishLaunching() const { return m_didFinishLaunching; }

    // Forces the light palette, records the launch, starts the launch sequence when the monitor is
    // already wired, and from then on delivers opened URLs to the URL handler.
    void applicationDidFinishLaunching();
    // Closing the panel never quits: the tray item keeps the program alive.
    [[nodiscard]] bool applicationShouldTerminateAfterLastWindowClosed() const { return false; }
    void configureIfNeeded();

    // The router of opened URLs; URLs that arrive before the launch has ended wait for it.
    void setUrlHandler(UrlHandler handler) { m_urlHandler = std::move(handler); }
    void handleURLEvent(const QString &url);

private:
    LaunchTarget *m_monitor = nullptr;
    bool m_didFinishLaunching = false;
    bool m_configureStarted = false;
    bool m_urlHandlerRegistered = false;
    UrlHandler m_urlHandler;
    QStringList m_pendingUrls;
};

// Called once when the program sets up its tray item: hands the launch sequence to the delegate
// and starts it if the launch has already ended.
void wireAppDelegate(AppDelegate *delegate, LaunchTarget *monitor);
