#pragma once

#include "core/activitysnapshot.h"

#include <QList>
#include <QString>
#include <QStringList>

// Shrinks a day of captures to a few chronological lines for the day-summary prompt.
// Both operations take the whole day in any order and skip locked and sleeping records;
// userProjects is the user's parsed project list, which decides each snapshot's project.
namespace ActivityLogCompactor {
// One line per run of neighbours with the same category, project and description, oldest first;
// beyond maxGroups the middle of the day gives way to one marker line.
[[nodiscard]] QStringList compactLines(
    const QList<ActivitySnapshot> &snapshots, int maxGroups, const QStringList &userProjects);
// One line per user note, oldest first.
[[nodiscard]] QStringList noteLines(const QList<ActivitySnapshot> &snapshots, const QStringList &userProjects);
} // namespace ActivityLogCompactor
