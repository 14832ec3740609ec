#include "server/secrettoken.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QRandomGenerator>

#include <array>

QString SecretToken::generate()
{
    std::array<quint32, 8> words {};
    QRandomGenerator::system()->fillRange(words.data(), words.size());
    const QByteArray bytes(reinterpret_cast<const char *>(words.data()), sizeof(words));
    return QString::fromLatin1(bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

QString SecretToken::digest(const QString &token)
{
    return QString::fromLatin1(QCryptographicHash::hash(token.toUtf8(), QCryptographicHash::Sha256).toHex());
}
