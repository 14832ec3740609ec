#include "ai/activitylogcompactor.h"

#include <QLocale>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
const QDate day(2026, 3, 9);

ActivitySnapshot snapshot(QTime time, const QString &category, const QString &project, const QString &description,
    std::optional<QString> note = std::nullopt)
{
    ActivitySnapshot s;
    s.id = QUuid::createUuid();
    s.timestamp = QDateTime(day, time);
    s.aiCategory = category;
    s.projectName = project;
    s.activityDescription = description;
    s.userNote = std::move(note);
    return s;
}

// n neighbours that each differ from the one before, a minute apart from 8:00.
QList<ActivitySnapshot> distinctGroups(int n)
{
    QList<ActivitySnapshot> result;
    for (int i = 0; i < n; ++i) {
        result.append(snapshot(QTime(8, 0).addSecs(60 * i), u"Coding"_s, u"Website"_s, u"step %1"_s.arg(i)));
    }
    return result;
}

QList<ActivitySnapshot> repeated(int n)
{
    QList<ActivitySnapshot> result;
    for (int i = 0; i < n; ++i) {
        result.append(snapshot(QTime(9, 0).addSecs(30 * i), u"Coding"_s, u"Website"_s, u"Editing"_s));
    }
    return result;
}

const QStringList userProjects {u"Website"_s, u"Blog"_s};

class LocaleGuard
{
public:
    explicit LocaleGuard(const QLocale &locale) : m_saved(QLocale()) { QLocale::setDefault(locale); }
    ~LocaleGuard() { QLocale::setDefault(m_saved); }

private:
    QLocale m_saved;
};
} // namespace

TEST(ActivityLogCompactorTest, ReproducesTheWorkedExample)
{
    const QList<ActivitySnapshot> snapshots {
        snapshot(QTime(9, 2), u"Communication"_s, u"Other"_s, u"Reading mail"_s),
        snapshot(QTime(9, 0), u"Coding"_s, u"Website"_s, u"Editing main.cpp"_s),
        snapshot(QTime(9, 0, 30), u"Coding"_s, u"Website"_s, u"Editing main.cpp"_s, u"fix crash"_s),
        snapshot(QTime(9, 1), u"Coding"_s, u"Website"_s, u"Editing main.cpp"_s),
        snapshot(QTime(9, 1, 30), u"Communication"_s, u"Other"_s, u"Reading mail"_s),
    };
    EXPECT_EQ(ActivityLogCompactor::compactLines(snapshots, 50, userProjects),
        (QStringList {u"[9:00 AM–9:01 AM] [Coding] [Website] Editing main.cpp (×3, ~1m) | notes: fix crash"_s,
            u"[9:01 AM–9:02 AM] [Communication] [Other] Reading mail (×2, ~1m)"_s}));
    EXPECT_EQ(
        ActivityLogCompactor::noteLines(snapshots, userProjects), QStringList {u"- [9:00 AM] [Website] fix crash"_s});
}

TEST(ActivityLogCompactorTest, FormatsTimesInTheUsersLocaleAndZone)
{
    const LocaleGuard german(QLocale(QLocale::German, QLocale::Germany));
    QList<ActivitySnapshot> snapshots {snapshot(QTime(9, 5), u"Coding"_s, u"Website"_s, u"Editing"_s)};
    snapshots[0].timestamp = QDateTime(day, QTime(8, 5), QTimeZone::utc());
    EXPECT_EQ(ActivityLogCompactor::compactLines(snapshots, 50, userProjects),
        QStringList {u"[09:05] [Coding] [Website] Editing"_s});
}

TEST(ActivityLogCompactorTest, SkipsInactiveRecordsAndMergesAcrossThem)
{
    EXPECT_TRUE(ActivityLogCompactor::compactLines({}, 50, userProjects).isEmpty());
    QList<ActivitySnapshot> snapshots {
        snapshot(QTime(9, 0), u"Coding"_s, u"Website"_s, u"Editing"_s),
        snapshot(QTime(9, 0, 30), u"System"_s, u"Other"_s, ActivitySnapshot::screenStateMarker(ScreenState::Locked),
            u"away"_s),
        snapshot(QTime(9, 30), u"Coding"_s, u"Website"_s, u"Editing"_s),
    };
    EXPECT_EQ(ActivityLogCompactor::compactLines(snapshots, 50, userProjects),
        QStringList {u"[9:00 AM–9:30 AM] [Coding] [Website] Editing (×2, ~1m)"_s});
    EXPECT_TRUE(ActivityLogCompactor::noteLines(snapshots, userProjects).isEmpty());

    snapshots.removeAt(2);
    snapshots.removeAt(0);
    EXPECT_TRUE(ActivityLogCompactor::compactLines(snapshots, 50, userProjects).isEmpty());
}

