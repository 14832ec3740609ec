#include "server/serveroptions.h"
#include "server/smtpmailer.h"

#include "files.h"

#include <QFile>
#include <QProcess>
#include <QTcpServer>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
ParsedServerOptions parse(const QStringList &arguments)
{
    return ServerOptions::parse(QStringList {u"tamlo-server"_s} + arguments);
}

ParsedServerOptions parse(const QString &line)
{
    return parse(line.split(u' ', Qt::SkipEmptyParts));
}
} // namespace

// Local sign-in only where nobody else can reach the server, unless asked for.
TEST(ServerOptionsTest, LocalSignInAndThePublicUrlFollowTheListenAddress)
{
    const QList<std::pair<QString, bool>> cases {{u""_s, true}, {u"--listen [::1]:9000"_s, true},
        {u"--listen 0.0.0.0:80"_s, false}, {u"--listen 192.168.1.5:8787"_s, false},
        {u"--listen 192.168.1.5:8787 --local-sign-in"_s, true}, {u"--email-sign-in"_s, false}};
    for (const auto &[arguments, local] : cases) {
        EXPECT_EQ(parse(arguments).options->localSignIn(), local) << arguments.toStdString();
    }
    EXPECT_EQ(parse(u""_s).options->effectivePublicUrl(8787), QUrl(u"http://127.0.0.1:8787"_s));
    EXPECT_EQ(parse(u"--listen [::1]:9000"_s).options->effectivePublicUrl(9000), QUrl(u"http://[::1]:9000"_s));
    EXPECT_EQ(
        parse(u"--listen 10.0.0.2:8787 --public-url https://tamlo.example.org"_s).options->effectivePublicUrl(8787),
        QUrl(u"https://tamlo.example.org"_s));
}

TEST(ServerOptionsTest, BadValuesAreRefusedWithExitCode2AndCommandsKeepTheirArguments)
{
    for (const QString &bad :
        {u"--listen example.org:80"_s, u"--listen 127.0.0.1:70000"_s, u"--database mysql://db/tamlo"_s,
            u"--public-url ftp://x"_s, u"--no-such-flag"_s, u"--smtp-port 0"_s, u"--smtp-security ssl"_s,
            u"--smtp-config /nonexistent/smtp.ini"_s, u"--email-sign-in --local-sign-in"_s}) {
        const ParsedServerOptions parsed = parse(bad);
        EXPECT_FALSE(parsed.options) << bad.toStdString();
        EXPECT_EQ(parsed.exitCode, 2);
        EXPECT_FALSE(parsed.message.isEmpty());
    }
    const ServerOptions add = *parse(u"--data /srv/tamlo user add ada@example.org --name Ada"_s).options;
    EXPECT_EQ(std::tuple(add.command, add.name, add.dataDir),
        std::tuple(QStringList {u"user"_s, u"add"_s, u"ada@example.org"_s}, u"Ada"_s, u"/srv/tamlo"_s));
}

