#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <optional>

class Settings;

enum class ScreenState {
    Active,
    Locked,
    Sleeping,
    // No input for the away threshold, and a screen that stood still.
    Away,
};

// The one record of an observation: what the model saw at a tick, or the screen state instead.
struct ActivitySnapshot
{
    QUuid id;
    QDateTime timestamp;
    QString aiCategory;
    std::optional<QString> imageHash;
    std::optional<QString> projectName;
    std::optional<QString> activityDescription;
    std::optional<QString> userNote;

    // The description that marks a record of a tick taken in each screen state.
    [[nodiscard]] static QString screenStateMarker(ScreenState state);

    [[nodiscard]] bool isInactiveScreenState() const;
    // A tick skipped because a window the user excluded was on screen: active time, nothing seen.
    static inline const QString privateMarker = QStringLiteral("Private");
    [[nodiscard]] bool isPrivate() const { return activityDescription == privateMarker; }
    // A note that names one of the user's projects outranks what the model said.
    [[nodiscard]] QString effectiveProjectName(const QStringList &userProjects) const;
    // Reads the user's projects from the settings on every call, so edits relabel at once.
    [[nodiscard]] QString effectiveProjectName(const Settings &settings) const;

    // Optional fields are left out when absent, never written as null.
    [[nodiscard]] QJsonObject toJson() const;
    // Requires id, timestamp and aiCategory; an optional key may be missing or null, but not of another type.
    [[nodiscard]] static std::optional<ActivitySnapshot> fromJson(const QJsonObject &object);

    friend bool operator==(const ActivitySnapshot &, const ActivitySnapshot &) = default;
};

size_t qHash(const ActivitySnapshot &snapshot, size_t seed = 0);