TEST(ActivityLogCompactorTest, GroupsOnlyEqualNeighboursAndKeepsEachNoteOnce)
{
    QList<ActivitySnapshot> snapshots {
        snapshot(QTime(9, 0), QString(), u"Blog"_s, u"Writing"_s, u" ship it "_s),
        snapshot(QTime(9, 0, 20), u"Other"_s, u"Blog"_s, u"Writing"_s, u"ship it"_s),
        snapshot(QTime(9, 0, 40), u"Other"_s, u"Other"_s, u"Writing"_s, u"website"_s),
        snapshot(QTime(9, 1), u"Other"_s, u"Blog"_s, u"Writing"_s),
        snapshot(QTime(9, 1, 30), u"Other"_s, u"Blog"_s, u"Writing more"_s),
    };
    EXPECT_EQ(ActivityLogCompactor::compactLines(snapshots, 50, userProjects),
        (QStringList {
            u"[9:00 AM] [Other] [Blog] Writing (×2, ~1m) | notes: ship it"_s,
            // The note names a project of the user, which relabels the record.
            u"[9:00 AM] [Other] [Website] Writing | notes: website"_s,
            u"[9:01 AM] [Other] [Blog] Writing"_s,
            u"[9:01 AM] [Other] [Blog] Writing more"_s,
        }));
    EXPECT_EQ(ActivityLogCompactor::noteLines(snapshots, userProjects),
        (QStringList {
            u"- [9:00 AM] [Blog] ship it"_s, u"- [9:00 AM] [Blog] ship it"_s, u"- [9:00 AM] [Website] website"_s}));
}

TEST(ActivityLogCompactorTest, ShowsLongRunsInHoursAndMinutes)
{
    for (const auto &[count, line] : {std::pair {120, u"[9:00 AM–9:59 AM] [Coding] [Website] Editing (×120, ~1h)"_s},
             {130, u"[9:00 AM–10:04 AM] [Coding] [Website] Editing (×130, ~1h 5m)"_s},
             {5, u"[9:00 AM–9:02 AM] [Coding] [Website] Editing (×5, ~2m)"_s}}) {
        EXPECT_EQ(ActivityLogCompactor::compactLines(repeated(count), 50, userProjects), QStringList {line});
    }
}

TEST(ActivityLogCompactorTest, DropsTheMiddleOfALongDayBehindOneMarker)
{
    EXPECT_EQ(ActivityLogCompactor::compactLines(distinctGroups(50), 50, userProjects).size(), 50);

    const QStringList lines51 = ActivityLogCompactor::compactLines(distinctGroups(51), 50, userProjects);
    ASSERT_EQ(lines51.size(), 51);
    EXPECT_EQ(lines51[24], u"[8:24 AM] [Coding] [Website] step 24"_s);
    EXPECT_EQ(lines51[25], u"[8:26 AM] […] […] [1 similar activity groups omitted for brevity]"_s);
    EXPECT_EQ(lines51[26], u"[8:26 AM] [Coding] [Website] step 26"_s);

    const QStringList lines60 = ActivityLogCompactor::compactLines(distinctGroups(60), 50, userProjects);
    ASSERT_EQ(lines60.size(), 51);
    EXPECT_EQ(lines60[25], u"[8:35 AM] […] […] [10 similar activity groups omitted for brevity] (×10, ~5m)"_s);
    EXPECT_EQ(lines60.last(), u"[8:59 AM] [Coding] [Website] step 59"_s);

    // An odd limit gives the extra group to the tail.
    const QStringList lines7 = ActivityLogCompactor::compactLines(distinctGroups(10), 7, userProjects);
    ASSERT_EQ(lines7.size(), 8);
    EXPECT_TRUE(lines7[3].contains(u"[3 similar activity groups"_s));
    EXPECT_TRUE(ActivityLogCompactor::compactLines(distinctGroups(3), 0, userProjects).isEmpty());
}
