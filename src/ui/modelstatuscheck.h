#pragma once

#include <QObject>
#include <QtQml/qqmlregistration.h>

class LLMService;

// Whether the chosen model is installed in Ollama. Checks may overlap after quick changes of
// the model; the last to finish sets the result.
class ModelStatusCheck : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Owned by a screen")
    Q_PROPERTY(bool isChecking READ isChecking NOTIFY isCheckingChanged)
    Q_PROPERTY(bool modelAvailable READ modelAvailable NOTIFY modelAvailableChanged)

public:
    explicit ModelStatusCheck(LLMService *llmService, QObject *parent = nullptr);

    [[nodiscard]] bool isChecking() const { return m_isChecking; }
    [[nodiscard]] bool modelAvailable() const { return m_modelAvailable; }

    Q_INVOKABLE void start();
    // Makes name the service's model and checks it, unless it is the model already.
    void select(const QString &name);

Q_SIGNALS:
    void isCheckingChanged();
    void modelAvailableChanged();
    void finished();

private:
    void setChecking(bool value);
    void setModelAvailable(bool value);

    LLMService *m_llmService = nullptr;
    bool m_isChecking = false;
    bool m_modelAvailable = false;
};
