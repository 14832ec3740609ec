#include "uitestenvironment.h"

#include "ui/aboutmodel.h"
#include "ui/launchatloginmodel.h"
#include "ui/modelchoice.h"
#include "ui/privacysettingsmodel.h"
#include "ui/presencesettingsmodel.h"
#include "ui/settingsviewmodel.h"
#include "ui/setupmodel.h"
#include "ui/trackingpreferencesmodel.h"

#include <QClipboard>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
void waitForCheck(QObject *model, const char *property)
{
    for (int i = 0; i < 200 && model->property(property).toBool(); ++i) {
        QSignalSpy(model, SIGNAL(statusChanged())).wait(50);
    }
}

class SettingsModelsTest : public ::testing::Test
{
protected:
    UiTestEnvironment env;
};
} // namespace

TEST(ModelChoiceTest, PickerLabelsAndDetails)
{
    EXPECT_EQ(ModelChoice::pickerLabel(u"qwen3-vl:2b"_s), u"qwen3-vl:2b · Recommended · ~2 GB RAM"_s);
    EXPECT_EQ(ModelChoice::pickerLabel(u"qwen3-vl:4b"_s), u"qwen3-vl:4b · 16 GB+ RAM · a GPU helps · ~4 GB"_s);
    EXPECT_EQ(ModelChoice::pickerLabel(u"llava"_s), u"llava"_s);
}

// Where the desktop keeps its windows to itself, the tab says so instead of offering a list.
TEST_F(SettingsModelsTest, PrivacyListsApplyWhereTheSessionCanTellAndAreExplainedWhereNot)
{
    const QList<std::pair<QStringList, QString>> sessions {
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
        PrivacySettingsModel privacy(&env.settings, session);
        EXPECT_EQ(privacy.canApply(), desktop.isEmpty());
        EXPECT_EQ(privacy.explanation().contains(desktop + u" does not tell other programs"_s), !desktop.isEmpty());
    }

    PrivacySettingsModel privacy(&env.settings, {});
    EXPECT_EQ(privacy.applications(), u"KeePassXC, KeePass2, seahorse"_s);
    privacy.setApplications(QString());
    EXPECT_EQ(privacy.applications(), QString()) << "an emptied list stays empty";
    privacy.restoreDefaults();
    EXPECT_EQ(privacy.titleWords(), u"Private Browsing, Incognito, InPrivate"_s);
}

TEST_F(SettingsModelsTest, PickerFollowsTheServiceAndChecksTheChosenModel)
{
    env.settings.setString(SettingsKey::selectedOllamaModel, u"llava:7b"_s);
    SettingsViewModel settings(&env.llm, &env.settings, &env.autostart, &env.desktop);
    settings.appear();
    EXPECT_EQ(settings.selectedModel(), u"qwen3-vl:2b"_s) << "an unknown stored name falls back";
    EXPECT_EQ(env.settings.string(SettingsKey::selectedOllamaModel), u"qwen3-vl:2b"_s);
    EXPECT_EQ(settings.usesText(), u"Uses Ollama on this computer (qwen3-vl:2b)"_s);
    EXPECT_EQ(settings.selectedIndex(), 0);
    EXPECT_TRUE(settings.isChecking());
    waitForCheck(&settings, "isChecking");
    EXPECT_TRUE(settings.modelAvailable());
    EXPECT_FALSE(settings.showInstallBox());
    EXPECT_EQ(settings.statusHelp(), u"Model ready"_s);

    settings.setSelectedIndex(1);
    EXPECT_EQ(env.llm.localModelName(), u"qwen3-vl:4b"_s);
    EXPECT_EQ(settings.installCommandText(), u"2. Run: ollama pull qwen3-vl:4b"_s);
    EXPECT_TRUE(settings.isChecking());
    waitForCheck(&settings, "isChecking");
    EXPECT_FALSE(settings.modelAvailable());
    EXPECT_TRUE(settings.showInstallBox());
    EXPECT_EQ(settings.statusHelp(), u"Model not installed — run ollama pull qwen3-vl:4b"_s);

    // Installed meanwhile: the next showing of the tab sees it.
    env.installedModels.append(u"qwen3-vl:4b-instruct"_s);
    env.llm.invalidateInstalledModelsCache();
    settings.appear();
    waitForCheck(&settings, "isChecking");
    EXPECT_TRUE(settings.modelAvailable());
}

TEST_F(SettingsModelsTest, SetupFollowsSelectionAndShowsSpinnerWhileChecking)
{
    SetupModel setup(&env.llm, &env.settings, &env.autostart, &env.desktop);
    setup.appear();
    waitForCheck(&setup, "isCheckingModel");
    EXPECT_TRUE(setup.modelAvailable());
    EXPECT_EQ(setup.statusText(), u"Model ready"_s);
    EXPECT_EQ(setup.pullCommand(), u"ollama pull qwen3-vl:2b"_s);

    setup.selectModel(u"qwen3-vl:4b"_s);
    EXPECT_EQ(setup.pullCommand(), u"ollama pull qwen3-vl:4b"_s);
    EXPECT_TRUE(setup.isCheckingModel());
    const QVariantList rows = setup.modelOptions();
    ASSERT_EQ(rows.size(), 2);
    EXPECT_FALSE(rows[0].toMap().value(u"isSelected"_s).toBool());
    EXPECT_TRUE(rows[1].toMap().value(u"isSelected"_s).toBool());
    waitForCheck(&setup, "isCheckingModel");
    EXPECT_FALSE(setup.modelAvailable());
    EXPECT_EQ(setup.statusText(), u"Model not found — see installation guide"_s);

    setup.openInstallationGuide();
    ASSERT_EQ(env.desktop.openedUrls.size(), 1);
    EXPECT_EQ(env.desktop.openedUrls.first(), ModelChoice::installationDocsURL());
}

