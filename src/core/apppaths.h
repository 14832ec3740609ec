#pragma once

#include <QString>

// Every place Tamlo reads or writes, decided once by the composition root. Tests build one
// under a temporary home so nothing touches the real one.
struct AppPaths
{
    QString dataDir; // snapshots.json, daily-reports.json
    QString credentialsDir; // credentials.plist
    QString exportRoot; // ~/Documents/Tamlo: work logs and the reports table
    QString settingsFile; // the user defaults

    [[nodiscard]] QString snapshotsFile() const;
    [[nodiscard]] QString dailyReportsFile() const;
    [[nodiscard]] QString credentialsFile() const;

    // The XDG locations of the running user.
    [[nodiscard]] static AppPaths standard();
    // The same layout below another home folder.
    [[nodiscard]] static AppPaths underHome(const QString &home);
};
