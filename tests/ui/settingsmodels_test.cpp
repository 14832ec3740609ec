#include "uirig.h"

#include "ui/aboutmodel.h"
#include "ui/launchatloginmodel.h"
#include "ui/modelchoice.h"
#include "ui/presencesettingsmodel.h"
#include "ui/privacysettingsmodel.h"
#include "ui/trackingpreferencesmodel.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QSignalSpy>

using namespace Qt::StringLiterals;

namespace {
using SettingsModelsTest = UiRig;

void waitForCheck(QObject *model, const char *property)
{
    EXPECT_TRUE(model->property(property).toBool()) << property;
    EXPECT_TRUE(QTest::qWaitFor([&] { return !model->property(property).toBool(); }, 10000)) << property;
}
} // namespace

// Where the desktop keeps its windows to itself, the tab says so instead of offering a list.
TEST_F(SettingsModelsTest, PrivacyListsApplyWhereTheSessionCanTellAndAreExplainedWhereNot)
{
    const std::pair<QStringList, QString> sessions[] = {
        {{u"XDG_SESSION_TYPE=x11"_s, u"XDG_CURRENT_DESKTOP=GNOME"_s}, QString()},
        {{u"WAYLAND_DISPLAY=wayland-1"_s, u"SWAYSOCK=/run/user/1000/sway-ipc.sock"_s}, QString()},
        {{u"XDG_SESSION_TYPE=wayland"_s, u"XDG_CURRENT_DESKTOP=ubuntu:GNOME"_s}, u"GNOME on Wayland"_s},
        {{u"WAYLAND_DISPLAY=wayland-0"_s, u"XDG_CURRENT_DESKTOP=KDE"_s}, u"KDE Plasma on Wayland"_s},
    };
    for (const auto &[variables, desktop] : sessions) {
        SCOPED_TRACE(variables.join(u' ').toStdString());
        QProcessEnvironment session;
        for (const QString &variable : variables) {
            session.insert(variable.section(u'=', 0, 0), variable.section(u'=', 1));
        }
        PrivacySettingsModel privacy(settings.get(), session);
        EXPECT_EQ(privacy.canApply(), desktop.isEmpty());
        EXPECT_EQ(privacy.explanation().contains(desktop + u" does not tell other programs"_s), !desktop.isEmpty());
    }

    PrivacySettingsModel privacy(settings.get(), {});
    EXPECT_EQ(privacy.applications(), u"KeePassXC, KeePass2, seahorse"_s);
    privacy.setApplications(QString());
    EXPECT_EQ(privacy.applications(), QString()) << "an emptied list stays empty";
    privacy.restoreDefaults();
    EXPECT_EQ(privacy.titleWords(), u"Private Browsing, Incognito, InPrivate"_s);
}

// The setup and the settings tab pick from the same models and check the chosen one with the server.
TEST_F(SettingsModelsTest, PickersFollowTheServiceAndCheckTheChosenModel)
{
    settings->setString(SettingsKey::selectedOllamaModel, u"llava:7b"_s);
    SettingsViewModel tab(llm.get(), settings.get(), &autostart, &desktop);
    tab.appear();
    EXPECT_EQ(tab.selectedModel(), u"qwen3-vl:2b"_s) << "an unknown stored name falls back";
    EXPECT_EQ(settings->string(SettingsKey::selectedOllamaModel), u"qwen3-vl:2b"_s);
    EXPECT_EQ(tab.usesText(), u"Uses Ollama on this computer (qwen3-vl:2b)"_s);
    EXPECT_EQ(tab.modelLabels(),
        QStringList({u"qwen3-vl:2b · Recommended · ~2 GB RAM"_s, u"qwen3-vl:4b · 16 GB+ RAM · a GPU helps · ~4 GB"_s}));
    waitForCheck(&tab, "isChecking");
    EXPECT_EQ(std::pair(tab.statusHelp(), tab.showInstallBox()), std::pair(u"Model ready"_s, false));

    tab.setSelectedIndex(1);
    EXPECT_EQ(tab.installCommandText(), u"2. Run: ollama pull qwen3-vl:4b"_s);
    waitForCheck(&tab, "isChecking");
    EXPECT_EQ(std::pair(tab.statusHelp(), tab.showInstallBox()),
        std::pair(u"Model not installed — run ollama pull qwen3-vl:4b"_s, true));

    SetupModel setup(llm.get(), settings.get(), &autostart, &desktop);
    setup.appear();
    waitForCheck(&setup, "isCheckingModel");
    EXPECT_EQ(std::pair(setup.statusText(), setup.pullCommand()),
        std::pair(u"Model not found — see installation guide"_s, u"ollama pull qwen3-vl:4b"_s));
    setup.selectModel(u"qwen3-vl:2b"_s);
    EXPECT_EQ(tab.selectedIndex(), 0);
    const QVariantList rows = setup.modelOptions();
    ASSERT_EQ(rows.size(), 2);
    EXPECT_TRUE(rows[0].toMap().value(u"isSelected"_s).toBool() && !rows[1].toMap().value(u"isSelected"_s).toBool());
    waitForCheck(&setup, "isCheckingModel");
    EXPECT_EQ(setup.statusText(), u"Model ready"_s);
    setup.openInstallationGuide();
    EXPECT_EQ(desktop.openedUrls, QList<QUrl> {ModelChoice::installationDocsURL()});
}

