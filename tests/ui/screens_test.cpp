#include "account/authservice.h"
#include "ui/appgatemodel.h"
#include "ui/loginviewmodel.h"
#include "ui/modelchoice.h"
#include "ui/tamlotheme.h"

#include "uirig.h"

#include <QDir>
#include <QFontInfo>
#include <QKeyEvent>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <QSignalSpy>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(Tamlo_UiPlugin)

using namespace Qt::StringLiterals;

namespace {
// A screen of the panel drawn offscreen over real services; a QML warning fails the picture it came with.
class QmlScreenTest : public UiRig
{
protected:
    QmlScreenTest()
    {
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
        s_previousHandler
            = qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &context, const QString &message) {
                  if (type != QtDebugMsg && type != QtInfoMsg && !message.startsWith(u"QStandardPaths:"_s)) {
                      s_warnings.append(message);
                  }
                  s_previousHandler(type, context, message);
              });
    }

    ~QmlScreenTest() override
    {
        qInstallMessageHandler(s_previousHandler);
        s_warnings.clear();
    }

    // The view goes before the models it shows.
    void TearDown() override
    {
        m_view.reset();
        UiRig::TearDown();
    }

    void show(const QString &file, const QVariantMap &models)
    {
        m_view = std::make_unique<QQuickView>();
        m_view->engine()->addImportPath(u"qrc:/"_s);
        m_view->setInitialProperties(models);
        m_view->setResizeMode(QQuickView::SizeViewToRootObject);
        m_view->setSource(QUrl(u"qrc:/Tamlo/Ui/qml/"_s + file));
        ASSERT_EQ(m_view->status(), QQuickView::Ready) << m_view->errors().value(0).toString().toStdString();
        m_view->rootObject()->setSize(QSizeF(320, 600));
        m_view->show();
    }

    void showPanel()
    {
        ASSERT_NO_FATAL_FAILURE(show(u"Panel.qml"_s, {{u"main"_s, QVariant::fromValue(main.get())}}));
        main->panelShown();
    }

    void settle(int ms = 400)
    {
        QSignalSpy(m_view.get(), &QQuickWindow::frameSwapped).wait(ms);
        QSignalSpy(m_view.get(), &QQuickWindow::frameSwapped).wait(100);
    }

    void capture(const QString &name, QSize size = QSize(320, 600), QQuickWindow *window = nullptr)
    {
        settle();
        const QImage image = (window ? window : m_view.get())->grabWindow();
        EXPECT_EQ(image.size(), size) << name.toStdString();
        QDir().mkpath(u"" TAMLO_SCREENSHOT_DIR ""_s);
        ASSERT_TRUE(image.save(u"" TAMLO_SCREENSHOT_DIR "/"_s + name + u".png"_s));
        EXPECT_TRUE(s_warnings.isEmpty()) << name.toStdString() << ": " << s_warnings.join(u'\n').toStdString();
        s_warnings.clear();
    }

    [[nodiscard]] bool shows(const char *objectName) const
    {
        const auto *item = m_view->rootObject()->findChild<QQuickItem *>(QString::fromLatin1(objectName));
        return item && item->isVisible();
    }

    [[nodiscard]] bool showsText(const QString &text) const
    {
        const QList<QQuickItem *> items = m_view->rootObject()->findChildren<QQuickItem *>();
        return std::any_of(
            items.cbegin(), items.cend(), [&](auto *i) { return i->isVisible() && i->property("text") == text; });
    }

    static void waitForCheck(QObject *model, const char *property)
    {
        EXPECT_TRUE(QTest::qWaitFor([&] { return !model->property(property).toBool(); }, 10000)) << property;
    }

    std::unique_ptr<QQuickView> m_view;
    static inline QStringList s_warnings;
    static inline QtMessageHandler s_previousHandler = nullptr;
};

using ScreensSmokeTest = QmlScreenTest;
} // namespace

