#include "app/appdelegate.h"
#include "ui/aboutmodel.h"
#include "ui/activitylabelstyle.h"
#include "ui/launchatloginmodel.h"
#include "ui/presencesettingsmodel.h"
#include "ui/privacysettingsmodel.h"
#include "ui/tamlotheme.h"
#include "ui/trackingpreferencesmodel.h"

#include "files.h"
#include "records.h"
#include "uirig.h"

#include <QClipboard>
#include <QFile>
#include <QGuiApplication>
#include <QLocale>
#include <QPalette>
#include <QSignalSpy>

using namespace Qt::StringLiterals;

namespace {
using MainScreenModelTest = UiRig;
using SettingsModelsTest = UiRig;
} // namespace

TEST(MainScreenBannerTest, KeywordsAreCaseSensitiveAndPermissionComesFirst)
{
    using Action = MainScreenModel::BannerAction;
    const std::pair<QString, Action> rows[]
        = {{u"Access denied by the portal"_s, Action::OpenSettings}, {u"no permission"_s, Action::OpenSettings},
            {u"Permission needed"_s, Action::None}, {u"denied, and Ollama is not running"_s, Action::OpenSettings},
            {u"AI analysis failed: Ollama is not running."_s, Action::Hint},
            {u"Model \"x\" is not installed."_s, Action::Hint}, {u"Run ollama pull x"_s, Action::Hint},
            {u"Ollama NOT RUNNING"_s, Action::None}};
    for (const auto &[error, action] : rows) {
        EXPECT_EQ(MainScreenModel::bannerAction(error), action) << error.toStdString();
    }
}

// A report finishing while the work log's dialog is open waits, so each dialog saves its own content.
TEST_F(MainScreenModelTest, ExportsAskOneAtATimeAndEachSavesItsOwnContent)
{
    makeMain();
    main->exportTodayLogs();
    main->exportTodayDailyReport();
    EXPECT_FALSE(main->pendingExportKind().has_value()) << "nothing to export";

    tickWith(u"Coding"_s, u"Other"_s, u"Editing"_s);
    QSignalSpy requested(main.get(), &MainScreenModel::saveFileRequested);
    main->exportTodayDailyReport();
    EXPECT_EQ(std::pair(main->exportReportLabel(), main->exportReportEnabled()), std::pair(u"Exporting…"_s, false));
    main->exportTodayDailyReport();
    main->exportTodayLogs();
    ASSERT_EQ(requested.count(), 1);
    EXPECT_EQ(main->pendingSaveFileName(), u"Tamlo_WorkLog_2026-03-09.csv"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !main->isExportingDailyReport(); }));
    EXPECT_EQ(main->exportReportLabel(), u"Export daily report"_s);
    EXPECT_EQ(requested.count(), 1) << "the report waits for the open dialog";
    EXPECT_EQ(messages().count(u"📊 Exporting today's daily report…"_s), 1);

    main->completeExport(QUrl::fromLocalFile(home.filePath(u"log.csv"_s)));
    ASSERT_EQ(requested.count(), 2);
    EXPECT_EQ(main->pendingSaveFileName(), u"Tamlo_Daily_Report_2026-03-09.csv"_s);
    main->completeExport(QUrl::fromLocalFile(home.filePath(u"report.csv"_s)));
    EXPECT_EQ(main->pendingSaveFileName(), QString());
    EXPECT_TRUE(readBytes(home.filePath(u"log.csv"_s)).contains("Editing"));
    EXPECT_TRUE(readBytes(home.filePath(u"report.csv"_s)).startsWith("Date,"));
    EXPECT_TRUE(messages().contains(u"✅ Daily report exported"_s));

    main->exportTodayLogs();
    main->cancelExport();
    main->completeExport(QUrl::fromLocalFile(home.filePath(u"late.csv"_s)));
    EXPECT_FALSE(QFile::exists(home.filePath(u"late.csv"_s))) << "a cancelled export writes nothing";
    main->exportTodayDailyReport();
    ASSERT_TRUE(requested.wait(10000));
    main->completeExport(QUrl::fromLocalFile(home.filePath(u"missing-folder/report.csv"_s)));
    EXPECT_TRUE(messages().last().startsWith(u"❌ Daily report export failed: "_s));
}

