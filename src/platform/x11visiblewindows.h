#pragma once

#include "monitoring/visiblewindowsource.h"

#include <QByteArray>
#include <QRect>

#include <xcb/xcb.h>

// The windows on the first screen of an X11 session, from the window manager's client list
// (or, with no EWMH window manager, the root's own children) and each window's properties. A
// connection of its own, so nothing here waits behind Qt's events.
class X11VisibleWindows final : public VisibleWindowSource
{
public:
    // An empty name means $DISPLAY.
    explicit X11VisibleWindows(QByteArray displayName = {});
    ~X11VisibleWindows() override;
    X11VisibleWindows(const X11VisibleWindows &) = delete;
    X11VisibleWindows &operator=(const X11VisibleWindows &) = delete;

    [[nodiscard]] QCoro::Task<VisibleWindowList> visibleWindows() override;

private:
    struct Atoms
    {
        xcb_atom_t wmCheck = XCB_NONE;
        xcb_atom_t clientList = XCB_NONE;
        xcb_atom_t currentDesktop = XCB_NONE;
        xcb_atom_t wmDesktop = XCB_NONE;
        xcb_atom_t wmState = XCB_NONE;
        xcb_atom_t hidden = XCB_NONE;
        xcb_atom_t wmName = XCB_NONE;
        xcb_atom_t gtkApplicationId = XCB_NONE;
    };

    [[nodiscard]] VisibleWindowList list();
    [[nodiscard]] bool connectToServer();
    void disconnect();
    [[nodiscard]] QList<xcb_window_t> topLevelWindows(QList<xcb_window_t> clients, bool managed);
    // The part of the root window that a grab takes: the first screen.
    [[nodiscard]] QRect capturedArea() const;

    QByteArray m_displayName;
    xcb_connection_t *m_connection = nullptr;
    xcb_window_t m_root = XCB_NONE;
    QRect m_rootArea;
    Atoms m_atoms;
};