TEST_F(ScreensSmokeTest, FirstLaunchThenAnEmptyDayThenSettingsAndAbout)
{
    settings->setString(SettingsKey::selectedOllamaModel, u"llava:7b"_s);
    makeMain();
    grabber.failWith = ScreenCaptureError::Kind::CaptureFailed;
    tick();
    ASSERT_NO_FATAL_FAILURE(showPanel());
    main->setSelectedTab(1);
    EXPECT_FALSE(main->showBanner()) << "no banner during setup";
    EXPECT_EQ(main->controlLabel(), u"Finish Setup"_s);
    waitForCheck(main->setup(), "isCheckingModel");
    EXPECT_EQ(main->setup()->statusText(), u"Model ready"_s);
    capture(u"01-setup"_s);
    setInstalledModels({});
    main->setup()->checkModel();
    waitForCheck(main->setup(), "isCheckingModel");
    EXPECT_EQ(main->setup()->statusText(), u"Model not found — see installation guide"_s);
    main->setup()->openInstallationGuide();
    EXPECT_EQ(desktop.openedUrls, QList<QUrl> {ModelChoice::installationDocsURL()});
    capture(u"02-setup-model-missing"_s);

    main->triggerControl();
    EXPECT_TRUE(settings->boolean(SettingsKey::didCompleteInitialSetup));
    EXPECT_EQ(std::pair(main->statusText(), main->controlLabel()), std::pair(u"Inactive"_s, u"Resume"_s));
    EXPECT_TRUE(main->showBanner());
    main->setSelectedTab(0);
    EXPECT_FALSE(main->showBanner()) << "only on the activity tab";
    capture(u"04-report-paused-empty"_s);
    main->setSelectedTab(1);
    grabber.failWith.reset();
    monitor->clearLastError();
    capture(u"05-activity-empty"_s);

    // The stored model unknown, the picker falls back to the recommended one.
    setInstalledModels({u"qwen3-vl:2b"_s});
    main->setSelectedTab(2);
    SettingsViewModel *tab = main->settingsView();
    waitForCheck(tab, "isChecking");
    EXPECT_EQ(settings->string(SettingsKey::selectedOllamaModel), u"qwen3-vl:2b"_s);
    EXPECT_EQ(tab->usesText(), u"Uses Ollama on this computer (qwen3-vl:2b)"_s);
    EXPECT_EQ(tab->modelLabels(),
        QStringList({u"qwen3-vl:2b · Recommended · ~2 GB RAM"_s, u"qwen3-vl:4b · 16 GB+ RAM · a GPU helps · ~4 GB"_s}));
    EXPECT_EQ(std::pair(tab->statusHelp(), tab->showInstallBox()), std::pair(u"Model ready"_s, false));
    capture(u"10-settings-ready"_s);
    tab->setSelectedIndex(1);
    EXPECT_EQ(tab->installCommandText(), u"2. Run: ollama pull qwen3-vl:4b"_s);
    EXPECT_TRUE(tab->isChecking());
    waitForCheck(tab, "isChecking");
    EXPECT_EQ(std::pair(tab->statusHelp(), tab->showInstallBox()),
        std::pair(u"Model not installed — run ollama pull qwen3-vl:4b"_s, true));
    capture(u"11-settings-missing"_s);

    main->setShowingAbout(true);
    auto *sheet = m_view->rootObject()->findChild<QQuickWindow *>(u"aboutSheet"_s);
    ASSERT_NE(sheet, nullptr);
    ASSERT_TRUE(QTest::qWaitFor([sheet] { return sheet->isExposed(); }, 2000));
    // As wide as the sheet is meant to be, wider than the panel under it.
    capture(u"12-about"_s, QSize(340, sheet->height()), sheet);
    QKeyEvent press(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier, u"\r"_s);
    QKeyEvent release(QEvent::KeyRelease, Qt::Key_Return, Qt::NoModifier, u"\r"_s);
    QCoreApplication::sendEvent(sheet, &press);
    QCoreApplication::sendEvent(sheet, &release);
    settle();
    EXPECT_FALSE(main->showingAbout()) << "Return closes the sheet";
    EXPECT_FALSE(sheet->isVisible());
}

