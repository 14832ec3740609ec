#pragma once

#include "reports/activityreportcalculator.h"

#include <QColor>
#include <QList>
#include <QObject>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

// The Report tab: today's active time, the project donut and the category bars, derived from
// the figures the main screen hands in. Holds no store and reads none.
class ReportViewModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Built by the main screen")
    Q_PROPERTY(int activeSeconds READ activeSeconds NOTIFY reportChanged)
    Q_PROPERTY(QString formattedDuration READ formattedDuration NOTIFY reportChanged)
    Q_PROPERTY(QString estimatedMinutesText READ estimatedMinutesText NOTIFY reportChanged)
    // Each entry: name, percentText, color, start, end (fractions of the ring, from the top, clockwise).
    Q_PROPERTY(QVariantList projects READ projects NOTIFY reportChanged)
    // Each entry: name, percentText, color, fill (0 to 1 of the bar's width).
    Q_PROPERTY(QVariantList categories READ categories NOTIFY reportChanged)
    Q_PROPERTY(bool showProjects READ showProjects NOTIFY reportChanged)
    Q_PROPERTY(bool showCategories READ showCategories NOTIFY reportChanged)
    Q_PROPERTY(bool showEmptyState READ showEmptyState NOTIFY reportChanged)

public:
    struct Segment
    {
        double start = 0.0;
        double end = 0.0;
        friend bool operator==(const Segment &, const Segment &) = default;
    };

    static constexpr int projectChartColorCount = 8;

    using QObject::QObject;

    void setReport(int activeSeconds, const QList<LabelShare> &projectShares, const QList<LabelShare> &categoryShares);

    [[nodiscard]] int activeSeconds() const { return m_activeSeconds; }
    [[nodiscard]] QString formattedDuration() const { return formattedDuration(m_activeSeconds); }
    [[nodiscard]] QString estimatedMinutesText() const;
    [[nodiscard]] QVariantList projects() const;
    [[nodiscard]] QVariantList categories() const;
    [[nodiscard]] bool showProjects() const { return !m_projectShares.isEmpty(); }
    [[nodiscard]] bool showCategories() const { return !m_categoryShares.isEmpty(); }
    [[nodiscard]] bool showEmptyState() const { return m_projectShares.isEmpty() && m_categoryShares.isEmpty(); }

    // "42m" below an hour, "2h 5m" from an hour on; seconds are dropped.
    [[nodiscard]] static QString formattedDuration(qint64 seconds);
    // Rounded half away from zero: "13%".
    [[nodiscard]] static QString percentText(double percentage);
    // Running sums of the percentages, not normalised: the ring closes only as far as they add up.
    [[nodiscard]] static QList<Segment> segments(const QList<LabelShare> &shares);
    // The ring's colours repeat after eight.
    [[nodiscard]] static QColor projectChartColor(int index);
    // The filled part of a bar: at most the whole width, never negative.
    [[nodiscard]] static double barFraction(double percentage);

Q_SIGNALS:
    void reportChanged();

private:
    int m_activeSeconds = 0;
    QList<LabelShare> m_projectShares;
    QList<LabelShare> m_categoryShares;
};
