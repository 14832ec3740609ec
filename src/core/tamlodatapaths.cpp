#include "core/tamlodatapaths.h"

#include "core/apppaths.h"

#include <QDir>
#include <QFileInfo>

#include <filesystem>
#include <system_error>

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
        // QDir::mkpath gives no reason; the file system's (permission denied, disk full) is the
        // one the user can act on.
        std::error_code error;
        std::filesystem::create_directories(path.toStdString(), error);
        const QFileInfo info(path);
        if (info.exists() && !info.isDir()) {
            return u"“%1” exists and is not a folder."_s.arg(path);
        }
        if (error || !info.isDir()) {
            const QString reason = error ? QString::fromStdString(error.message()) : u"unknown error"_s;
            return u"The folder “%1” couldn’t be created: %2."_s.arg(path, reason);
        }
    }
    return {};
}

QString TamloDataPaths::dateLabel(const QDateTime &date)
{
    // toLocalTime follows the system's zone at the moment of the call, like a fresh formatter would.
    return date.toLocalTime().date().toString(u"yyyy-MM-dd"_s);
}
