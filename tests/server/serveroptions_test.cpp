#include "server/serveroptions.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
ParsedServerOptions parse(const QStringList &arguments)
{
    return ServerOptions::parse(QStringList {u"tamlo-server"_s} + arguments);
}
} // namespace

TEST(ServerOptionsTest, DefaultsServeThisMachineInLocalMode)
{
    const ParsedServerOptions parsed = parse({});
    ASSERT_TRUE(parsed.options);
    EXPECT_EQ(parsed.options->listenAddress, QHostAddress(QHostAddress::LocalHost));
    EXPECT_EQ(parsed.options->port, 8787);
    EXPECT_TRUE(parsed.options->localSignIn());
    EXPECT_EQ(parsed.options->effectivePublicUrl(8787), QUrl(u"http://127.0.0.1:8787"_s));
    EXPECT_TRUE(parsed.options->dataDir.endsWith(u"/tamlo-server"_s));
    EXPECT_TRUE(parsed.options->command.isEmpty());
}

TEST(ServerOptionsTest, LocalModeFollowsTheListenAddressUnlessForced)
{
    EXPECT_TRUE(parse({u"--listen"_s, u"[::1]:9000"_s}).options->localSignIn());
    EXPECT_EQ(parse({u"--listen"_s, u"[::1]:9000"_s}).options->effectivePublicUrl(9000), QUrl(u"http://[::1]:9000"_s));
    EXPECT_FALSE(parse({u"--listen"_s, u"0.0.0.0:80"_s}).options->localSignIn());
    EXPECT_FALSE(parse({u"--listen"_s, u"192.168.1.5:8787"_s}).options->localSignIn());
    EXPECT_TRUE(parse({u"--listen"_s, u"192.168.1.5:8787"_s, u"--local-sign-in"_s}).options->localSignIn());
    const ServerOptions proxied
        = *parse({u"--listen"_s, u"10.0.0.2:8787"_s, u"--public-url"_s, u"https://tamlo.example.org"_s}).options;
    EXPECT_EQ(proxied.effectivePublicUrl(8787), QUrl(u"https://tamlo.example.org"_s));
}

TEST(ServerOptionsTest, BadValuesAreRefusedWithExitCode2AndCommandsKeepTheirArguments)
{
    for (const QStringList &bad : {QStringList {u"--listen"_s, u"example.org:80"_s},
             QStringList {u"--listen"_s, u"127.0.0.1:70000"_s}, QStringList {u"--database"_s, u"mysql://db/tamlo"_s},
             QStringList {u"--public-url"_s, u"ftp://x"_s}, QStringList {u"--no-such-flag"_s}}) {
        const ParsedServerOptions parsed = parse(bad);
        EXPECT_FALSE(parsed.options) << bad.join(u' ').toStdString();
        EXPECT_EQ(parsed.exitCode, 2);
        EXPECT_FALSE(parsed.message.isEmpty());
    }
    const ParsedServerOptions add
        = parse({u"--data"_s, u"/srv/tamlo"_s, u"user"_s, u"add"_s, u"ada@example.org"_s, u"--name"_s, u"Ada"_s});
    ASSERT_TRUE(add.options);
    EXPECT_EQ(add.options->command, (QStringList {u"user"_s, u"add"_s, u"ada@example.org"_s}));
    EXPECT_EQ(add.options->name, u"Ada"_s);
    EXPECT_EQ(add.options->dataDir, u"/srv/tamlo"_s);
}
