#include "faultfixture.h"

#include <QDirIterator>
#include <QLoggingCategory>
#include <QMutex>

#include <sys/stat.h>

using namespace TrustTest;

namespace {
// Everything the program says through Qt's logging, with our developer categories switched on.
QMutex outputMutex;
QStringList output;

void captureOutput(QtMsgType, const QMessageLogContext &context, const QString &message)
{
    const QMutexLocker lock(&outputMutex);
    output.append(QString::fromUtf8(context.category ? context.category : "") + u": "_s + message);
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

using PrivacyTest = FaultFixture;

// A day of capture leaves no picture anywhere under the home or temporary folders: no file whose
// content or name says it is one.
TEST_F(PrivacyTest, NoImageFileIsWrittenDuringADayOfCapture)
{
    QTemporaryDir temp;
    const QByteArray previousTemp = qgetenv("TMPDIR");
    qputenv("TMPDIR", temp.path().toLocal8Bit());
    buildServices();
    for (int i = 0; i < 40; ++i) {
        tick();
    }
    qputenv("TMPDIR", previousTemp);
    ASSERT_EQ(snapshotStore->count(), 40);
    const QList<QByteArray> magics {"\x89PNG", "\xFF\xD8\xFF", "BM", "P6", "GIF8"};
    for (const QString &root : {home.path(), temp.path()}) {
        QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            const QByteArray head = contentOf(path).left(8);
            EXPECT_FALSE(std::any_of(magics.cbegin(), magics.cend(), [&](const auto &m) { return head.startsWith(m); })
                || QStringList({u"png"_s, u"jpg"_s, u"jpeg"_s, u"ppm"_s}).contains(QFileInfo(path).suffix().toLower()))
                << path.toStdString();
        }
    }
}

// The session token goes to the backend in the Authorization header and nowhere else: not in the
// event log, not in any developer output, not in any file but credentials.plist. That file is its
// owner's alone, and so are the folders of the records and the session, whatever the umask.
TEST_F(PrivacyTest, SessionTokenAppearsInNoOutputAndTheFilesAreTheOwnersAlone)
{
    const QString token = u"tok-Secret-7f3a9c1e5b"_s;
    const QString oneTime = u"link-Secret-0d4e"_s;
    const mode_t previousMask = ::umask(0);
    QLoggingCategory::setFilterRules(u"tamlo.*.debug=true"_s);
    const QtMessageHandler previousHandler = qInstallMessageHandler(&captureOutput);
    buildServices();
    tick();
    tick();

    StandInServer backend;
    const AppConfig config = backendConfig(backend.url());
    backend.on("POST", "/auth/verify-token",
        StandInServer::Reply {200,
            (u"{\"sessionToken\":\""_s + token + u"\",\"user\":{\"id\":\"u1\",\"email\":\"a@example.com\"}}"_s)
                .toUtf8()});
    AuthService auth(&nam, config, paths.credentialsDir);
    QCoro::waitFor(auth.verifyMagicLinkToken(oneTime));
    ASSERT_TRUE(auth.isAuthenticated()) << auth.error().value_or(QString()).toStdString();
    EXPECT_EQ(QFile::permissions(paths.credentialsFile()),
        QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadUser | QFileDevice::WriteUser);
    for (const QString &dir : {paths.dataDir, paths.credentialsDir}) {
        struct stat info
        {
        };
        ASSERT_EQ(::stat(QFile::encodeName(dir).constData(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0700u) << dir.toStdString();
    }

    // Every way an upload can end, then the backend ending the session.
    ActivitySyncService sync(snapshotStore.get(), &auth, &nam, config, settings.get(), logManager.get(), &clock);
    backend.on("GET", "/auth/me", StandInServer::Reply {500, R"({"error":"busy"})"});
    backend.on("GET", "/activity/status", StandInServer::Reply {200, R"({"syncRequestedAt":1773062400000})"});
    for (const StandInServer::Reply &reply : {StandInServer::Reply {500, R"({"error":"Database unavailable"})"},
             StandInServer::Reply {200, {}, "application/json", 10, true}, StandInServer::Reply {401, "{}"},
             StandInServer::Reply {200, R"({"ok":true})"}}) {
        backend.on("POST", "/activity/sync", reply);
        QCoro::waitFor(sync.syncNow());
    }
    QCoro::waitFor(sync.checkSyncRequest());
    backend.on("POST", "/activity/sync", StandInServer::Reply {401, "{}"});
    backend.on("GET", "/auth/me", StandInServer::Reply {401, "{}"});
    QCoro::waitFor(sync.syncNow());
    EXPECT_FALSE(auth.isAuthenticated());
    ::umask(previousMask);
    qInstallMessageHandler(previousHandler);
    QLoggingCategory::setFilterRules(QString());

    const QStringList said
        = messages() + output + QStringList {auth.error().value_or(QString()), sync.lastError().value_or(QString())};
    for (const QString &line : said) {
        EXPECT_FALSE(line.contains(token) || line.contains(oneTime)) << "a token is in: " << line.toStdString();
    }
    for (const QString &file : {paths.settingsFile, paths.snapshotsFile(), paths.dailyReportsFile()}) {
        EXPECT_FALSE(contentOf(file).contains(token.toUtf8())) << file.toStdString();
    }
    ASSERT_GT(backend.requests().size(), 5);
    for (const StandInServer::Request &request : backend.requests()) {
        EXPECT_FALSE(request.body.contains(token.toUtf8()) || request.query.contains(token.toUtf8()))
            << request.path.toStdString();
        if (request.path != "/auth/verify-token") {
            EXPECT_EQ(request.headers.value("authorization"), "Bearer " + token.toUtf8());
        }
    }
}
} // namespace
