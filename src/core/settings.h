#pragma once

#include <QDateTime>
#include <QSettings>
#include <QString>

#include <memory>
#include <optional>

// The user's defaults: an INI file, read at the point of use, so an edit of the file while Tamlo
// runs applies to the next read. A missing string reads as empty.
class Settings
{
public:
    explicit Settings(const QString &filePath);

    [[nodiscard]] QString string(const QString &key) const;
    [[nodiscard]] std::optional<QString> optionalString(const QString &key) const;
    [[nodiscard]] bool boolean(const QString &key, bool defaultValue = false) const;
    // The default also stands in for a value that is not a whole number.
    [[nodiscard]] int integer(const QString &key, int defaultValue) const;
    [[nodiscard]] std::optional<QDateTime> date(const QString &key) const;
    [[nodiscard]] bool contains(const QString &key) const;

    void setString(const QString &key, const QString &value);
    void setBoolean(const QString &key, bool value);
    void setInteger(const QString &key, int value);
    void setDate(const QString &key, const QDateTime &value);
    void remove(const QString &key);

    [[nodiscard]] QString filePath() const;

private:
    void reload() const;

    std::unique_ptr<QSettings> m_settings;
};

// The keys of the user defaults, spelled as they are stored.
namespace SettingsKey {
inline const QString selectedOllamaModel = QStringLiteral("selectedOllamaModel");
inline const QString userProjects = QStringLiteral("userProjects");
inline const QString categorizeBy = QStringLiteral("categorizeBy");
inline const QString didCompleteInitialSetup = QStringLiteral("didCompleteInitialSetup");
inline const QString lastDailySaveDate = QStringLiteral("lastDailySaveDate");
inline const QString convexURL = QStringLiteral("convexURL");
inline const QString activityLastSyncDate = QStringLiteral("activityLastSyncDate");
inline const QString activityHistoricalBackfillDone = QStringLiteral("activityHistoricalBackfillDone");
inline const QString tamloDeviceId = QStringLiteral("tamloDeviceId");
inline const QString userIntentionallyStopped = QStringLiteral("userIntentionallyStopped");
// Absent means the default lists; an empty string means nothing is excluded.
inline const QString excludedApplications = QStringLiteral("excludedApplications");
inline const QString excludedTitleWords = QStringLiteral("excludedTitleWords");
// The end of a timed pause, while one runs.
inline const QString pausedUntil = QStringLiteral("pausedUntil");
// Minutes without input, on a still screen, after which a tick records "Away"; 0 turns it off.
inline const QString awayThresholdMinutes = QStringLiteral("awayThresholdMinutes");
// A tick whose screen looks like the last analysed one reuses that analysis.
inline const QString skipUnchangedScreens = QStringLiteral("skipUnchangedScreens");
} // namespace SettingsKey
