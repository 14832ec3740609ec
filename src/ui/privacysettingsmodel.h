#pragma once

#include "monitoring/timedpause.h"
#include "monitoring/visiblewindowsource.h"

#include <QObject>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QtQml/qqmlregistration.h>

class Settings;

// The Configuration tab's privacy section: the applications and title words that are never
// captured, written through on every edit, and on a desktop that cannot tell which windows are
// on screen, why the list cannot apply there and the timed pause instead.
class PrivacySettingsModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Built by the main screen")
    Q_PROPERTY(QString applications READ applications WRITE setApplications NOTIFY listsChanged)
    Q_PROPERTY(QString titleWords READ titleWords WRITE setTitleWords NOTIFY listsChanged)
    Q_PROPERTY(bool canApply READ canApply CONSTANT)
    Q_PROPERTY(QString explanation READ explanation CONSTANT)
    Q_PROPERTY(QStringList pauseChoices READ pauseChoices CONSTANT)

public:
    // The session's variables decide what this desktop can tell.
    PrivacySettingsModel(Settings *settings, const QProcessEnvironment &session, QObject *parent = nullptr);

    [[nodiscard]] QString applications() const;
    [[nodiscard]] QString titleWords() const;
    void setApplications(const QString &value);
    void setTitleWords(const QString &value);
    [[nodiscard]] bool canApply() const { return m_explanation.isEmpty(); }
    // Empty where the exclusions apply.
    [[nodiscard]] QString explanation() const { return m_explanation; }
    [[nodiscard]] static QStringList pauseChoices();

    Q_INVOKABLE void restoreDefaults();
    // One of pauseChoices, by its index.
    Q_INVOKABLE void pause(int choice);

Q_SIGNALS:
    void listsChanged();
    void pauseRequested(TimedPause::Length length);

private:
    [[nodiscard]] QString list(const QString &key, const QStringList &defaults) const;
    void setList(const QString &key, const QString &value);

    Settings *m_settings = nullptr;
    QString m_explanation;
};
