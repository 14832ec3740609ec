#include "logmessages.h"
#include "uitestenvironment.h"

#include "ui/activitycardlistmodel.h"
#include "ui/tamlotheme.h"

#include <QCoreApplication>
#include <QFile>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
using Action = MainScreenModel::BannerAction;

class MainScreenModelTest : public ::testing::Test
{
protected:
    UiTestEnvironment env;
};
} // namespace

TEST(MainScreenBannerTest, KeywordsAreCaseSensitiveAndPermissionComesFirst)
{
    EXPECT_EQ(MainScreenModel::bannerAction(u"Screen capture permission denied."_s), Action::OpenSettings);
    EXPECT_EQ(MainScreenModel::bannerAction(u"Access denied by the portal"_s), Action::OpenSettings);
    EXPECT_EQ(MainScreenModel::bannerAction(u"Permission needed"_s), Action::None);
    EXPECT_EQ(MainScreenModel::bannerAction(u"denied, and Ollama is not running"_s), Action::OpenSettings);
    EXPECT_EQ(MainScreenModel::bannerAction(u"AI analysis failed: Ollama is not running."_s), Action::Hint);
    EXPECT_EQ(MainScreenModel::bannerAction(u"Model \"x\" is not installed."_s), Action::Hint);
    EXPECT_EQ(MainScreenModel::bannerAction(u"Run ollama pull x"_s), Action::Hint);
    EXPECT_EQ(MainScreenModel::bannerAction(u"Ollama NOT RUNNING"_s), Action::None);
    EXPECT_EQ(MainScreenModel::bannerAction(u"Screenshot failed: no image"_s), Action::None);
}

// The control finishes the setup, then resumes and pauses; the banner shows only on the activity
// tab once the setup is done. What each banner offers is checked where the screens are drawn.
TEST_F(MainScreenModelTest, ControlAndBannerFollowTheSetupTheTabAndTheMonitor)
{
    auto main = env.makeMainScreen();
    env.grabber.failWith = ScreenCaptureError::Kind::CaptureFailed;
    QCoro::waitFor(env.monitor.performCapture());
    ASSERT_TRUE(env.monitor.hasError());
    main->setSelectedTab(1);
    EXPECT_FALSE(main->showBanner()) << "no banner during setup";
    EXPECT_EQ(main->controlLabel(), u"Finish Setup"_s);

    main->triggerControl();
    EXPECT_TRUE(env.settings.boolean(SettingsKey::didCompleteInitialSetup));
    EXPECT_TRUE(main->showBanner());
    EXPECT_EQ(main->statusText(), u"Inactive"_s);
    EXPECT_EQ(main->controlLabel(), u"Resume"_s);
    QSignalSpy bannerChanged(main.get(), &MainScreenModel::bannerChanged);
    main->setSelectedTab(0);
    EXPECT_FALSE(main->showBanner());
    EXPECT_GE(bannerChanged.count(), 1);

    env.grabber.failWith.reset();
    QSignalSpy control(main.get(), &MainScreenModel::controlChanged);
    main->triggerControl();
    EXPECT_TRUE(env.monitor.isMonitoring());
    EXPECT_EQ(main->statusText(), u"Active"_s);
    EXPECT_EQ(main->controlLabel(), u"Pause"_s);
    EXPECT_EQ(control.count(), 1);
    main->triggerControl();
    EXPECT_FALSE(env.monitor.isMonitoring());
    EXPECT_EQ(main->controlLabel(), u"Resume"_s);
    EXPECT_FALSE(main->showPauseChoices());

    // A timed pause names its end where the status is; Resume ends it early.
    main->triggerControl();
    EXPECT_TRUE(main->showPauseChoices());
    QSignalSpy status(main.get(), &MainScreenModel::statusChanged);
    main->pauseFor(0);
    EXPECT_FALSE(env.monitor.isMonitoring());
    EXPECT_EQ(main->statusText(), u"Paused until 9:35 AM"_s);
    EXPECT_EQ(main->controlLabel(), u"Resume"_s);
    EXPECT_GE(status.count(), 1);
    main->triggerControl();
    EXPECT_EQ(main->statusText(), u"Active"_s);
    main->pauseFor(2);
    EXPECT_EQ(main->statusText(), u"Paused until 12:00 AM"_s);
}

