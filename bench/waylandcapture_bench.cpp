// One capture of the first output under a wlroots compositor, two ways: the screencopy protocol
// into shared memory (what Tamlo does), and grim writing an uncompressed PPM to a pipe. Needs
// WAYLAND_DISPLAY; scripts/measure-wayland-capture.sh starts a headless sway for it.
#include "platform/wlrscreencopygrabber.h"

#include <QCoreApplication>
#include <QCoroTask>
#include <QImage>
#include <QProcess>

#include <benchmark/benchmark.h>

#include <cstdio>

namespace {
void setSizeCounters(benchmark::State &state, const QImage &image)
{
    state.counters["width"] = image.width();
    state.counters["height"] = image.height();
}

void BM_Screencopy(benchmark::State &state)
{
    WlrScreencopyGrabber grabber;
    QImage image;
    for (auto _ : state) {
        const std::optional<ScreenGrab> grab = QCoro::waitFor(grabber.capture());
        if (!grab || !grab->ok()) {
            state.SkipWithError("screencopy failed or is not offered");
            return;
        }
        image = grab->image;
        benchmark::DoNotOptimize(image.constBits());
    }
    setSizeCounters(state, image);
}
BENCHMARK(BM_Screencopy)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

void BM_GrimPpmThroughPipe(benchmark::State &state)
{
    QImage image;
    for (auto _ : state) {
        QProcess grim;
        grim.start(QStringLiteral("grim"), {QStringLiteral("-t"), QStringLiteral("ppm"), QStringLiteral("-")});
        if (!grim.waitForFinished(10000) || grim.exitCode() != 0) {
            state.SkipWithError("grim failed");
            return;
        }
        image = QImage::fromData(grim.readAllStandardOutput(), "PPM");
        benchmark::DoNotOptimize(image.constBits());
    }
    setSizeCounters(state, image);
}
BENCHMARK(BM_GrimPpmThroughPipe)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        std::puts("No WAYLAND_DISPLAY: run scripts/measure-wayland-capture.sh for these figures.");
        return 0;
    }
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
