#pragma once

#include "ui/launchatloginmodel.h"
#include "ui/privacysettingsmodel.h"
#include "ui/presencesettingsmodel.h"
#include "ui/trackingpreferencesmodel.h"

#include <QObject>
#include <QStringList>
#include <QUrl>
#include <QtQml/qqmlregistration.h>

class DesktopActions;
class LLMService;
class LoginItem;
class ModelStatusCheck;
class Settings;

// The Configuration tab: model choice and its status, the label lists, launch at login.
class SettingsViewModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Built by the main screen")
    Q_PROPERTY(QString selectedModel READ selectedModel NOTIFY selectedModelChanged)
    Q_PROPERTY(int selectedIndex READ selectedIndex WRITE setSelectedIndex NOTIFY selectedModelChanged)
    Q_PROPERTY(QStringList modelLabels READ modelLabels CONSTANT)
    Q_PROPERTY(QString usesText READ usesText NOTIFY selectedModelChanged)
    Q_PROPERTY(QString installCommandText READ installCommandText NOTIFY selectedModelChanged)
    Q_PROPERTY(QString statusHelp READ statusHelp NOTIFY statusChanged)
    Q_PROPERTY(bool isChecking READ isChecking NOTIFY statusChanged)
    Q_PROPERTY(bool modelAvailable READ modelAvailable NOTIFY statusChanged)
    Q_PROPERTY(bool showInstallBox READ showInstallBox NOTIFY statusChanged)
    Q_PROPERTY(TrackingPreferencesModel *tracking READ tracking CONSTANT)
    Q_PROPERTY(LaunchAtLoginModel *launchAtLogin READ launchAtLogin CONSTANT)
    Q_PROPERTY(PrivacySettingsModel *privacy READ privacy CONSTANT)
    Q_PROPERTY(PresenceSettingsModel *presence READ presence CONSTANT)

public:
    // Takes the privacy section over; without one, it is built for an X11 session.
    SettingsViewModel(LLMService *llmService, Settings *settings, LoginItem *loginItem, DesktopActions *desktop,
        QObject *parent = nullptr, PrivacySettingsModel *privacy = nullptr);

    [[nodiscard]] QString selectedModel() const;
    [[nodiscard]] int selectedIndex() const;
    void setSelectedIndex(int index);
    void setSelectedModel(const QString &name);
    [[nodiscard]] QStringList modelLabels() const;
    [[nodiscard]] QString usesText() const;
    [[nodiscard]] QString installCommandText() const;
    [[nodiscard]] QString statusHelp() const;
    [[nodiscard]] bool isChecking() const;
    [[nodiscard]] bool modelAvailable() const;
    [[nodiscard]] bool showInstallBox() const { return !modelAvailable(); }
    [[nodiscard]] TrackingPreferencesModel *tracking() const { return m_tracking; }
    [[nodiscard]] LaunchAtLoginModel *launchAtLogin() const { return m_launchAtLogin; }
    [[nodiscard]] PrivacySettingsModel *privacy() const { return m_privacy; }
    [[nodiscard]] PresenceSettingsModel *presence() const { return m_presence; }

    // The tab came on screen: follow the service's model and check it afresh.
    Q_INVOKABLE void appear();
    Q_INVOKABLE void openInstallationGuide();

Q_SIGNALS:
    void selectedModelChanged();
    void statusChanged();

private:
    LLMService *m_llmService = nullptr;
    DesktopActions *m_desktop = nullptr;
    ModelStatusCheck *m_check = nullptr;
    TrackingPreferencesModel *m_tracking = nullptr;
    LaunchAtLoginModel *m_launchAtLogin = nullptr;
    PrivacySettingsModel *m_privacy = nullptr;
    PresenceSettingsModel *m_presence = nullptr;
};