// Closing the day while paused moves no counter the screen follows: its log entries refresh it.
TEST_F(MainScreenModelTest, RecordsFromBeforeARestartThenTheDayClosedWhilePaused)
{
    snapshotStore->add(ActivitySnapshot {
        QUuid::createUuid(), clock.now(), u"Coding"_s, std::nullopt, u"Tamlo"_s, u"Earlier"_s, std::nullopt});
    makeMain();
    EXPECT_TRUE(main->exportLogsEnabled());
    EXPECT_EQ(main->report()->activeSeconds(), 30);
    EXPECT_TRUE(!main->noteFieldEnabled() && main->showNoteHint());
    main->setPendingNote(u"hello"_s);
    EXPECT_FALSE(main->addNoteEnabled());
    snapshotStore->add(recordAt(clock.now().addSecs(-30)));
    main->setSelectedTab(1);
    main->setSelectedTab(0);
    EXPECT_EQ(main->report()->activeSeconds(), 60) << "the report shows the records as they are when it opens";

    clock.advance(24 * 3600);
    QCoro::waitFor(monitor->checkDailyReset());
    ASSERT_TRUE(QTest::qWaitFor([&] { return !main->exportLogsEnabled(); }));
    EXPECT_EQ(main->report()->activeSeconds(), 0);
}

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

TEST_F(SettingsModelsTest, CopyPutsTheExactCommandOnTheClipboard)
{
    SetupModel setup(llm.get(), settings.get(), &autostart, &desktop);
    setup.copyPullCommand();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), u"ollama pull qwen3-vl:2b"_s);
    EXPECT_TRUE(setup.didCopyPullCommand());
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
    EXPECT_TRUE(readBytes(autostart.entryPath()).contains("Exec=tamlo\n"));
    // Turned off outside the program: the next showing follows.
    QFile entry(autostart.entryPath());
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
    settings->setInteger(SettingsKey::awayThresholdMinutes, 1);
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

TEST(ActivityCardTest, ChipsNoteAndDescriptionOfEachKindOfRecord)
{
    struct Row
    {
        QString category, project, description;
        std::optional<QString> note, categoryChip, projectChip, shownNote;
    };
    const Row rows[] = {
        {u"  Email \n"_s, u"Tamlo"_s, u"Answering mail"_s, u"  call back  "_s, u"Email"_s, u"Tamlo"_s, u"call back"_s},
        // A note that names a known project moves the chip there.
        {u"Coding"_s, u"Other"_s, u"Editing"_s, u"for Acme"_s, u"Coding"_s, u"Acme"_s, u"for Acme"_s},
        {u"   "_s, u"Other"_s, u""_s, u" \n "_s, {}, {}, {}},
        // Markers show their time and themselves, nothing of the labels behind them.
        {u"Other"_s, u"Tamlo"_s, ActivitySnapshot::screenStateMarker(ScreenState::Locked), {}, {}, {}, {}},
        {u"Coding"_s, u"Tamlo"_s, u"Private"_s, {}, {}, {}, {}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.description.toStdString());
        const auto card = ActivityCardPresentation::present(
            ActivitySnapshot {QUuid::createUuid(), QDateTime(QDate(2026, 3, 9), QTime(14, 5, 42)), row.category,
                std::nullopt, row.project, row.description, row.note},
            {u"Tamlo"_s, u"Acme"_s});
        EXPECT_EQ(card.categoryChip, row.categoryChip);
        if (row.categoryChip) {
            EXPECT_EQ(card.categoryColor, ActivityLabelStyle::color(*row.categoryChip));
        }
        EXPECT_EQ(card.projectChip, row.projectChip);
        EXPECT_EQ(std::pair(card.trimmedNote, card.showNoteBadge), std::pair(row.shownNote, row.shownNote.has_value()));
        EXPECT_EQ(card.description.value_or(u"none"_s), row.description.isEmpty() ? u"none"_s : row.description);
        EXPECT_EQ(card.timeText, u"2:05 PM"_s);
    }
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(ActivityCardPresentation::hourMinuteText(QDateTime(QDate(2026, 3, 9), QTime(9, 5))), u"09:05"_s);
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
}

