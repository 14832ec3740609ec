#pragma once

#include "core/activitysnapshot.h"

#include <QStringList>

#include <functional>

// A record as an analysed tick stores it.
inline ActivitySnapshot recordAt(const QDateTime &timestamp, const QString &category = QStringLiteral("Coding"),
    const QString &project = QStringLiteral("Website"), const QString &description = QStringLiteral("Working"),
    std::optional<QString> note = std::nullopt)
{
    return ActivitySnapshot {.id = QUuid::createUuid(),
        .timestamp = timestamp,
        .aiCategory = category,
        .projectName = project,
        .activityDescription = description,
        .userNote = std::move(note)};
}

// A record of a tick taken in a screen state other than active.
inline ActivitySnapshot markerAt(const QDateTime &timestamp, ScreenState state)
{
    return ActivitySnapshot {.id = QUuid::createUuid(),
        .timestamp = timestamp,
        .activityDescription = ActivitySnapshot::screenStateMarker(state)};
}

// What f (a function or a member) makes of each item, in order.
template<typename List, typename F>
QStringList mapped(const List &items, F f)
{
    QStringList result;
    for (const auto &item : items) {
        result.append(std::invoke(f, item));
    }
    return result;
}

inline QStringList descriptionsOf(const QList<ActivitySnapshot> &records)
{
    return mapped(
        records, [](const ActivitySnapshot &record) { return record.activityDescription.value_or(QString()); });
}
