#include "ai/activitylogcompactor.h"

#include "records.h"

#include <QLocale>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
const QStringList userProjects {u"Website"_s, u"Blog"_s};

ActivitySnapshot at(QTime time, const QString &category, const QString &project, const QString &description,
    std::optional<QString> note = std::nullopt)
{
    return recordAt(QDateTime(QDate(2026, 3, 9), time), category, project, description, std::move(note));
}

QStringList compacted(const QList<ActivitySnapshot> &snapshots, int limit = 50)
{
    return ActivityLogCompactor::compactLines(snapshots, limit, userProjects);
}

QList<ActivitySnapshot> run(int n, bool distinct, QTime start = QTime(8, 0))
{
    QList<ActivitySnapshot> result;
    for (int i = 0; i < n; ++i) {
        result.append(at(start.addSecs((distinct ? 60 : 30) * i), u"Coding"_s, u"Website"_s,
            distinct ? u"step %1"_s.arg(i) : u"Editing"_s));
    }
    return result;
}
} // namespace

TEST(ActivityLogCompactorTest, GroupsEqualNeighboursInTimeOrderAcrossInactiveRecordsInTheUsersLocale)
{
    const QList<ActivitySnapshot> snapshots {
        at(QTime(9, 2), u"Communication"_s, u"Other"_s, u"Reading mail"_s),
        at(QTime(9, 0), u"Coding"_s, u"Website"_s, u"Editing main.cpp"_s),
        at(QTime(9, 0, 30), u"Coding"_s, u"Website"_s, u"Editing main.cpp"_s, u" fix crash "_s),
        markerAt(QDateTime(QDate(2026, 3, 9), QTime(9, 0, 40)), ScreenState::Locked),
        at(QTime(9, 1), u"Coding"_s, u"Website"_s, u"Editing main.cpp"_s, u"fix crash"_s),
        at(QTime(9, 1, 30), u"Communication"_s, u"Other"_s, u"Reading mail"_s),
        // A blank category is Other, and a note naming a project of the user relabels the record.
        at(QTime(9, 3), QString(), u"Blog"_s, u"Writing"_s, u"website"_s),
        at(QTime(9, 3, 30), u"Other"_s, u"Blog"_s, u"Writing"_s),
        at(QTime(9, 3, 50), u"Other"_s, u"Blog"_s, u"Writing"_s),
    };
    EXPECT_EQ(compacted(snapshots),
        (QStringList {u"[9:00 AM–9:01 AM] [Coding] [Website] Editing main.cpp (×3, ~1m) | notes: fix crash"_s,
            u"[9:01 AM–9:02 AM] [Communication] [Other] Reading mail (×2, ~1m)"_s,
            u"[9:03 AM] [Other] [Website] Writing | notes: website"_s,
            u"[9:03 AM] [Other] [Blog] Writing (×2, ~1m)"_s}));
    EXPECT_EQ(ActivityLogCompactor::noteLines(snapshots, userProjects),
        (QStringList {u"- [9:00 AM] [Website] fix crash"_s, u"- [9:01 AM] [Website] fix crash"_s,
            u"- [9:03 AM] [Website] website"_s}));
    EXPECT_TRUE(compacted({snapshots[3]}).isEmpty());

    // Runs show in hours and minutes; times in the user's locale and zone.
    for (const auto &[count, line] : {std::pair {120, u"[9:00 AM–9:59 AM] [Coding] [Website] Editing (×120, ~1h)"_s},
             {130, u"[9:00 AM–10:04 AM] [Coding] [Website] Editing (×130, ~1h 5m)"_s},
             {5, u"[9:00 AM–9:02 AM] [Coding] [Website] Editing (×5, ~2m)"_s}}) {
        EXPECT_EQ(compacted(run(count, false, QTime(9, 0))), QStringList {line});
    }

    const QLocale saved;
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    ActivitySnapshot utc = at(QTime(9, 5), u"Coding"_s, u"Website"_s, u"Editing"_s);
    utc.timestamp = QDateTime(QDate(2026, 3, 9), QTime(8, 5), QTimeZone::utc());
    const QStringList german = compacted({utc});
    QLocale::setDefault(saved);
    EXPECT_EQ(german, QStringList {u"[09:05] [Coding] [Website] Editing"_s});
}

TEST(ActivityLogCompactorTest, DropsTheMiddleOfALongDayBehindOneMarker)
{
    EXPECT_EQ(compacted(run(50, true)).size(), 50);
    const QStringList lines51 = compacted(run(51, true));
    ASSERT_EQ(lines51.size(), 51);
    EXPECT_EQ(lines51.mid(24, 3),
        (QStringList {u"[8:24 AM] [Coding] [Website] step 24"_s,
            u"[8:26 AM] […] […] [1 similar activity groups omitted for brevity]"_s,
            u"[8:26 AM] [Coding] [Website] step 26"_s}));

    const QStringList lines60 = compacted(run(60, true));
    ASSERT_EQ(lines60.size(), 51);
    EXPECT_EQ(lines60[25], u"[8:35 AM] […] […] [10 similar activity groups omitted for brevity] (×10, ~5m)"_s);
    EXPECT_EQ(lines60.last(), u"[8:59 AM] [Coding] [Website] step 59"_s);

    // An odd limit gives the extra group to the tail.
    const QStringList lines7 = compacted(run(10, true), 7);
    ASSERT_EQ(lines7.size(), 8);
    EXPECT_TRUE(lines7[3].contains(u"[3 similar activity groups"_s));
    EXPECT_TRUE(compacted(run(3, true), 0).isEmpty());
}
