#include "qmlscreentest.h"

#include <QFontInfo>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QQmlComponent>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(Tamlo_UiPlugin)

using namespace Qt::StringLiterals;

namespace {
// The panel over real services, drawn in each state a user meets.
class ScreensSmokeTest : public QmlScreenTest
{
protected:
    void showPanel()
    {
        ASSERT_NO_FATAL_FAILURE(show(u"Panel.qml"_s, {{u"main"_s, QVariant::fromValue(main.get())}}));
        main->panelShown();
        settle();
    }
};
} // namespace

TEST_F(ScreensSmokeTest, FirstLaunchThenAnEmptyDayThenSettingsAndAbout)
{
    makeMain();
    ASSERT_NO_FATAL_FAILURE(showPanel());
    capture(u"01-setup"_s);
    setInstalledModels({});
    main->setup()->checkModel();
    capture(u"02-setup-model-missing"_s);

    main->triggerControl();
    settings->setString(SettingsKey::userProjects, u"Tamlo, Acme Website"_s);
    settings->setString(SettingsKey::categorizeBy, u"Coding, Browsing, Communication"_s);
    capture(u"04-report-paused-empty"_s);
    main->setSelectedTab(1);
    capture(u"05-activity-empty"_s);
    setInstalledModels({u"qwen3-vl:2b"_s});
    main->setSelectedTab(2);
    capture(u"10-settings-ready"_s);
    main->settingsView()->setSelectedIndex(1);
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

// A day's report while running, its cards of each kind, each banner with what it offers, and the
// save dialog over the panel.
TEST_F(ScreensSmokeTest, ARecordedDayItsCardsEachBannerAndTheSaveDialog)
{
    settings->setBoolean(SettingsKey::didCompleteInitialSetup, true);
    settings->setString(SettingsKey::userProjects, u"Tamlo, Acme Website, Thesis"_s);
    settings->setString(SettingsKey::categorizeBy, u"Coding, Browsing, Communication, Writing, Design"_s);
    makeMain();
    const std::pair<int, QStringList> day[] = {{6, {u"Coding"_s, u"Tamlo"_s, u"Editing the report screen"_s}},
        {3, {u"Browsing"_s, u"Acme Website"_s, u"Reading the style guide of the web site"_s}},
        {1, {u"Communication"_s, u"Other"_s, u"Answering mail about the team offsite"_s}},
        {1, {u"Writing"_s, u"Thesis"_s, u"Drafting the second chapter"_s}}};
    for (const auto &[times, labels] : day) {
        for (int i = 0; i < times; ++i) {
            tickWith(labels[0], labels[1], labels[2]);
        }
    }
    monitor->addNoteToCurrentLog(u"Pairing with Sam on the chapter"_s);
    monitor->startMonitoring();
    ASSERT_NO_FATAL_FAILURE(showPanel());
    capture(u"03-report-running"_s);

    idle.idle = std::chrono::hours(1);
    tick();
    ASSERT_EQ(monitor->latestSnapshots().first().activityDescription, u"Away"_s);
    main->setSelectedTab(1);
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

    // Export asks where to save, offering the day's file name.
    main->exportTodayLogs();
    QObject *dialog = m_view->rootObject()->findChild<QObject *>(u"saveDialog"_s);
    ASSERT_NE(dialog, nullptr);
    settle(1000);
    EXPECT_TRUE(dialog->property("visible").toBool());
    EXPECT_TRUE(dialog->property("selectedFile").toUrl().toString().endsWith(u"/Tamlo_WorkLog_2026-03-09.csv"_s));
    capture(u"13-export-save-dialog"_s);
}

// The privacy section where exclusions apply, and on GNOME on Wayland, where they cannot.
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
        // The tab scrolled to its end, where the section is.
        for (QQuickItem *item : m_view->rootObject()->findChildren<QQuickItem *>()) {
            if (item->inherits("QQuickFlickable") && item->isVisible()) {
                item->setProperty("contentY", qMax(0.0, item->property("contentHeight").toReal() - item->height()));
            }
        }
        capture(type == u"x11"_s ? u"14-settings-privacy"_s : u"15-settings-privacy-gnome-wayland"_s);
    }
}

// Figures keep their width on a desktop whose font has proportional digits (GNOME's Cantarell).
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
