#include "uirig.h"

#include "ui/activitycardlistmodel.h"
#include "ui/tamlotheme.h"

#include <QFile>
#include <QSignalSpy>

using namespace Qt::StringLiterals;

namespace {
using MainScreenModelTest = UiRig;

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
} // namespace

TEST(MainScreenBannerTest, KeywordsAreCaseSensitiveAndPermissionComesFirst)
{
    using Action = MainScreenModel::BannerAction;
    const std::pair<QString, Action> rows[] = {{u"Screen capture permission denied."_s, Action::OpenSettings},
        {u"Access denied by the portal"_s, Action::OpenSettings}, {u"Permission needed"_s, Action::None},
        {u"denied, and Ollama is not running"_s, Action::OpenSettings},
        {u"AI analysis failed: Ollama is not running."_s, Action::Hint},
        {u"Model \"x\" is not installed."_s, Action::Hint}, {u"Run ollama pull x"_s, Action::Hint},
        {u"Ollama NOT RUNNING"_s, Action::None}, {u"Screenshot failed: no image"_s, Action::None}};
    for (const auto &[error, action] : rows) {
        EXPECT_EQ(MainScreenModel::bannerAction(error), action) << error.toStdString();
    }
}

// The control finishes the setup, then resumes and pauses; the banner shows only on the activity
// tab once the setup is done. What each banner offers is checked where the screens are drawn.
TEST_F(MainScreenModelTest, ControlAndBannerFollowTheSetupTheTabAndTheMonitor)
{
    makeMain();
    grabber.failWith = ScreenCaptureError::Kind::CaptureFailed;
    tick();
    main->setSelectedTab(1);
    EXPECT_FALSE(main->showBanner()) << "no banner during setup";
    EXPECT_EQ(main->controlLabel(), u"Finish Setup"_s);

    main->triggerControl();
    EXPECT_TRUE(settings->boolean(SettingsKey::didCompleteInitialSetup));
    EXPECT_TRUE(main->showBanner());
    EXPECT_EQ(std::pair(main->statusText(), main->controlLabel()), std::pair(u"Inactive"_s, u"Resume"_s));
    main->setSelectedTab(0);
    EXPECT_FALSE(main->showBanner());

    grabber.failWith.reset();
    main->triggerControl();
    EXPECT_EQ(std::pair(main->statusText(), main->controlLabel()), std::pair(u"Active"_s, u"Pause"_s));
    EXPECT_TRUE(main->showPauseChoices());
    main->triggerControl();
    EXPECT_FALSE(monitor->isMonitoring());
    EXPECT_FALSE(main->showPauseChoices());

    // A timed pause names its end where the status is; Resume ends it early.
    main->triggerControl();
    QSignalSpy status(main.get(), &MainScreenModel::statusChanged);
    main->pauseFor(0);
    EXPECT_EQ(std::pair(main->statusText(), main->controlLabel()), std::pair(u"Paused until 9:35 AM"_s, u"Resume"_s));
    EXPECT_GE(status.count(), 1);
    main->triggerControl();
    EXPECT_EQ(main->statusText(), u"Active"_s);
    main->pauseFor(2);
    EXPECT_EQ(main->statusText(), u"Paused until 12:00 AM"_s);
}

TEST_F(MainScreenModelTest, NoteNeedsThisLaunchsSnapshotsAndText)
{
    snapshotStore->add(ActivitySnapshot {
        QUuid::createUuid(), clock.now(), u"Coding"_s, std::nullopt, u"Tamlo"_s, u"Earlier today"_s, std::nullopt});
    makeMain();
    EXPECT_TRUE(main->exportLogsEnabled()) << "the store has today's records";
    EXPECT_FALSE(main->noteFieldEnabled()) << "but this launch has none";
    EXPECT_TRUE(main->showNoteHint());
    main->setPendingNote(u"hello"_s);
    EXPECT_FALSE(main->addNoteEnabled());

    tickWith(u"Coding"_s, u"Tamlo"_s, u"Editing the panel"_s);
    EXPECT_TRUE(main->noteFieldEnabled() && !main->showNoteHint());
    main->setPendingNote(u"  \n "_s);
    EXPECT_FALSE(main->addNoteEnabled());
    main->setPendingNote(u"  Pairing with Sam  "_s);
    main->addNote();
    EXPECT_EQ(main->pendingNote(), QString());
    EXPECT_EQ(monitor->latestSnapshots().first().userNote, u"Pairing with Sam"_s);
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
    EXPECT_EQ(monitor->latestSnapshots().first().userNote, QString(4096, u'a'));
}

