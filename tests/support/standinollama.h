#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

// Bodies the stand-in server answers with where a test plays Ollama.
namespace StandInOllama {
inline QByteArray tagsBody(const QStringList &names)
{
    QJsonArray models;
    for (const QString &name : names) {
        models.append(QJsonObject {
            {QStringLiteral("name"), name}, {QStringLiteral("model"), name}, {QStringLiteral("size"), 1234}});
    }
    return QJsonDocument(QJsonObject {{QStringLiteral("models"), models}}).toJson(QJsonDocument::Compact);
}

inline QByteArray chatBody(const QString &content)
{
    const QJsonObject message {
        {QStringLiteral("role"), QStringLiteral("assistant")}, {QStringLiteral("content"), content}};
    return QJsonDocument(QJsonObject {{QStringLiteral("model"), QStringLiteral("qwen3-vl:2b")},
                             {QStringLiteral("message"), message}, {QStringLiteral("done"), true}})
        .toJson(QJsonDocument::Compact);
}

inline QByteArray chatBody(const QJsonObject &content)
{
    return chatBody(QString::fromUtf8(QJsonDocument(content).toJson(QJsonDocument::Compact)));
}
} // namespace StandInOllama
