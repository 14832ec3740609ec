#include "core/activitysnapshot.h"
#include "core/logmanager.h"
#include "core/settings.h"
#include "core/userpreferences.h"

#include "fakeclock.h"
#include "files.h"
#include "logmessages.h"

#include <QJsonDocument>
#include <QTemporaryDir>
#include <QThread>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(ActivitySnapshotTest, JsonCountsFrom2001LeavesOutAbsentFieldsAndRejectsMissingOrMistypedOnes)
{
    const ActivitySnapshot marker {.id = QUuid(u"E621E1F8-C36C-495A-93FC-0C247A3E6E5F"_s),
        .timestamp = QDateTime(QDate(2001, 1, 1), QTime(0, 1, 30), QTimeZone::utc()),
        .activityDescription = u"Screen Locked"_s};
    EXPECT_EQ(QJsonDocument(marker.toJson()).toJson(QJsonDocument::Compact),
        R"({"activityDescription":"Screen Locked","aiCategory":"","id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","timestamp":90})");

    // An empty note is a value, not an absence.
    const ActivitySnapshot full {.id = QUuid::createUuid(),
        .timestamp = QDateTime(QDate(2026, 3, 9), QTime(8, 5, 0, 250)),
        .aiCategory = u"Coding"_s,
        .imageHash = QString(64, u'a'),
        .projectName = u"Tamlo"_s,
        .activityDescription = u"Writing tests"_s,
        .userNote = QString()};
    EXPECT_EQ(ActivitySnapshot::fromJson(full.toJson()), full);
    for (const auto &[key, value] :
        {std::pair {u"id"_s, QJsonValue(QJsonValue::Undefined)}, {u"timestamp"_s, QJsonValue::Undefined},
            {u"aiCategory"_s, QJsonValue::Undefined}, {u"userNote"_s, 3}, {u"id"_s, u"not-a-uuid"_s}}) {
        QJsonObject changed = full.toJson();
        changed.insert(key, value);
        EXPECT_FALSE(ActivitySnapshot::fromJson(changed).has_value()) << key.toStdString();
    }
}

TEST(ActivitySnapshotTest, TheModelsProjectIsTrimmedAndOnlyTheExactMarkersAreInactive)
{
    const ActivitySnapshot snapshot {.projectName = u"  Side Quest "_s, .userNote = u"lunch with friends"_s};
    EXPECT_EQ(snapshot.effectiveProjectName(QStringList {u"Tamlo"_s}), u"Side Quest"_s);
    // The markers themselves are inactive in the report arithmetic's test.
    for (const QString &text : {u"away"_s, u"Reading why the Screen Locked early"_s, u"Private"_s}) {
        EXPECT_FALSE(ActivitySnapshot {.activityDescription = text}.isInactiveScreenState()) << text.toStdString();
    }
}

TEST(UserPreferencesTest, ListsSplitOnCommasAndLineEndsAndLabelsTakeTheListsSpellingOrOther)
{
    EXPECT_EQ(UserPreferences::parsedList(u" Tamlo, Website\nClient A,,  ,\n\nOps ,Tamlo"_s),
        (QStringList {u"Tamlo"_s, u"Website"_s, u"Client A"_s, u"Ops"_s, u"Tamlo"_s}));
    // An entry is a label the server takes: no control characters, and whole characters up to its limit.
    const QString rocket = u"🚀"_s;
    EXPECT_EQ(UserPreferences::parsedList(rocket.repeated(250) + u"\n\u0007Ops\t,\u0007"_s),
        (QStringList {rocket.repeated(200), u"Ops"_s}));

    const QStringList list {u"Web"_s, u"Website"_s, u"Client Work"_s};
    for (const auto &[label, entries, expected] :
        {std::tuple {std::optional<QString>(), list, u"Other"_s}, {u"Coding"_s, QStringList(), u"Other"_s},
            {u"Gardening"_s, list, u"Other"_s}, {u"  client work \n"_s, list, u"Client Work"_s},
            // The exact pass runs over the whole list before containment, which goes entry by entry.
            {u"website"_s, list, u"Website"_s}, {u"website redesign"_s, list, u"Web"_s},
            {u"Clie"_s, QStringList {u"Client Work"_s}, u"Client Work"_s}}) {
        EXPECT_EQ(UserPreferences::normalizedLabel(label, entries), expected) << label.value_or(u"-"_s).toStdString();
    }
}

TEST(SettingsTest, AnEditOfTheFileAppliesToTheNextReadAndAHandWrittenListStaysOneString)
{
    QTemporaryDir home;
    const QString file = home.filePath(u"config/Tamlo/Tamlo.conf"_s);
    const Settings reopened(file);
    Settings(file).setBoolean(SettingsKey::didCompleteInitialSetup, true);
    EXPECT_TRUE(reopened.boolean(SettingsKey::didCompleteInitialSetup));
    writeBytes(file, "[General]\nuserProjects=Tamlo, Website\nconvexURL=https://backend.example\n");
    EXPECT_EQ(reopened.optionalString(SettingsKey::userProjects), u"Tamlo, Website"_s);
    EXPECT_EQ(reopened.string(SettingsKey::convexURL), u"https://backend.example"_s);
    EXPECT_FALSE(reopened.boolean(SettingsKey::didCompleteInitialSetup));
}

TEST(LogManagerTest, DefersEvenFromTheMainThreadKeepsOrderAcrossThreadsAndThirtyNewest)
{
    FakeClock clock;
    LogManager log {&clock};
    log.log(u"first"_s);
    EXPECT_TRUE(log.logs().isEmpty());
    const std::unique_ptr<QThread> worker(QThread::create([&log] {
        log.log(u"one"_s);
        log.log(u"two"_s);
    }));
    worker->start();
    worker->wait();
    EXPECT_EQ(logMessages(log), (QStringList {u"first"_s, u"one"_s, u"two"_s}));

    for (int i = 4; i <= 31; ++i) {
        log.log(u"entry %1"_s.arg(i), LogType::Warning);
    }
    const QStringList entries = logMessages(log);
    EXPECT_EQ(std::tuple(entries.size(), entries.first(), entries.last()), std::tuple(30, u"one"_s, u"entry 31"_s));
    EXPECT_EQ(log.logs().first().type, LogType::Warning);
}

TEST(LogManagerTest, FoldsTheCategoriesOfAnalysesFiveAtATime)
{
    FakeClock clock;
    LogManager log {&clock};
    // Neither an analysis without category nor a category on another type counts.
    log.log(u"🤖 no category"_s, LogType::Ai);
    log.log(u"ℹ️ info"_s, LogType::Info, u"Coding"_s);
    for (const QString &category : {u"Coding"_s, u"Coding"_s, u"Browsing"_s, u"Coding"_s, u"Other"_s}) {
        log.log(u"🤖 analysed"_s, LogType::Ai, category);
    }
    // The fold's own entry is posted once the batch is taken, after the entry that completed it.
    logMessages(log);
    EXPECT_EQ(logMessages(log).mid(6), (QStringList {u"🤖 analysed"_s, u"📊 Category statistics updated"_s}));
    EXPECT_EQ(log.categoryStats(), (QHash<QString, int> {{u"Coding"_s, 3}, {u"Browsing"_s, 1}, {u"Other"_s, 1}}));
    EXPECT_EQ(log.logs().at(0).type, LogType::Success);
}