// A flag outranks the file; the envelope takes the sender's bare address, From: keeps the name.
TEST(ServerOptionsTest, SmtpSettingsComeFromTheFileOrTheFlagsAndTheSenderIsAMailbox)
{
    QTemporaryDir dir;
    const QString file = dir.filePath(u"smtp.ini"_s);
    writeBytes(file,
        "host=smtp.example.org\nport=465\nsecurity=tls\nuser=tamlo\npassword=s3cret\nfrom=Tamlo <tamlo@example.org>\n");
    const SmtpSettings smtp = parse({u"--smtp-config"_s, file, u"--smtp-security"_s, u"starttls"_s}).options->smtp;
    EXPECT_EQ(std::tuple(smtp.host, smtp.port, smtp.security, smtp.user, smtp.password),
        std::tuple(u"smtp.example.org"_s, 465, SmtpSettings::Security::StartTls, u"tamlo"_s, u"s3cret"_s));
    EXPECT_EQ(smtp.from, (Mailbox {u"Tamlo"_s, u"tamlo@example.org"_s}));

    const QList<std::tuple<QString, QString, QByteArray>> good {
        {u"tamlo@example.org"_s, u"tamlo@example.org"_s, "tamlo@example.org"},
        {u"\"Tamlo, sign-in\" <no-reply@mail.example.org>"_s, u"no-reply@mail.example.org"_s,
            "\"Tamlo, sign-in\" <no-reply@mail.example.org>"},
        {u"Grüße <a.b@example.org>"_s, u"a.b@example.org"_s, "=?UTF-8?B?R3LDvMOfZQ==?= <a.b@example.org>"},
    };
    for (const auto &[text, address, header] : good) {
        const ParsedServerOptions parsed = parse({u"--mail-from"_s, text});
        ASSERT_TRUE(parsed.options) << text.toStdString();
        EXPECT_EQ(parsed.options->smtp.from.address, address);
        EXPECT_EQ(parsed.options->smtp.from.headerValue(), header);
    }
    for (const QString &bad : {u"Tamlo"_s, u"<tamlo@example.org> x"_s, u"Tamlo <ta mlo@example.org>"_s,
             u"Ta\"mlo <t@example.org>"_s, u"Ta>mlo <t@example.org>"_s, u"t\u007F@example.org"_s, u"t@exa_mple.org"_s,
             u"t@.example.org"_s, u"t..x@example.org"_s}) {
        EXPECT_EQ(parse({u"--mail-from"_s, bad}).exitCode, 2) << bad.toStdString();
    }
}

// The pages never tell whether a mail went out, so the log names an SMTP server that does not answer.
TEST(ServerOptionsTest, AtStartWithoutSmtpTheServerRefusesAndASilentSmtpServerIsNamedInTheLog)
{
    QTemporaryDir dir;
    QProcess server;
    const QStringList emailSignIn {u"--data"_s, dir.path(), u"--listen"_s, u"127.0.0.1:0"_s, u"--email-sign-in"_s};
    server.start(QStringLiteral(TAMLO_SERVER_EXECUTABLE), emailSignIn);
    ASSERT_TRUE(server.waitForFinished(20000));
    EXPECT_EQ(server.exitCode(), 2);
    EXPECT_TRUE(server.readAllStandardError().contains("no SMTP server is set"));
    EXPECT_FALSE(QFile::exists(dir.filePath(u"tamlo-server.sqlite3"_s)));

    QTcpServer closed;
    ASSERT_TRUE(closed.listen(QHostAddress::LocalHost, 0));
    const QString port = QString::number(closed.serverPort());
    closed.close();
    server.start(QStringLiteral(TAMLO_SERVER_EXECUTABLE),
        emailSignIn
            + QStringList {u"--smtp-host"_s, u"127.0.0.1"_s, u"--smtp-port"_s, port, u"--smtp-security"_s, u"none"_s,
                u"--mail-from"_s, u"Tamlo <tamlo@example.org>"_s});
    QByteArray log;
    for (int i = 0; i < 100 && !log.contains("Check the SMTP settings."); ++i) {
        server.waitForReadyRead(200);
        log += server.readAllStandardError();
    }
    server.terminate();
    server.waitForFinished(10000);
    EXPECT_TRUE(log.contains("Warning: the SMTP server 127.0.0.1:" + port.toLatin1() + " does not answer"))
        << log.toStdString();
}

TEST(ServerOptionsTest, AMailIsDotSafeAndNoHeaderTakesALineBreakFromOutside)
{
    const QByteArray message = SmtpMailer::message(Mailbox {u"Tamlo"_s, u"tamlo@example.org"_s},
        OutgoingMail {u"ada@example.org"_s, u"Hi\r\nBcc: eve@example.org"_s, u"one\n.\n..two\nthree"_s}, "id@x");
    EXPECT_TRUE(message.contains("\r\nSubject: Hi  Bcc: eve@example.org\r\n")) << message.toStdString();
    EXPECT_FALSE(message.contains("\r\nBcc:"));
    EXPECT_TRUE(message.endsWith("\r\n\r\none\r\n..\r\n...two\r\nthree\r\n")) << message.toStdString();
}