TEST_F(MainScreenModelTest, ReportTabCountsThirtySecondsPerActiveSnapshotOfToday)
{
    settings->setString(SettingsKey::categorizeBy, u"Coding, Browsing"_s);
    makeMain();
    tickWith(u"Coding"_s, u"Tamlo"_s, u"Editing"_s);
    tickWith(u"Browsing"_s, u"Tamlo"_s, u"Reading docs"_s);
    EXPECT_EQ(main->report()->activeSeconds(), 60);
    EXPECT_EQ(main->report()->categories().size(), 2);

    // A record that reaches the store without a capture shows once the tab is rebuilt.
    snapshotStore->add(ActivitySnapshot {
        QUuid::createUuid(), clock.now(), u"Coding"_s, std::nullopt, u"Tamlo"_s, u"Typed in"_s, std::nullopt});
    EXPECT_EQ(main->report()->activeSeconds(), 60);
    main->setSelectedTab(1);
    main->setSelectedTab(0);
    EXPECT_EQ(main->report()->activeSeconds(), 90);

    // Away, said in the status line, adds no time.
    monitor->startMonitoring();
    idle.idle = std::chrono::hours(1);
    tickWith(u"Coding"_s, u"Tamlo"_s, u"Editing"_s);
    EXPECT_EQ(monitor->latestSnapshots().first().activityDescription, u"Away"_s);
    EXPECT_EQ(std::pair(main->statusText(), main->statusColor()), std::pair(u"Away"_s, TamloTheme::orange()));
    EXPECT_EQ(main->report()->activeSeconds(), 90);
}

// Each export asks where to save under the day's name and writes only there; the report finishing
// while the work log's dialog is open waits for it, so each dialog saves its own content.
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
    QTRY_VERIFY(!main->isExportingDailyReport());
    EXPECT_EQ(main->exportReportLabel(), u"Export daily report"_s);
    EXPECT_EQ(requested.count(), 1) << "the report waits for the open dialog";
    EXPECT_EQ(messages().count(u"📊 Exporting today's daily report…"_s), 1);

    main->completeExport(QUrl::fromLocalFile(home.filePath(u"log.csv"_s)));
    ASSERT_EQ(requested.count(), 2);
    EXPECT_EQ(main->pendingSaveFileName(), u"Tamlo_Daily_Report_2026-03-09.csv"_s);
    main->completeExport(QUrl::fromLocalFile(home.filePath(u"report.csv"_s)));
    EXPECT_EQ(main->pendingSaveFileName(), QString());
    EXPECT_TRUE(contentOf(home.filePath(u"log.csv"_s)).contains("Editing"));
    EXPECT_TRUE(contentOf(home.filePath(u"report.csv"_s)).startsWith("Date,"));
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

// Closing a day while paused moves no counter the screen follows; its log entries still refresh it.
TEST_F(MainScreenModelTest, DayClosedWhilePausedLeavesNoFiguresOfYesterday)
{
    // Today's records from before a restart: nothing in this launch's list, no capture counted.
    snapshotStore->add(ActivitySnapshot {
        QUuid::createUuid(), clock.now(), u"Coding"_s, std::nullopt, u"Tamlo"_s, u"Earlier"_s, std::nullopt});
    makeMain();
    ASSERT_TRUE(main->exportLogsEnabled());
    ASSERT_EQ(main->report()->activeSeconds(), 30);

    clock.advance(24 * 3600);
    QCoro::waitFor(monitor->checkDailyReset());
    QTRY_VERIFY(!main->exportLogsEnabled());
    EXPECT_EQ(main->report()->activeSeconds(), 0);
}
