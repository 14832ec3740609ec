#include "platform/linuxdesktopactions.h"

#include <QDesktopServices>
#include <QProcess>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

LinuxDesktopActions::LinuxDesktopActions(QProcessEnvironment environment) : m_environment(std::move(environment)) { }

void LinuxDesktopActions::openUrl(const QUrl &url)
{
    QDesktopServices::openUrl(url);
}

std::optional<LinuxDesktopActions::SettingsCommand> LinuxDesktopActions::privacySettingsCommand() const
{
    // XDG_CURRENT_DESKTOP is a list, most specific first ("ubuntu:GNOME", "KDE").
    const QStringList desktops = m_environment.value(u"XDG_CURRENT_DESKTOP"_s).split(u':', Qt::SkipEmptyParts);
    std::optional<SettingsCommand> command;
    for (const QString &desktop : desktops) {
        if (desktop.compare(u"GNOME"_s, Qt::CaseInsensitive) == 0) {
            command = SettingsCommand {u"gnome-control-center"_s, {u"privacy"_s}};
        } else if (desktop.compare(u"KDE"_s, Qt::CaseInsensitive) == 0) {
            command = SettingsCommand {u"systemsettings"_s, {}};
        }
        if (command) {
            break;
        }
    }
    if (!command) {
        return std::nullopt;
    }
    const QStringList path = m_environment.value(u"PATH"_s).split(u':', Qt::SkipEmptyParts);
    command->program = QStandardPaths::findExecutable(command->program, path);
    if (command->program.isEmpty()) {
        return std::nullopt;
    }
    return command;
}

bool LinuxDesktopActions::canOpenPrivacySettings() const
{
    return privacySettingsCommand().has_value();
}

void LinuxDesktopActions::openPrivacySettings()
{
    if (const std::optional<SettingsCommand> command = privacySettingsCommand()) {
        QProcess::startDetached(command->program, command->arguments);
    }
}
