#pragma once

#include "logmessages.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

inline QByteArray readBytes(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline void writeBytes(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly)) {
        file.write(bytes);
    }
}

// Puts a plain file where a folder should be, so writes below it fail even for root.
inline void blockFolder(const QString &folder)
{
    QDir(folder).removeRecursively();
    writeBytes(folder, "in the way");
}

inline QString testDataPath(const QString &name)
{
    return QDir(qEnvironmentVariable("TAMLO_TEST_DATA")).filePath(name);
}

// Compares with a golden file byte for byte; on a mismatch the actual output is written into the
// working folder as <name>.actual, to diff against the golden one.
inline ::testing::AssertionResult matchesGolden(const QByteArray &actual, const QString &name)
{
    if (actual == readBytes(testDataPath(name)) && !actual.isEmpty()) {
        return ::testing::AssertionSuccess();
    }
    const QString actualPath = QDir::current().filePath(QFileInfo(name).fileName() + QStringLiteral(".actual"));
    writeBytes(actualPath, actual);
    return ::testing::AssertionFailure() << "differs from " << name.toStdString() << "; see "
                                         << actualPath.toStdString();
}
