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
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

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
        // Written in one go, as a long-running store would have left it.
        const QDateTime start = clock.now().addSecs(-records * 30);
        QJsonArray array;
        for (int i = 0; i < records; ++i) {
            array.append(ActivitySnapshot {
                .id = QUuid::createUuid(),
                .timestamp = start.addSecs(i * 30),
                .aiCategory = u"Coding"_s,
                .imageHash = QString(64, u'a'),
                .projectName = u"Website"_s,
                .activityDescription = u"Editing checkout.css in the editor, with the browser preview beside it."_s,
            }
                             .toJson());
        }
        bytes = QJsonDocument(array).toJson(QJsonDocument::Compact);
        if (!StoreFile::writeAtomically(file, bytes).isEmpty()) {
            qFatal("cannot write the benchmark's file");
        }
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

// The disk is shared with whatever else runs; the median keeps one slow flush from deciding.
double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2.0;
}

// Per iteration: one persist, one load, and the floor write of the same bytes. The counters are
// medians over the iterations, in milliseconds.
void snapshotStore(benchmark::State &state)
{
    Fixture fixture(static_cast<int>(state.range(0)));
    ActivitySnapshotStore store(fixture.file, &fixture.log, &fixture.settings, &fixture.clock);
    std::vector<double> persistMs;
    std::vector<double> loadMs;
    std::vector<double> floorMs;
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

        persistMs.push_back(persist);
        loadMs.push_back(load);
        floorMs.push_back(floor);
        state.SetIterationTime(persist / 1000.0);
    }
    const double persist = median(persistMs);
    const double load = median(loadMs);
    const double floor = median(floorMs);
    state.counters["file_kB"] = static_cast<double>(fixture.bytes.size()) / 1024.0;
    state.counters["persist_ms"] = persist;
    state.counters["load_ms"] = load;
    state.counters["floor_ms"] = floor;
    state.counters["persist/floor"] = persist / floor;
    state.counters["load/floor"] = load / floor;
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
