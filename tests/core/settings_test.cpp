#include "core/settings.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(SettingsTest, MissingValuesReadAsEmptyAndTypesSurviveAReopen)
{
    QTemporaryDir home;
    const QString file = home.filePath(u"config/Tamlo/Tamlo.conf"_s);
    {
        Settings settings(file);
        EXPECT_EQ(settings.string(SettingsKey::userProjects), QString());
        EXPECT_FALSE(settings.optionalString(SettingsKey::convexURL).has_value());
        EXPECT_FALSE(settings.boolean(SettingsKey::didCompleteInitialSetup));
        EXPECT_FALSE(settings.date(SettingsKey::lastDailySaveDate).has_value());

        settings.setString(SettingsKey::userProjects, u"Tamlo, Website"_s);
        settings.setBoolean(SettingsKey::didCompleteInitialSetup, true);
        settings.setDate(SettingsKey::lastDailySaveDate, QDateTime(QDate(2026, 3, 9), QTime(23, 59, 30)));
    }
    Settings reopened(file);
    EXPECT_EQ(reopened.string(SettingsKey::userProjects), u"Tamlo, Website"_s);
    EXPECT_TRUE(reopened.boolean(SettingsKey::didCompleteInitialSetup));
    EXPECT_EQ(reopened.date(SettingsKey::lastDailySaveDate), QDateTime(QDate(2026, 3, 9), QTime(23, 59, 30)));

    // A list written by hand without quotes is still the one string it was meant to be.
    QFile ini(home.filePath(u"hand.conf"_s));
    ASSERT_TRUE(ini.open(QIODevice::WriteOnly));
    ini.write("[General]\nuserProjects=Tamlo, Website\n");
    ini.close();
    const Settings handEdited(ini.fileName());
    EXPECT_EQ(handEdited.string(SettingsKey::userProjects), u"Tamlo, Website"_s);
    EXPECT_EQ(handEdited.optionalString(SettingsKey::userProjects), u"Tamlo, Website"_s);

    // An edit of the file while the program runs applies to the next read.
    ASSERT_TRUE(ini.open(QIODevice::WriteOnly));
    ini.write("[General]\nuserProjects=Tamlo\nconvexURL=https://backend.example\n");
    ini.close();
    EXPECT_EQ(handEdited.optionalString(SettingsKey::convexURL), u"https://backend.example"_s);
    EXPECT_EQ(handEdited.string(SettingsKey::userProjects), u"Tamlo"_s);
}
