#pragma once

#include <QByteArray>
#include <QString>

#include <exception>

// The error vocabulary of the local model client, each kind with the text the user reads.
class LLMError : public std::exception
{
public:
    enum class Kind {
        LocalModelNotAvailable,
        RequestFailed,
        InvalidResponse,
        OllamaNotRunning,
    };

    [[nodiscard]] static LLMError localModelNotAvailable(const QString &model);
    [[nodiscard]] static LLMError requestFailed(const QString &message);
    [[nodiscard]] static LLMError invalidResponse(const QString &message);
    [[nodiscard]] static LLMError ollamaNotRunning();

    [[nodiscard]] Kind kind() const { return m_kind; }
    // The model name for LocalModelNotAvailable, the message for RequestFailed and InvalidResponse.
    [[nodiscard]] QString payload() const { return m_payload; }
    [[nodiscard]] QString errorDescription() const;
    // The same text as errorDescription(), in UTF-8.
    [[nodiscard]] const char *what() const noexcept override { return m_what.constData(); }

private:
    LLMError(Kind kind, QString payload);

    Kind m_kind;
    QString m_payload;
    QByteArray m_what;
};
