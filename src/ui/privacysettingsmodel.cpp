#include "ui/privacysettingsmodel.h"

#include "core/settings.h"
#include "monitoring/privacyexclusions.h"

using namespace Qt::StringLiterals;

namespace {
QString waylandDesktopName(const QProcessEnvironment &session)
{
    const QString desktop = session.value(u"XDG_CURRENT_DESKTOP"_s);
    if (desktop.contains(u"GNOME"_s, Qt::CaseInsensitive)) {
        return u"GNOME on Wayland"_s;
    }
    if (desktop.contains(u"KDE"_s, Qt::CaseInsensitive)) {
        return u"KDE Plasma on Wayland"_s;
    }
    return u"This Wayland desktop"_s;
}
} // namespace

PrivacySettingsModel::PrivacySettingsModel(Settings *settings, const QProcessEnvironment &session, QObject *parent)
    : QObject(parent), m_settings(settings)
{
    if (VisibleWindowSource::listingFor(session) == WindowListing::None) {
        m_explanation = u"Exclusions cannot be applied on this desktop. %1 does not tell other programs which "
                        "windows are on screen, so Tamlo cannot know when one of them is showing. Pause Tamlo "
                        "while you use them instead."_s.arg(waylandDesktopName(session));
    }
}

QString PrivacySettingsModel::applications() const
{
    return list(SettingsKey::excludedApplications, PrivacyExclusions::defaultApplications);
}

QString PrivacySettingsModel::titleWords() const
{
    return list(SettingsKey::excludedTitleWords, PrivacyExclusions::defaultTitleWords);
}

void PrivacySettingsModel::setApplications(const QString &value)
{
    setList(SettingsKey::excludedApplications, value);
}

void PrivacySettingsModel::setTitleWords(const QString &value)
{
    setList(SettingsKey::excludedTitleWords, value);
}

QStringList PrivacySettingsModel::pauseChoices()
{
    return {TimedPause::label(TimedPause::Length::ThirtyMinutes), TimedPause::label(TimedPause::Length::OneHour),
        TimedPause::label(TimedPause::Length::UntilTomorrow)};
}

void PrivacySettingsModel::restoreDefaults()
{
    m_settings->remove(SettingsKey::excludedApplications);
    m_settings->remove(SettingsKey::excludedTitleWords);
    Q_EMIT listsChanged();
}

void PrivacySettingsModel::pause(int choice)
{
    if (choice >= 0 && choice < pauseChoices().size()) {
        Q_EMIT pauseRequested(TimedPause::Length(choice));
    }
}

QString PrivacySettingsModel::list(const QString &key, const QStringList &defaults) const
{
    return m_settings->contains(key) ? m_settings->string(key) : defaults.join(u", "_s);
}

void PrivacySettingsModel::setList(const QString &key, const QString &value)
{
    if (m_settings->contains(key) && m_settings->string(key) == value) {
        return;
    }
    // Stored even when empty: an emptied list excludes nothing, and does not bring the defaults back.
    m_settings->setString(key, value);
    Q_EMIT listsChanged();
}
