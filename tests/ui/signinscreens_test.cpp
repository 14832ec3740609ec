#include "account/activitysyncservice.h"
#include "account/authservice.h"
#include "account/sessionsync.h"
#include "qmlscreentest.h"
#include "ui/appgatemodel.h"
#include "ui/loginviewmodel.h"
#include "uitestenvironment.h"

#include <QDir>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTcpServer>
#include <QtQml/qqmlextensionplugin.h>

#include <gtest/gtest.h>

Q_IMPORT_QML_PLUGIN(Tamlo_UiPlugin)

using namespace Qt::StringLiterals;

namespace {
using Phase = LoginViewModel::Phase;

// The panel's gate over real services: the sign-in screen until the stand-in backend accepts a
// token, the main screen after. Each phase is drawn offscreen and written as a picture.
class SignInScreensTest : public QmlScreenTest
{
protected:
    SignInScreensTest()
    {
        m_backend.on("POST", "/activity/sync", StandInServer::Reply {.status = 200, .body = "{}"});
        m_backend.on("GET", "/activity/status", StandInServer::Reply {.status = 200, .body = "{}"});
        env.settings.setBoolean(SettingsKey::didCompleteInitialSetup, true);
    }

    // The view goes before the models it shows.
    ~SignInScreensTest() override { m_view.reset(); }

    void show(LoginViewModel *login = nullptr)
    {
        m_view = std::make_unique<QQuickView>();
        m_view->engine()->addImportPath(u"qrc:/"_s);
        m_view->setInitialProperties(
            {{u"gate"_s, QVariant::fromValue(&m_gate)}, {u"login"_s, QVariant::fromValue(login ? login : &m_login)},
                {u"main"_s, QVariant::fromValue(m_main.get())}});
        m_view->setResizeMode(QQuickView::SizeViewToRootObject);
        m_view->setSource(QUrl(u"qrc:/Tamlo/Ui/qml/AppGateView.qml"_s));
        ASSERT_EQ(m_view->status(), QQuickView::Ready) << m_view->errors().value(0).toString().toStdString();
        m_view->rootObject()->setSize(QSizeF(320, 600));
        m_view->show();
    }

    static StandInServer::Reply signedIn(int delayMs)
    {
        return StandInServer::Reply {.status = 200,
            .body = R"({"sessionToken":"sess-1","user":{"id":"u1","email":"ada@example.com"}})",
            .delayMs = delayMs};
    }

    // A callback's token exchange, answered by the stand-in backend with this reply.
    void verify(const StandInServer::Reply &reply)
    {
        m_backend.on("POST", "/auth/verify-token", reply);
        QCoro::waitFor(m_auth.verifyMagicLinkToken(u"magic"_s));
    }

    [[nodiscard]] QString lastPage() const
    {
        return env.desktop.openedUrls.value(env.desktop.openedUrls.size() - 1).toString();
    }

    // Whether an item of that name is on screen now.
    bool shows(const char *objectName)
    {
        const auto *item = m_view->rootObject()->findChild<QQuickItem *>(QString::fromLatin1(objectName));
        return item && item->isVisible();
    }

    UiTestEnvironment env;
    StandInServer m_backend;
    AppConfig m_config {&env.settings, QString(), m_backend.url().toString(), u"https://web.example"_s};
    AuthService m_auth {&env.nam, m_config, env.paths.credentialsDir};
    ActivitySyncService m_sync {
        &env.snapshotStore, &m_auth, &env.nam, m_config, &env.settings, &env.logManager, &env.clock};
    SessionSync m_sessionSync {&m_auth, &m_sync};
    AppGateModel m_gate {&m_auth};
    LoginViewModel m_login {&m_auth, m_config, &env.desktop};
    std::unique_ptr<MainScreenModel> m_main = env.makeMainScreen();
};
} // namespace

