#pragma once

#include "monitoring/visiblewindowsource.h"

#include <QByteArray>
#include <QString>

#include <chrono>

// The windows sway shows, from its IPC tree: every view it marks visible, on every output, since
// a Wayland screenshot may take them all. Talks i3-ipc over the socket sway names in $SWAYSOCK.
class SwayVisibleWindows final : public VisibleWindowSource
{
public:
    // Sway answers at once; a compositor that does not is treated as one that cannot tell.
    static constexpr auto replyTimeout = std::chrono::seconds(2);

    explicit SwayVisibleWindows(QString socketPath);

    [[nodiscard]] QCoro::Task<VisibleWindowList> visibleWindows() override;

    // The visible views of a GET_TREE reply.
    [[nodiscard]] static VisibleWindowList parseTree(const QByteArray &json);

private:
    QString m_socketPath;
};
