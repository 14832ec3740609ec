#include "ui/presencesettingsmodel.h"

#include "core/settings.h"
#include "monitoring/activitymonitor.h"

#include <algorithm>

using namespace Qt::StringLiterals;

PresenceSettingsModel::PresenceSettingsModel(Settings *settings, QObject *parent)
    : QObject(parent), m_settings(settings), m_lastMinutes(ActivityMonitor::defaultAwayThresholdMinutes)
{
}

int PresenceSettingsModel::storedMinutes() const
{
    return m_settings->integer(SettingsKey::awayThresholdMinutes, ActivityMonitor::defaultAwayThresholdMinutes);
}

bool PresenceSettingsModel::detectAway() const
{
    return storedMinutes() > 0;
}

int PresenceSettingsModel::awayMinutes() const
{
    const int minutes = storedMinutes();
    return minutes > 0 ? minutes : m_lastMinutes;
}

QString PresenceSettingsModel::awayText() const
{
    if (!detectAway()) {
        return u"Off: time with no input counts like any other."_s;
    }
    const int minutes = awayMinutes();
    return u"After %1 %2 without keyboard or mouse on a still screen, Tamlo records you as away."_s.arg(
        QString::number(minutes), minutes == 1 ? u"minute"_s : u"minutes"_s);
}

bool PresenceSettingsModel::skipUnchangedScreens() const
{
    return m_settings->boolean(SettingsKey::skipUnchangedScreens, true);
}

void PresenceSettingsModel::setDetectAway(bool value)
{
    if (value == detectAway()) {
        return;
    }
    if (!value) {
        m_lastMinutes = storedMinutes();
    }
    m_settings->setInteger(SettingsKey::awayThresholdMinutes, value ? m_lastMinutes : 0);
    Q_EMIT changed();
}

void PresenceSettingsModel::setAwayMinutes(int minutes)
{
    minutes = std::clamp(minutes, minimumMinutes, maximumMinutes);
    if (minutes == awayMinutes()) {
        return;
    }
    m_lastMinutes = minutes;
    if (detectAway()) {
        m_settings->setInteger(SettingsKey::awayThresholdMinutes, minutes);
    }
    Q_EMIT changed();
}

void PresenceSettingsModel::setSkipUnchangedScreens(bool value)
{
    if (value == skipUnchangedScreens()) {
        return;
    }
    m_settings->setBoolean(SettingsKey::skipUnchangedScreens, value);
    Q_EMIT changed();
}

void PresenceSettingsModel::appear()
{
    Q_EMIT changed();
}
