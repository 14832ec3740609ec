#include "ui/modelstatuscheck.h"

#include "ai/llmservice.h"
#include "core/maintask.h"

#include <QPointer>

ModelStatusCheck::ModelStatusCheck(LLMService *llmService, QObject *parent) : QObject(parent), m_llmService(llmService)
{
}

void ModelStatusCheck::start()
{
    setChecking(true);
    QPointer<ModelStatusCheck> self(this);
    LLMService *service = m_llmService;
    startTask(this, [self, service]() -> QCoro::Task<> {
        const QStringList names = co_await service->fetchInstalledModelNames();
        const bool available
            = !names.isEmpty() && LLMService::resolveInstalledModel(service->localModelName(), names).has_value();
        if (!self) {
            co_return;
        }
        self->setModelAvailable(available);
        self->setChecking(false);
        Q_EMIT self->finished();
    });
}

void ModelStatusCheck::select(const QString &name)
{
    if (name == m_llmService->localModelName()) {
        return;
    }
    m_llmService->selectModel(name);
    start();
}

void ModelStatusCheck::setChecking(bool value)
{
    if (m_isChecking == value) {
        return;
    }
    m_isChecking = value;
    Q_EMIT isCheckingChanged();
}

void ModelStatusCheck::setModelAvailable(bool value)
{
    if (m_modelAvailable == value) {
        return;
    }
    m_modelAvailable = value;
    Q_EMIT modelAvailableChanged();
}
