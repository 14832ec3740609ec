#include "account/appconfig.h"
#include "core/settings.h"

#include <QDir>
#include <QTemporaryDir>
#include <QUrlQuery>

#include <gtest/gtest.h>

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
    Settings m_settings {QDir(m_home.path()).filePath(u"Tamlo.conf"_s)};
};

TEST_F(AppConfigTest, FallsBackToTheDefaultEndpointWhenNothingIsConfigured)
{
    EXPECT_EQ(config(QString()).convexURL(), buildDefault);
    EXPECT_EQ(config(u"$(CONVEX_URL)"_s).convexURL(), buildDefault);
}

TEST_F(AppConfigTest, SettingWinsAndIsTrimmed)
{
    m_settings.setString(u"convexURL"_s, u"  https://mine.example\n"_s);
    EXPECT_EQ(config(u"https://build.example"_s).convexURL(), u"https://mine.example"_s);
}

TEST_F(AppConfigTest, UnusableSettingMovesOnToTheBuildValue)
{
    m_settings.setString(u"convexURL"_s, u"$(CONVEX_URL)"_s);
    EXPECT_EQ(config(u" https://build.example\t"_s).convexURL(), u"https://build.example"_s);
    m_settings.setString(u"convexURL"_s, QString());
    EXPECT_EQ(config(u"https://build.example"_s).convexURL(), u"https://build.example"_s);
}

TEST_F(AppConfigTest, WhiteSpaceAloneIsUsableAndYieldsEmpty)
{
    m_settings.setString(u"convexURL"_s, u"   "_s);
    EXPECT_EQ(config(u"https://build.example"_s).convexURL(), QString());
    m_settings.remove(u"convexURL"_s);
    EXPECT_EQ(config(u" \n"_s).convexURL(), QString());
}

TEST_F(AppConfigTest, LiteralIsComparedBeforeTrimming)
{
    m_settings.setString(u"convexURL"_s, u" $(CONVEX_URL)"_s);
    EXPECT_EQ(config(u"https://build.example"_s).convexURL(), u"$(CONVEX_URL)"_s);
}

TEST_F(AppConfigTest, ChangedSettingAppliesWithoutRebuildingTheConfig)
{
    const AppConfig appConfig = config(QString());
    EXPECT_EQ(appConfig.convexURL(), buildDefault);
    m_settings.setString(u"convexURL"_s, u"https://later.example"_s);
    EXPECT_EQ(appConfig.convexURL(), u"https://later.example"_s);
}

TEST_F(AppConfigTest, WebAuthUrlCarriesOnlyTheRedirect)
{
    const QUrl url = config(QString()).webAuthURL(u"/register"_s);
    EXPECT_EQ(url.toString(), u"https://web.example/register?redirect=tamlo://auth"_s);
    const QUrlQuery query(url);
    ASSERT_EQ(query.queryItems().size(), 1);
    EXPECT_EQ(query.queryItems(QUrl::FullyDecoded).first(), qMakePair(u"redirect"_s, u"tamlo://auth"_s));
    EXPECT_EQ(url.path(), u"/register"_s);
}

TEST_F(AppConfigTest, EndpointRejectsTextThatIsNoUrl)
{
    EXPECT_FALSE(AppConfig::endpoint(u"http://exa mple.com"_s, u"/auth/me"_s).has_value());
    EXPECT_EQ(
        AppConfig::endpoint(u"http://127.0.0.1:8787"_s, u"/auth/me"_s)->toString(), u"http://127.0.0.1:8787/auth/me"_s);
}
} // namespace