TEST_F(ScreensSmokeTest, ARecordedDayItsCardsEachBannerAndTheSaveDialog)
{
    settings->setBoolean(SettingsKey::didCompleteInitialSetup, true);
    settings->setString(SettingsKey::userProjects, u"Tamlo, Acme Website, Thesis"_s);
    settings->setString(SettingsKey::categorizeBy, u"Coding, Browsing, Communication, Writing"_s);
    makeMain();
    ASSERT_NO_FATAL_FAILURE(showPanel());
    const std::pair<int, QStringList> day[] = {{6, {u"Coding"_s, u"Tamlo"_s, u"Editing the report screen"_s}},
        {3, {u"Browsing"_s, u"Acme Website"_s, u"Reading the style guide of the web site"_s}},
        {1, {u"Communication"_s, u"Other"_s, u"Answering mail about the team offsite"_s}},
        {1, {u"Writing"_s, u"Thesis"_s, u"Drafting the second chapter"_s}}};
    for (const auto &[times, labels] : day) {
        for (int i = 0; i < times; ++i) {
            tickWith(labels[0], labels[1], labels[2]);
        }
    }
    EXPECT_EQ(main->report()->activeSeconds(), 11 * 30) << "each record of today counts 30 seconds";
    EXPECT_EQ(main->report()->categories().size(), 4);
    main->setPendingNote(u"  \n "_s);
    EXPECT_FALSE(main->addNoteEnabled());
    main->setPendingNote(u"  Pairing with Sam on the chapter  "_s);
    main->addNote();
    EXPECT_EQ(main->pendingNote(), QString());
    EXPECT_EQ(main->activities()->data(main->activities()->index(0), ActivityCardListModel::NoteRole).toString(),
        u"Pairing with Sam on the chapter"_s);
    main->triggerControl();
    EXPECT_EQ(std::pair(main->statusText(), main->controlLabel()), std::pair(u"Active"_s, u"Pause"_s));
    EXPECT_TRUE(QTest::qWaitFor([&] { return main->report()->activeSeconds() == 12 * 30; })) << "a capture at once";
    capture(u"03-report-running"_s);

    // Away, said in the status line, adds no time.
    idle.idle = std::chrono::hours(1);
    tick();
    ASSERT_EQ(monitor->latestSnapshots().first().activityDescription, u"Away"_s);
    EXPECT_EQ(std::pair(main->statusText(), main->statusColor()), std::pair(u"Away"_s, TamloTheme::orange()));
    EXPECT_EQ(main->report()->activeSeconds(), 12 * 30);
    main->setSelectedTab(1);
    // Near the length a note keeps, the field counts down; past it, it says the rest is cut.
    for (const auto &[length, text] : {std::pair {3895, QString()}, {4095, u"1 character left"_s},
             {4100, u"A note holds 4,096 characters; this one is 4 over and will be cut."_s}}) {
        main->setPendingNote(QString(length, u'a'));
        EXPECT_EQ(main->noteLimitText(), text) << length;
    }
    main->setPendingNote(u"Call with the designer"_s);
    capture(u"06-activity-cards"_s);

    // Permission: a way to the settings, where the desktop has them.
    idle.idle = {};
    grabber.failWith = ScreenCaptureError::Kind::PermissionDenied;
    tick();
    EXPECT_EQ(main->bannerText(), u"Screen capture permission denied."_s);
    EXPECT_TRUE(main->showSettingsButton() && !main->showBannerHint());
    main->openPrivacySettings();
    EXPECT_EQ(desktop.privacySettingsOpened, 1);
    capture(u"07-banner-permission"_s);
    desktop.hasPrivacySettings = false;
    EXPECT_FALSE(main->showSettingsButton());

    // The model missing: the hint, until another model is chosen.
    grabber.failWith.reset();
    setInstalledModels({});
    tick();
    EXPECT_TRUE(main->showBannerHint() && !main->showSettingsButton()) << main->bannerText().toStdString();
    capture(u"08-banner-model-hint"_s);
    llm->selectModel(u"qwen3-vl:4b"_s);
    EXPECT_FALSE(main->showBanner());

    grabber.failWith = ScreenCaptureError::Kind::CaptureFailed;
    tick();
    EXPECT_TRUE(main->bannerText().startsWith(u"Screenshot failed: "_s));
    EXPECT_FALSE(main->showSettingsButton() || main->showBannerHint());
    capture(u"09-banner-plain"_s);

    // A timed pause names its end where the status is; Resume ends it early.
    main->triggerControl();
    EXPECT_TRUE(main->showPauseChoices());
    main->pauseFor(0);
    EXPECT_EQ(std::pair(main->statusText(), main->controlLabel()), std::pair(u"Paused until 9:42 AM"_s, u"Resume"_s));
    EXPECT_FALSE(main->showPauseChoices());
    main->triggerControl();
    main->pauseFor(2);
    EXPECT_EQ(main->statusText(), u"Paused until 12:00 AM"_s);

    main->exportTodayLogs();
    QObject *dialog = m_view->rootObject()->findChild<QObject *>(u"saveDialog"_s);
    ASSERT_NE(dialog, nullptr);
    settle(1000);
    EXPECT_TRUE(dialog->property("visible").toBool());
    EXPECT_TRUE(dialog->property("selectedFile").toUrl().toString().endsWith(u"/Tamlo_WorkLog_2026-03-09.csv"_s));
    capture(u"13-export-save-dialog"_s);
}

