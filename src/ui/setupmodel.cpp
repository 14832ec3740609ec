#include "ui/setupmodel.h"

#include "ai/llmservice.h"
#include "ui/desktopactions.h"
#include "ui/launchatloginmodel.h"
#include "ui/modelchoice.h"
#include "ui/modelstatuscheck.h"
#include "ui/trackingpreferencesmodel.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QTimer>
#include <QVariantMap>

using namespace Qt::StringLiterals;

SetupModel::SetupModel(
    LLMService *llmService, Settings *settings, LoginItem *loginItem, DesktopActions *desktop, QObject *parent)
    : QObject(parent)
    , m_llmService(llmService)
    , m_desktop(desktop)
    , m_check(new ModelStatusCheck(llmService, this))
    , m_tracking(new TrackingPreferencesModel(settings, true, true, this))
    , m_launchAtLogin(new LaunchAtLoginModel(loginItem, true, this))
{
    connect(m_llmService, &LLMService::localModelNameChanged, this, &SetupModel::selectedModelChanged);
    connect(m_check, &ModelStatusCheck::isCheckingChanged, this, &SetupModel::statusChanged);
    connect(m_check, &ModelStatusCheck::modelAvailableChanged, this, &SetupModel::statusChanged);
}

QString SetupModel::selectedModel() const
{
    return m_llmService->localModelName();
}

QVariantList SetupModel::modelOptions() const
{
    QVariantList rows;
    for (const QString &name : LLMService::availableModelNames()) {
        rows.append(QVariantMap {
            {u"modelName"_s, name},
            {u"isRecommended"_s, name == ModelChoice::recommendedModel},
            {u"isSelected"_s, name == selectedModel()},
            {u"detail"_s, ModelChoice::detail(name)},
        });
    }
    return rows;
}

QString SetupModel::pullCommand() const
{
    return ModelChoice::pullCommand(selectedModel());
}

bool SetupModel::isCheckingModel() const
{
    return m_check->isChecking();
}

bool SetupModel::modelAvailable() const
{
    return m_check->modelAvailable();
}

QString SetupModel::statusText() const
{
    return modelAvailable() ? u"Model ready"_s : u"Model not found — see installation guide"_s;
}

void SetupModel::appear()
{
    m_llmService->configure();
    Q_EMIT selectedModelChanged();
    m_tracking->appear();
    m_launchAtLogin->appear();
    m_check->start();
}

void SetupModel::selectModel(const QString &name)
{
    m_check->select(name);
}

void SetupModel::checkModel()
{
    m_check->start();
}

void SetupModel::copyPullCommand()
{
    QClipboard *clipboard = QGuiApplication::clipboard();
    clipboard->clear();
    clipboard->setText(pullCommand());
    setDidCopyPullCommand(true);
    // A second copy does not cancel the first timer, which may clear the mark early.
    QTimer::singleShot(copyMarkDuration, this, [this] { setDidCopyPullCommand(false); });
}

void SetupModel::openInstallationGuide()
{
    m_desktop->openUrl(ModelChoice::installationDocsURL());
}

void SetupModel::setDidCopyPullCommand(bool value)
{
    if (m_didCopyPullCommand == value) {
        return;
    }
    m_didCopyPullCommand = value;
    Q_EMIT didCopyPullCommandChanged();
}
