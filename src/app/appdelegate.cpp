#include "app/appdelegate.h"

#include "app/launchtarget.h"
#include "app/lightpalette.h"
#include "core/maintask.h"

#include <QGuiApplication>

AppDelegate::AppDelegate(QObject *parent) : QObject(parent) { }

void AppDelegate::applicationDidFinishLaunching()
{
    if (qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
        QGuiApplication::setPalette(LightPalette::palette());
    }
    m_didFinishLaunching = true;
    if (m_monitor) {
        configureIfNeeded();
    }
    m_urlHandlerRegistered = true;
    const QStringList pending = std::exchange(m_pendingUrls, {});
    for (const QString &url : pending) {
        handleURLEvent(url);
    }
}

void AppDelegate::configureIfNeeded()
{
    if (!m_monitor || m_configureStarted) {
        return;
    }
    m_configureStarted = true;
    LaunchTarget *monitor = m_monitor;
    startTask(this, [monitor]() -> QCoro::Task<> { co_await monitor->configure(); });
}

void AppDelegate::handleURLEvent(const QString &url)
{
    if (!m_urlHandlerRegistered) {
        m_pendingUrls.append(url);
        return;
    }
    if (m_urlHandler) {
        m_urlHandler(url);
    }
}

void wireAppDelegate(AppDelegate *delegate, LaunchTarget *monitor)
{
    delegate->setMonitor(monitor);
    if (delegate->didFinishLaunching()) {
        delegate->configureIfNeeded();
    }
}
