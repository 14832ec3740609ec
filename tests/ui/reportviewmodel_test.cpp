#include "ui/activitylabelstyle.h"
#include "ui/reportviewmodel.h"
#include "ui/tamlotheme.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
LabelShare share(const QString &name, double percentage)
{
    return LabelShare {QUuid::createUuid(), name, 1, percentage};
}
} // namespace

TEST(ReportViewModelTest, DurationDropsSecondsAndSwitchesToHoursAtSixtyMinutes)
{
    EXPECT_EQ(ReportViewModel::formattedDuration(0), u"0m"_s);
    EXPECT_EQ(ReportViewModel::formattedDuration(59), u"0m"_s);
    EXPECT_EQ(ReportViewModel::formattedDuration(42 * 60 + 59), u"42m"_s);
    EXPECT_EQ(ReportViewModel::formattedDuration(3599), u"59m"_s);
    EXPECT_EQ(ReportViewModel::formattedDuration(3600), u"1h 0m"_s);
    EXPECT_EQ(ReportViewModel::formattedDuration(2 * 3600 + 5 * 60 + 30), u"2h 5m"_s);
}

TEST(ReportViewModelTest, SegmentsRunOnWithoutNormalising)
{
    EXPECT_TRUE(ReportViewModel::segments({}).isEmpty());
    const auto ring = ReportViewModel::segments({share(u"A"_s, 50), share(u"B"_s, 25), share(u"C"_s, 12.5)});
    ASSERT_EQ(ring.size(), 3);
    EXPECT_EQ(ring[0], (ReportViewModel::Segment {0.0, 0.5}));
    EXPECT_EQ(ring[1], (ReportViewModel::Segment {0.5, 0.75}));
    EXPECT_EQ(ring[2], (ReportViewModel::Segment {0.75, 0.875})); // the ring stays open
}

// The rounding itself is the report arithmetic's, tested with it.
TEST(ReportViewModelTest, BarFillIsClampedButLabelKeepsTheNumber)
{
    EXPECT_DOUBLE_EQ(ReportViewModel::barFraction(150.0), 1.0);
    EXPECT_DOUBLE_EQ(ReportViewModel::barFraction(-5.0), 0.0);
    EXPECT_DOUBLE_EQ(ReportViewModel::barFraction(25.0), 0.25);

    ReportViewModel model;
    model.setReport(60, {}, {share(u"Coding"_s, 150.0)});
    const QVariantMap row = model.categories().first().toMap();
    EXPECT_EQ(row.value(u"percentText"_s).toString(), u"150%"_s);
    EXPECT_DOUBLE_EQ(row.value(u"fill"_s).toDouble(), 1.0);
    EXPECT_EQ(row.value(u"color"_s).value<QColor>(), TamloTheme::blue());
}

TEST(ReportViewModelTest, NinthProjectTakesTheFirstColour)
{
    EXPECT_EQ(ReportViewModel::projectChartColor(8), ReportViewModel::projectChartColor(0));
    EXPECT_EQ(ReportViewModel::projectChartColor(9), ReportViewModel::projectChartColor(1));
}

TEST(ReportViewModelTest, CardsFollowWhichShareListsHaveEntries)
{
    ReportViewModel model;
    QSignalSpy changed(&model, &ReportViewModel::reportChanged);
    model.setReport(0, {}, {});
    EXPECT_EQ(model.formattedDuration(), u"0m"_s);
    EXPECT_EQ(model.estimatedMinutesText(), u"0 min estimated"_s);
    EXPECT_TRUE(model.showEmptyState());
    EXPECT_FALSE(model.showProjects());
    EXPECT_FALSE(model.showCategories());

    model.setReport(150, {}, {share(u"Coding"_s, 100)});
    EXPECT_EQ(model.estimatedMinutesText(), u"2 min estimated"_s);
    EXPECT_FALSE(model.showEmptyState());
    EXPECT_FALSE(model.showProjects());
    EXPECT_TRUE(model.showCategories());
    EXPECT_EQ(changed.count(), 2);

    model.setReport(90, {share(u"Tamlo"_s, 75), share(u"Other"_s, 25)}, {share(u"Coding"_s, 100)});
    const QVariantList projects = model.projects();
    ASSERT_EQ(projects.size(), 2);
    EXPECT_DOUBLE_EQ(projects[1].toMap().value(u"start"_s).toDouble(), 0.75);
    EXPECT_DOUBLE_EQ(projects[1].toMap().value(u"end"_s).toDouble(), 1.0);
    EXPECT_EQ(projects[1].toMap().value(u"color"_s).value<QColor>(), TamloTheme::brandGreen());
}

// Case does not matter, and where two groups match, the earlier one decides.
TEST(ActivityLabelStyleTest, FirstMatchingKeywordGroupDecides)
{
    EXPECT_EQ(ActivityLabelStyle::color(u"CODING"_s), TamloTheme::blue());
    EXPECT_EQ(ActivityLabelStyle::color(u"Development research"_s), TamloTheme::blue());
    EXPECT_EQ(ActivityLabelStyle::color(u"Database"_s), TamloTheme::teal());
    EXPECT_EQ(ActivityLabelStyle::color(u"Email"_s), TamloTheme::indigo()); // contains "ai"
    EXPECT_EQ(ActivityLabelStyle::color(u"Messaging"_s), TamloTheme::green());
    EXPECT_EQ(ActivityLabelStyle::color(u"Other"_s), TamloTheme::secondary());
    EXPECT_EQ(ActivityLabelStyle::color(QString()), TamloTheme::secondary());
}