TEST_F(MainScreenModelTest, NoteNeedsThisLaunchsSnapshotsAndText)
{
    env.snapshotStore.add(ActivitySnapshot {
        QUuid::createUuid(), env.clock.now(), u"Coding"_s, std::nullopt, u"Tamlo"_s, u"Earlier today"_s, std::nullopt});
    auto main = env.makeMainScreen();
    EXPECT_TRUE(main->exportLogsEnabled()) << "the store has today's records";
    EXPECT_FALSE(main->noteFieldEnabled()) << "but this launch has none";
    EXPECT_TRUE(main->showNoteHint());
    main->setPendingNote(u"hello"_s);
    EXPECT_FALSE(main->addNoteEnabled());

    env.capture(u"Coding"_s, u"Tamlo"_s, u"Editing the panel"_s);
    EXPECT_TRUE(main->noteFieldEnabled());
    EXPECT_FALSE(main->showNoteHint());
    main->setPendingNote(u"  \n "_s);
    EXPECT_FALSE(main->addNoteEnabled());

    main->setPendingNote(u"  Pairing with Sam  "_s);
    EXPECT_TRUE(main->addNoteEnabled());
    main->addNote();
    EXPECT_EQ(main->pendingNote(), QString());
    EXPECT_EQ(env.monitor.latestSnapshots().first().userNote, u"Pairing with Sam"_s);
    EXPECT_EQ(main->activities()->data(main->activities()->index(0), ActivityCardListModel::NoteRole).toString(),
        u"Pairing with Sam"_s);

    // Near the length a note keeps, the field counts down; past it, it says the rest is cut.
    for (const auto &[length, text] : {std::pair {3895, QString()}, {4095, u"1 character left"_s},
             {4100, u"A note holds 4,096 characters; this one is 4 over and will be cut."_s}}) {
        main->setPendingNote(QString(length, u'a'));
        EXPECT_EQ(main->noteLimitText(), text) << length;
    }
    main->setPendingNote(QString(4096, u'a'));
    main->addNote();
    EXPECT_EQ(env.monitor.latestSnapshots().first().userNote, QString(4096, u'a'));
}

TEST_F(MainScreenModelTest, ReportTabCountsThirtySecondsPerActiveSnapshotOfToday)
{
    env.settings.setString(SettingsKey::userProjects, u"Tamlo"_s);
    env.settings.setString(SettingsKey::categorizeBy, u"Coding, Browsing"_s);
    auto main = env.makeMainScreen();
    env.capture(u"Coding"_s, u"Tamlo"_s, u"Editing"_s);
    env.capture(u"Browsing"_s, u"Tamlo"_s, u"Reading docs"_s);
    env.events.fire(ScreenEvent::Locked); // not monitoring: no observer, the screen stays active
    EXPECT_EQ(main->report()->activeSeconds(), 60);
    EXPECT_EQ(main->report()->categories().size(), 2);

    // A record that reaches the store without a capture shows once the tab is rebuilt.
    env.snapshotStore.add(ActivitySnapshot {
        QUuid::createUuid(), env.clock.now(), u"Coding"_s, std::nullopt, u"Tamlo"_s, u"Typed in"_s, std::nullopt});
    EXPECT_EQ(main->report()->activeSeconds(), 60);
    main->setSelectedTab(1);
    main->setSelectedTab(0);
    EXPECT_EQ(main->report()->activeSeconds(), 90);

    // Away, said in the status line, adds no time.
    env.monitor.startMonitoring();
    env.idleTime.idle = std::chrono::hours(1);
    env.capture(u"Coding"_s, u"Tamlo"_s, u"Editing"_s);
    EXPECT_EQ(env.monitor.latestSnapshots().first().activityDescription, u"Away"_s);
    EXPECT_EQ(std::pair(main->statusText(), main->statusColor()), std::pair(u"Away"_s, TamloTheme::orange()));
    EXPECT_EQ(main->report()->activeSeconds(), 90);
    env.monitor.stopMonitoring();
    EXPECT_EQ(main->statusText(), u"Inactive"_s);
}

TEST_F(MainScreenModelTest, WorkLogExportNamesTheDayAndWritesOnlyWhereTheUserPicked)
{
    auto main = env.makeMainScreen();
    EXPECT_FALSE(main->exportLogsEnabled());
    main->exportTodayLogs();
    EXPECT_FALSE(main->pendingExportKind().has_value()) << "nothing to export";

    env.capture(u"Coding"_s, u"Other"_s, u"Editing"_s);
    EXPECT_TRUE(main->exportLogsEnabled());
    QSignalSpy requested(main.get(), &MainScreenModel::saveFileRequested);
    main->exportTodayLogs();
    ASSERT_EQ(requested.count(), 1);
    EXPECT_EQ(requested.first().first().toString(), u"Tamlo_WorkLog_2026-03-09.csv"_s);

    const QString target = env.home.filePath(u"picked.csv"_s);
    main->completeExport(QUrl::fromLocalFile(target));
    QFile file(target);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_TRUE(file.readAll().contains("Editing"));

    main->exportTodayLogs();
    main->cancelExport();
    main->completeExport(QUrl::fromLocalFile(env.home.filePath(u"late.csv"_s)));
    EXPECT_FALSE(QFile::exists(env.home.filePath(u"late.csv"_s))) << "a cancelled export writes nothing";
}

