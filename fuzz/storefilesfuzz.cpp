#include "fuzzentrypoints.h"
#include "fuzzenvironment.h"

#include "core/activitysnapshotstore.h"
#include "fakeclock.h"
#include "reports/dailyreportstore.h"

#include <QDir>
#include <QFile>

using namespace Qt::StringLiterals;
using FuzzEnvironment::require;

namespace {
QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    require(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size(), "could not write the input file");
}

// Whatever the file held, it is either loaded or set aside byte for byte: nothing is lost.
void requireKeptOrLoaded(const QString &path, const QByteArray &input, bool loadedEmpty)
{
    const QString setAside = path + u".unreadable"_s;
    if (QFile::exists(setAside)) {
        require(loadedEmpty, "an unreadable file was set aside but the store is not empty");
        require(readFile(setAside) == input, "the file set aside differs from what was on disk");
        require(!QFile::exists(path), "an unreadable file was set aside and still lies in its place");
    } else {
        require(readFile(path) == input, "loading changed the file");
    }
}
} // namespace

int FuzzEntry::snapshotsFile(const uint8_t *data, size_t size)
{
    const QString dir = FuzzEnvironment::freshDirectory(u"snapshots"_s);
    const QString path = QDir(dir).filePath(u"snapshots.json"_s);
    const QByteArray input = FuzzEnvironment::bytes(data, size);
    writeFile(path, input);
    {
        ActivitySnapshotStore store(
            path, FuzzEnvironment::logManager(), FuzzEnvironment::settings(), FuzzEnvironment::clock());
        const QList<ActivitySnapshot> loaded = store.fetchAll();
        requireKeptOrLoaded(path, input, loaded.isEmpty());
        const QDateTime now = FuzzEnvironment::clock()->now();
        require(store.fetchToday().size() <= loaded.size(), "today holds more records than the store");
        require(store.fetch(QDateTime::fromMSecsSinceEpoch(0), now, true).size() <= loaded.size(),
            "a range holds more records than the store");

        // What loads must come back unchanged from its own rewrite.
        if (!loaded.isEmpty()) {
            store.save();
            ActivitySnapshotStore reread(
                path, FuzzEnvironment::logManager(), FuzzEnvironment::settings(), FuzzEnvironment::clock());
            require(QFile::exists(path), "a file the store wrote does not load");
            require(reread.fetchAll() == loaded, "a rewritten store reads back different records");

            reread.updateNote(loaded.first().id, u"Notes on Website"_s);
            require(reread.fetchAll().first().projectName == u"Website"_s, "a note naming a project did not move it");
            require(reread.count() == loaded.size(), "a note changed the number of records");
        }
    }
    FuzzEnvironment::drainEvents();
    return 0;
}

int FuzzEntry::dailyReportsFile(const uint8_t *data, size_t size)
{
    const QString dir = FuzzEnvironment::freshDirectory(u"reports"_s);
    const QString path = QDir(dir).filePath(u"daily-reports.json"_s);
    const QByteArray input = FuzzEnvironment::bytes(data, size);
    writeFile(path, input);
    {
        DailyReportStore store(path, FuzzEnvironment::logManager());
        const QList<DailyReport> loaded = store.reports();
        requireKeptOrLoaded(path, input, loaded.isEmpty());
        for (const DailyReport &report : loaded) {
            require(store.fetch(report.date).has_value(), "a loaded report cannot be fetched by its date");
        }

        // A new day goes in beside whatever loaded, and everything reads back.
        DailyReport added;
        added.date = u"2026-03-09"_s;
        added.totalActiveSeconds = 60;
        added.summary = u"Two records."_s;
        added.generatedAt = FuzzEnvironment::clock()->now();
        const bool hadDay = store.hasReport(added.date);
        require(store.upsert(added), "a report could not be written");
        DailyReportStore reread(path, FuzzEnvironment::logManager());
        require(QFile::exists(path), "a file the store wrote does not load");
        require(reread.reports() == store.reports(), "a rewritten store reads back different reports");
        require(reread.reports().size() == loaded.size() + (hadDay ? 0 : 1), "an upsert lost or doubled a report");
    }
    FuzzEnvironment::drainEvents();
    return 0;
}
