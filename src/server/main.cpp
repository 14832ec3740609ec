// The composition root of tamlo-server: read the command line, open the storage, then either
// run one administration command or serve until stopped.
#include "core/buildinfo.h"
#include "core/clock.h"
#include "server/accountpages.h"
#include "server/admincommands.h"
#include "server/apiendpoints.h"
#include "server/ratelimiter.h"
#include "server/requestlog.h"
#include "server/serveroptions.h"
#include "server/signinservice.h"
#include "server/smtpmailer.h"
#include "server/sqlstorage.h"
#include "server/tamlohttpserver.h"
#include "server/webpages.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTextStream>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {
std::unique_ptr<SqlStorage> openStorage(const ServerOptions &options)
{
    if (!options.databaseUrl.isEmpty()) {
        return SqlStorage::openPostgres(QUrl(options.databaseUrl));
    }
    if (!QFileInfo::exists(options.dataDir)) {
        if (!QDir().mkpath(options.dataDir)) {
            throw StorageError(u"Cannot create the data folder %1."_s.arg(options.dataDir));
        }
        QFile::setPermissions(
            options.dataDir, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    }
    return SqlStorage::openSqlite(QDir(options.dataDir).filePath(u"tamlo-server.sqlite3"_s));
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"tamlo-server"_s);
    QCoreApplication::setApplicationVersion(QString::fromLatin1(BuildInfo::shortVersion));
    QTextStream out(stdout);
    QTextStream err(stderr);

    const ParsedServerOptions parsed = ServerOptions::parse(QCoreApplication::arguments());
    if (!parsed.options) {
        (parsed.exitCode == 0 ? out : err) << parsed.message << Qt::endl;
        return parsed.exitCode;
    }
    const ServerOptions &options = *parsed.options;

    if (options.command.isEmpty() && !options.localSignIn() && !options.smtp.isComplete()) {
        err << u"This server is not in local mode (it listens on %1), so it signs people in by e-mail, and no "
               "SMTP server is set. Give --smtp-host and --mail-from (or --smtp-config FILE), or --local-sign-in "
               "to let anyone who reaches the pages sign in by typing an address."_s.arg(options.listenHost)
            << Qt::endl;
        return 2;
    }

    SystemClock clock;
    std::unique_ptr<SqlStorage> storage;
    try {
        storage = openStorage(options);
    } catch (const StorageError &error) {
        err << error.message() << Qt::endl;
        return 1;
    }
    SignInService signIn(storage.get(), &clock);

    if (!options.command.isEmpty()) {
        try {
            AdminCommands commands(storage.get(), &signIn, &clock, &out, &err);
            return commands.run(options.command, options.name);
        } catch (const StorageError &error) {
            err << error.message() << Qt::endl;
            return 1;
        }
    }

    QFile logDevice;
    if (!logDevice.open(stderr, QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        return 1;
    }
    RequestLog log(&logDevice);
    ApiEndpoints api(storage.get(), &signIn, &clock);
    WebPages pages(&signIn, options.effectivePublicUrl(options.port), options.localSignIn());
    RateLimiter limiter(&clock);
    api.setRateLimiter(&limiter);
    pages.setRateLimiter(&limiter);
    std::unique_ptr<SmtpMailer> mailer;
    if (!options.localSignIn()) {
        mailer = std::make_unique<SmtpMailer>(options.smtp);
        pages.setMailer(mailer.get());
    }
    AccountPages account(storage.get(), &pages, &clock);
    TamloHttpServer server(&api, &pages, &log);
    server.setAccountPages(&account);
    if (!server.listen(options.listenAddress, options.port)) {
        err << u"Cannot listen on %1:%2: %3"_s.arg(options.listenHost).arg(options.port).arg(server.errorString())
            << Qt::endl;
        return 1;
    }
    if (options.port == 0) {
        pages.setPublicUrl(options.effectivePublicUrl(server.port()));
    }
    err << u"tamlo-server %1 listening on %2:%3, public URL %4, local sign-in %5"_s.arg(
        QCoreApplication::applicationVersion(), options.listenHost, QString::number(server.port()),
        options.effectivePublicUrl(server.port()).toString(), options.localSignIn() ? u"on"_s : u"off (e-mail)"_s)
        << Qt::endl;
    if (mailer) {
        // The pages never tell a visitor whether a mail went out, so the operator must hear it here.
        const QString smtpServer = u"%1:%2"_s.arg(options.smtp.host).arg(options.smtp.port);
        mailer->checkInBackground([&app, &err, smtpServer, sender = options.smtp.from.address](const QString &problem) {
            QMetaObject::invokeMethod(
                &app,
                [&err, smtpServer, sender, problem] {
                    if (problem.isEmpty()) {
                        err << u"The SMTP server %1 answers; sign-in mails go out from %2."_s.arg(smtpServer, sender)
                            << Qt::endl;
                    } else {
                        err << u"Warning: the SMTP server %1 does not answer as it should (%2). No sign-in mail "
                               "can go out, and the sign-in pages do not tell visitors so. Check the SMTP "
                               "settings."_s.arg(smtpServer, problem)
                            << Qt::endl;
                    }
                },
                Qt::QueuedConnection);
        });
    }
    const QUrl publicUrl = options.effectivePublicUrl(server.port());
    if (options.localSignIn() && !QHostAddress(publicUrl.host()).isLoopback() && publicUrl.host() != u"localhost"_s) {
        err << u"Warning: local sign-in is on and the public URL is %1: whoever reaches these pages can sign in "
               "as any address. Listen on a non-loopback address, or keep the proxy private."_s.arg(
                   publicUrl.toString())
            << Qt::endl;
    }
    return QCoreApplication::exec();
}
