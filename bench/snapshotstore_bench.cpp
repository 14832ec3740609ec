// What a whole-file store costs: persisting and loading snapshots.json at 1,000 and 3,000 records,
// against the floor of writing the same bytes with the same atomic save in the same run.
#include "core/activitysnapshotstore.h"
#include "core/clock.h"
#include "core/logmanager.h"
#include "core/settings.h"
#include "core/storefile.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <memory>

using namespace Qt::StringLiterals;

namespace {
// A folder holding a snapshots.json of the given size, with records shaped like real ones.
struct Fixture
{
    explicit Fixture(int records)
        : settings(dir.filePath(u"Tamlo.conf"_s))
        , file(dir.filePath(u"snapshots.json"_s))
        , floorFile(dir.filePath(u"floor.json"_s))
    {
        ActivitySnapshotStore seed(file, &log, &settings, &clock);
        const QDateTime start = clock.now().addSecs(-records * 30);
        for (int i = 0; i < records; ++i) {
            seed.add(ActivitySnapshot {
                .id = QUuid::createUuid(),
                .timestamp = start.addSecs(i * 30),
                .aiCategory = u"Coding"_s,
                .imageHash = QString(64, u'a'),
                .projectName = u"Website"_s,
                .activityDescription = u"Editing checkout.css in the editor, with the browser preview beside it."_s,
            });
        }
        QFile written(file);
        written.open(QIODevice::ReadOnly);
        bytes = written.readAll();
    }

    QTemporaryDir dir;
    SystemClock clock;
    LogManager log {&clock};
    Settings settings;
    QString file;
    QString floorFile;
    QByteArray bytes;
};

double elapsedMs(const QElapsedTimer &timer)
{
    return static_cast<double>(timer.nsecsElapsed()) / 1e6;
}

// Per iteration: one persist, one load, and the floor write of the same bytes.
void snapshotStore(benchmark::State &state)
{
    Fixture fixture(static_cast<int>(state.range(0)));
    ActivitySnapshotStore store(fixture.file, &fixture.log, &fixture.settings, &fixture.clock);
    double persistMs = 0;
    double loadMs = 0;
    double floorMs = 0;
    for (auto _ : state) {
        QElapsedTimer timer;
        timer.start();
        store.save();
        const double persist = elapsedMs(timer);

        timer.restart();
        ActivitySnapshotStore loaded(fixture.file, &fixture.log, &fixture.settings, &fixture.clock);
        benchmark::DoNotOptimize(loaded.count());
        const double load = elapsedMs(timer);

        timer.restart();
        benchmark::DoNotOptimize(StoreFile::writeAtomically(fixture.floorFile, fixture.bytes));
        const double floor = elapsedMs(timer);

        persistMs += persist;
        loadMs += load;
        floorMs += floor;
        state.SetIterationTime(persist / 1000.0);
    }
    const auto n = static_cast<double>(state.iterations());
    state.counters["file_kB"] = static_cast<double>(fixture.bytes.size()) / 1024.0;
    state.counters["persist_ms"] = persistMs / n;
    state.counters["load_ms"] = loadMs / n;
    state.counters["floor_ms"] = floorMs / n;
    state.counters["persist/floor"] = persistMs / floorMs;
    state.counters["load/floor"] = loadMs / floorMs;
}
} // namespace

BENCHMARK(snapshotStore)
    ->Name("SnapshotStore/records")
    ->Arg(1000)
    ->Arg(3000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
