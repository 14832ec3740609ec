// Works the real stores as a day of use does (records added, notes attached, days finalised) as fast as
// it can, and prints a line for each step once it has returned, so every line promises that the step is
// on disk: "ADD <id> <day>", "NOTE <id> <text>", "REPORT <day>", "DELETE <day>". The kill test stops it
// at random moments; it carries on from what the files hold.
//
//   trust_crashworker <data folder>

#include "core/activitysnapshotstore.h"
#include "core/logmanager.h"
#include "core/settings.h"
#include "core/tamlodatapaths.h"
#include "fakeclock.h"
#include "reports/dailyreportstore.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>

#include <cstdio>

using namespace Qt::StringLiterals;

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
