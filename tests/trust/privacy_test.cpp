#include "faultfixture.h"

#include "platform/portalscreengrabber.h"

#include "privatedbus.h"
#include "standinportal.h"

#include <QDirIterator>
#include <QFile>
#include <QLoggingCategory>
#include <QMutex>

#include <sys/stat.h>

using namespace TrustTest;

namespace {
// Every file below the folders whose content or name says it is a picture.
QStringList imageFilesUnder(const QStringList &roots)
{
    static const QList<QByteArray> magics {"\x89PNG", "\xFF\xD8\xFF", "BM", "P6", "GIF8"};
    QStringList found;
    for (const QString &root : roots) {
        QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            QFile file(path);
            const QByteArray head = file.open(QIODevice::ReadOnly) ? file.read(8) : QByteArray();
            const bool magic = std::any_of(
                magics.cbegin(), magics.cend(), [&head](const QByteArray &m) { return head.startsWith(m); });
            const QString suffix = QFileInfo(path).suffix().toLower();
            if (magic || suffix == u"png"_s || suffix == u"jpg"_s || suffix == u"jpeg"_s || suffix == u"ppm"_s) {
                found.append(path);
            }
        }
    }
    return found;
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Everything the program says through Qt's logging, our developer categories switched on.
class CapturedOutput
{
public:
    CapturedOutput()
    {
        s_lines.clear();
        QLoggingCategory::setFilterRules(u"tamlo.*.debug=true"_s);
        m_previous = qInstallMessageHandler(&CapturedOutput::handle);
    }
    ~CapturedOutput()
    {
        qInstallMessageHandler(m_previous);
        QLoggingCategory::setFilterRules(QString());
    }
    CapturedOutput(const CapturedOutput &) = delete;
    CapturedOutput &operator=(const CapturedOutput &) = delete;

    [[nodiscard]] static QStringList lines()
    {
        const QMutexLocker lock(&s_mutex);
        return s_lines;
    }

private:
    static void handle(QtMsgType, const QMessageLogContext &context, const QString &message)
    {
        const QMutexLocker lock(&s_mutex);
        s_lines.append(QString::fromUtf8(context.category ? context.category : "") + u": "_s + message);
    }

    static inline QMutex s_mutex;
    static inline QStringList s_lines;
    QtMessageHandler m_previous = nullptr;
};

class PrivacyTest : public FaultFixture
{
protected:
    void SetUp() override
    {
        FaultFixture::SetUp();
        ASSERT_TRUE(temp.isValid());
        previousTemp = qgetenv("TMPDIR");
        qputenv("TMPDIR", temp.path().toLocal8Bit());
    }

    void TearDown() override
    {
        FaultFixture::TearDown();
        qputenv("TMPDIR", previousTemp);
    }

    QTemporaryDir temp;
    QByteArray previousTemp;
};

// A day of capture on the X11 path leaves no picture anywhere under the home or temporary folders.
TEST_F(PrivacyTest, NoImageFileIsWrittenDuringADayOfCaptureOnX11)
{
    buildServices();
    for (int i = 0; i < 40; ++i) {
        tick();
    }
    ASSERT_EQ(snapshotStore->count(), 40);
    EXPECT_EQ(imageFilesUnder({home.path(), temp.path()}), QStringList());
}

// On Wayland the portal hands over a file; it is gone after every tick, and nothing else stays.
TEST_F(PrivacyTest, NoImageFileOutlivesATickOnThePortalPath)
{
    PrivateDBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
    const QDBusConnection portalBus = bus.connect(u"portal-service"_s);
    const QDBusConnection clientBus = bus.connect(u"tamlo"_s);
    const QString pictures = QDir(home.path()).filePath(u"Pictures"_s);
    QDir().mkpath(pictures);
    StandInPortal portal(portalBus, pictures);
    portal.image = QImage(1920, 1080, QImage::Format_RGB32);
    portal.image.fill(Qt::darkCyan);
    ASSERT_TRUE(portal.publish());
    PortalScreenGrabber grabber(clientBus);
    ScreenCaptureService portalCapture(&grabber, nullptr, ScreenCaptureService::SessionType::Wayland);
    buildServices(&portalCapture);

    for (int i = 0; i < 20; ++i) {
        tick();
        ASSERT_FALSE(portal.writtenFile.isEmpty());
        EXPECT_FALSE(QFile::exists(portal.writtenFile)) << "tick " << i << " left the portal's file";
    }
    EXPECT_EQ(snapshotStore->count(), 20);
    EXPECT_EQ(imageFilesUnder({home.path(), temp.path()}), QStringList());
    endMonitor();
}

// The session token goes to the backend in the Authorization header and nowhere else: not in the
// event log, not in any developer output, not in any file but credentials.plist, which only its
// owner can read, whatever the process's umask.
TEST_F(PrivacyTest, SessionTokenAppearsInNoLogOutputOrOtherFile)
{
    const QString token = u"tok-Secret-7f3a9c1e5b"_s;
    const QString oneTime = u"link-Secret-0d4e"_s;
    const mode_t previousMask = ::umask(0);
    CapturedOutput output;
    buildServices();
    tick();
    tick();

    StandInServer backend;
    settings->setString(SettingsKey::convexURL, backend.url().toString());
    const AppConfig config(settings.get(), QString(), u"http://127.0.0.1:9"_s, {});
    backend.on("POST", "/auth/verify-token",
        StandInServer::Reply {200,
            (u"{\"sessionToken\":\""_s + token + u"\",\"user\":{\"id\":\"u1\",\"email\":\"a@example.com\"}}"_s)
                .toUtf8()});
    AuthService auth(&nam, config, paths.credentialsDir);
    QCoro::waitFor(auth.verifyMagicLinkToken(oneTime));
    ASSERT_TRUE(auth.isAuthenticated()) << auth.error().value_or(QString()).toStdString();
    EXPECT_EQ(QFile::permissions(paths.credentialsFile()),
        QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadUser | QFileDevice::WriteUser);

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

    QStringList said = messages() + CapturedOutput::lines();
    said.append(auth.error().value_or(QString()));
    said.append(sync.lastError().value_or(QString()));
    for (const QString &line : std::as_const(said)) {
        EXPECT_FALSE(line.contains(token)) << "the session token is in: " << line.toStdString();
        EXPECT_FALSE(line.contains(oneTime)) << "the sign-in link's token is in: " << line.toStdString();
    }
    for (const QString &file : {paths.settingsFile, paths.snapshotsFile(), paths.dailyReportsFile()}) {
        EXPECT_FALSE(contentOf(file).contains(token.toUtf8())) << file.toStdString();
    }
    ASSERT_GT(backend.requests().size(), 5);
    for (const StandInServer::Request &request : backend.requests()) {
        EXPECT_FALSE(request.body.contains(token.toUtf8())) << request.path.toStdString();
        EXPECT_FALSE(request.query.contains(token.toUtf8())) << request.path.toStdString();
        if (request.path != "/auth/verify-token") {
            EXPECT_EQ(request.headers.value("authorization"), "Bearer " + token.toUtf8());
        }
    }
}

// The folders that hold the records and the session are the user's alone.
TEST_F(PrivacyTest, DataFoldersAreOwnerOnly)
{
    buildServices();
    tick();
    KeychainService storage(paths.credentialsDir, u"mirevon.Tamlo"_s);
    storage.setValue(u"x"_s, u"sessionToken"_s);
    for (const QString &dir : {paths.dataDir, paths.credentialsDir}) {
        struct stat info
        {
        };
        ASSERT_EQ(::stat(dir.toLocal8Bit().constData(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0700u) << dir.toStdString();
    }
}
} // namespace
