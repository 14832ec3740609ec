#include "fuzzenvironment.h"

#include "core/logmanager.h"
#include "core/settings.h"
#include "fakeclock.h"

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {
QTemporaryDir &scratch()
{
    static QTemporaryDir dir(QDir::tempPath() + u"/tamlo-fuzz-XXXXXX"_s);
    return dir;
}
} // namespace

QString FuzzEnvironment::freshDirectory(const QString &name)
{
    QDir dir(scratch().filePath(name));
    dir.removeRecursively();
    QDir().mkpath(dir.path());
    return dir.path();
}

FakeClock *FuzzEnvironment::clock()
{
    static FakeClock clock(QDateTime(QDate(2026, 3, 9), QTime(14, 30)));
    return &clock;
}

Settings *FuzzEnvironment::settings()
{
    static Settings *settings = [] {
        auto *made = new Settings(scratch().filePath(u"Tamlo.conf"_s));
        made->setString(SettingsKey::userProjects, u"Website, Tamlo, Garden"_s);
        made->setString(SettingsKey::categorizeBy, u"Coding, Design, Email, Other"_s);
        return made;
    }();
    return settings;
}

LogManager *FuzzEnvironment::logManager()
{
    static LogManager manager(clock());
    return &manager;
}

void FuzzEnvironment::drainEvents()
{
    QCoreApplication::sendPostedEvents();
}

QByteArray FuzzEnvironment::bytes(const uint8_t *data, size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
}

void FuzzEnvironment::fail(const char *what)
{
    std::fprintf(stderr, "fuzz invariant broken: %s\n", what);
    std::abort();
}
