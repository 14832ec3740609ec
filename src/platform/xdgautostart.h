#pragma once

#include "ui/loginitem.h"

#include <QString>

// Launch at login through the XDG autostart folder (~/.config/autostart/tamlo.desktop).
class XdgAutostart final : public LoginItem
{
public:
    // autostartDir: usually $XDG_CONFIG_HOME/autostart; execCommand: what the entry starts.
    XdgAutostart(QString autostartDir, QString execCommand);

    // The folder of the running user.
    [[nodiscard]] static QString standardAutostartDir();

    // The entry exists and is not hidden.
    [[nodiscard]] bool isEnabled() const override;
    bool registerItem() override;
    bool unregisterItem() override;

    [[nodiscard]] QString entryPath() const;

private:
    QString m_autostartDir;
    QString m_execCommand;
};
