#pragma once

#include "core/activitysnapshot.h"

#include <QAbstractListModel>
#include <QColor>
#include <QList>
#include <QStringList>
#include <QtQml/qqmlregistration.h>

#include <optional>

class Settings;

// What one activity card shows of a snapshot.
struct ActivityCardPresentation
{
    std::optional<QString> categoryChip; // trimmed category, for analysed records only
    QColor categoryColor;
    std::optional<QString> projectChip; // effective project, never "Other", never on screen-state markers
    bool showNoteBadge = false;
    QString timeText;
    std::optional<QString> description;
    std::optional<QString> trimmedNote;

    [[nodiscard]] static ActivityCardPresentation present(
        const ActivitySnapshot &snapshot, const QStringList &userProjects);
    // The locale's hour and minute, with an AM/PM marker where the locale has one.
    [[nodiscard]] static QString hourMinuteText(const QDateTime &time);
};

// The cards of the Activity tab, one per snapshot, in the order given.
class ActivityCardListModel : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Built by the main screen")
    Q_PROPERTY(int count READ count NOTIFY countChanged)

public:
    enum Role {
        CategoryTextRole = Qt::UserRole + 1,
        CategoryColorRole,
        ShowCategoryChipRole,
        ProjectTextRole,
        ShowProjectChipRole,
        ShowNoteBadgeRole,
        TimeTextRole,
        DescriptionRole,
        NoteRole,
    };

    // The user's projects are read from the settings each time the list is set.
    explicit ActivityCardListModel(const Settings *settings, QObject *parent = nullptr);

    void setSnapshots(const QList<ActivitySnapshot> &snapshots);
    [[nodiscard]] int count() const { return int(m_cards.size()); }

    [[nodiscard]] int rowCount(const QModelIndex &parent = {}) const override;
    [[nodiscard]] QVariant data(const QModelIndex &index, int role) const override;
    [[nodiscard]] QHash<int, QByteArray> roleNames() const override;

Q_SIGNALS:
    void countChanged();

private:
    const Settings *m_settings = nullptr;
    QList<ActivityCardPresentation> m_cards;
};
