// The real stores killed at random moments while records are added, notes attached and days finalised.
// Built with TAMLO_CRASH_WORKER_MAIN this file is the worker: it works the stores as a day of use does,
// as fast as it can, and prints a line for each step once it has returned, so every line promises that
// the step is on disk ("ADD <id> <day>", "NOTE <id> <text>", "REPORT <day>", "DELETE <day>"); it
// carries on from what the files hold. Built without, it is the test that kills it and checks the files.

#include "core/activitysnapshotstore.h"
#include "core/logmanager.h"
#include "core/settings.h"
#include "core/tamlodatapaths.h"
#include "fakeclock.h"
#include "reports/dailyreportstore.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <map>

using namespace Qt::StringLiterals;

#ifdef TAMLO_CRASH_WORKER_MAIN
namespace {
void acknowledge(const QString &line)
{
    std::printf("%s\n", line.toUtf8().constData());
    std::fflush(stdout);
}

void finalise(ActivitySnapshotStore &store, const QDate &day)
{
    store.deleteRange(day.startOfDay(), day.addDays(1).startOfDay());
    acknowledge(u"DELETE "_s + TamloDataPaths::dateLabel(day.startOfDay()));
}

void step(ActivitySnapshotStore &store, DailyReportStore &reports)
{
    const QList<ActivitySnapshot> records = store.fetchAll();
    const QList<DailyReport> done = reports.reports();
    const QDate day = done.isEmpty() ? QDate(2026, 1, 5) : QDate::fromString(done.last().date, Qt::ISODate).addDays(1);
    // A finalisation cut short between the report and the removal of its records.
    if (!records.isEmpty() && records.first().timestamp.toLocalTime().date() < day) {
        return finalise(store, records.first().timestamp.toLocalTime().date());
    }
    const QString label = TamloDataPaths::dateLabel(day.startOfDay());
    QStringList ids;
    for (const ActivitySnapshot &record : records) {
        ids.append(record.id.toString(QUuid::WithoutBraces).toUpper());
    }
    if (ids.size() >= 12) {
        const DailyReport report {.date = label,
            .totalActiveSeconds = qint64(ids.size()) * 30,
            .summary = ids.join(u' '),
            .generatedAt = day.addDays(1).startOfDay()};
        if (reports.upsert(report)) {
            acknowledge(u"REPORT "_s + label);
            finalise(store, day);
        }
        return;
    }

    const ActivitySnapshot snapshot {.id = QUuid::createUuid(),
        .timestamp = day.startOfDay().addSecs(9 * 3600 + qint64(ids.size()) * 30),
        .aiCategory = u"Coding"_s,
        .imageHash = QString::number(ids.size()),
        .projectName = u"Website"_s,
        .activityDescription = u"Editing checkout.css in the editor."_s};
    store.add(snapshot);
    const QString id = snapshot.id.toString(QUuid::WithoutBraces).toUpper();
    acknowledge(u"ADD "_s + id + u' ' + label);
    if (ids.size() % 3 == 1) {
        const QString note = u"Garden work "_s + id.left(8);
        store.updateNote(snapshot.id, note);
        acknowledge(u"NOTE "_s + id + u' ' + note);
    }
}
} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QDir dir(QString::fromLocal8Bit(argc > 1 ? argv[1] : "."));
    FakeClock clock(QDateTime(QDate(2026, 6, 1), QTime(12, 0)));
    LogManager logManager(&clock);
    Settings settings(dir.filePath(u"Tamlo.conf"_s));
    settings.setString(SettingsKey::userProjects, u"Website, Garden"_s);
    ActivitySnapshotStore store(dir.filePath(u"snapshots.json"_s), &logManager, &settings, &clock);
    DailyReportStore reports(dir.filePath(u"daily-reports.json"_s), &logManager);
    acknowledge(u"READY"_s);
    // A worker whose test has gone away stops by itself.
    QElapsedTimer running;
    running.start();
    while (running.elapsed() < 20000) {
        step(store, reports);
    }
    return 0;
}
#else
namespace {
constexpr int requiredKills = 200;

// The file as any reader sees it, each object under its key; nothing when it is not a whole JSON list.
std::optional<QHash<QString, QJsonObject>> readWhole(const QString &path, const QString &key)
{
    QFile file(path);
    QJsonParseError error {};
    const QJsonDocument document = QJsonDocument::fromJson(!file.exists() ? "[]"
            : file.open(QIODevice::ReadOnly)                              ? file.readAll()
                                                                          : QByteArray(),
        &error);
    if (error.error != QJsonParseError::NoError || !document.isArray()) {
        return std::nullopt;
    }
    QHash<QString, QJsonObject> objects;
    for (const QJsonValue &value : document.array()) {
        objects.insert(value.toObject().value(key).toString(), value.toObject());
    }
    return objects;
}

// Runs the worker until it has promised something (or, now and then, not even that long), then
// kills it without warning.
QByteArray runAndKill(const QString &dataDir, QRandomGenerator &random)
{
    QProcess worker;
    worker.setStandardErrorFile(QProcess::nullDevice());
    worker.start(QStringLiteral(TAMLO_CRASH_WORKER), {dataDir});
    if (!worker.waitForStarted(5000)) {
        ADD_FAILURE() << "the worker did not start";
        return {};
    }
    if (random.bounded(10) == 0) {
        // During start-up, while the files are being read.
        QThread::usleep(random.bounded(20000));
    } else {
        QByteArray seen;
        while (!seen.contains("READY\n") && worker.waitForReadyRead(5000)) {
            seen += worker.peek(worker.bytesAvailable());
        }
        QThread::usleep(random.bounded(1000, 30000));
    }
    ::kill(pid_t(worker.processId()), SIGKILL);
    worker.waitForFinished(5000);
    return worker.readAllStandardOutput();
}
} // namespace

