#include "ui/activitycardlistmodel.h"
#include "ui/tamlotheme.h"

#include <QLocale>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
ActivitySnapshot snapshot(const QString &category, std::optional<QString> project, std::optional<QString> description,
    std::optional<QString> note = std::nullopt)
{
    return ActivitySnapshot {QUuid::createUuid(), QDateTime(QDate(2026, 3, 9), QTime(14, 5, 42)), category,
        std::nullopt, std::move(project), std::move(description), std::move(note)};
}
} // namespace

TEST(ActivityCardTest, AnalysedRecordShowsCategoryProjectAndNote)
{
    const auto card = ActivityCardPresentation::present(
        snapshot(u"  Email \n"_s, u"Tamlo"_s, u"Answering mail"_s, u"  call back  "_s), {u"Tamlo"_s});
    EXPECT_EQ(card.categoryChip, u"Email"_s);
    EXPECT_EQ(card.categoryColor, TamloTheme::indigo());
    EXPECT_EQ(card.projectChip, u"Tamlo"_s);
    EXPECT_TRUE(card.showNoteBadge);
    EXPECT_EQ(card.trimmedNote, u"call back"_s);
    EXPECT_EQ(card.description, u"Answering mail"_s);
}

TEST(ActivityCardTest, MarkersShowOnlyTimeAndDescription)
{
    for (const QString &marker : {ActivitySnapshot::screenStateMarker(ScreenState::Locked),
             ActivitySnapshot::screenStateMarker(ScreenState::Sleeping),
             ActivitySnapshot::screenStateMarker(ScreenState::Away), u"Private"_s}) {
        SCOPED_TRACE(marker.toStdString());
        const auto card = ActivityCardPresentation::present(snapshot(u"Other"_s, u"Tamlo"_s, marker), {u"Tamlo"_s});
        EXPECT_FALSE(card.categoryChip.has_value());
        EXPECT_FALSE(card.projectChip.has_value());
        EXPECT_FALSE(card.showNoteBadge);
        EXPECT_EQ(card.description, marker);
        EXPECT_FALSE(card.timeText.isEmpty());
    }
}

TEST(ActivityCardTest, OtherProjectBlankCategoryAndBlankNoteShowNoChipsUnlessTheNoteNamesAProject)
{
    const auto card = ActivityCardPresentation::present(snapshot(u"   "_s, u"Other"_s, u""_s, u" \n "_s), {u"Tamlo"_s});
    EXPECT_FALSE(card.categoryChip.has_value());
    EXPECT_FALSE(card.projectChip.has_value());
    EXPECT_FALSE(card.showNoteBadge);
    EXPECT_FALSE(card.trimmedNote.has_value());
    EXPECT_FALSE(card.description.has_value());

    // A note that names a known project moves the chip there.
    const auto named = ActivityCardPresentation::present(
        snapshot(u"Coding"_s, u"Other"_s, u"Editing"_s, u"for Acme"_s), {u"Tamlo"_s, u"Acme"_s});
    EXPECT_EQ(named.projectChip, u"Acme"_s);
}

TEST(ActivityCardTest, TimeIsHourAndMinuteOfTheLocale)
{
    const QDateTime time(QDate(2026, 3, 9), QTime(14, 5, 42));
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(ActivityCardPresentation::hourMinuteText(time), u"14:05"_s);
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    EXPECT_EQ(ActivityCardPresentation::hourMinuteText(time), u"2:05 PM"_s);
    EXPECT_EQ(ActivityCardPresentation::hourMinuteText(QDateTime(QDate(2026, 3, 9), QTime(9, 5))), u"9:05 AM"_s);
}
