#pragma once

#include <QCoroTask>
#include <QList>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <optional>

// One window that a picture of the screen would show, as the desktop names it.
struct VisibleWindow
{
    // Every name the desktop knows the application by: the X11 WM_CLASS instance and class, a
    // toolkit's application id, or the Wayland app_id.
    QStringList appIds;
    QString title;
};

// The desktop's answer: the visible windows, or why it could not give them.
struct VisibleWindowList
{
    QList<VisibleWindow> windows;
    // Set when the list could not be read; for the developers' log, never shown with a title.
    std::optional<QString> failure;

    [[nodiscard]] static VisibleWindowList failed(QString why) { return {{}, std::move(why)}; }
};

// Which way this desktop tells other programs what is on screen, decided by the session.
enum class WindowListing {
    X11, // the window manager's client list
    Sway, // the compositor's IPC tree
    None, // GNOME, KDE and other Wayland desktops keep it to themselves
};

// Asks the desktop which windows are visible on the screen that would be captured: not only the
// focused one, but every window on the current workspace that is neither minimised nor elsewhere.
class VisibleWindowSource
{
public:
    virtual ~VisibleWindowSource() = default;
    [[nodiscard]] virtual QCoro::Task<VisibleWindowList> visibleWindows() = 0;

    // X11 without a Wayland session; sway where it left its socket; nothing on other Wayland desktops.
    [[nodiscard]] static WindowListing listingFor(const QProcessEnvironment &environment);
};
