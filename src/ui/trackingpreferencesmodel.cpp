#include "ui/trackingpreferencesmodel.h"

#include "core/settings.h"
#include "core/textlimits.h"

#include <QLocale>

using namespace Qt::StringLiterals;

namespace {
bool hasOverlongEntry(QString list)
{
    for (const QString &entry : list.replace(u'\n', u',').split(u',')) {
        if (TextLimits::characterCount(entry.trimmed()) > TextLimits::maxLabelLength) {
            return true;
        }
    }
    return false;
}
} // namespace

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
    Q_EMIT labelLimitTextChanged();
}

void TrackingPreferencesModel::setCategorizeBy(const QString &value)
{
    if (categorizeBy() == value && m_settings->contains(SettingsKey::categorizeBy)) {
        return;
    }
    m_settings->setString(SettingsKey::categorizeBy, value);
    Q_EMIT categorizeByChanged();
    Q_EMIT labelLimitTextChanged();
}

void TrackingPreferencesModel::appear()
{
    Q_EMIT projectsChanged();
    Q_EMIT categorizeByChanged();
    Q_EMIT labelLimitTextChanged();
    if (m_prefillDefaultCategories && categorizeBy().trimmed().isEmpty()) {
        setCategorizeBy(defaultCategories);
    }
}

QString TrackingPreferencesModel::labelLimitText() const
{
    if (!hasOverlongEntry(projects()) && !hasOverlongEntry(categorizeBy())) {
        return {};
    }
    return u"A name longer than %1 characters is cut to fit."_s.arg(QLocale().toString(TextLimits::maxLabelLength));
}
