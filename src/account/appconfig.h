#pragma once

#include <QString>
#include <QUrl>

#include <optional>

class Settings;

// Where the backend and the web sign-in pages are. Nothing is cached: a changed setting applies
// to the next request.
class AppConfig
{
public:
    // The build's values by default; tests hand in their own.
    explicit AppConfig(const Settings *settings);
    AppConfig(const Settings *settings, QString buildConvexUrl, QString defaultBackendUrl, QString webOrigin);

    // Base URL of the backend without a trailing slash; empty when only white space was configured.
    [[nodiscard]] QString convexURL() const;
    // A page of the web site with the callback attached as its only query item.
    [[nodiscard]] QUrl webAuthURL(const QString &path) const;
    // The backend when it is the build's default and on this machine, where the user may have to
    // start it; nothing when a setting or the build names one, or the default is elsewhere.
    [[nodiscard]] std::optional<QUrl> localDefaultBackend() const;

    // base followed by path by plain concatenation, or nothing when that text is no valid URL.
    [[nodiscard]] static std::optional<QUrl> endpoint(const QString &base, const QString &path);

    static constexpr auto authCallback = "tamlo://auth";

private:
    const Settings *m_settings = nullptr;
    QString m_buildConvexUrl;
    QString m_defaultBackendUrl;
    QString m_webOrigin;
};
