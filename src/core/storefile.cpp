#include "core/storefile.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QSaveFile>

#include <algorithm>

using namespace Qt::StringLiterals;

QString StoreFile::writeAtomically(const QString &path, const QByteArray &bytes)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return file.errorString();
    }
    // The bytes sit in a buffer until flushed, and commit() does not notice a failed final flush
    // (a full disk): it would put a short file in place of the whole one.
    if (file.write(bytes) != bytes.size() || !file.flush()) {
        const QString error = file.errorString();
        file.cancelWriting();
        return error;
    }
    if (!file.commit()) {
        return file.errorString();
    }
    return {};
}

QByteArray StoreFile::compactJson(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray StoreFile::joinedArray(const QList<QByteArray> &elements)
{
    qsizetype size = 2 + std::max<qsizetype>(elements.size() - 1, 0);
    for (const QByteArray &element : elements) {
        size += element.size();
    }
    QByteArray bytes;
    bytes.reserve(size);
    bytes.append('[');
    for (qsizetype i = 0; i < elements.size(); ++i) {
        if (i > 0) {
            bytes.append(',');
        }
        bytes.append(elements.at(i));
    }
    bytes.append(']');
    return bytes;
}

QString StoreFile::setAside(const QString &path)
{
    QString target = path + u".unreadable"_s;
    for (int n = 2; QFile::exists(target); ++n) {
        target = path + u".unreadable-%1"_s.arg(n);
    }
    return QFile::rename(path, target) ? target : QString();
}

QString StoreFile::readAll(const QString &path, QByteArray &bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return u"The file couldn’t be opened: %1."_s.arg(file.errorString());
    }
    bytes = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        return u"The file couldn’t be read: %1."_s.arg(file.errorString());
    }
    return {};
}

QString StoreFile::parseArray(const QByteArray &bytes, QJsonArray &array)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError) {
        return u"The file isn’t valid JSON (%1 at offset %2)."_s.arg(error.errorString()).arg(error.offset);
    }
    if (!document.isArray()) {
        return u"The file doesn’t hold a list."_s;
    }
    array = document.array();
    return {};
}

QString StoreFile::setAsideNotice(const QString &newPath)
{
    if (newPath.isEmpty()) {
        return u"The file couldn’t be set aside, so it will be left as it is and not written over."_s;
    }
    return u"The file was kept as “%1”."_s.arg(QFileInfo(newPath).fileName());
}

QString StoreFile::writeBlockedNotice(const QString &path)
{
    return u"The unreadable file “%1” is still in its place and is not written over."_s.arg(QFileInfo(path).fileName());
}
