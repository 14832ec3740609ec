#include "core/activitysnapshotstore.h"
#include "core/logmanager.h"
#include "core/settings.h"
#include "fakeclock.h"
#include "reports/dailyreportstore.h"

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
#include <map>

using namespace Qt::StringLiterals;

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

// The real stores are killed at random moments while records are added, notes attached and days
// finalised. After every kill both files must be whole and hold everything promised before it.
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
    QElapsedTimer elapsed;
    elapsed.start();

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

    // What the files hold also loads into the stores without a complaint or a file set aside.
    FakeClock clock;
    LogManager logManager(&clock);
    Settings settings(dir.filePath(u"check.conf"_s));
    const ActivitySnapshotStore store(snapshotsPath, &logManager, &settings, &clock);
    const DailyReportStore reportStore(reportsPath, &logManager);
    EXPECT_FALSE(QFile::exists(snapshotsPath + u".unreadable"_s) || QFile::exists(reportsPath + u".unreadable"_s));

    // A run that promised little proves little. The kill windows are fixed in time, so a loaded
    // machine gets through fewer steps between kills; these floors still catch a stalled worker.
    EXPECT_GT(added.size(), 100);
    EXPECT_GT(notes.size(), 20);
    EXPECT_GT(promised[u"REPORT"_s].size(), 5);
    std::printf("%d kills in %.1f s: %lld records, %lld notes, %lld days finalised\n", requiredKills,
        double(elapsed.elapsed()) / 1000.0, qlonglong(added.size()), qlonglong(notes.size()),
        qlonglong(promised[u"REPORT"_s].size()));
}
