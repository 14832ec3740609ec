#pragma once

#include "monitoring/idletimesource.h"

#include <QByteArray>

struct _XDisplay;

// Input idle time from the X server's screen saver extension, over a connection of its own.
// Only for X11 sessions: under XWayland it would see the input of X clients alone.
class X11IdleTime final : public IdleTimeSource
{
public:
    // The display as DISPLAY names it; empty means there is none.
    explicit X11IdleTime(QByteArray displayName);
    ~X11IdleTime() override;
    X11IdleTime(const X11IdleTime &) = delete;
    X11IdleTime &operator=(const X11IdleTime &) = delete;

    [[nodiscard]] QCoro::Task<std::optional<std::chrono::milliseconds>> idleTime(
        std::chrono::milliseconds threshold) override;

private:
    // The connection, opened on first use; null while the server or its extension is missing.
    [[nodiscard]] _XDisplay *display();

    QByteArray m_displayName;
    _XDisplay *m_display = nullptr;
};