TEST_F(ScreensSmokeTest, PrivacySectionOnEachKindOfDesktop)
{
    settings->setBoolean(SettingsKey::didCompleteInitialSetup, true);
    for (const QString &type : {u"x11"_s, u"wayland"_s}) {
        QProcessEnvironment session;
        session.insert(u"XDG_SESSION_TYPE"_s, type);
        session.insert(u"XDG_CURRENT_DESKTOP"_s, u"GNOME"_s);
        m_view.reset();
        makeMain(session);
        main->setSelectedTab(2);
        ASSERT_NO_FATAL_FAILURE(showPanel());
        settle();
        // The tab scrolled to its end, where the section is.
        for (QQuickItem *item : m_view->rootObject()->findChildren<QQuickItem *>()) {
            if (item->inherits("QQuickFlickable") && item->isVisible()) {
                item->setProperty("contentY", qMax(0.0, item->property("contentHeight").toReal() - item->height()));
            }
        }
        capture(type == u"x11"_s ? u"14-settings-privacy"_s : u"15-settings-privacy-gnome-wayland"_s);
    }
}

// Figures side by side line up: every digit takes the same width, in a proportional font too.
TEST(FigureTextTest, EveryDigitTakesTheSameWidthInAProportionalFont)
{
    const QFont previous = QGuiApplication::font();
    QGuiApplication::setFont(QFont(u"Cantarell"_s));
    ASSERT_EQ(QFontInfo(QGuiApplication::font()).family(), u"Cantarell"_s) << "install fonts-cantarell";
    QQmlEngine engine;
    engine.addImportPath(u"qrc:/"_s);
    QQmlComponent component(&engine);
    component.setData("import Tamlo.Ui\nFigureText { textStyle: \"caption2\" }", QUrl());
    QList<qreal> widths;
    for (const QString &text : {u"11%"_s, u"00%"_s, u"84%"_s}) {
        std::unique_ptr<QObject> figure(component.createWithInitialProperties({{u"text"_s, text}}));
        ASSERT_NE(figure, nullptr) << component.errorString().toStdString();
        widths.append(figure->property("implicitWidth").toReal());
    }
    QGuiApplication::setFont(previous);
    EXPECT_GT(widths[0], 0);
    EXPECT_EQ(widths, QList<qreal>(3, widths[0]));
}

