#pragma once

#include "core/activitysnapshot.h"

#include <QByteArray>
#include <QDateTime>
#include <QImage>
#include <QList>
#include <QRect>
#include <QString>

#include <chrono>
#include <optional>

// A small grey picture of a screenshot, enough to tell a screen that changed from one where
// only a clock turned or a cursor blinked.
struct ScreenThumbnail
{
    // Pixels of the scaled screenshot, in each direction, that make one pixel of the thumbnail.
    static constexpr int cellSize = 8;

    QString imageHash; // SHA-256 of the PNG, as recorded
    int width = 0;
    int height = 0;
    QByteArray grey; // width * height bytes, row by row

    // Of the screenshot as scaled for the model; the hash identifies its PNG. The ignored areas,
    // in the scaled image's pixels, read as black whatever they show.
    [[nodiscard]] static ScreenThumbnail of(const QImage &scaled, QString imageHash, const QList<QRect> &ignored = {});
    [[nodiscard]] bool isNull() const { return grey.isEmpty(); }
};

// Remembers the screen of the last tick and the last analysis with its screen, to tell whether
// a tick shows anything the model has not seen.
class ScreenChangeDetector
{
public:
    // Measured on everyday pairs of screens: a notification, a clock or a cursor change at most
    // 5% of the tiles, a new window or a page scrolled by one line 18% and more.
    static constexpr double maxUnchangedShare = 0.08;
    // A thumbnail pixel that moves by more than this (of 255) has visibly changed.
    static constexpr int greyTolerance = 16;
    // Thumbnail pixels, in each direction, of one tile of the measure.
    static constexpr int tileCells = 4;
    // How long an analysis may stand in for an unchanged screen.
    static constexpr auto reuseWindow = std::chrono::minutes(10);

    // The share of tiles, 0 to 1, in which some pixel visibly changed; 1 for screens of
    // different sizes or a missing thumbnail.
    [[nodiscard]] static double changedShare(const ScreenThumbnail &before, const ScreenThumbnail &after);
    // The same PNG always is; otherwise at most maxUnchangedShare of the tiles changed.
    [[nodiscard]] static bool isUnchanged(const ScreenThumbnail &before, const ScreenThumbnail &after);

    // Whether the screen stood still since the last tick's screenshot; remembers this one.
    [[nodiscard]] bool stillSinceLastTick(const ScreenThumbnail &screen);

    // labelContext names what the labels were chosen from (the user's lists, the model): an
    // analysis stands in only for the same context.
    void rememberAnalysis(ScreenThumbnail screen, ActivitySnapshot analysed, QString labelContext);
    // The last analysis, when it is younger than reuseWindow, was made in this context and its
    // screen looks like this one.
    [[nodiscard]] std::optional<ActivitySnapshot> reusableAnalysis(
        const ScreenThumbnail &screen, const QDateTime &now, const QString &labelContext) const;

private:
    ScreenThumbnail m_lastTick;
    ScreenThumbnail m_analysedScreen;
    std::optional<ActivitySnapshot> m_analysis;
    QString m_labelContext;
};
