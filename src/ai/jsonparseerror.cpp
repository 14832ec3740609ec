#include "ai/jsonparseerror.h"

JsonParseError::JsonParseError(const QJsonParseError &error)
    : m_code(error.error), m_offset(error.offset), m_message(error.errorString()), m_what(m_message.toUtf8())
{
}
