#include "platform/linuxdesktopactions.h"

#include <QDesktopServices>
#include <QProcess>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {
const QString privacySettingsProgram = u"gnome-control-center"_s;
}

void LinuxDesktopActions::openUrl(const QUrl &url)
{
    QDesktopServices::openUrl(url);
}

bool LinuxDesktopActions::canOpenPrivacySettings() const
{
    return !QStandardPaths::findExecutable(privacySettingsProgram).isEmpty();
}

void LinuxDesktopActions::openPrivacySettings()
{
    if (canOpenPrivacySettings()) {
        QProcess::startDetached(privacySettingsProgram, {u"privacy"_s});
    }
}
