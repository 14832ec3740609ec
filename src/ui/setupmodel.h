#pragma once

#include "ui/launchatloginmodel.h"
#include "ui/trackingpreferencesmodel.h"

#include <QObject>
#include <QString>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

#include <chrono>

class DesktopActions;
class LLMService;
class LoginItem;
class ModelStatusCheck;
class Settings;

// The first-launch setup: choose and install a model, name the labels, launch at login.
class SetupModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Built by the main screen")
    Q_PROPERTY(QString selectedModel READ selectedModel NOTIFY selectedModelChanged)
    // Each entry: modelName, isRecommended, isSelected, detail.
    Q_PROPERTY(QVariantList modelOptions READ modelOptions NOTIFY selectedModelChanged)
    Q_PROPERTY(QString pullCommand READ pullCommand NOTIFY selectedModelChanged)
    Q_PROPERTY(bool didCopyPullCommand READ didCopyPullCommand NOTIFY didCopyPullCommandChanged)
    Q_PROPERTY(bool isCheckingModel READ isCheckingModel NOTIFY statusChanged)
    Q_PROPERTY(bool modelAvailable READ modelAvailable NOTIFY statusChanged)
    Q_PROPERTY(QString statusText READ statusText NOTIFY statusChanged)
    Q_PROPERTY(TrackingPreferencesModel *tracking READ tracking CONSTANT)
    Q_PROPERTY(LaunchAtLoginModel *launchAtLogin READ launchAtLogin CONSTANT)

public:
    static constexpr auto copyMarkDuration = std::chrono::seconds(2);

    SetupModel(LLMService *llmService, Settings *settings, LoginItem *loginItem, DesktopActions *desktop,
        QObject *parent = nullptr);

    [[nodiscard]] QString selectedModel() const;
    [[nodiscard]] QVariantList modelOptions() const;
    [[nodiscard]] QString pullCommand() const;
    [[nodiscard]] bool didCopyPullCommand() const { return m_didCopyPullCommand; }
    [[nodiscard]] bool isCheckingModel() const;
    [[nodiscard]] bool modelAvailable() const;
    [[nodiscard]] QString statusText() const;
    [[nodiscard]] TrackingPreferencesModel *tracking() const { return m_tracking; }
    [[nodiscard]] LaunchAtLoginModel *launchAtLogin() const { return m_launchAtLogin; }

    Q_INVOKABLE void appear();
    Q_INVOKABLE void selectModel(const QString &name);
    Q_INVOKABLE void checkModel();
    // Puts the exact pull command on the clipboard and shows the check mark for two seconds.
    Q_INVOKABLE void copyPullCommand();
    Q_INVOKABLE void openInstallationGuide();

Q_SIGNALS:
    void selectedModelChanged();
    void didCopyPullCommandChanged();
    void statusChanged();

private:
    void setDidCopyPullCommand(bool value);

    LLMService *m_llmService = nullptr;
    DesktopActions *m_desktop = nullptr;
    ModelStatusCheck *m_check = nullptr;
    TrackingPreferencesModel *m_tracking = nullptr;
    LaunchAtLoginModel *m_launchAtLogin = nullptr;
    bool m_didCopyPullCommand = false;
};
