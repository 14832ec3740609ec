#pragma once

#include <QUrl>

// What the screens ask of the desktop beyond drawing: the browser and the privacy settings.
class DesktopActions
{
public:
    virtual ~DesktopActions() = default;
    virtual void openUrl(const QUrl &url) = 0;
    // False where this desktop has no known page for screen-capture permission.
    [[nodiscard]] virtual bool canOpenPrivacySettings() const = 0;
    virtual void openPrivacySettings() = 0;
};
