#pragma once

#include <QDateTime>
#include <QString>

// The export folders and the key of a day.
namespace TamloDataPaths {
// ~/Documents/Tamlo for the running user; writers are handed their root so tests can move it.
[[nodiscard]] QString tamloRoot();
[[nodiscard]] QString workLogsDir(const QString &root);
// Creates root/WorkLogs and root. Returns the file system's complaint, or an empty string.
[[nodiscard]] QString ensureExportDirectories(const QString &root);
// yyyy-MM-dd of the local calendar day, whatever the user's region settings.
[[nodiscard]] QString dateLabel(const QDateTime &date);
} // namespace TamloDataPaths
