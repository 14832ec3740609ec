#include "ai/llmerror.h"

using namespace Qt::StringLiterals;

LLMError::LLMError(Kind kind, QString payload)
    : m_kind(kind), m_payload(std::move(payload)), m_what(errorDescription().toUtf8())
{
}

LLMError LLMError::localModelNotAvailable(const QString &model)
{
    return LLMError(Kind::LocalModelNotAvailable, model);
}

LLMError LLMError::requestFailed(const QString &message)
{
    return LLMError(Kind::RequestFailed, message);
}

LLMError LLMError::invalidResponse(const QString &message)
{
    return LLMError(Kind::InvalidResponse, message);
}

LLMError LLMError::ollamaNotRunning()
{
    return LLMError(Kind::OllamaNotRunning, QString());
}

QString LLMError::errorDescription() const
{
    switch (m_kind) {
    case Kind::LocalModelNotAvailable:
        return u"Model \""_s + m_payload + u"\" is not installed. Run `ollama pull "_s + m_payload
            + u"` in a terminal."_s;
    case Kind::RequestFailed:
    case Kind::InvalidResponse:
        return m_payload;
    case Kind::OllamaNotRunning:
        return u"Ollama is not running. Start the Ollama service or run `ollama serve` in a terminal."_s;
    }
    return m_payload;
}
