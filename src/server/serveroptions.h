#pragma once

#include "server/smtpmailer.h"

#include <QHostAddress>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>

struct ParsedServerOptions;

// What the command line asks for: where to listen and keep data, or which administration command to run.
struct ServerOptions
{
    static constexpr quint16 defaultPort = 8787;

    QString listenHost = QStringLiteral("127.0.0.1");
    QHostAddress listenAddress = QHostAddress(QHostAddress::LocalHost);
    quint16 port = defaultPort;
    QString dataDir;
    QString databaseUrl; // empty: SQLite in dataDir
    std::optional<QUrl> publicUrl; // absent: http:// and the listen address
    bool localSignInFlag = false;
    bool emailSignInFlag = false; // e-mail sign-in even on a loopback address
    QStringList command; // an administration command and its arguments; empty to serve
    std::optional<QString> name; // user add --name
    SmtpSettings smtp; // e-mail sign-in where local mode is off

    // Local mode: on by itself on a loopback address, by the flag on any other; never with --email-sign-in.
    [[nodiscard]] bool localSignIn() const;
    [[nodiscard]] QUrl effectivePublicUrl(quint16 boundPort) const;

    [[nodiscard]] static ParsedServerOptions parse(const QStringList &arguments);
    // $XDG_DATA_HOME/tamlo-server
    [[nodiscard]] static QString defaultDataDir();
};

struct ParsedServerOptions
{
    std::optional<ServerOptions> options;
    QString message; // help or version text to print, or the error
    int exitCode = 0; // when options is empty: 0 after help or version, 2 after an error
};
