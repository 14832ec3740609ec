#include "ui/activitycardlistmodel.h"
#include "ui/activitylabelstyle.h"
#include "ui/reportviewmodel.h"
#include "ui/tamlotheme.h"

#include <QLocale>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

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
        {u"Coding"_s, u"Tamlo"_s, ActivitySnapshot::screenStateMarker(ScreenState::Sleeping), {}, {}, {}, {}},
        {u"Coding"_s, u"Tamlo"_s, ActivitySnapshot::screenStateMarker(ScreenState::Away), {}, {}, {}, {}},
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

// Case does not matter, and where two groups match, the earlier one decides.
TEST(ActivityLabelStyleTest, FirstMatchingKeywordGroupDecides)
{
    const std::pair<QString, QColor> rows[] = {{u"CODING"_s, TamloTheme::blue()},
        {u"Development research"_s, TamloTheme::blue()}, {u"Database"_s, TamloTheme::teal()},
        {u"Email"_s, TamloTheme::indigo()}, {u"Messaging"_s, TamloTheme::green()},
        {u"Other"_s, TamloTheme::secondary()}, {QString(), TamloTheme::secondary()}};
    for (const auto &[label, color] : rows) {
        EXPECT_EQ(ActivityLabelStyle::color(label), color) << label.toStdString();
    }
}

TEST(ReportViewModelTest, DurationDropsSecondsAndSwitchesToHoursAtSixtyMinutes)
{
    const std::pair<int, QString> rows[] = {{0, u"0m"_s}, {59, u"0m"_s}, {42 * 60 + 59, u"42m"_s}, {3599, u"59m"_s},
        {3600, u"1h 0m"_s}, {2 * 3600 + 5 * 60 + 30, u"2h 5m"_s}};
    for (const auto &[seconds, text] : rows) {
        EXPECT_EQ(ReportViewModel::formattedDuration(seconds), text) << seconds;
    }
}

// The ring's segments run on without normalising; a bar is clamped, its label keeps the number.
TEST(ReportViewModelTest, CardsRingAndBarsFollowTheShares)
{
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
    EXPECT_EQ(ring[1].toMap().value(u"color"_s).value<QColor>(), TamloTheme::brandGreen());
    for (const auto &[index, start, end] : {std::tuple(0, 0.0, 0.5), {1, 0.5, 0.75}, {2, 0.75, 0.875}}) {
        EXPECT_DOUBLE_EQ(ring[index].toMap().value(u"start"_s).toDouble(), start);
        EXPECT_DOUBLE_EQ(ring[index].toMap().value(u"end"_s).toDouble(), end);
    }
    EXPECT_EQ(ReportViewModel::projectChartColor(9), ReportViewModel::projectChartColor(1));
}
