#include "ui/activitycardlistmodel.h"

#include "core/settings.h"
#include "core/userpreferences.h"
#include "ui/activitylabelstyle.h"

#include <QLocale>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

ActivityCardPresentation ActivityCardPresentation::present(
    const ActivitySnapshot &snapshot, const QStringList &userProjects)
{
    ActivityCardPresentation card;
    const QString category = snapshot.aiCategory.trimmed();
    if (!category.isEmpty() && !snapshot.isInactiveScreenState() && !snapshot.isPrivate()) {
        card.categoryChip = category;
        card.categoryColor = ActivityLabelStyle::color(category);
    }
    const QString description = snapshot.activityDescription.value_or(QString());
    // A marker shows its time and itself, nothing of the labels behind it.
    if (!snapshot.isInactiveScreenState() && !snapshot.isPrivate()) {
        const QString project = snapshot.effectiveProjectName(userProjects);
        if (project != UserPreferences::otherLabel) {
            card.projectChip = project;
        }
    }
    const QString note = snapshot.userNote.value_or(QString()).trimmed();
    card.showNoteBadge = !note.isEmpty();
    if (!note.isEmpty()) {
        card.trimmedNote = note;
    }
    if (!description.isEmpty()) {
        card.description = description;
    }
    card.timeText = hourMinuteText(snapshot.timestamp);
    return card;
}

QString ActivityCardPresentation::hourMinuteText(const QDateTime &time)
{
    // The short format reduced to hour and minute: seconds and zone names go.
    static const QRegularExpression secondsAndZone(u"[:.]s{1,2}|\\s*t+"_s);
    const QLocale locale;
    QString format = locale.timeFormat(QLocale::ShortFormat);
    format.remove(secondsAndZone);
    return locale.toString(time.toLocalTime().time(), format.trimmed());
}

ActivityCardListModel::ActivityCardListModel(const Settings *settings, QObject *parent)
    : QAbstractListModel(parent), m_settings(settings)
{
}

void ActivityCardListModel::setSnapshots(const QList<ActivitySnapshot> &snapshots)
{
    const QStringList projects = UserPreferences::parsedList(m_settings->string(SettingsKey::userProjects));
    const int before = count();
    beginResetModel();
    m_cards.clear();
    for (const ActivitySnapshot &snapshot : snapshots) {
        m_cards.append(ActivityCardPresentation::present(snapshot, projects));
    }
    endResetModel();
    if (before != count()) {
        Q_EMIT countChanged();
    }
}

int ActivityCardListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : count();
}

QVariant ActivityCardListModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_cards.size()) {
        return {};
    }
    const ActivityCardPresentation &card = m_cards.at(index.row());
    switch (role) {
    case CategoryTextRole:
        return card.categoryChip.value_or(QString());
    case CategoryColorRole:
        return card.categoryColor;
    case ShowCategoryChipRole:
        return card.categoryChip.has_value();
    case ProjectTextRole:
        return card.projectChip.value_or(QString());
    case ShowProjectChipRole:
        return card.projectChip.has_value();
    case ShowNoteBadgeRole:
        return card.showNoteBadge;
    case TimeTextRole:
        return card.timeText;
    case DescriptionRole:
        return card.description.value_or(QString());
    case NoteRole:
        return card.trimmedNote.value_or(QString());
    default:
        return {};
    }
}

QHash<int, QByteArray> ActivityCardListModel::roleNames() const
{
    return {
        {CategoryTextRole, "categoryText"},
        {CategoryColorRole, "categoryColor"},
        {ShowCategoryChipRole, "showCategoryChip"},
        {ProjectTextRole, "projectText"},
        {ShowProjectChipRole, "showProjectChip"},
        {ShowNoteBadgeRole, "showNoteBadge"},
        {TimeTextRole, "timeText"},
        {DescriptionRole, "descriptionText"},
        {NoteRole, "noteText"},
    };
}
