#include "ai/jsonparseerror.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

JsonParseError::JsonParseError(const QJsonParseError &error)
    : m_code(error.error), m_offset(error.offset), m_message(error.errorString()), m_what(m_message.toUtf8())
{
}

QJsonValue parseJsonValue(const QByteArray &text)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (error.error == QJsonParseError::NoError) {
        return document.isObject() ? QJsonValue(document.object()) : QJsonValue(document.array());
    }
    // QJsonDocument takes only an object or an array at the top; a lone scalar parses as the one
    // element of an array. Anything else keeps the first parser's message.
    QJsonParseError wrappedError;
    const QJsonDocument wrapped = QJsonDocument::fromJson('[' + text + ']', &wrappedError);
    if (wrappedError.error == QJsonParseError::NoError && wrapped.array().size() == 1) {
        return wrapped.array().first();
    }
    throw JsonParseError(error);
}