// One user's way through the sign-in: each phase drawn, with its message, the page it opened and
// what the gate made of it.
TEST_F(SignInScreensTest, EachPhaseOfTheSignInThenTheMainScreen)
{
    const QString expiredLink = u"This sign-in link has expired. Please log in again on Tamloweb."_s;
    QList<Phase> phases;
    QObject::connect(&m_login, &LoginViewModel::phaseChanged, &m_login, [&] { phases.append(m_login.phase()); });
    QSignalSpy gateChanges(&m_gate, &AppGateModel::isAuthenticatedChanged);
    ASSERT_NO_FATAL_FAILURE(show());
    EXPECT_EQ(m_login.phase(), Phase::Login);
    EXPECT_TRUE(shows("logInButton"));
    EXPECT_FALSE(shows("openAgainButton"));
    EXPECT_EQ(m_gate.menuBarSymbol(), u"circle.dotted"_s);
    capture(u"signin-1-login"_s);

    // A callback without "Log in" in this run still shows the verification.
    verify(StandInServer::Reply {.status = 410});
    EXPECT_EQ(phases, (QList<Phase> {Phase::Verifying, Phase::Login}));
    EXPECT_EQ(m_login.errorText(), expiredLink);
    EXPECT_TRUE(shows("logInButton"));
    capture(u"signin-2-login-error"_s);

    // "Create an account" opens registration and changes nothing else.
    m_login.createAccount();
    EXPECT_EQ(lastPage(), u"https://web.example/register?redirect=tamlo://auth"_s);
    EXPECT_EQ(phases.size(), 2);
    EXPECT_EQ(m_login.errorText(), expiredLink);

    // "Log in" is a new attempt: the message goes first.
    QSignalSpy errorChanges(&m_login, &LoginViewModel::errorChanged);
    m_login.openWebLogin();
    EXPECT_FALSE(m_login.showsError());
    EXPECT_EQ(errorChanges.count(), 1);
    EXPECT_EQ(m_login.phase(), Phase::Waiting);
    EXPECT_EQ(lastPage(), u"https://web.example/login?redirect=tamlo://auth"_s);
    EXPECT_FALSE(shows("logInButton"));
    EXPECT_TRUE(shows("openAgainButton"));
    capture(u"signin-3-waiting"_s);

    // A failure while waiting keeps waiting, with the message, until "Back".
    phases.clear();
    verify(StandInServer::Reply {.status = 404, .body = R"({"error":"user not found"})"});
    EXPECT_EQ(phases, (QList<Phase> {Phase::Verifying, Phase::Waiting}));
    EXPECT_EQ(m_login.errorText(), u"Account not found. Please register on Tamloweb."_s);
    EXPECT_TRUE(shows("openAgainButton"));
    capture(u"signin-4-waiting-error"_s);
    m_login.openWebLogin();
    EXPECT_FALSE(m_login.showsError());
    EXPECT_EQ(env.desktop.openedUrls.size(), 3);
    verify(StandInServer::Reply {.status = 410});
    EXPECT_EQ(m_login.phase(), Phase::Waiting);
    EXPECT_TRUE(m_login.showsError());
    m_login.back();
    EXPECT_EQ(m_login.phase(), Phase::Login);
    EXPECT_FALSE(m_login.showsError());
    EXPECT_EQ(env.desktop.openedUrls.size(), 3);
    EXPECT_EQ(gateChanges.count(), 0);

    m_login.openWebLogin();
    m_backend.on("POST", "/auth/verify-token", signedIn(1500));
    auto verification = m_auth.verifyMagicLinkToken(u"magic"_s);
    ASSERT_TRUE(m_auth.isLoading());
    EXPECT_FALSE(shows("logInButton"));
    capture(u"signin-5-verifying"_s);

    // Signed in: the main screen, the filled tray icon and the periodic sync, the waiting over.
    QCoro::waitFor(std::move(verification));
    ASSERT_TRUE(m_auth.isAuthenticated());
    EXPECT_EQ(gateChanges.count(), 1);
    EXPECT_EQ(m_gate.screen(), AppGateModel::Screen::Content);
    EXPECT_EQ(m_gate.menuBarSymbol(), u"circle.fill"_s);
    EXPECT_TRUE(m_sync.isPeriodicSyncRunning());
    EXPECT_FALSE(m_login.openedWebLogin());
    EXPECT_FALSE(m_login.showsError());
    EXPECT_FALSE(shows("logInButton"));
    capture(u"signin-6-main-screen"_s);
    // A second sign-in while signed in changes nothing that the gate sees.
    verify(signedIn(0));
    EXPECT_EQ(gateChanges.count(), 1);

    // Signed out, everything starts over.
    m_auth.logout();
    EXPECT_EQ(gateChanges.count(), 2);
    EXPECT_EQ(m_login.phase(), Phase::Login);
    EXPECT_EQ(m_gate.menuBarSymbol(), u"circle.dotted"_s);
    EXPECT_TRUE(shows("logInButton"));
    EXPECT_FALSE(m_sync.isPeriodicSyncRunning());
}

// A build whose own server on this machine is not running says how to start it, rather than
// offering a page that cannot load, and offers "Log in" once something answers there.
TEST_F(SignInScreensTest, TellsHowToStartTheLocalServerUntilItAnswers)
{
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    const quint16 port = server.serverPort();
    server.close();
    const QString address = u"127.0.0.1:%1"_s.arg(port);
    // Signed in, the screen is not shown; signing out looks.
    verify(signedIn(0));
    LoginViewModel login(&m_auth, AppConfig(&env.settings, {}, u"http://"_s + address, {}), &env.desktop);
    QSignalSpy changes(&login, &LoginViewModel::localServerMissingChanged);
    m_auth.logout();
    ASSERT_TRUE(changes.wait());
    ASSERT_NO_FATAL_FAILURE(show(&login));
    EXPECT_TRUE(shows("startServerSection"));
    EXPECT_FALSE(shows("logInButton"));
    EXPECT_TRUE(login.localServerText().contains(address));
    capture(u"signin-7-start-server"_s);

    // A backend named in the settings is not this build's own to start.
    env.settings.setString(SettingsKey::convexURL, u"http://"_s + address);
    login.checkLocalServer();
    EXPECT_FALSE(login.localServerMissing());
    env.settings.remove(SettingsKey::convexURL);
    login.checkLocalServer();
    ASSERT_TRUE(changes.wait());

    ASSERT_TRUE(server.listen(QHostAddress::LocalHost, port));
    login.checkLocalServer();
    ASSERT_TRUE(changes.wait());
    EXPECT_TRUE(shows("logInButton"));
    EXPECT_FALSE(shows("startServerSection"));
    m_view.reset();
}
