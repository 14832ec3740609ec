#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QString>

// Whole-file persistence of the JSON stores: nothing is appended, and a reader never sees half a file.
namespace StoreFile {
// Writes to a temporary file beside path, then renames it over path. Returns the failure's
// description, or an empty string.
[[nodiscard]] QString writeAtomically(const QString &path, const QByteArray &bytes);
// Moves a file that could not be read out of the way, so no later write replaces it: to
// path + ".unreadable", or ".unreadable-2", "-3", ... when that is taken. Returns the new path,
// or an empty string when the file could not be moved.
[[nodiscard]] QString setAside(const QString &path);
// Reads the whole file into bytes. Returns the failure's description, or an empty string.
[[nodiscard]] QString readAll(const QString &path, QByteArray &bytes);
// Parses bytes that must hold a JSON array. Returns the failure's description, or an empty string.
[[nodiscard]] QString parseArray(const QByteArray &bytes, QJsonArray &array);
// The sentence that tells the user where an unreadable file went, after setAside returned newPath.
[[nodiscard]] QString setAsideNotice(const QString &newPath);
} // namespace StoreFile
