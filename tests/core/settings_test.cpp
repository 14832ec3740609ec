#include "core/settings.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(SettingsTest, ValuesSurviveAReopenAndTheFileIsReadAnewAtEachAccess)
{
    QTemporaryDir home;
    const QString file = home.filePath(u"config/Tamlo/Tamlo.conf"_s);
    const QDateTime lastSave(QDate(2026, 3, 9), QTime(23, 59, 30));
    Settings settings(file);
    EXPECT_FALSE(settings.date(SettingsKey::lastDailySaveDate).has_value());
    settings.setBoolean(SettingsKey::didCompleteInitialSetup, true);
    settings.setDate(SettingsKey::lastDailySaveDate, lastSave);
    const Settings reopened(file);
    EXPECT_TRUE(reopened.boolean(SettingsKey::didCompleteInitialSetup));
    EXPECT_EQ(reopened.date(SettingsKey::lastDailySaveDate), lastSave);

    // An edit of the file while the program runs applies to the next read, and a list written by
    // hand without quotes is still the one string it was meant to be.
    QFile ini(file);
    ASSERT_TRUE(ini.open(QIODevice::WriteOnly));
    ini.write("[General]\nuserProjects=Tamlo, Website\nconvexURL=https://backend.example\n");
    ini.close();
    EXPECT_EQ(reopened.optionalString(SettingsKey::userProjects), u"Tamlo, Website"_s);
    EXPECT_EQ(reopened.string(SettingsKey::convexURL), u"https://backend.example"_s);
    EXPECT_FALSE(reopened.boolean(SettingsKey::didCompleteInitialSetup));
}
