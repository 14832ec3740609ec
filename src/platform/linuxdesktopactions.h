#pragma once

#include "ui/desktopactions.h"

// The browser through the desktop's URL handler, and GNOME's privacy page where it exists.
class LinuxDesktopActions final : public DesktopActions
{
public:
    void openUrl(const QUrl &url) override;
    [[nodiscard]] bool canOpenPrivacySettings() const override;
    void openPrivacySettings() override;
};