// After every kill both files must be whole and hold everything promised before it.
TEST(CrashSafetyTest, EveryPromisedWriteSurvivesSigkill)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString snapshotsPath = dir.filePath(u"snapshots.json"_s);
    const QString reportsPath = dir.filePath(u"daily-reports.json"_s);
    QRandomGenerator random(QRandomGenerator::global()->generate());
    // What the worker said was done, across all its lives: ADD id -> day, NOTE id -> note, REPORT and
    // DELETE day -> "".
    std::map<QString, QHash<QString, QString>> promised;
    const auto &added = promised[u"ADD"_s], &notes = promised[u"NOTE"_s], &deleted = promised[u"DELETE"_s];

    for (int kills = 0; kills < requiredKills; ++kills) {
        const QByteArray output = runAndKill(dir.path(), random);
        // Only whole lines count: a line cut by the kill was never promised.
        for (const QByteArray &line : output.left(output.lastIndexOf('\n') + 1).split('\n')) {
            const QStringList words = QString::fromUtf8(line).split(u' ');
            if (words.size() > 1) {
                promised[words[0]].insert(words[1], words.mid(2).join(u' '));
            }
        }

        const auto records = readWhole(snapshotsPath, u"id"_s);
        const auto reports = readWhole(reportsPath, u"date"_s);
        ASSERT_TRUE(records && reports) << "a file is not whole after kill " << kills;
        for (const QString &day : promised[u"REPORT"_s].keys()) {
            ASSERT_TRUE(reports->contains(day)) << "the report of " << day.toStdString() << " is gone";
        }
        for (auto it = added.constBegin(); it != added.constEnd(); ++it) {
            const QString &id = it.key();
            // A record leaves the store only after its day's report, which names it.
            if (reports->contains(it.value())) {
                ASSERT_TRUE((*reports)[it.value()].value(u"summary"_s).toString().contains(id))
                    << "record " << id.toStdString() << " is neither stored nor in its day's report";
            } else {
                ASSERT_TRUE(records->contains(id)) << "record " << id.toStdString() << " is gone";
            }
            ASSERT_FALSE(deleted.contains(it.value()) && records->contains(id)) << "a finalised day's record came back";
            if (notes.contains(id) && records->contains(id)) {
                EXPECT_EQ((*records)[id].value(u"userNote"_s).toString(), notes[id]);
                EXPECT_EQ((*records)[id].value(u"projectName"_s).toString(), u"Garden"_s);
            }
        }
    }

    // Each life of the worker loaded what the last one left: no store set a file aside as unreadable.
    EXPECT_EQ(QDir(dir.path()).entryList({u"*.unreadable*"_s}), QStringList());

    // A run that promised little proves little; floors a loaded machine still reaches catch a stalled worker.
    EXPECT_GT(added.size(), 100);
    EXPECT_GT(notes.size(), 20);
    EXPECT_GT(promised[u"REPORT"_s].size(), 5);
}
#endif
