#pragma once

#include "ui/desktopactions.h"

#include <QProcessEnvironment>
#include <QStringList>

#include <optional>

// The browser through the desktop's URL handler, and the privacy page of the desktop in use where
// one is known: GNOME's Settings, KDE's systemsettings.
class LinuxDesktopActions final : public DesktopActions
{
public:
    // The program that shows a desktop's privacy settings, with its arguments.
    struct SettingsCommand
    {
        QString program;
        QStringList arguments;
    };

    explicit LinuxDesktopActions(QProcessEnvironment environment = QProcessEnvironment::systemEnvironment());

    void openUrl(const QUrl &url) override;
    [[nodiscard]] bool canOpenPrivacySettings() const override;
    void openPrivacySettings() override;

    // Decided by XDG_CURRENT_DESKTOP; none where the desktop is unknown or its program is missing.
    [[nodiscard]] std::optional<SettingsCommand> privacySettingsCommand() const;

private:
    QProcessEnvironment m_environment;
};
