#include "ai/transporterror.h"

TransportError::TransportError(QNetworkReply::NetworkError code, const QString &message)
    : m_code(code), m_message(message), m_what(message.toUtf8())
{
}
