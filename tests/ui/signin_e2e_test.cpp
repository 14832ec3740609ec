// A new user's sign-in against a real tamlo-server process: the sign-in screen opens the server's
// page, a browser fills it in and follows it to the tamlo://auth callback, the URL router hands
// the token over, and the gate's periodic sync uploads today's records to the server.
#include "account/activitysyncservice.h"
#include "account/authservice.h"
#include "account/urlrouter.h"
#include "core/activitysnapshot.h"
#include "core/activitysnapshotstore.h"
#include "core/apppaths.h"
#include "core/clock.h"
#include "core/logmanager.h"
#include "core/settings.h"
#include "core/tamlodatapaths.h"
#include "ui/appgatemodel.h"
#include "ui/loginviewmodel.h"
#include "uitestenvironment.h"

#include <algorithm>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <QTextDocumentFragment>
#include <QUrlQuery>
#include <QUuid>

#include <unistd.h>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
const QString email = u"ada@example.org"_s;
using Fields = QList<std::pair<QString, QString>>;

struct Page
{
    int status = 0;
    QString html;
};

// What a browser does with the pages the app opens: load them, submit their form, and follow the
// page's refresh to where it leads.
class Browser
{
public:
    Page get(const QUrl &url) { return finish(m_nam.get(QNetworkRequest(url))); }

    // Fills in the page's one form with these fields (its hidden fields included) and submits it.
    Page submit(const QUrl &pageUrl, const Page &page, const Fields &fields)
    {
        static const QRegularExpression formPattern(u"<form method=\"post\" action=\"([^\"]*)\""_s);
        static const QRegularExpression hiddenPattern(
            u"<input type=\"hidden\" name=\"([^\"]+)\" value=\"([^\"]*)\">"_s);
        const QRegularExpressionMatch form = formPattern.match(page.html);
        EXPECT_TRUE(form.hasMatch()) << page.html.toStdString();
        QUrlQuery body;
        for (auto it = hiddenPattern.globalMatch(page.html); it.hasNext();) {
            const QRegularExpressionMatch hidden = it.next();
            body.addQueryItem(hidden.captured(1), unescaped(hidden.captured(2)));
        }
        for (const auto &[name, value] : fields) {
            body.addQueryItem(name, value);
        }
        QNetworkRequest request(pageUrl.resolved(QUrl(unescaped(form.captured(1)))));
        request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArray("application/x-www-form-urlencoded"));
        return finish(m_nam.post(request, body.toString(QUrl::FullyEncoded).toUtf8()));
    }

    // The page's form filled in and sent: the address it sends the browser on to, as the desktop
    // would hand it to Tamlo.
    QString callbackFrom(const QUrl &pageUrl, const Fields &fields)
    {
        const Page form = get(pageUrl);
        EXPECT_EQ(form.status, 200) << form.html.toStdString();
        const Page answer = submit(pageUrl, form, fields);
        EXPECT_EQ(answer.status, 200) << answer.html.toStdString();
        static const QRegularExpression refresh(u"<meta http-equiv=\"refresh\" content=\"0;url=([^\"]+)\">"_s);
        const QRegularExpressionMatch match = refresh.match(answer.html);
        EXPECT_TRUE(match.hasMatch()) << answer.html.toStdString();
        return unescaped(match.captured(1));
    }

private:
    static QString unescaped(const QString &html) { return QTextDocumentFragment::fromHtml(html).toPlainText(); }

    static Page finish(QNetworkReply *reply)
    {
        QSignalSpy finished(reply, &QNetworkReply::finished);
        EXPECT_TRUE(reply->isFinished() || finished.wait(10000));
        Page page {
            reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), QString::fromUtf8(reply->readAll())};
        reply->deleteLater();
        return page;
    }

    QNetworkAccessManager m_nam;
};

// Today's record as an earlier run left it, for the sign-in to upload.
QUuid addRecord(ActivitySnapshotStore &store, const Clock &clock)
{
    const QUuid id = QUuid::createUuid();
    store.add(ActivitySnapshot {.id = id,
        .timestamp = clock.now().addSecs(-60),
        .aiCategory = u"Coding"_s,
        .imageHash = u"9f86d081884c7d659a2feaa0c55ad015"_s,
        .projectName = u"Website"_s});
    return id;
}

class SignInEndToEndTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QTcpServer probe;
        ASSERT_TRUE(probe.listen(QHostAddress::LocalHost, 0));
        m_port = probe.serverPort();
        probe.close();

        m_server.setProgram(QStringLiteral(TAMLO_SERVER_EXECUTABLE));
        m_server.setArguments({u"--listen"_s, u"127.0.0.1:%1"_s.arg(m_port), u"--data"_s, m_serverData.path()});
        m_server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_server.start();
        ASSERT_TRUE(m_server.waitForStarted(10000));
        QTcpSocket socket;
        for (int attempt = 0; attempt < 100 && socket.state() != QAbstractSocket::ConnectedState; ++attempt) {
            socket.connectToHost(QHostAddress::LocalHost, m_port);
            if (!socket.waitForConnected(100)) {
                socket.abort();
                QTest::qWait(100);
            }
        }
        ASSERT_EQ(socket.state(), QAbstractSocket::ConnectedState) << "tamlo-server did not come up";
    }

    void TearDown() override
    {
        if (m_server.state() != QProcess::NotRunning) {
            m_server.terminate();
            if (!m_server.waitForFinished(5000)) {
                m_server.kill();
                m_server.waitForFinished(5000);
            }
        }
    }

    [[nodiscard]] QString baseUrl() const { return u"http://127.0.0.1:%1"_s.arg(m_port); }

    // The server's admin command; its output when it succeeded.
    QByteArray serverAdmin(const QStringList &arguments)
    {
        QProcess admin;
        admin.start(
            QStringLiteral(TAMLO_SERVER_EXECUTABLE), QStringList {u"--data"_s, m_serverData.path()} + arguments);
        EXPECT_TRUE(admin.waitForFinished(10000));
        EXPECT_EQ(admin.exitCode(), 0) << admin.readAllStandardError().toStdString();
        return admin.readAllStandardOutput();
    }

    // The server's own record of the user's days.
    QJsonObject serverExport() { return QJsonDocument::fromJson(serverAdmin({u"export"_s, email})).object(); }

    QTemporaryDir m_serverData;
    QProcess m_server;
    quint16 m_port = 0;
};

#ifdef TAMLO_EXECUTABLE
// The program itself, as a new user meets it: a first `tamlo` runs, and the desktop hands the
// sign-in callback and later "tamlo://sync" to a second `tamlo URL`, which passes them on.
class ProgramSignInTest : public SignInEndToEndTest
{
protected:
    void SetUp() override
    {
        SignInEndToEndTest::SetUp();
        ASSERT_TRUE(m_home.isValid());
        QDir(m_home.path()).mkpath(u"tmp"_s);
        QDir(m_home.path()).mkpath(u"run"_s);
        QFile::setPermissions(m_home.filePath(u"run"_s), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        m_env = QProcessEnvironment::systemEnvironment();
        m_env.insert(u"HOME"_s, m_home.path());
        for (const QString &name : {u"XDG_DATA_HOME"_s, u"XDG_CONFIG_HOME"_s, u"XDG_CACHE_HOME"_s, u"DISPLAY"_s,
                 u"WAYLAND_DISPLAY"_s, u"XDG_SESSION_TYPE"_s}) {
            m_env.remove(name);
        }
        // Its own folder for the instance's socket, and buses that do not exist.
        m_env.insert(u"TMPDIR"_s, m_home.filePath(u"tmp"_s));
        m_env.insert(u"XDG_RUNTIME_DIR"_s, m_home.filePath(u"run"_s));
        m_env.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, u"unix:path="_s + m_home.filePath(u"run/no-bus"_s));
        m_env.insert(u"DBUS_SYSTEM_BUS_ADDRESS"_s, u"unix:path="_s + m_home.filePath(u"run/no-bus"_s));
        m_env.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    }

    void TearDown() override
    {
        if (m_tamlo.state() != QProcess::NotRunning) {
            m_tamlo.kill();
            m_tamlo.waitForFinished(5000);
        }
        SignInEndToEndTest::TearDown();
    }

