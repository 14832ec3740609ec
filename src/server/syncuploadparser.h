#pragma once

#include "core/textlimits.h"
#include "server/storage.h"

#include <QByteArray>
#include <QString>

#include <optional>

// Reads and validates an upload body whole, before anything of it is stored.
namespace SyncUploadParser {
inline constexpr int maxDays = 31;
inline constexpr int maxSnapshotsPerDay = 10000;
inline constexpr int maxTimezoneLength = 100;

struct Result
{
    std::optional<SyncUpload> upload;
    QString error; // the first fault, for the 400 reply; empty on success
};

// Keys the upload does not define are ignored and never kept.
[[nodiscard]] Result parse(const QByteArray &body);

// Checks on single values, shared with tests.
[[nodiscard]] bool isUpperCaseUuid(const QString &text);
[[nodiscard]] bool isDayLabel(const QString &text);
[[nodiscard]] bool isUtcTimestamp(const QString &text);
} // namespace SyncUploadParser
