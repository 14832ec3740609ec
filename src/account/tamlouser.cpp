#include "account/tamlouser.h"

#include <QJsonDocument>
#include <QJsonValue>

using namespace Qt::StringLiterals;

QJsonObject TamloUser::toJson() const
{
    QJsonObject object {{u"id"_s, id}, {u"email"_s, email}};
    if (name) {
        object.insert(u"name"_s, *name);
    }
    return object;
}

std::optional<TamloUser> TamloUser::fromJson(const QJsonValue &value)
{
    if (!value.isObject()) {
        return std::nullopt;
    }
    const QJsonObject object = value.toObject();
    const QJsonValue id = object.value(u"id"_s);
    const QJsonValue email = object.value(u"email"_s);
    const QJsonValue name = object.value(u"name"_s);
    if (!id.isString() || !email.isString() || !(name.isString() || name.isNull() || name.isUndefined())) {
        return std::nullopt;
    }
    TamloUser user {.id = id.toString(), .email = email.toString(), .name = std::nullopt};
    if (name.isString()) {
        user.name = name.toString();
    }
    return user;
}

QByteArray TamloUser::encoded() const
{
    return QJsonDocument(toJson()).toJson(QJsonDocument::Compact);
}

std::optional<TamloUser> TamloUser::decode(const QByteArray &json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        return std::nullopt;
    }
    return fromJson(document.object());
}
