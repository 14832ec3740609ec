#pragma once

#include <QByteArray>
#include <QNetworkReply>
#include <QString>

#include <exception>

// A request that got no HTTP reply at all (refused, dropped, timed out), with the network
// stack's own code and text. Kept apart from LLMError so callers see what really happened.
class TransportError : public std::exception
{
public:
    TransportError(QNetworkReply::NetworkError code, const QString &message);

    [[nodiscard]] QNetworkReply::NetworkError code() const { return m_code; }
    [[nodiscard]] QString errorDescription() const { return m_message; }
    [[nodiscard]] const char *what() const noexcept override { return m_what.constData(); }

private:
    QNetworkReply::NetworkError m_code;
    QString m_message;
    QByteArray m_what;
};