// The ring's segments run on without normalising; a bar is clamped, its label keeps the number.
TEST(ReportViewModelTest, DurationRingAndBarsFollowTheReport)
{
    const std::pair<int, QString> durations[]
        = {{59, u"0m"_s}, {3599, u"59m"_s}, {3600, u"1h 0m"_s}, {2 * 3600 + 5 * 60 + 30, u"2h 5m"_s}};
    for (const auto &[seconds, text] : durations) {
        EXPECT_EQ(ReportViewModel::formattedDuration(seconds), text) << seconds;
    }
    const auto share = [](const QString &name, double percentage) {
        return LabelShare {QUuid::createUuid(), name, 1, percentage};
    };
    ReportViewModel model;
    model.setReport(0, {}, {});
    EXPECT_EQ(model.estimatedMinutesText(), u"0 min estimated"_s);
    EXPECT_EQ(std::tuple(model.showEmptyState(), model.showProjects(), model.showCategories()),
        std::tuple(true, false, false));

    model.setReport(150, {}, {share(u"Coding"_s, 150.0)});
    EXPECT_EQ(model.estimatedMinutesText(), u"2 min estimated"_s);
    EXPECT_EQ(std::tuple(model.showEmptyState(), model.showProjects(), model.showCategories()),
        std::tuple(false, false, true));
    const QVariantMap bar = model.categories().first().toMap();
    EXPECT_EQ(bar.value(u"percentText"_s).toString(), u"150%"_s);
    EXPECT_DOUBLE_EQ(bar.value(u"fill"_s).toDouble(), 1.0);
    EXPECT_EQ(bar.value(u"color"_s).value<QColor>(), TamloTheme::blue());
    EXPECT_DOUBLE_EQ(ReportViewModel::barFraction(-5.0), 0.0);
    EXPECT_DOUBLE_EQ(ReportViewModel::barFraction(25.0), 0.25);

    model.setReport(90, {share(u"Tamlo"_s, 50), share(u"Acme"_s, 25), share(u"Other"_s, 12.5)}, {});
    const QVariantList ring = model.projects();
    ASSERT_EQ(ring.size(), 3);
    for (const auto &[index, start, end] : {std::tuple(0, 0.0, 0.5), {1, 0.5, 0.75}, {2, 0.75, 0.875}}) {
        EXPECT_DOUBLE_EQ(ring[index].toMap().value(u"start"_s).toDouble(), start);
        EXPECT_DOUBLE_EQ(ring[index].toMap().value(u"end"_s).toDouble(), end);
    }
}

// The launch makes the palette light and delivers the URLs opened before it, in order.
TEST(AppDelegateTest, LaunchForcesALightPaletteAndDeliversEarlierUrls)
{
    QGuiApplication::setPalette(QPalette(QColor(30, 30, 30)));
    AppDelegate delegate;
    QStringList delivered;
    delegate.setUrlHandler([&](const QString &url) { delivered.append(url); });
    delegate.handleURLEvent(u"tamlo://auth?token=a"_s);
    delegate.handleURLEvent(u"tamlo://sync"_s);
    EXPECT_TRUE(delivered.isEmpty());

    delegate.applicationDidFinishLaunching();
    EXPECT_EQ(delivered, QStringList({u"tamlo://auth?token=a"_s, u"tamlo://sync"_s}));
    delegate.handleURLEvent(u"tamlo://sync"_s);
    EXPECT_EQ(delivered.size(), 3);
    EXPECT_GT(QGuiApplication::palette().color(QPalette::Window).lightness(), 200);
    EXPECT_LT(QGuiApplication::palette().color(QPalette::WindowText).lightness(), 60);
}
