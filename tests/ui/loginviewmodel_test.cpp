#include "signinfixture.h"
#include "ui/loginviewmodel.h"

#include <QCoroTask>
#include <QSignalSpy>

using namespace Qt::StringLiterals;

namespace {
using Phase = LoginViewModel::Phase;

const QString expiredLink = u"This sign-in link has expired. Please log in again on Tamloweb."_s;
const QString unknownAccount = u"Account not found. Please register on Tamloweb."_s;

class LoginViewModelTest : public SignInFixture
{
protected:
    LoginViewModelTest()
    {
        startServices();
        m_login = std::make_unique<LoginViewModel>(m_auth.get(), config(), &m_browser);
        QObject::connect(
            m_login.get(), &LoginViewModel::phaseChanged, m_login.get(), [this] { m_phases.append(m_login->phase()); });
    }

    // A callback's token exchange, answered by the stand-in backend with this reply.
    void verify(const StandInServer::Reply &reply)
    {
        m_backend.on("POST", "/auth/verify-token", reply);
        QCoro::waitFor(m_auth->verifyMagicLinkToken(u"magic"_s));
    }

    static void expectPage(const QUrl &url, const QString &path)
    {
        EXPECT_EQ(url.toString(), u"https://web.example"_s + path + u"?redirect=tamlo://auth"_s);
    }

    std::unique_ptr<LoginViewModel> m_login;
    QList<Phase> m_phases;
};

TEST_F(LoginViewModelTest, CallbackWithoutLogInShowsVerifyingThenTheLoginPhaseWithTheError)
{
    EXPECT_EQ(m_login->phase(), Phase::Login);
    EXPECT_FALSE(m_login->showsError());

    verify(StandInServer::Reply {.status = 410});

    EXPECT_EQ(m_phases, (QList<Phase> {Phase::Verifying, Phase::Login}));
    EXPECT_TRUE(m_login->showsError());
    EXPECT_EQ(m_login->errorText(), expiredLink);
    EXPECT_TRUE(m_browser.openedUrls.isEmpty());
}

TEST_F(LoginViewModelTest, LogInClearsTheErrorAndOpensTheLoginPage)
{
    verify(StandInServer::Reply {.status = 410});
    QSignalSpy errorChanges(m_login.get(), &LoginViewModel::errorChanged);

    m_login->openWebLogin();

    EXPECT_FALSE(m_login->showsError());
    EXPECT_EQ(errorChanges.count(), 1);
    EXPECT_TRUE(m_login->openedWebLogin());
    EXPECT_EQ(m_login->phase(), Phase::Waiting);
    ASSERT_EQ(m_browser.openedUrls.size(), 1);
    expectPage(m_browser.openedUrls.first(), u"/login"_s);
}

TEST_F(LoginViewModelTest, FailureWhileWaitingKeepsWaitingUntilBack)
{
    m_login->openWebLogin();
    verify(StandInServer::Reply {.status = 404, .body = R"({"error":"user not found"})"});

    EXPECT_EQ(m_phases, (QList<Phase> {Phase::Waiting, Phase::Verifying, Phase::Waiting}));
    EXPECT_EQ(m_login->errorText(), unknownAccount);

    // "Open login page again" is a new attempt: the message goes first.
    m_login->openWebLogin();
    EXPECT_EQ(m_login->phase(), Phase::Waiting);
    EXPECT_FALSE(m_login->showsError());
    EXPECT_EQ(m_browser.openedUrls.size(), 2);

    verify(StandInServer::Reply {.status = 410});
    EXPECT_EQ(m_login->phase(), Phase::Waiting);
    EXPECT_TRUE(m_login->showsError());

    m_login->back();
    EXPECT_EQ(m_login->phase(), Phase::Login);
    EXPECT_FALSE(m_login->openedWebLogin());
    EXPECT_FALSE(m_login->showsError());
    EXPECT_EQ(m_browser.openedUrls.size(), 2);
}

TEST_F(LoginViewModelTest, CreateAccountOpensRegistrationAndChangesNothing)
{
    verify(StandInServer::Reply {.status = 410});
    m_phases.clear();

    m_login->createAccount();

    ASSERT_EQ(m_browser.openedUrls.size(), 1);
    expectPage(m_browser.openedUrls.first(), u"/register"_s);
    EXPECT_EQ(m_login->phase(), Phase::Login);
    EXPECT_FALSE(m_login->openedWebLogin());
    EXPECT_TRUE(m_phases.isEmpty());
    EXPECT_EQ(m_login->errorText(), expiredLink);
}

TEST_F(LoginViewModelTest, SignInEndsTheWaiting)
{
    m_login->openWebLogin();
    verify(signedInReply());

    EXPECT_TRUE(m_auth->isAuthenticated());
    EXPECT_FALSE(m_login->openedWebLogin());
    EXPECT_EQ(m_login->phase(), Phase::Login);
    EXPECT_FALSE(m_login->showsError());

    // After a later sign-out the screen starts over in the login phase.
    m_auth->logout();
    EXPECT_EQ(m_login->phase(), Phase::Login);
}
} // namespace