    // `tamlo URL`, which hands the URL to the running instance and ends.
    void open(const QString &url)
    {
        QProcess second;
        second.setProcessEnvironment(m_env);
        second.setProcessChannelMode(QProcess::ForwardedChannels);
        second.start(QStringLiteral(TAMLO_EXECUTABLE), {url});
        ASSERT_TRUE(second.waitForFinished(20000));
        EXPECT_EQ(second.exitCode(), 0);
    }

    // Days as the server holds them, once it holds one.
    QJsonArray serverDays()
    {
        for (int attempt = 0; attempt < 100; ++attempt) {
            const QJsonArray days = serverExport().value(u"days"_s).toArray();
            if (!days.isEmpty()) {
                return days;
            }
            QTest::qWait(200);
        }
        return {};
    }

    QString lastUploadAt()
    {
        return serverExport().value(u"devices"_s).toArray().first()[u"lastUploadAt"_s].toString();
    }

    QTemporaryDir m_home;
    QProcessEnvironment m_env;
    QProcess m_tamlo;
};

TEST_F(ProgramSignInTest, CallbackHandedToTheRunningProgramSignsInUploadsAndSignsOutWhenTheAccountGoes)
{
    const AppPaths paths = AppPaths::underHome(m_home.path());
    SystemClock clock;
    QUuid recorded;
    {
        Settings settings(paths.settingsFile);
        settings.setString(SettingsKey::convexURL, baseUrl());
        LogManager log(&clock);
        ActivitySnapshotStore store(paths.snapshotsFile(), &log, &settings, &clock);
        recorded = addRecord(store, clock);
    }

    m_tamlo.setProcessEnvironment(m_env);
    m_tamlo.setProcessChannelMode(QProcess::ForwardedChannels);
    m_tamlo.start(QStringLiteral(TAMLO_EXECUTABLE), {});
    ASSERT_TRUE(m_tamlo.waitForStarted(10000));
    const QString socket = m_home.filePath(u"tmp/tamlo-%1"_s.arg(::getuid()));
    for (int attempt = 0; attempt < 200 && !QFile::exists(socket); ++attempt) {
        QTest::qWait(100);
    }
    ASSERT_TRUE(QFile::exists(socket)) << "the first tamlo never became the instance";

    open(Browser().callbackFrom(
        QUrl(baseUrl() + u"/register?redirect=tamlo%3A%2F%2Fauth"_s), {{u"email"_s, email}, {u"name"_s, u"Ada"_s}}));

    const QJsonArray days = serverDays();
    ASSERT_EQ(days.size(), 1);
    EXPECT_EQ(days.first()[u"date"_s].toString(), TamloDataPaths::dateLabel(clock.now()));
    // An Ollama running on this machine may add records of its own; the seeded one must be there.
    const QJsonArray snapshots = days.first()[u"snapshots"_s].toArray();
    const QString recordedId = recorded.toString(QUuid::WithoutBraces).toUpper();
    EXPECT_TRUE(std::any_of(snapshots.begin(), snapshots.end(),
        [&](const QJsonValue &snapshot) { return snapshot[u"id"_s].toString().toUpper() == recordedId; }));
    // The session is a binary property list only the owner may read; the "user" bits repeat the
    // owner's for the current user.
    QFile credentials(paths.credentialsFile());
    ASSERT_TRUE(credentials.open(QIODevice::ReadOnly));
    EXPECT_TRUE(credentials.read(8) == "bplist00");
    EXPECT_EQ(credentials.permissions() & ~(QFile::ReadUser | QFile::WriteUser | QFile::ExeUser),
        QFile::ReadOwner | QFile::WriteOwner);
    credentials.close();

    // tamlo://sync uploads again at once, although the last upload is only seconds old; the
    // server's upload times are whole seconds.
    QTest::qWait(1100);
    const QString first = lastUploadAt();
    open(u"tamlo://sync"_s);
    QString latest = first;
    for (int attempt = 0; attempt < 50 && latest == first; ++attempt) {
        QTest::qWait(200);
        latest = lastUploadAt();
    }
    EXPECT_NE(latest, first);

    // The account goes on the server: the next upload is refused, the session check confirms it,
    // and the program signs out and forgets the session while it keeps running.
    serverAdmin({u"user"_s, u"delete"_s, email});
    open(u"tamlo://sync"_s);
    for (int attempt = 0; attempt < 50 && QFile::exists(paths.credentialsFile()); ++attempt) {
        QTest::qWait(200);
    }
    EXPECT_FALSE(QFile::exists(paths.credentialsFile()));
    EXPECT_EQ(m_tamlo.state(), QProcess::Running);
}
#endif

