#include "account/activitysyncservice.h"
#include "account/authservice.h"
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
QStringList *collectedWarnings = nullptr;
QtMessageHandler previousHandler = nullptr;

void collectWarnings(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (collectedWarnings && type != QtDebugMsg && type != QtInfoMsg && !message.startsWith(u"QStandardPaths:"_s)) {
        collectedWarnings->append(message);
    }
    previousHandler(type, context, message);
}

QString screenshotDir()
{
    const QString dir = QStringLiteral(TAMLO_SCREENSHOT_DIR);
    QDir().mkpath(dir);
    return dir;
}

// The panel's gate over real services: the sign-in screen until the stand-in backend accepts a
// token, the main screen after. Each phase is drawn offscreen and written as a picture.
class SignInScreensTest : public ::testing::Test
{
protected:
    SignInScreensTest()
    {
        static const bool softwareRendering = [] {
            QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
            return true;
        }();
        Q_UNUSED(softwareRendering);
        m_backend.on("POST", "/auth/verify-token",
            StandInServer::Reply {.status = 200,
                .body = R"({"sessionToken":"sess-1","user":{"id":"u1","email":"ada@example.com"}})",
                .delayMs = 300});
        m_backend.on("POST", "/activity/sync", StandInServer::Reply {.status = 200, .body = "{}"});
        m_backend.on("GET", "/activity/status", StandInServer::Reply {.status = 200, .body = "{}"});
        env.settings.setBoolean(SettingsKey::didCompleteInitialSetup, true);
        collectedWarnings = &m_warnings;
        previousHandler = qInstallMessageHandler(collectWarnings);
    }

    ~SignInScreensTest() override
    {
        qInstallMessageHandler(previousHandler);
        collectedWarnings = nullptr;
    }

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

    void capture(const QString &name)
    {
        QSignalSpy(m_view.get(), &QQuickWindow::frameSwapped).wait(300);
        QSignalSpy(m_view.get(), &QQuickWindow::frameSwapped).wait(100);
        const QImage image = m_view->grabWindow();
        ASSERT_FALSE(image.isNull());
        ASSERT_TRUE(image.save(screenshotDir() + u"/"_s + name + u".png"_s));
        EXPECT_TRUE(m_warnings.isEmpty()) << name.toStdString() << ": " << m_warnings.join(u"\n"_s).toStdString();
        m_warnings.clear();
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
    std::unique_ptr<QQuickView> m_view;
    QStringList m_warnings;
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
