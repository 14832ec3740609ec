#include "platform/xdgautostart.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

XdgAutostart::XdgAutostart(QString autostartDir, QString execCommand)
    : m_autostartDir(std::move(autostartDir)), m_execCommand(std::move(execCommand))
{
}

QString XdgAutostart::standardAutostartDir()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + u"/autostart"_s;
}

QString XdgAutostart::entryPath() const
{
    return m_autostartDir + u"/tamlo.desktop"_s;
}

bool XdgAutostart::isEnabled() const
{
    QFile file(entryPath());
    if (!file.open(QIODevice::ReadOnly)) {
        return false;
    }
    // A desktop that turns an entry off without deleting it marks it Hidden=true.
    static const QRegularExpression hidden(u"^\\s*Hidden\\s*=\\s*true\\s*$"_s,
        QRegularExpression::MultilineOption | QRegularExpression::CaseInsensitiveOption);
    return !hidden.match(QString::fromUtf8(file.readAll())).hasMatch();
}

bool XdgAutostart::registerItem()
{
    if (!QDir().mkpath(m_autostartDir)) {
        return false;
    }
    QSaveFile file(entryPath());
    if (!file.open(QIODevice::WriteOnly)) {
        return false;
    }
    // A path with blanks must be quoted for the desktop's launcher.
    const QString exec = m_execCommand.contains(u' ') ? u'"' + m_execCommand + u'"' : m_execCommand;
    const QString entry = u"[Desktop Entry]\n"
                          u"Type=Application\n"
                          u"Name=Tamlo\n"
                          u"Comment=Private activity tracker with a local AI model\n"
                          u"Exec="_s
        + exec
        + u"\n"
          u"Icon=tamlo\n"
          u"Terminal=false\n"
          u"X-GNOME-Autostart-enabled=true\n"_s;
    file.write(entry.toUtf8());
    return file.commit();
}

bool XdgAutostart::unregisterItem()
{
    QFile file(entryPath());
    return !file.exists() || file.remove();
}
