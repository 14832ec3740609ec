#include "core/activitysnapshotstore.h"
#include "core/logmanager.h"
#include "core/settings.h"
#include "core/tamlodatapaths.h"
#include "fakeclock.h"
#include "reports/dailyreportstore.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <csignal>

using namespace Qt::StringLiterals;

namespace {
constexpr int requiredKills = 200;

// Everything the worker said was done, across all its lives.
struct Promises
{
    QHash<QString, QString> addedDay; // id -> day
    QHash<QString, QString> notes; // id -> note
    QSet<QString> reportedDays;
    QSet<QString> deletedDays;

    void take(const QByteArray &output)
    {
        // Only whole lines count: a line cut by the kill was never promised.
        const qsizetype end = output.lastIndexOf('\n');
        for (const QByteArray &raw : output.left(end + 1).split('\n')) {
            const QString line = QString::fromUtf8(raw);
            const QStringList words = line.split(u' ');
            if (words.first() == u"ADD"_s && words.size() == 3) {
                addedDay.insert(words[1], words[2]);
            } else if (words.first() == u"NOTE"_s && words.size() >= 3) {
                notes.insert(words[1], line.section(u' ', 2));
            } else if (words.first() == u"REPORT"_s && words.size() == 2) {
                reportedDays.insert(words[1]);
            } else if (words.first() == u"DELETE"_s && words.size() == 2) {
                deletedDays.insert(words[1]);
            }
        }
    }
};

// The file as any reader sees it: whole JSON, a list of objects. An absent file is an empty list.
std::optional<QJsonArray> readWhole(const QString &path)
{
    QFile file(path);
    if (!file.exists()) {
        return QJsonArray();
    }
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
    if (error.error != QJsonParseError::NoError || !document.isArray()) {
        return std::nullopt;
    }
    return document.array();
}

// Runs the worker until it has promised something (or, now and then, not even that long), then
// kills it without warning.
QByteArray runAndKill(const QString &dataDir, QRandomGenerator &random)
{
    QProcess worker;
    worker.setProcessChannelMode(QProcess::SeparateChannels);
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
    Promises promised;
    QElapsedTimer elapsed;
    elapsed.start();

    int kills = 0;
    for (; kills < requiredKills; ++kills) {
        promised.take(runAndKill(dir.path(), random));

        const auto snapshots = readWhole(snapshotsPath);
        const auto reports = readWhole(reportsPath);
        ASSERT_TRUE(snapshots) << "snapshots.json is not whole after kill " << kills;
        ASSERT_TRUE(reports) << "daily-reports.json is not whole after kill " << kills;

        QHash<QString, QJsonObject> records;
        for (const QJsonValue &value : *snapshots) {
            records.insert(value.toObject().value(u"id"_s).toString(), value.toObject());
        }
        QHash<QString, QJsonObject> reportByDay;
        for (const QJsonValue &value : *reports) {
            reportByDay.insert(value.toObject().value(u"date"_s).toString(), value.toObject());
        }

        for (const QString &day : std::as_const(promised.reportedDays)) {
            ASSERT_TRUE(reportByDay.contains(day)) << "the report of " << day.toStdString() << " is gone";
        }
        for (auto it = promised.addedDay.constBegin(); it != promised.addedDay.constEnd(); ++it) {
            const QString &id = it.key();
            const QString &day = it.value();
            // A record leaves the store only after its day's report, which names it.
            if (reportByDay.contains(day)) {
                ASSERT_TRUE(reportByDay[day].value(u"summary"_s).toString().contains(id))
                    << "record " << id.toStdString() << " is neither stored nor in its day's report";
            } else {
                ASSERT_TRUE(records.contains(id)) << "record " << id.toStdString() << " is gone";
            }
            if (promised.deletedDays.contains(day)) {
                ASSERT_FALSE(records.contains(id)) << "a finalised day's record came back";
            }
            if (promised.notes.contains(id) && records.contains(id)) {
                EXPECT_EQ(records[id].value(u"userNote"_s).toString(), promised.notes[id]);
                EXPECT_EQ(records[id].value(u"projectName"_s).toString(), u"Garden"_s);
            }
        }
    }

    // What the files hold also loads into the stores without a complaint or a file set aside.
    FakeClock clock;
    LogManager logManager(&clock);
    Settings settings(dir.filePath(u"check.conf"_s));
    const ActivitySnapshotStore store(snapshotsPath, &logManager, &settings, &clock);
    const DailyReportStore reportStore(reportsPath, &logManager);
    EXPECT_FALSE(QFile::exists(snapshotsPath + u".unreadable"_s));
    EXPECT_FALSE(QFile::exists(reportsPath + u".unreadable"_s));

    EXPECT_EQ(kills, requiredKills);
    // A run that promised little proves little. The kill windows are fixed in time, so a loaded
    // machine gets through fewer steps between kills; these floors still catch a stalled worker.
    EXPECT_GT(promised.addedDay.size(), 100);
    EXPECT_GT(promised.notes.size(), 20);
    EXPECT_GT(promised.reportedDays.size(), 5);
    std::printf("%d kills in %.1f s: %lld records, %lld notes, %lld days finalised\n", kills,
        double(elapsed.elapsed()) / 1000.0, qlonglong(promised.addedDay.size()), qlonglong(promised.notes.size()),
        qlonglong(promised.reportedDays.size()));
}
