#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>

#include <optional>

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
// Why a save was refused while an unreadable file still sits at path.
[[nodiscard]] QString writeBlockedNotice(const QString &path);

// Reads path as a JSON array of records, each decoded by T::fromJson. On success fills records
// and returns an empty string; otherwise leaves records alone and returns the failure's
// description, which for an entry that does not decode is describeBadEntry(entry, index).
template<typename T, typename DescribeBadEntry>
[[nodiscard]] QString readRecords(const QString &path, QList<T> &records, DescribeBadEntry describeBadEntry)
{
    QByteArray bytes;
    QJsonArray array;
    QString error = readAll(path, bytes);
    if (error.isEmpty()) {
        error = parseArray(bytes, array);
    }
    if (!error.isEmpty()) {
        return error;
    }
    QList<T> decoded;
    decoded.reserve(array.size());
    for (qsizetype i = 0; i < array.size(); ++i) {
        const QJsonValue entry = array.at(i);
        const std::optional<T> record = entry.isObject() ? T::fromJson(entry.toObject()) : std::nullopt;
        if (!record) {
            return describeBadEntry(entry, i);
        }
        decoded.append(*record);
    }
    records = std::move(decoded);
    return {};
}

// One record's compact JSON, exactly as it appears inside the compact form of an array holding it.
[[nodiscard]] QByteArray compactJson(const QJsonObject &object);
// The compact JSON array of elements already in compact form: the same bytes the array's own
// QJsonDocument::toJson(Compact) gives, without encoding anything again.
[[nodiscard]] QByteArray joinedArray(const QList<QByteArray> &elements);

// Writes records as one compact JSON array of their toJson() forms, atomically. Returns the
// failure's description, or an empty string.
template<typename T>
[[nodiscard]] QString writeRecords(const QString &path, const QList<T> &records)
{
    QJsonArray array;
    for (const T &record : records) {
        array.append(record.toJson());
    }
    return writeAtomically(path, QJsonDocument(array).toJson(QJsonDocument::Compact));
}
} // namespace StoreFile
