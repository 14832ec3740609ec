#include "signinfixture.h"
#include "ui/loginviewmodel.h"

#include <QCoroTask>
#include <QSignalSpy>

using namespace Qt::StringLiterals;

namespace {
using Phase = LoginViewModel::Phase;

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

    [[nodiscard]] QString lastPage() const
    {
        return m_browser.openedUrls.value(m_browser.openedUrls.size() - 1).toString();
    }

    std::unique_ptr<LoginViewModel> m_login;
    QList<Phase> m_phases;
};

// One user's way through the screen: each step's phase, message and the page it opened.
TEST_F(LoginViewModelTest, PhasesErrorsAndPagesThroughAFailedAndAGoodSignIn)
{
    const QString expiredLink = u"This sign-in link has expired. Please log in again on Tamloweb."_s;
    EXPECT_EQ(m_login->phase(), Phase::Login);
    EXPECT_FALSE(m_login->showsError());

    // A callback without "Log in" in this run still shows the verification.
    verify(StandInServer::Reply {.status = 410});
    EXPECT_EQ(m_phases, (QList<Phase> {Phase::Verifying, Phase::Login}));
    EXPECT_EQ(m_login->errorText(), expiredLink);
    EXPECT_TRUE(m_browser.openedUrls.isEmpty());

    // "Create an account" opens registration and changes nothing else.
    m_login->createAccount();
    EXPECT_EQ(lastPage(), u"https://web.example/register?redirect=tamlo://auth"_s);
    EXPECT_EQ(m_phases.size(), 2);
    EXPECT_EQ(m_login->errorText(), expiredLink);

    // "Log in" is a new attempt: the message goes first.
    QSignalSpy errorChanges(m_login.get(), &LoginViewModel::errorChanged);
    m_login->openWebLogin();
    EXPECT_FALSE(m_login->showsError());
    EXPECT_EQ(errorChanges.count(), 1);
    EXPECT_EQ(m_login->phase(), Phase::Waiting);
    EXPECT_EQ(lastPage(), u"https://web.example/login?redirect=tamlo://auth"_s);

    // A failure while waiting keeps waiting, with the message, until "Back".
    m_phases.clear();
    verify(StandInServer::Reply {.status = 404, .body = R"({"error":"user not found"})"});
    EXPECT_EQ(m_phases, (QList<Phase> {Phase::Verifying, Phase::Waiting}));
    EXPECT_EQ(m_login->errorText(), u"Account not found. Please register on Tamloweb."_s);
    m_login->openWebLogin();
    EXPECT_FALSE(m_login->showsError());
    EXPECT_EQ(m_browser.openedUrls.size(), 3);
    verify(StandInServer::Reply {.status = 410});
    EXPECT_EQ(m_login->phase(), Phase::Waiting);
    EXPECT_TRUE(m_login->showsError());
    m_login->back();
    EXPECT_EQ(m_login->phase(), Phase::Login);
    EXPECT_FALSE(m_login->openedWebLogin());
    EXPECT_FALSE(m_login->showsError());
    EXPECT_EQ(m_browser.openedUrls.size(), 3);

    // Signing in ends the waiting; after a later sign-out the screen starts over.
    m_login->openWebLogin();
    verify(signedInReply());
    EXPECT_TRUE(m_auth->isAuthenticated());
    EXPECT_FALSE(m_login->openedWebLogin());
    EXPECT_EQ(m_login->phase(), Phase::Login);
    EXPECT_FALSE(m_login->showsError());
    m_auth->logout();
    EXPECT_EQ(m_login->phase(), Phase::Login);
}
} // namespace
