#include "account/authservice.h"
#include "qmlscreentest.h"
#include "ui/appgatemodel.h"
#include "ui/loginviewmodel.h"

#include <QTcpServer>

using namespace Qt::StringLiterals;

namespace {
using Phase = LoginViewModel::Phase;

// The panel's gate over real services: the sign-in screen until the stand-in backend accepts a
// token, the main screen after.
class SignInScreensTest : public QmlScreenTest
{
protected:
    void SetUp() override
    {
        QmlScreenTest::SetUp();
        settings->setBoolean(SettingsKey::didCompleteInitialSetup, true);
        makeMain();
        const AppConfig config(settings.get(), QString(), backend.url().toString(), u"https://web.example"_s);
        auth = std::make_unique<AuthService>(&nam, config, paths.credentialsDir);
        gate = std::make_unique<AppGateModel>(auth.get());
        login = std::make_unique<LoginViewModel>(auth.get(), config, &desktop);
    }

    void TearDown() override
    {
        m_view.reset();
        login.reset();
        QmlScreenTest::TearDown();
    }

    void showGate(LoginViewModel *model)
    {
        show(u"AppGateView.qml"_s,
            {{u"gate"_s, QVariant::fromValue(gate.get())}, {u"login"_s, QVariant::fromValue(model)},
                {u"main"_s, QVariant::fromValue(main.get())}});
    }

    // A callback's token exchange, which the stand-in backend answers so.
    void verify(const StandInServer::Reply &reply)
    {
        backend.on("POST", "/auth/verify-token", reply);
        QCoro::waitFor(auth->verifyMagicLinkToken(u"magic"_s));
    }

    [[nodiscard]] QString lastPage() const
    {
        return desktop.openedUrls.value(desktop.openedUrls.size() - 1).toString();
    }

    StandInServer backend;
    std::unique_ptr<AuthService> auth;
    std::unique_ptr<AppGateModel> gate;
    std::unique_ptr<LoginViewModel> login;
};

const StandInServer::Reply signedIn {.status = 200,
    .body = R"({"sessionToken":"sess-1","user":{"id":"u1","email":"ada@example.com"}})",
    .delayMs = 1500};
} // namespace

// One user's way through the sign-in: each phase drawn, with its message, the page it opened and
// what the gate made of it.
TEST_F(SignInScreensTest, EachPhaseOfTheSignInThenTheMainScreen)
{
    const QString expiredLink = u"This sign-in link has expired. Please log in again on Tamloweb."_s;
    QList<Phase> phases;
    QObject::connect(login.get(), &LoginViewModel::phaseChanged, login.get(), [&] { phases.append(login->phase()); });
    ASSERT_NO_FATAL_FAILURE(showGate(login.get()));
    EXPECT_TRUE(shows("logInButton") && !shows("openAgainButton"));
    EXPECT_EQ(gate->menuBarSymbol(), u"circle.dotted"_s);
    capture(u"signin-1-login"_s);

    // A callback without "Log in" in this run still shows the verification.
    verify(StandInServer::Reply {.status = 410});
    EXPECT_EQ(phases, (QList<Phase> {Phase::Verifying, Phase::Login}));
    EXPECT_EQ(login->errorText(), expiredLink);
    capture(u"signin-2-login-error"_s);

    // "Create an account" opens registration and changes nothing else; "Log in" drops the message.
    login->createAccount();
    EXPECT_EQ(lastPage(), u"https://web.example/register?redirect=tamlo://auth"_s);
    EXPECT_EQ(login->errorText(), expiredLink);
    login->openWebLogin();
    EXPECT_FALSE(login->showsError());
    EXPECT_EQ(login->phase(), Phase::Waiting);
    EXPECT_EQ(lastPage(), u"https://web.example/login?redirect=tamlo://auth"_s);
    EXPECT_TRUE(!shows("logInButton") && shows("openAgainButton"));
    capture(u"signin-3-waiting"_s);

    // A failure while waiting keeps waiting, with the message, until "Back".
    phases.clear();
    verify(StandInServer::Reply {.status = 404, .body = R"({"error":"user not found"})"});
    EXPECT_EQ(phases, (QList<Phase> {Phase::Verifying, Phase::Waiting}));
    EXPECT_EQ(login->errorText(), u"Account not found. Please register on Tamloweb."_s);
    capture(u"signin-4-waiting-error"_s);
    login->back();
    EXPECT_EQ(login->phase(), Phase::Login);
    EXPECT_FALSE(login->showsError());
    EXPECT_EQ(desktop.openedUrls.size(), 2);

    login->openWebLogin();
    backend.on("POST", "/auth/verify-token", signedIn);
    auto verification = auth->verifyMagicLinkToken(u"magic"_s);
    ASSERT_TRUE(auth->isLoading());
    EXPECT_FALSE(shows("logInButton"));
    capture(u"signin-5-verifying"_s);

    // Signed in: the main screen and the filled tray icon, the waiting over.
    QCoro::waitFor(std::move(verification));
    EXPECT_EQ(gate->screen(), AppGateModel::Screen::Content);
    EXPECT_EQ(gate->menuBarSymbol(), u"circle.fill"_s);
    EXPECT_FALSE(login->openedWebLogin());
    EXPECT_FALSE(shows("logInButton"));
    capture(u"signin-6-main-screen"_s);

    // Signed out, everything starts over.
    auth->logout();
    EXPECT_EQ(login->phase(), Phase::Login);
    EXPECT_EQ(gate->menuBarSymbol(), u"circle.dotted"_s);
    EXPECT_TRUE(shows("logInButton"));
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
    LoginViewModel local(auth.get(), AppConfig(settings.get(), {}, u"http://"_s + address, {}), &desktop);
    QSignalSpy changes(&local, &LoginViewModel::localServerMissingChanged);
    ASSERT_TRUE(changes.wait());
    ASSERT_NO_FATAL_FAILURE(showGate(&local));
    EXPECT_TRUE(shows("startServerSection") && !shows("logInButton"));
    EXPECT_TRUE(local.localServerText().contains(address));
    capture(u"signin-7-start-server"_s);

    // Signing out looks again.
    verify({.body = signedIn.body});
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost, port));
    auth->logout();
    EXPECT_TRUE(QTest::qWaitFor([&] { return shows("logInButton") && !shows("startServerSection"); }, 5000));
    m_view.reset();
}