TEST_F(MainScreenModelTest, DailyReportExportRunsOnceAtATimeAndLogsTheOutcome)
{
    auto main = env.makeMainScreen();
    env.capture(u"Coding"_s, u"Other"_s, u"Editing"_s);
    QSignalSpy requested(main.get(), &MainScreenModel::saveFileRequested);

    main->exportTodayDailyReport();
    EXPECT_TRUE(main->isExportingDailyReport());
    EXPECT_EQ(main->exportReportLabel(), u"Exporting…"_s);
    EXPECT_FALSE(main->exportReportEnabled());
    main->exportTodayDailyReport();
    ASSERT_TRUE(requested.wait(10000));
    EXPECT_FALSE(main->isExportingDailyReport());
    EXPECT_EQ(main->exportReportLabel(), u"Export daily report"_s);
    EXPECT_EQ(logMessages(env.logManager).count(u"📊 Exporting today's daily report…"_s), 1);
    EXPECT_EQ(requested.count(), 1);
    EXPECT_EQ(requested.first().first().toString(), u"Tamlo_Daily_Report_2026-03-09.csv"_s);

    main->completeExport(QUrl::fromLocalFile(env.home.filePath(u"report.csv"_s)));
    EXPECT_TRUE(logMessages(env.logManager).contains(u"✅ Daily report exported"_s));
    QFile file(env.home.filePath(u"report.csv"_s));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_TRUE(file.readAll().startsWith("Date,"));

    main->exportTodayDailyReport();
    ASSERT_TRUE(requested.wait(10000));
    main->completeExport(QUrl::fromLocalFile(env.home.filePath(u"missing-folder/report.csv"_s)));
    QCoreApplication::processEvents();
    EXPECT_TRUE(env.logManager.logs().first().message.startsWith(u"❌ Daily report export failed: "_s));
}

// The report finishes while the work log's dialog is open: each dialog saves its own content, one
// after the other.
TEST_F(MainScreenModelTest, ExportsFinishingTogetherEachSaveTheirOwnContent)
{
    auto main = env.makeMainScreen();
    env.capture(u"Coding"_s, u"Other"_s, u"Editing"_s);
    QSignalSpy requested(main.get(), &MainScreenModel::saveFileRequested);
    main->exportTodayDailyReport();
    main->exportTodayLogs();
    ASSERT_EQ(requested.count(), 1);
    EXPECT_EQ(main->pendingSaveFileName(), u"Tamlo_WorkLog_2026-03-09.csv"_s);
    QTRY_VERIFY(!main->isExportingDailyReport());
    EXPECT_EQ(requested.count(), 1) << "the report waits for the open dialog";

    main->completeExport(QUrl::fromLocalFile(env.home.filePath(u"log.csv"_s)));
    ASSERT_EQ(requested.count(), 2);
    EXPECT_EQ(main->pendingSaveFileName(), u"Tamlo_Daily_Report_2026-03-09.csv"_s);
    main->completeExport(QUrl::fromLocalFile(env.home.filePath(u"report.csv"_s)));
    EXPECT_EQ(main->pendingSaveFileName(), QString());
    QFile log(env.home.filePath(u"log.csv"_s));
    QFile report(env.home.filePath(u"report.csv"_s));
    ASSERT_TRUE(log.open(QIODevice::ReadOnly) && report.open(QIODevice::ReadOnly));
    EXPECT_TRUE(log.readAll().contains("Editing"));
    EXPECT_TRUE(report.readAll().startsWith("Date,"));
}

// Closing a day while paused moves no counter the screen follows; its log entries still refresh it.
TEST_F(MainScreenModelTest, DayClosedWhilePausedLeavesNoFiguresOfYesterday)
{
    // Today's records from before a restart: nothing in this launch's list, no capture counted.
    env.snapshotStore.add(ActivitySnapshot {
        QUuid::createUuid(), env.clock.now(), u"Coding"_s, std::nullopt, u"Tamlo"_s, u"Earlier"_s, std::nullopt});
    auto main = env.makeMainScreen();
    ASSERT_TRUE(main->exportLogsEnabled());
    ASSERT_EQ(main->report()->activeSeconds(), 30);

    env.clock.advance(24 * 3600);
    QCoro::waitFor(env.monitor.checkDailyReset());
    QTRY_VERIFY(!main->exportLogsEnabled());
    EXPECT_EQ(main->report()->activeSeconds(), 0);
}
