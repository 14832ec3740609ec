#include "ui/reportviewmodel.h"

#include "ui/activitylabelstyle.h"
#include "ui/tamlotheme.h"

#include <QVariantMap>

#include <algorithm>

using namespace Qt::StringLiterals;

void ReportViewModel::setReport(
    int activeSeconds, const QList<LabelShare> &projectShares, const QList<LabelShare> &categoryShares)
{
    m_activeSeconds = activeSeconds;
    m_projectShares = projectShares;
    m_categoryShares = categoryShares;
    Q_EMIT reportChanged();
}

QString ReportViewModel::estimatedMinutesText() const
{
    return QString::number(m_activeSeconds / 60) + u" min estimated"_s;
}

QVariantList ReportViewModel::projects() const
{
    QVariantList rows;
    const QList<Segment> ring = segments(m_projectShares);
    for (qsizetype i = 0; i < m_projectShares.size(); ++i) {
        const LabelShare &share = m_projectShares.at(i);
        rows.append(QVariantMap {
            {u"name"_s, share.name},
            {u"percentText"_s, percentText(share.percentage)},
            {u"color"_s, projectChartColor(int(i))},
            {u"start"_s, ring.at(i).start},
            {u"end"_s, ring.at(i).end},
        });
    }
    return rows;
}

QVariantList ReportViewModel::categories() const
{
    QVariantList rows;
    for (const LabelShare &share : m_categoryShares) {
        rows.append(QVariantMap {
            {u"name"_s, share.name},
            {u"percentText"_s, percentText(share.percentage)},
            {u"color"_s, ActivityLabelStyle::color(share.name)},
            {u"fill"_s, barFraction(share.percentage)},
        });
    }
    return rows;
}

QString ReportViewModel::formattedDuration(qint64 seconds)
{
    const qint64 minutes = seconds / 60;
    if (seconds < 3600) {
        return QString::number(minutes) + u"m"_s;
    }
    return QString::number(seconds / 3600) + u"h "_s + QString::number(minutes % 60) + u"m"_s;
}

QString ReportViewModel::percentText(double percentage)
{
    return QString::number(ActivityReportCalculator::roundedPercentage(percentage)) + u"%"_s;
}

QList<ReportViewModel::Segment> ReportViewModel::segments(const QList<LabelShare> &shares)
{
    QList<Segment> result;
    double position = 0.0;
    for (const LabelShare &share : shares) {
        const double end = position + share.percentage / 100.0;
        result.append({position, end});
        position = end;
    }
    return result;
}

QColor ReportViewModel::projectChartColor(int index)
{
    static const QColor colors[projectChartColorCount] = {
        TamloTheme::brandDark(),
        TamloTheme::brandGreen(),
        TamloTheme::brandBlue(),
        QColor(254, 205, 214),
        TamloTheme::indigo(),
        TamloTheme::orange(),
        TamloTheme::purple(),
        TamloTheme::teal(),
    };
    return colors[((index % projectChartColorCount) + projectChartColorCount) % projectChartColorCount];
}

double ReportViewModel::barFraction(double percentage)
{
    return std::max(0.0, std::min(percentage, 100.0) / 100.0);
}
