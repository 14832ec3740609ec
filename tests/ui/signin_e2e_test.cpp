// The program itself, as a new user meets it, against a real tamlo-server process: a first
// `tamlo` runs, a browser registers on the server's page and follows it to the tamlo://auth
// callback, and the desktop hands that and later "tamlo://sync" to a second `tamlo URL`, which
// passes them on. The account services' own flow against the server is tested with the server.
#include "core/activitysnapshot.h"
#include "core/activitysnapshotstore.h"
#include "core/apppaths.h"
#include "core/clock.h"
#include "core/logmanager.h"
#include "core/settings.h"
#include "core/tamlodatapaths.h"

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

#ifdef TAMLO_EXECUTABLE
namespace {
const QString email = u"ada@example.org"_s;

QString unescaped(const QString &html)
{
    return QTextDocumentFragment::fromHtml(html).toPlainText();
}

// What a browser reads of a page it loads or a form it submits.
QString load(QNetworkReply *reply)
{
    QSignalSpy finished(reply, &QNetworkReply::finished);
    EXPECT_TRUE(reply->isFinished() || finished.wait(10000));
    EXPECT_EQ(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 200)
        << reply->url().toString().toStdString();
    reply->deleteLater();
    return QString::fromUtf8(reply->readAll());
}

class ProgramSignInTest : public ::testing::Test
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
        m_tamlo.kill();
        m_tamlo.waitForFinished(5000);
        m_server.terminate();
        if (!m_server.waitForFinished(5000)) {
            m_server.kill();
            m_server.waitForFinished(5000);
        }
    }

    [[nodiscard]] QString baseUrl() const { return u"http://127.0.0.1:%1"_s.arg(m_port); }

    // A browser's round through the server's registration page, its hidden fields included: the
    // callback its refresh leads to.
    [[nodiscard]] QString registrationCallback() const
    {
        static const QRegularExpression formPattern(u"<form method=\"post\" action=\"([^\"]*)\""_s);
        static const QRegularExpression hiddenPattern(
            u"<input type=\"hidden\" name=\"([^\"]+)\" value=\"([^\"]*)\">"_s);
        static const QRegularExpression refresh(u"<meta http-equiv=\"refresh\" content=\"0;url=([^\"]+)\">"_s);
        QNetworkAccessManager nam;
        const QUrl pageUrl(baseUrl() + u"/register?redirect=tamlo%3A%2F%2Fauth"_s);
        const QString page = load(nam.get(QNetworkRequest(pageUrl)));
        const QRegularExpressionMatch form = formPattern.match(page);
        EXPECT_TRUE(form.hasMatch()) << page.toStdString();
        QUrlQuery body {{u"email"_s, email}, {u"name"_s, u"Ada"_s}};
        for (auto it = hiddenPattern.globalMatch(page); it.hasNext();) {
            const QRegularExpressionMatch hidden = it.next();
            body.addQueryItem(hidden.captured(1), unescaped(hidden.captured(2)));
        }
        QNetworkRequest request(pageUrl.resolved(QUrl(unescaped(form.captured(1)))));
        request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArray("application/x-www-form-urlencoded"));
        const QString answer = load(nam.post(request, body.toString(QUrl::FullyEncoded).toUtf8()));
        const QRegularExpressionMatch match = refresh.match(answer);
        EXPECT_TRUE(match.hasMatch()) << answer.toStdString();
        return unescaped(match.captured(1));
    }

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

    // The server's own record of the user's days and devices.
    QJsonObject serverExport() { return QJsonDocument::fromJson(serverAdmin({u"export"_s, email})).object(); }

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

    QTemporaryDir m_serverData;
    QProcess m_server;
    quint16 m_port = 0;
    QTemporaryDir m_home;
    QProcessEnvironment m_env;
    QProcess m_tamlo;
};

TEST_F(ProgramSignInTest, CallbackHandedToTheRunningProgramSignsInUploadsAndSignsOutWhenTheAccountGoes)
{
    const AppPaths paths = AppPaths::underHome(m_home.path());
    SystemClock clock;
    const QUuid recorded = QUuid::createUuid();
    {
        Settings settings(paths.settingsFile);
        settings.setString(SettingsKey::convexURL, baseUrl());
        LogManager log(&clock);
        ActivitySnapshotStore store(paths.snapshotsFile(), &log, &settings, &clock);
        store.add(ActivitySnapshot {.id = recorded,
            .timestamp = clock.now().addSecs(-60),
            .aiCategory = u"Coding"_s,
            .imageHash = u"9f86d081884c7d659a2feaa0c55ad015"_s,
            .projectName = u"Website"_s});
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

    open(registrationCallback());

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
} // namespace
#endif