TEST_F(SettingsModelsTest, CopyPutsTheExactCommandOnTheClipboardForTwoSeconds)
{
    SetupModel setup(&env.llm, &env.settings, &env.autostart, &env.desktop);
    setup.appear();
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
    TrackingPreferencesModel settingsTab(&env.settings, false, false);
    settingsTab.appear();
    EXPECT_EQ(settingsTab.categorizeBy(), QString());

    env.settings.setString(SettingsKey::categorizeBy, u"   "_s);
    TrackingPreferencesModel setupSection(&env.settings, true, true);
    setupSection.appear();
    EXPECT_EQ(env.settings.string(SettingsKey::categorizeBy), u"Content Creation, Browsing, Coding, Communication"_s);

    setupSection.setCategorizeBy(u"Design"_s);
    setupSection.appear();
    EXPECT_EQ(env.settings.string(SettingsKey::categorizeBy), u"Design"_s);

    settingsTab.setProjects(u"Tamlo, Acme"_s);
    EXPECT_EQ(env.settings.string(SettingsKey::userProjects), u"Tamlo, Acme"_s);

    // A name longer than a label may be is kept as typed, and the section says it is cut.
    EXPECT_EQ(settingsTab.labelLimitText(), QString());
    setupSection.setCategorizeBy(u"Design,\n"_s + QString(201, u'x'));
    EXPECT_EQ(settingsTab.labelLimitText(), u"A name longer than 200 characters is cut to fit."_s);
}

TEST_F(SettingsModelsTest, LaunchAtLoginWritesTheAutostartEntryAndRevertsOnFailure)
{
    LaunchAtLoginModel toggle(&env.autostart, false);
    EXPECT_FALSE(toggle.launchAtLogin());
    toggle.setLaunchAtLogin(true);
    EXPECT_TRUE(toggle.launchAtLogin());
    QFile entry(env.autostart.entryPath());
    ASSERT_TRUE(entry.open(QIODevice::ReadOnly));
    EXPECT_TRUE(entry.readAll().contains("Exec=tamlo\n"));
    entry.close();

    // Turned off outside the program: the next showing follows.
    ASSERT_TRUE(entry.open(QIODevice::Append));
    entry.write("Hidden=true\n");
    entry.close();
    toggle.appear();
    EXPECT_FALSE(toggle.launchAtLogin());

    toggle.setLaunchAtLogin(false);
    ASSERT_TRUE(QFile::remove(env.autostart.entryPath()));
    // A folder that cannot be made: the switch goes back.
    QFile blocker(env.home.filePath(u"blocked"_s));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    XdgAutostart blocked(env.home.filePath(u"blocked/autostart"_s), u"tamlo"_s);
    LaunchAtLoginModel failing(&blocked, true);
    QSignalSpy changed(&failing, &LaunchAtLoginModel::launchAtLoginChanged);
    failing.setLaunchAtLogin(true);
    EXPECT_FALSE(failing.launchAtLogin());
    EXPECT_EQ(changed.count(), 2);
}

TEST_F(SettingsModelsTest, PresenceSwitchesWriteTheSettingsAndAwayComesBackWithItsMinutes)
{
    env.settings.remove(SettingsKey::skipUnchangedScreens);
    PresenceSettingsModel presence(&env.settings);
    EXPECT_EQ(std::tuple(presence.detectAway(), presence.awayMinutes(), presence.skipUnchangedScreens()),
        std::tuple(true, 5, true));
    presence.setAwayMinutes(1);
    EXPECT_EQ(presence.awayText(),
        u"After 1 minute without keyboard or mouse on a still screen, Tamlo records you as away."_s);
    presence.setDetectAway(false);
    EXPECT_EQ(presence.awayMinutes(), 1) << "kept for switching on again";
    presence.setAwayMinutes(500);
    EXPECT_EQ(env.settings.integer(SettingsKey::awayThresholdMinutes, -1), 0);
    EXPECT_EQ(presence.awayText(), u"Off: time with no input counts like any other."_s);
    presence.setDetectAway(true);
    EXPECT_EQ(env.settings.integer(SettingsKey::awayThresholdMinutes, -1), PresenceSettingsModel::maximumMinutes);
    presence.setSkipUnchangedScreens(false);
    EXPECT_FALSE(env.settings.boolean(SettingsKey::skipUnchangedScreens, true));
}

TEST(AboutModelTest, VersionLineFallsBackWhenTheBuildFixedNone)
{
    EXPECT_EQ(AboutModel(u""_s, u""_s).versionText(), u"Version 1.0 (1)"_s);
    EXPECT_EQ(AboutModel(u" 2.3.1 "_s, u"57"_s).versionText(), u"Version 2.3.1 (57)"_s);
}
