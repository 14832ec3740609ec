#include "core/tamlodatapaths.h"

#include "core/apppaths.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

QString TamloDataPaths::tamloRoot()
{
    return AppPaths::standard().exportRoot;
}

QString TamloDataPaths::workLogsDir(const QString &root)
{
    return QDir(root).filePath(u"WorkLogs"_s);
}

QString TamloDataPaths::ensureExportDirectories(const QString &root)
{
    for (const QString &path : {workLogsDir(root), root}) {
        if (!QDir().mkpath(path)) {
            const QFileInfo info(path);
            if (info.exists() && !info.isDir()) {
                return u"“%1” exists and is not a folder."_s.arg(path);
            }
            return u"The folder “%1” couldn’t be created."_s.arg(path);
        }
    }
    return {};
}

QString TamloDataPaths::dateLabel(const QDateTime &date)
{
    // toLocalTime follows the system's zone at the moment of the call, like a fresh formatter would.
    return date.toLocalTime().date().toString(u"yyyy-MM-dd"_s);
}