TEST_F(SettingsModelsTest, CopyPutsTheExactCommandOnTheClipboardForTwoSeconds)
{
    SetupModel setup(llm.get(), settings.get(), &autostart, &desktop);
    setup.copyPullCommand();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), u"ollama pull qwen3-vl:2b"_s);
    EXPECT_TRUE(setup.didCopyPullCommand());
    QSignalSpy cleared(&setup, &SetupModel::didCopyPullCommandChanged);
    EXPECT_FALSE(cleared.wait(1500));
    EXPECT_TRUE(cleared.wait(1500));
    EXPECT_FALSE(setup.didCopyPullCommand());
}

TEST_F(SettingsModelsTest, DefaultCategoriesFillOnlyABlankFieldAndOnlyInSetup)
{
    TrackingPreferencesModel settingsTab(settings.get(), false, false);
    settingsTab.appear();
    EXPECT_EQ(settingsTab.categorizeBy(), QString());

    settings->setString(SettingsKey::categorizeBy, u"   "_s);
    TrackingPreferencesModel setupSection(settings.get(), true, true);
    setupSection.appear();
    EXPECT_EQ(settings->string(SettingsKey::categorizeBy), u"Content Creation, Browsing, Coding, Communication"_s);
    setupSection.setCategorizeBy(u"Design"_s);
    setupSection.appear();
    EXPECT_EQ(settings->string(SettingsKey::categorizeBy), u"Design"_s);
    settingsTab.setProjects(u"Tamlo, Acme"_s);
    EXPECT_EQ(settings->string(SettingsKey::userProjects), u"Tamlo, Acme"_s);

    // A name longer than a label may be is kept as typed, and the section says it is cut.
    EXPECT_EQ(settingsTab.labelLimitText(), QString());
    setupSection.setCategorizeBy(u"Design,\n"_s + QString(201, u'x'));
    EXPECT_EQ(settingsTab.labelLimitText(), u"A name longer than 200 characters is cut to fit."_s);
}

TEST_F(SettingsModelsTest, LaunchAtLoginWritesTheAutostartEntryAndRevertsOnFailure)
{
    LaunchAtLoginModel toggle(&autostart, false);
    EXPECT_FALSE(toggle.launchAtLogin());
    toggle.setLaunchAtLogin(true);
    QFile entry(autostart.entryPath());
    ASSERT_TRUE(entry.open(QIODevice::ReadOnly));
    EXPECT_TRUE(entry.readAll().contains("Exec=tamlo\n"));
    entry.close();
    // Turned off outside the program: the next showing follows.
    ASSERT_TRUE(entry.open(QIODevice::Append));
    entry.write("Hidden=true\n");
    entry.close();
    toggle.appear();
    EXPECT_FALSE(toggle.launchAtLogin());
    toggle.setLaunchAtLogin(true);
    toggle.setLaunchAtLogin(false);
    EXPECT_FALSE(QFile::exists(autostart.entryPath()));

    // A folder that cannot be made: the switch goes back.
    QFile blocker(home.filePath(u"blocked"_s));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    XdgAutostart blocked(home.filePath(u"blocked/autostart"_s), u"tamlo"_s);
    LaunchAtLoginModel failing(&blocked, true);
    failing.setLaunchAtLogin(true);
    EXPECT_FALSE(failing.launchAtLogin());
}

TEST_F(SettingsModelsTest, PresenceSwitchesWriteTheSettingsAndAwayComesBackWithItsMinutes)
{
    settings->remove(SettingsKey::skipUnchangedScreens);
    PresenceSettingsModel presence(settings.get());
    EXPECT_EQ(std::tuple(presence.detectAway(), presence.awayMinutes(), presence.skipUnchangedScreens()),
        std::tuple(true, 5, true));
    presence.setAwayMinutes(1);
    EXPECT_EQ(presence.awayText(),
        u"After 1 minute without keyboard or mouse on a still screen, Tamlo records you as away."_s);
    presence.setDetectAway(false);
    EXPECT_EQ(presence.awayMinutes(), 1) << "kept for switching on again";
    presence.setAwayMinutes(500);
    EXPECT_EQ(settings->integer(SettingsKey::awayThresholdMinutes, -1), 0);
    EXPECT_EQ(presence.awayText(), u"Off: time with no input counts like any other."_s);
    presence.setDetectAway(true);
    EXPECT_EQ(settings->integer(SettingsKey::awayThresholdMinutes, -1), 120);
    presence.setSkipUnchangedScreens(false);
    EXPECT_FALSE(settings->boolean(SettingsKey::skipUnchangedScreens, true));
}

TEST(AboutModelTest, VersionLineFallsBackWhenTheBuildFixedNone)
{
    EXPECT_EQ(AboutModel(u""_s, u""_s).versionText(), u"Version 1.0 (1)"_s);
    EXPECT_EQ(AboutModel(u" 2.3.1 "_s, u"57"_s).versionText(), u"Version 2.3.1 (57)"_s);
}