namespace {
using Phase = LoginViewModel::Phase;

// The sign-in screen until the stand-in backend accepts a token, the main screen after.
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

    void verify(const StandInServer::Reply &reply)
    {
        backend.on("POST", "/auth/verify-token", reply);
        QCoro::waitFor(auth->verifyMagicLinkToken(u"magic"_s));
    }

    StandInServer backend;
    std::unique_ptr<AuthService> auth;
    std::unique_ptr<AppGateModel> gate;
    std::unique_ptr<LoginViewModel> login;
};
} // namespace

// The error texts themselves: the auth service's tests; the local server missing and signing out: end to end.
TEST_F(SignInScreensTest, EachPhaseOfTheSignInThenTheMainScreen)
{
    QList<Phase> phases;
    QObject::connect(login.get(), &LoginViewModel::phaseChanged, login.get(), [&] { phases.append(login->phase()); });
    ASSERT_NO_FATAL_FAILURE(show(u"AppGateView.qml"_s,
        {{u"gate"_s, QVariant::fromValue(gate.get())}, {u"login"_s, QVariant::fromValue(login.get())},
            {u"main"_s, QVariant::fromValue(main.get())}}));
    EXPECT_TRUE(shows("logInButton") && !shows("openAgainButton"));
    EXPECT_EQ(gate->menuBarSymbol(), u"circle.dotted"_s);
    capture(u"signin-1-login"_s);

    // A callback without "Log in" in this run still shows the verification.
    verify(StandInServer::Reply {.status = 410});
    EXPECT_EQ(phases, (QList<Phase> {Phase::Verifying, Phase::Login}));
    EXPECT_TRUE(login->errorText().startsWith(u"This sign-in link has expired."_s));
    EXPECT_TRUE(showsText(login->errorText()));
    capture(u"signin-2-login-error"_s);

    // "Create an account" opens registration and changes nothing else; "Log in" drops the message.
    login->createAccount();
    EXPECT_EQ(desktop.openedUrls.last().toString(), u"https://web.example/register?redirect=tamlo://auth"_s);
    EXPECT_TRUE(login->showsError());
    login->openWebLogin();
    EXPECT_EQ(std::pair(login->phase(), login->showsError()), std::pair(Phase::Waiting, false));
    EXPECT_EQ(desktop.openedUrls.last().toString(), u"https://web.example/login?redirect=tamlo://auth"_s);
    EXPECT_TRUE(!shows("logInButton") && shows("openAgainButton"));
    capture(u"signin-3-waiting"_s);

    // A failure while waiting keeps waiting, with the message, until "Back".
    phases.clear();
    verify(StandInServer::Reply {.status = 404, .body = R"({"error":"user not found"})"});
    EXPECT_EQ(phases, (QList<Phase> {Phase::Verifying, Phase::Waiting}));
    capture(u"signin-4-waiting-error"_s);
    login->back();
    EXPECT_EQ(std::pair(login->phase(), login->showsError()), std::pair(Phase::Login, false));
    EXPECT_EQ(desktop.openedUrls.size(), 2);

    login->openWebLogin();
    backend.on("POST", "/auth/verify-token",
        {.status = 200,
            .body = R"({"sessionToken":"sess-1","user":{"id":"u1","email":"a@example.com"}})",
            .delayMs = 1500});
    auto verification = auth->verifyMagicLinkToken(u"magic"_s);
    ASSERT_TRUE(auth->isLoading());
    EXPECT_FALSE(shows("logInButton"));
    capture(u"signin-5-verifying"_s);

    QCoro::waitFor(std::move(verification));
    EXPECT_EQ(gate->screen(), AppGateModel::Screen::Content);
    EXPECT_EQ(gate->menuBarSymbol(), u"circle.fill"_s);
    EXPECT_FALSE(login->openedWebLogin());
    capture(u"signin-6-main-screen"_s);
    auth->logout();
    EXPECT_EQ(gate->menuBarSymbol(), u"circle.dotted"_s);
}
