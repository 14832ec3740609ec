#include "server/httpreply.h"

#include <QJsonDocument>

using namespace Qt::StringLiterals;

HttpReply HttpReply::json(int status, const QJsonObject &object)
{
    return HttpReply {status, "application/json", QJsonDocument(object).toJson(QJsonDocument::Compact), {}};
}

HttpReply HttpReply::error(int status, const QString &message)
{
    return json(status, QJsonObject {{u"error"_s, message}});
}

HttpReply HttpReply::html(int status, const QString &page)
{
    return HttpReply {status, "text/html; charset=utf-8", page.toUtf8(), {}};
}
