#include "core/apppaths.h"

#include <QDir>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

QString AppPaths::snapshotsFile() const
{
    return QDir(dataDir).filePath(u"snapshots.json"_s);
}

QString AppPaths::dailyReportsFile() const
{
    return QDir(dataDir).filePath(u"daily-reports.json"_s);
}

QString AppPaths::credentialsFile() const
{
    return QDir(credentialsDir).filePath(u"credentials.plist"_s);
}

AppPaths AppPaths::standard()
{
    const QString data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    return AppPaths {
        .dataDir = QDir(data).filePath(u"Tamlo"_s),
        .credentialsDir = QDir(data).filePath(u"mirevon.Tamlo"_s),
        .exportRoot = QDir(documents).filePath(u"Tamlo"_s),
        .settingsFile = QDir(config).filePath(u"Tamlo/Tamlo.conf"_s),
    };
}

AppPaths AppPaths::underHome(const QString &home)
{
    const QDir dir(home);
    return AppPaths {
        .dataDir = dir.filePath(u".local/share/Tamlo"_s),
        .credentialsDir = dir.filePath(u".local/share/mirevon.Tamlo"_s),
        .exportRoot = dir.filePath(u"Documents/Tamlo"_s),
        .settingsFile = dir.filePath(u".config/Tamlo/Tamlo.conf"_s),
    };
}
