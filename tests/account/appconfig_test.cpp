#include "account/appconfig.h"
#include "core/settings.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <optional>

using namespace Qt::StringLiterals;

namespace {
const QString buildDefault = u"https://default.example"_s;

class AppConfigTest : public ::testing::Test
{
protected:
    AppConfig config(const QString &buildValue) const
    {
        return AppConfig(&m_settings, buildValue, buildDefault, u"https://web.example"_s);
    }

    QTemporaryDir m_home;
    Settings m_settings {m_home.filePath(u"Tamlo.conf"_s)};
};

// The setting, then the build value, then the default; each trimmed, an empty or unexpanded one skipped.
TEST_F(AppConfigTest, EndpointComesFromTheFirstUsableSource)
{
    struct Row
    {
        std::optional<QString> setting;
        QString buildValue;
        QString expected;
        const char *why;
    };
    const QList<Row> rows {
        {std::nullopt, QString(), buildDefault, "nothing configured"},
        {std::nullopt, u"$(CONVEX_URL)"_s, buildDefault, "build value never filled in"},
        {u"  https://mine.example\n"_s, u"https://build.example"_s, u"https://mine.example"_s, "setting wins, trimmed"},
        {u"$(CONVEX_URL)"_s, u" https://build.example\t"_s, u"https://build.example"_s, "unusable setting"},
        {QString(), u"https://build.example"_s, u"https://build.example"_s, "empty setting"},
        {u"   "_s, u"https://build.example"_s, QString(), "white space alone is usable and yields empty"},
        {std::nullopt, u" \n"_s, QString(), "white-space build value"},
        {u" $(CONVEX_URL)"_s, u"https://build.example"_s, u"$(CONVEX_URL)"_s, "literal compared before trimming"},
    };
    for (const Row &row : rows) {
        // Built before the setting changes: a changed setting applies without a new config.
        const AppConfig appConfig = config(row.buildValue);
        if (row.setting) {
            m_settings.setString(u"convexURL"_s, *row.setting);
        } else {
            m_settings.remove(u"convexURL"_s);
        }
        EXPECT_EQ(appConfig.convexURL(), row.expected) << row.why;
    }
}

// Only the build's own default on this machine is the user's to start; a named backend is not.
TEST_F(AppConfigTest, LocalDefaultBackendIsTheUnnamedDefaultOnThisMachineAndTheWebLinkCarriesTheRedirect)
{
    EXPECT_EQ(config(QString()).webAuthURL(u"/register"_s).toString(),
        u"https://web.example/register?redirect=tamlo://auth"_s);
    for (const QString &url : {u"http://127.0.0.1:8787"_s, u"http://localhost:8787"_s, u"http://[::1]:8787"_s}) {
        EXPECT_EQ(AppConfig(&m_settings, QString(), url, {}).localDefaultBackend(), QUrl(url));
    }
    EXPECT_EQ(config(QString()).localDefaultBackend(), std::nullopt);
    const AppConfig local(&m_settings, QString(), u"http://127.0.0.1:8787"_s, {});
    EXPECT_EQ(AppConfig(&m_settings, u"https://build.example"_s, u"http://127.0.0.1:8787"_s, {}).localDefaultBackend(),
        std::nullopt);
    m_settings.setString(u"convexURL"_s, u"http://127.0.0.1:9"_s);
    EXPECT_EQ(local.localDefaultBackend(), std::nullopt);
}
} // namespace
