#include "account/appconfig.h"
#include "account/backendprobe.h"
#include "core/settings.h"

#include <QCoroTask>
#include <QTcpServer>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

// The setting, then the build value, then the default; each trimmed, an empty or unexpanded one skipped.
TEST(AppConfigTest, TheBackendComesFromTheFirstUsableSourceAndOnlyTheUnnamedDefaultIsLocal)
{
    QTemporaryDir home;
    Settings settings(home.filePath(u"Tamlo.conf"_s));
    const QString fallback = u"https://default.example"_s;
    const QString build = u"https://build.example"_s;
    for (const auto &[setting, buildValue, expected] :
        {std::tuple {std::optional<QString>(), u"$(CONVEX_URL)"_s, fallback}, // the build value was never filled in
            {u"  https://mine.example\n"_s, build, u"https://mine.example"_s},
            {u"$(CONVEX_URL)"_s, u" https://build.example\t"_s, build}, {QString(), build, build},
            {u"   "_s, build, QString()}, // white space alone is usable and yields empty
            {u" $(CONVEX_URL)"_s, build, u"$(CONVEX_URL)"_s}}) { // the literal is compared before trimming
        // Built before the setting changes: a changed setting applies without a new config.
        const AppConfig config(&settings, buildValue, fallback, u"https://web.example"_s);
        setting ? settings.setString(SettingsKey::convexURL, *setting) : settings.remove(SettingsKey::convexURL);
        EXPECT_EQ(config.convexURL(), expected) << setting.value_or(u"-"_s).toStdString() << buildValue.toStdString();
    }

    // Only the build's own default on this machine is the user's to start; a named backend is not.
    settings.remove(SettingsKey::convexURL);
    for (const QString &url : {u"http://127.0.0.1:8787"_s, u"http://localhost:8787"_s, u"http://[::1]:8787"_s}) {
        EXPECT_EQ(AppConfig(&settings, QString(), url, {}).localDefaultBackend(), QUrl(url));
    }
    EXPECT_EQ(AppConfig(&settings, QString(), fallback, {}).localDefaultBackend(), std::nullopt);
    EXPECT_EQ(AppConfig(&settings, build, u"http://127.0.0.1:8787"_s, {}).localDefaultBackend(), std::nullopt);
    settings.setString(SettingsKey::convexURL, u"http://127.0.0.1:9"_s);
    EXPECT_EQ(AppConfig(&settings, QString(), u"http://127.0.0.1:8787"_s, {}).localDefaultBackend(), std::nullopt);
}

// A server that has not taken the connection within the time counts as absent.
TEST(BackendProbeTest, NoAnswerWithinTheTimeIsNoServer)
{
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    const QUrl url(u"http://127.0.0.1:%1"_s.arg(server.serverPort()));
    EXPECT_FALSE(QCoro::waitFor(BackendProbe::acceptsConnections(url, 0ms)));
    EXPECT_TRUE(QCoro::waitFor(BackendProbe::acceptsConnections(url, 2s)));
}
