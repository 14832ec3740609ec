#include "qmlscreentest.h"
#include "uitestenvironment.h"

#include <QCoreApplication>
#include <QDir>
#include <QKeyEvent>
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
// Builds the panel over real services, shows it offscreen and writes what it drew.
class ScreensSmokeTest : public QmlScreenTest
{
protected:
    // The view goes before the models it shows.
    ~ScreensSmokeTest() override { m_view.reset(); }

    QQuickView *show(MainScreenModel *main)
    {
        m_view = std::make_unique<QQuickView>();
        m_view->engine()->addImportPath(u"qrc:/"_s);
        m_view->setInitialProperties({{u"main"_s, QVariant::fromValue(main)}});
        m_view->setSource(QUrl(u"qrc:/Tamlo/Ui/qml/Panel.qml"_s));
        EXPECT_EQ(m_view->status(), QQuickView::Ready) << m_view->errors().value(0).toString().toStdString();
        m_view->show();
        main->panelShown();
        settle();
        return m_view.get();
    }

    void capture(const QString &name) { QmlScreenTest::capture(name, QSize(320, 600)); }

    // The main screen of a user past the first-launch setup.
    void makeMain()
    {
        env.settings.setBoolean(SettingsKey::didCompleteInitialSetup, true);
        main = env.makeMainScreen();
    }

    void recordDay()
    {
        env.settings.setString(SettingsKey::userProjects, u"Tamlo, Acme Website, Thesis"_s);
        env.settings.setString(SettingsKey::categorizeBy, u"Coding, Browsing, Communication, Writing, Design"_s);
        for (int i = 0; i < 6; ++i) {
            env.capture(u"Coding"_s, u"Tamlo"_s, u"Editing the report screen in the code editor"_s);
        }
        for (int i = 0; i < 3; ++i) {
            env.capture(u"Browsing"_s, u"Acme Website"_s, u"Reading the style guide of the web site"_s);
        }
        env.capture(u"Communication"_s, u"Other"_s, u"Answering mail about the team offsite"_s);
        env.capture(u"Writing"_s, u"Thesis"_s, u"Drafting the second chapter"_s);
        env.capture(u"Design"_s, u"Tamlo"_s, u"Sketching the panel layout"_s);
    }

    UiTestEnvironment env;
    std::unique_ptr<MainScreenModel> main;
};
} // namespace

TEST_F(ScreensSmokeTest, FirstLaunchSetup)
{
    main = env.makeMainScreen();
    show(main.get());
    capture(u"01-setup"_s);

    env.installedModels.clear();
    main->setup()->checkModel();
    capture(u"02-setup-model-missing"_s);
}

TEST_F(ScreensSmokeTest, RunningWithReport)
{
    recordDay();
    makeMain();
    env.monitor.startMonitoring();
    show(main.get());
    capture(u"03-report-running"_s);
}

TEST_F(ScreensSmokeTest, ActivityCardsOfEachKind)
{
    env.settings.setString(SettingsKey::userProjects, u"Tamlo"_s);
    env.settings.setString(SettingsKey::categorizeBy, u"Coding, Communication, Social Media"_s);
    makeMain();
    env.capture(u"Coding"_s, u"Tamlo"_s, u"Reviewing a pull request for the export bar"_s);
    env.monitor.addNoteToCurrentLog(u"Pairing with Sam on the export"_s);
    env.capture(u"Communication"_s, u"Other"_s, u"Chatting in the team channel"_s);
    env.monitor.startMonitoring();
    QSignalSpy(&env.monitor, &ActivityMonitor::captureCountChanged).wait(2000);
    env.events.fire(ScreenEvent::Locked);
    QCoreApplication::processEvents();
    ASSERT_EQ(env.monitor.screenState(), ScreenState::Locked);
    QCoro::waitFor(env.monitor.performCapture());
    main->setSelectedTab(1);
    show(main.get());
    main->setPendingNote(u"Call with the designer"_s);
    capture(u"06-activity-cards"_s);
}

