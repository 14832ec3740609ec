#include "account/appconfig.h"

#include "core/buildinfo.h"
#include "core/settings.h"

#include <QHostAddress>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace {
// What an Info file holds when the build setting was never given.
const QString unexpandedBuildVariable = u"$(CONVEX_URL)"_s;

std::optional<QString> usable(const std::optional<QString> &value)
{
    // The literal is recognised before trimming, so " $(CONVEX_URL)" counts as an address.
    if (!value || value->isEmpty() || *value == unexpandedBuildVariable) {
        return std::nullopt;
    }
    return value->trimmed();
}
} // namespace

AppConfig::AppConfig(const Settings *settings)
    : AppConfig(settings, QString::fromUtf8(BuildInfo::convexUrl), QString::fromUtf8(BuildInfo::defaultBackendUrl),
        QString::fromUtf8(BuildInfo::webOrigin))
{
}

AppConfig::AppConfig(const Settings *settings, QString buildConvexUrl, QString defaultBackendUrl, QString webOrigin)
    : m_settings(settings)
    , m_buildConvexUrl(std::move(buildConvexUrl))
    , m_defaultBackendUrl(std::move(defaultBackendUrl))
    , m_webOrigin(std::move(webOrigin))
{
}

QString AppConfig::convexURL() const
{
    if (const auto fromSettings = usable(m_settings->optionalString(SettingsKey::convexURL))) {
        return *fromSettings;
    }
    if (const auto fromBuild = usable(m_buildConvexUrl)) {
        return *fromBuild;
    }
    return m_defaultBackendUrl;
}

QUrl AppConfig::webAuthURL(const QString &path) const
{
    QUrl url(m_webOrigin + path);
    QUrlQuery query;
    query.addQueryItem(u"redirect"_s, QString::fromLatin1(authCallback));
    url.setQuery(query);
    return url;
}

std::optional<QUrl> AppConfig::localDefaultBackend() const
{
    if (usable(m_settings->optionalString(SettingsKey::convexURL)) || usable(m_buildConvexUrl)) {
        return std::nullopt;
    }
    const QUrl url(m_defaultBackendUrl, QUrl::StrictMode);
    if (!url.isValid() || (url.host() != u"localhost"_s && !QHostAddress(url.host()).isLoopback())) {
        return std::nullopt;
    }
    return url;
}

std::optional<QUrl> AppConfig::endpoint(const QString &base, const QString &path)
{
    const QUrl url(base + path, QUrl::StrictMode);
    if (!url.isValid()) {
        return std::nullopt;
    }
    return url;
}
