#include "core/settings.h"

Settings::Settings(const QString &filePath)
    : m_settings(std::make_unique<QSettings>(filePath, QSettings::IniFormat)) { }

void Settings::reload() const
{
    // QSettings reads its file again only when told to; a stat tells it whether anything changed.
    m_settings->sync();
}

QString Settings::string(const QString &key) const
{
    reload();
    const QVariant value = m_settings->value(key);
    // A hand-edited line such as `userProjects=Tamlo, Website` reads back as a list in INI.
    if (value.metaType() == QMetaType::fromType<QStringList>()) {
        return value.toStringList().join(u", ");
    }
    return value.toString();
}

std::optional<QString> Settings::optionalString(const QString &key) const
{
    reload();
    if (!m_settings->contains(key)) {
        return std::nullopt;
    }
    return string(key);
}

bool Settings::boolean(const QString &key, bool defaultValue) const
{
    reload();
    return m_settings->value(key, defaultValue).toBool();
}

int Settings::integer(const QString &key, int defaultValue) const
{
    reload();
    bool ok = false;
    const int value = m_settings->value(key, defaultValue).toInt(&ok);
    return ok ? value : defaultValue;
}

std::optional<QDateTime> Settings::date(const QString &key) const
{
    reload();
    const QVariant value = m_settings->value(key);
    if (!value.isValid()) {
        return std::nullopt;
    }
    const QDateTime date = value.toDateTime();
    if (!date.isValid()) {
        return std::nullopt;
    }
    return date.toLocalTime();
}

bool Settings::contains(const QString &key) const
{
    reload();
    return m_settings->contains(key);
}

void Settings::setString(const QString &key, const QString &value)
{
    m_settings->setValue(key, value);
    m_settings->sync();
}

void Settings::setBoolean(const QString &key, bool value)
{
    m_settings->setValue(key, value);
    m_settings->sync();
}

void Settings::setInteger(const QString &key, int value)
{
    m_settings->setValue(key, value);
    m_settings->sync();
}

void Settings::setDate(const QString &key, const QDateTime &value)
{
    m_settings->setValue(key, value);
    m_settings->sync();
}

void Settings::remove(const QString &key)
{
    m_settings->remove(key);
    m_settings->sync();
}

QString Settings::filePath() const
{
    return m_settings->fileName();
}
