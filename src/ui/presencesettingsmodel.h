#pragma once

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

class Settings;

// The switches for time away and for unchanged screens in the Configuration tab. Each edit is
// written at once, and the monitor reads it at its next tick.
class PresenceSettingsModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Owned by the settings screen")
    Q_PROPERTY(bool detectAway READ detectAway WRITE setDetectAway NOTIFY changed)
    Q_PROPERTY(int awayMinutes READ awayMinutes WRITE setAwayMinutes NOTIFY changed)
    Q_PROPERTY(QString awayText READ awayText NOTIFY changed)
    Q_PROPERTY(bool skipUnchangedScreens READ skipUnchangedScreens WRITE setSkipUnchangedScreens NOTIFY changed)
    Q_PROPERTY(int minimumMinutes MEMBER minimumMinutes CONSTANT)
    Q_PROPERTY(int maximumMinutes MEMBER maximumMinutes CONSTANT)

public:
    static constexpr int minimumMinutes = 1;
    static constexpr int maximumMinutes = 120;

    explicit PresenceSettingsModel(Settings *settings, QObject *parent = nullptr);

    [[nodiscard]] bool detectAway() const;
    // The threshold in use, or the one that switching detection on again brings back.
    [[nodiscard]] int awayMinutes() const;
    [[nodiscard]] QString awayText() const;
    [[nodiscard]] bool skipUnchangedScreens() const;
    void setDetectAway(bool value);
    void setAwayMinutes(int minutes);
    void setSkipUnchangedScreens(bool value);

    // Shows what the settings file holds now, also after an edit by hand.
    Q_INVOKABLE void appear();

Q_SIGNALS:
    void changed();

private:
    [[nodiscard]] int storedMinutes() const;

    Settings *m_settings = nullptr;
    int m_lastMinutes;
};
