#include "account/activitysyncservice.h"
#include "account/authservice.h"
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
#include <QtQml/qqmlextensionplugin.h>

#include <gtest/gtest.h>

Q_IMPORT_QML_PLUGIN(Tamlo_UiPlugin)

using namespace Qt::StringLiterals;

namespace {
// The panel's gate over real services: the sign-in screen until the stand-in backend accepts a
// token, the main screen after. Each phase is drawn offscreen and written as a picture.
class SignInScreensTest : public QmlScreenTest
{
protected:
    SignInScreensTest()
    {
        m_backend.on("POST", "/auth/verify-token",
            StandInServer::Reply {.status = 200,
                .body = R"({"sessionToken":"sess-1","user":{"id":"u1","email":"ada@example.com"}})",
                .delayMs = 300});
        m_backend.on("POST", "/activity/sync", StandInServer::Reply {.status = 200, .body = "{}"});
        m_backend.on("GET", "/activity/status", StandInServer::Reply {.status = 200, .body = "{}"});
        env.settings.setBoolean(SettingsKey::didCompleteInitialSetup, true);
    }

    // The view goes before the models it shows.
    ~SignInScreensTest() override { m_view.reset(); }

    void show()
    {
        m_view = std::make_unique<QQuickView>();
        m_view->engine()->addImportPath(u"qrc:/"_s);
        m_view->setInitialProperties({{u"gate"_s, QVariant::fromValue(&m_gate)},
            {u"login"_s, QVariant::fromValue(&m_login)}, {u"main"_s, QVariant::fromValue(m_main.get())}});
        m_view->setResizeMode(QQuickView::SizeViewToRootObject);
        m_view->setSource(QUrl(u"qrc:/Tamlo/Ui/qml/AppGateView.qml"_s));
        ASSERT_EQ(m_view->status(), QQuickView::Ready) << m_view->errors().value(0).toString().toStdString();
        m_view->rootObject()->setSize(QSizeF(320, 600));
        m_view->show();
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
    AppGateModel m_gate {&m_auth, &m_sync};
    LoginViewModel m_login {&m_auth, m_config, &env.desktop};
    std::unique_ptr<MainScreenModel> m_main = env.makeMainScreen();
};
} // namespace

TEST_F(SignInScreensTest, EachPhaseOfTheSignInThenTheMainScreen)
{
    ASSERT_NO_FATAL_FAILURE(show());
    EXPECT_TRUE(shows("logInButton"));
    EXPECT_FALSE(shows("openAgainButton"));
    capture(u"signin-1-login"_s);

    m_login.openWebLogin();
    EXPECT_FALSE(shows("logInButton"));
    EXPECT_TRUE(shows("openAgainButton"));
    capture(u"signin-2-waiting"_s);

    m_backend.on(
        "POST", "/auth/verify-token", StandInServer::Reply {.status = 404, .body = R"({"error":"user not found"})"});
    QCoro::waitFor(m_auth.verifyMagicLinkToken(u"unknown"_s));
    EXPECT_TRUE(shows("openAgainButton"));
    capture(u"signin-3-waiting-error"_s);

    m_login.back();
    m_backend.on("POST", "/auth/verify-token", StandInServer::Reply {.status = 410});
    QCoro::waitFor(m_auth.verifyMagicLinkToken(u"expired"_s));
    EXPECT_TRUE(shows("logInButton"));
    capture(u"signin-4-login-error"_s);

    m_backend.on("POST", "/auth/verify-token",
        StandInServer::Reply {.status = 200,
            .body = R"({"sessionToken":"sess-1","user":{"id":"u1","email":"ada@example.com"}})",
            .delayMs = 1500});
    auto verification = m_auth.verifyMagicLinkToken(u"magic"_s);
    ASSERT_TRUE(m_auth.isLoading());
    EXPECT_FALSE(shows("logInButton"));
    capture(u"signin-5-verifying"_s);

    QCoro::waitFor(std::move(verification));
    ASSERT_TRUE(m_auth.isAuthenticated());
    EXPECT_FALSE(shows("logInButton"));
    EXPECT_TRUE(m_sync.isPeriodicSyncRunning());
    capture(u"signin-6-main-screen"_s);

    m_auth.logout();
    EXPECT_TRUE(shows("logInButton"));
    EXPECT_FALSE(m_sync.isPeriodicSyncRunning());
}
