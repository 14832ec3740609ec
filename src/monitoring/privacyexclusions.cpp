#include "monitoring/privacyexclusions.h"

#include "core/settings.h"
#include "core/userpreferences.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {
QStringList listOf(const Settings &settings, const QString &key, const QStringList &defaults)
{
    return settings.contains(key) ? UserPreferences::parsedList(settings.string(key)) : defaults;
}

// The last part of a reverse-domain id, so "KeePassXC" also names org.keepassxc.KeePassXC.
QString lastPart(const QString &id)
{
    return id.section(u'.', -1);
}

bool sameApplication(QString entry, const QString &id)
{
    if (entry.endsWith(u".desktop"_s, Qt::CaseInsensitive)) {
        entry.chop(8);
    }
    return entry.compare(id, Qt::CaseInsensitive) == 0 || entry.compare(lastPart(id), Qt::CaseInsensitive) == 0
        || lastPart(entry).compare(id, Qt::CaseInsensitive) == 0;
}
} // namespace

PrivacyExclusions::PrivacyExclusions(QStringList applications, QStringList titleWords)
    : m_applications(std::move(applications)), m_titleWords(std::move(titleWords))
{
}

PrivacyExclusions PrivacyExclusions::fromSettings(const Settings &settings)
{
    return PrivacyExclusions(listOf(settings, SettingsKey::excludedApplications, defaultApplications),
        listOf(settings, SettingsKey::excludedTitleWords, defaultTitleWords));
}

bool PrivacyExclusions::excludes(const VisibleWindow &window) const
{
    for (const QString &entry : m_applications) {
        for (const QString &id : window.appIds) {
            if (!id.isEmpty() && sameApplication(entry, id)) {
                return true;
            }
        }
    }
    return std::any_of(m_titleWords.cbegin(), m_titleWords.cend(),
        [&window](const QString &word) { return window.title.contains(word, Qt::CaseInsensitive); });
}

bool PrivacyExclusions::excludesAny(const QList<VisibleWindow> &windows) const
{
    return std::any_of(windows.cbegin(), windows.cend(), [this](const VisibleWindow &w) { return excludes(w); });
}
