#pragma once

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

class Settings;

// The user's projects and categories, written through to the settings on every edit.
class TrackingPreferencesModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Owned by a screen")
    Q_PROPERTY(QString projects READ projects WRITE setProjects NOTIFY projectsChanged)
    Q_PROPERTY(QString categorizeBy READ categorizeBy WRITE setCategorizeBy NOTIFY categorizeByChanged)
    Q_PROPERTY(bool compact READ compact CONSTANT)
    Q_PROPERTY(QString labelLimitText READ labelLimitText NOTIFY labelLimitTextChanged)

public:
    static inline const QString defaultCategories = QStringLiteral("Content Creation, Browsing, Coding, Communication");

    // The setup screen is compact and fills in the default categories; the settings tab does neither.
    TrackingPreferencesModel(
        Settings *settings, bool compact, bool prefillDefaultCategories, QObject *parent = nullptr);

    [[nodiscard]] QString projects() const;
    [[nodiscard]] QString categorizeBy() const;
    [[nodiscard]] bool compact() const { return m_compact; }
    // Empty unless a project or category is longer than a label may be.
    [[nodiscard]] QString labelLimitText() const;
    void setProjects(const QString &value);
    void setCategorizeBy(const QString &value);

    // Reads the stored values afresh and, in setup, fills in the default categories when blank.
    Q_INVOKABLE void appear();

Q_SIGNALS:
    void projectsChanged();
    void categorizeByChanged();
    void labelLimitTextChanged();

private:
    Settings *m_settings = nullptr;
    bool m_compact = false;
    bool m_prefillDefaultCategories = false;
};
