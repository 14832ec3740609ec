#include "ui/trackingpreferencesmodel.h"

#include "core/settings.h"

TrackingPreferencesModel::TrackingPreferencesModel(
    Settings *settings, bool compact, bool prefillDefaultCategories, QObject *parent)
    : QObject(parent), m_settings(settings), m_compact(compact), m_prefillDefaultCategories(prefillDefaultCategories)
{
}

QString TrackingPreferencesModel::projects() const
{
    return m_settings->string(SettingsKey::userProjects);
}

QString TrackingPreferencesModel::categorizeBy() const
{
    return m_settings->string(SettingsKey::categorizeBy);
}

void TrackingPreferencesModel::setProjects(const QString &value)
{
    if (projects() == value && m_settings->contains(SettingsKey::userProjects)) {
        return;
    }
    m_settings->setString(SettingsKey::userProjects, value);
    Q_EMIT projectsChanged();
}

void TrackingPreferencesModel::setCategorizeBy(const QString &value)
{
    if (categorizeBy() == value && m_settings->contains(SettingsKey::categorizeBy)) {
        return;
    }
    m_settings->setString(SettingsKey::categorizeBy, value);
    Q_EMIT categorizeByChanged();
}

void TrackingPreferencesModel::appear()
{
    Q_EMIT projectsChanged();
    Q_EMIT categorizeByChanged();
    if (m_prefillDefaultCategories && categorizeBy().trimmed().isEmpty()) {
        setCategorizeBy(defaultCategories);
    }
}