// The screens' side of the same sign-in, in process: the server's verdict on an unknown address
// reaches the sign-in screen, and its registration page signs the new user in. What the program
// test above proves (the upload's content, the stored session, tamlo://sync) is not repeated.
TEST_F(SignInEndToEndTest, UnknownAddressShowsTheServersVerdictAndRegistrationSignsIn)
{
    QTemporaryDir home;
    const AppPaths paths = AppPaths::underHome(home.path());
    Settings settings(paths.settingsFile);
    settings.setString(SettingsKey::convexURL, baseUrl());
    SystemClock clock;
    LogManager log(&clock);
    ActivitySnapshotStore store(paths.snapshotsFile(), &log, &settings, &clock);
    addRecord(store, clock);
    QNetworkAccessManager nam;
    const AppConfig config(&settings, QString(), u"http://127.0.0.1:1"_s, baseUrl());
    AuthService auth(&nam, config, paths.credentialsDir);
    ActivitySyncService sync(&store, &auth, &nam, config, &settings, &log, &clock);
    AppGateModel gate(&auth, &sync);
    RecordingDesktop desktop;
    LoginViewModel login(&auth, config, &desktop);
    UrlRouter router(&auth, &sync);
    Browser browser;

    gate.appeared();
    ASSERT_EQ(gate.screen(), AppGateModel::Screen::Login);

    login.openWebLogin();
    ASSERT_EQ(desktop.openedUrls.size(), 1);
    const QString callback = browser.callbackFrom(desktop.openedUrls.last(), {{u"email"_s, email}});
    EXPECT_TRUE(callback.startsWith(u"tamlo://auth?token="_s)) << callback.toStdString();
    QSignalSpy loading(&auth, &AuthService::isLoadingChanged);
    router.handleURL(callback);
    ASSERT_TRUE(loading.wait(5000));
    EXPECT_EQ(login.phase(), LoginViewModel::Phase::Verifying);
    while (auth.isLoading()) {
        ASSERT_TRUE(loading.wait(10000));
    }
    EXPECT_EQ(login.phase(), LoginViewModel::Phase::Waiting);
    EXPECT_EQ(login.errorText(), u"Account not found. Please register on Tamloweb."_s);
    EXPECT_EQ(gate.screen(), AppGateModel::Screen::Login);

    // "Back", then "Create an account": the registration page makes the account and calls back.
    login.back();
    login.createAccount();
    ASSERT_EQ(desktop.openedUrls.size(), 2);
    EXPECT_EQ(desktop.openedUrls.last().path(), u"/register"_s);
    QSignalSpy gateChanges(&gate, &AppGateModel::isAuthenticatedChanged);
    QSignalSpy synced(&sync, &ActivitySyncService::lastSyncDateChanged);
    router.handleURL(browser.callbackFrom(desktop.openedUrls.last(), {{u"email"_s, email}, {u"name"_s, u"Ada"_s}}));
    ASSERT_TRUE(gateChanges.wait(10000));
    EXPECT_EQ(auth.currentUser()->email, email);
    EXPECT_EQ(gate.screen(), AppGateModel::Screen::Content);
    EXPECT_TRUE(sync.isPeriodicSyncRunning());
    EXPECT_FALSE(login.showsError());
    // The signed-in start uploads today at once.
    ASSERT_TRUE(synced.count() > 0 || synced.wait(10000)) << sync.lastError().value_or(QString()).toStdString();
    EXPECT_FALSE(sync.lastError().has_value());
    sync.stopPeriodicSync();
}
} // namespace
