#include "ui/settingsviewmodel.h"

#include "ai/llmservice.h"
#include "ui/desktopactions.h"
#include "ui/launchatloginmodel.h"
#include "ui/modelchoice.h"
#include "ui/modelstatuscheck.h"
#include "ui/trackingpreferencesmodel.h"

using namespace Qt::StringLiterals;

SettingsViewModel::SettingsViewModel(LLMService *llmService, Settings *settings, LoginItem *loginItem,
    DesktopActions *desktop, QObject *parent, PrivacySettingsModel *privacy)
    : QObject(parent)
    , m_llmService(llmService)
    , m_desktop(desktop)
    , m_check(new ModelStatusCheck(llmService, this))
    , m_tracking(new TrackingPreferencesModel(settings, false, false, this))
    , m_launchAtLogin(new LaunchAtLoginModel(loginItem, false, this))
    , m_privacy(privacy ? privacy : new PrivacySettingsModel(settings, QProcessEnvironment()))
    , m_presence(new PresenceSettingsModel(settings, this))
{
    m_privacy->setParent(this);
    connect(m_llmService, &LLMService::localModelNameChanged, this, &SettingsViewModel::selectedModelChanged);
    connect(m_check, &ModelStatusCheck::isCheckingChanged, this, &SettingsViewModel::statusChanged);
    connect(m_check, &ModelStatusCheck::modelAvailableChanged, this, &SettingsViewModel::statusChanged);
}

QString SettingsViewModel::selectedModel() const
{
    return m_llmService->localModelName();
}

int SettingsViewModel::selectedIndex() const
{
    return int(LLMService::availableModelNames().indexOf(selectedModel()));
}

void SettingsViewModel::setSelectedIndex(int index)
{
    const QStringList names = LLMService::availableModelNames();
    if (index >= 0 && index < names.size()) {
        setSelectedModel(names.at(index));
    }
}

void SettingsViewModel::setSelectedModel(const QString &name)
{
    m_check->select(name);
}

QStringList SettingsViewModel::modelLabels() const
{
    QStringList labels;
    for (const QString &name : LLMService::availableModelNames()) {
        labels.append(ModelChoice::pickerLabel(name));
    }
    return labels;
}

QString SettingsViewModel::usesText() const
{
    return u"Uses Ollama on this computer ("_s + selectedModel() + u")"_s;
}

QString SettingsViewModel::installCommandText() const
{
    return u"2. Run: "_s + ModelChoice::pullCommand(selectedModel());
}

QString SettingsViewModel::statusHelp() const
{
    return modelAvailable() ? u"Model ready"_s
                            : u"Model not installed — run "_s + ModelChoice::pullCommand(selectedModel());
}

bool SettingsViewModel::isChecking() const
{
    return m_check->isChecking();
}

bool SettingsViewModel::modelAvailable() const
{
    return m_check->modelAvailable();
}

void SettingsViewModel::appear()
{
    m_llmService->configure();
    Q_EMIT selectedModelChanged();
    m_tracking->appear();
    m_launchAtLogin->appear();
    m_check->start();
}

void SettingsViewModel::openInstallationGuide()
{
    m_desktop->openUrl(ModelChoice::installationDocsURL());
}