// Each banner with what it offers, then the save dialog over the panel.
TEST_F(ScreensSmokeTest, ThreeBannerVariantsThenTheSaveDialog)
{
    makeMain();
    env.capture(u"Coding"_s, u"Other"_s, u"Editing"_s);
    main->setSelectedTab(1);
    show(main.get());

    // Permission: a way to the settings, where the desktop has them.
    env.grabber.failWith = ScreenCaptureError::Kind::PermissionDenied;
    QCoro::waitFor(env.monitor.performCapture());
    EXPECT_EQ(main->bannerText(), u"Screen capture permission denied."_s);
    EXPECT_TRUE(main->showSettingsButton());
    EXPECT_FALSE(main->showBannerHint());
    main->openSystemSettings();
    EXPECT_EQ(env.desktop.privacySettingsOpened, 1);
    capture(u"07-banner-permission"_s);
    env.desktop.hasPrivacySettings = false;
    EXPECT_FALSE(main->showSettingsButton());
    EXPECT_FALSE(main->showBannerHint()) << "the hint is for model errors only";
    env.desktop.hasPrivacySettings = true;

    // The model missing: the hint, until another model is chosen.
    env.grabber.failWith.reset();
    env.installedModels.clear();
    env.llm.invalidateInstalledModelsCache();
    QCoro::waitFor(env.monitor.performCapture());
    EXPECT_TRUE(main->showBannerHint()) << main->bannerText().toStdString();
    EXPECT_FALSE(main->showSettingsButton());
    capture(u"08-banner-model-hint"_s);
    env.llm.selectModel(u"qwen3-vl:4b"_s);
    EXPECT_FALSE(main->showBanner());

    env.grabber.failWith = ScreenCaptureError::Kind::CaptureFailed;
    QCoro::waitFor(env.monitor.performCapture());
    EXPECT_TRUE(main->bannerText().startsWith(u"Screenshot failed: "_s));
    EXPECT_FALSE(main->showSettingsButton() || main->showBannerHint());
    capture(u"09-banner-plain"_s);

    // Export asks where to save, offering the day's file name.
    main->exportTodayLogs();
    QObject *dialog = m_view->rootObject()->findChild<QObject *>(u"saveDialog"_s);
    ASSERT_NE(dialog, nullptr);
    settle(1000);
    EXPECT_TRUE(dialog->property("visible").toBool());
    EXPECT_TRUE(dialog->property("selectedFile").toUrl().toString().endsWith(u"/Tamlo_WorkLog_2026-03-09.csv"_s))
        << dialog->property("selectedFile").toUrl().toString().toStdString();
    capture(u"13-export-save-dialog"_s);
}

TEST_F(ScreensSmokeTest, PausedAndEmptyThenSettingsAndAbout)
{
    env.settings.setString(SettingsKey::userProjects, u"Tamlo, Acme Website"_s);
    env.settings.setString(SettingsKey::categorizeBy, u"Coding, Browsing, Communication"_s);
    makeMain();
    show(main.get());
    capture(u"04-report-paused-empty"_s);
    main->setSelectedTab(1);
    capture(u"05-activity-empty"_s);
    main->setSelectedTab(2);
    capture(u"10-settings-ready"_s);

    env.installedModels.clear();
    main->settingsView()->setSelectedIndex(1);
    capture(u"11-settings-missing"_s);

    main->setShowingAbout(true);
    capture(u"12-about"_s);
    QKeyEvent press(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier, u"\r"_s);
    QKeyEvent release(QEvent::KeyRelease, Qt::Key_Return, Qt::NoModifier, u"\r"_s);
    QCoreApplication::sendEvent(m_view.get(), &press);
    QCoreApplication::sendEvent(m_view.get(), &release);
    settle();
    EXPECT_FALSE(main->showingAbout()) << "Return closes the sheet";
}
