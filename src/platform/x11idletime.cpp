#include "platform/x11idletime.h"

#include <QLoggingCategory>

// After Qt: Xlib defines macros (None, Bool, Status) that Qt's headers use as names.
#include <X11/Xlib.h>
#include <X11/extensions/scrnsaver.h>

Q_LOGGING_CATEGORY(lcX11Idle, "tamlo.platform.x11idle")

X11IdleTime::X11IdleTime(QByteArray displayName) : m_displayName(std::move(displayName)) { }

X11IdleTime::~X11IdleTime()
{
    if (m_display) {
        XCloseDisplay(m_display);
    }
}

_XDisplay *X11IdleTime::display()
{
    if (m_display || m_displayName.isEmpty()) {
        return m_display;
    }
    Display *display = XOpenDisplay(m_displayName.constData());
    if (!display) {
        qCDebug(lcX11Idle) << "No X server at" << m_displayName;
        return nullptr;
    }
    int eventBase = 0;
    int errorBase = 0;
    if (!XScreenSaverQueryExtension(display, &eventBase, &errorBase)) {
        qCDebug(lcX11Idle) << "The X server at" << m_displayName << "has no screen saver extension";
        XCloseDisplay(display);
        return nullptr;
    }
    m_display = display;
    return m_display;
}

QCoro::Task<std::optional<std::chrono::milliseconds>> X11IdleTime::idleTime(std::chrono::milliseconds)
{
    Display *connection = display();
    if (!connection) {
        co_return std::nullopt;
    }
    XScreenSaverInfo info {};
    if (!XScreenSaverQueryInfo(connection, DefaultRootWindow(connection), &info)) {
        co_return std::nullopt;
    }
    co_return std::chrono::milliseconds(info.idle);
}
