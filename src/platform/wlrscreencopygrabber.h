#pragma once

#include "monitoring/screengrabber.h"

#include <QByteArray>

#include <chrono>
#include <optional>

// Takes the first output of a wlroots compositor (sway, Hyprland, river, labwc, ...) through its
// screencopy protocol, into anonymous shared memory: the picture never touches a file system.
// Each capture opens a connection of its own and closes it, so nothing is held between ticks.
class WlrScreencopyGrabber
{
public:
    static constexpr auto captureTimeout = std::chrono::seconds(5);

    // display as in WAYLAND_DISPLAY (a name in the runtime folder, or an absolute path); empty
    // means the session's own.
    explicit WlrScreencopyGrabber(QByteArray display = {}, std::chrono::milliseconds timeout = captureTimeout);

    // Nothing when the compositor cannot be reached or does not offer screencopy, so the caller
    // can take another way; otherwise the picture or why there is none.
    [[nodiscard]] QCoro::Task<std::optional<ScreenGrab>> capture();

private:
    QByteArray m_display;
    std::chrono::milliseconds m_timeout;
};

// The Wayland path: screencopy where the compositor offers it, the portal everywhere else. Where
// screencopy is offered the portal is never asked, since its wlroots backend leaves a file.
class WaylandScreenGrabber final : public ScreenGrabber
{
public:
    // screencopy may be null to use the portal alone.
    WaylandScreenGrabber(WlrScreencopyGrabber *screencopy, ScreenGrabber *portal);

    [[nodiscard]] QCoro::Task<ScreenGrab> grab() override;

private:
    WlrScreencopyGrabber *m_screencopy = nullptr;
    ScreenGrabber *m_portal = nullptr;
};
