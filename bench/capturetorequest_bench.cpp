// The client-side cost of one capture tick, from a full-size screen image to the /api/chat body
// ready to send: scaling, PNG encoding, hashing, Base64 and JSON, each alone and in total, beside
// the same road with the cheapest PNG encodings.
//
//   scripts/run-benchmarks.sh build            (all benchmark programs)
//   build/bench/programs/tamlo_bench_capture_to_request
#include "ai/llmservice.h"
#include "monitoring/screencaptureservice.h"

#include <QBuffer>
#include <QFont>
#include <QGuiApplication>
#include <QImage>
#include <QImageWriter>
#include <QJsonDocument>
#include <QLinearGradient>
#include <QPainter>
#include <QStringList>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>

using namespace Qt::StringLiterals;

namespace {
constexpr int captureWidth = 2560;
constexpr int captureHeight = 1600;

// Wall time is what counts: smooth scaling spreads over Qt's thread pool, so the main thread's
// CPU time would miss most of it.
//
// QImageWriter's PNG "compression" runs 0 to 100 and becomes the zlib level compression * 9 / 91;
// "quality" q stands for compression 100 - q. -1 leaves the level to libpng (zlib's default, 6).
constexpr int pngDefault = -1;
constexpr int pngStored = 0; // zlib level 0: deflate stores, the cheapest encoding
constexpr int pngFastest = 11; // zlib level 1, the cheapest that still compresses
constexpr int pngLevel6 = 70; // zlib's usual default, asked for explicitly
constexpr int pngSmallest = 100; // zlib level 9

// Texture of a photograph: smooth shapes of light with grain on top.
void paintPhoto(QImage &image, const QRect &area, std::mt19937 &random)
{
    std::uniform_real_distribution<double> phase(0.0, 6.283);
    std::normal_distribution<double> grain(0.0, 9.0);
    const double p1 = phase(random), p2 = phase(random), p3 = phase(random);
    for (int y = area.top(); y <= area.bottom(); ++y) {
        auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        const double v = double(y - area.top()) / area.height();
        for (int x = area.left(); x <= area.right(); ++x) {
            const double u = double(x - area.left()) / area.width();
            const double sky = 0.5 + 0.5 * std::sin(3.1 * u + p1) * std::cos(2.3 * v + p2);
            const double hills = 0.5 + 0.5 * std::sin(11.0 * u + 7.0 * v * v + p3);
            const double vignette = 1.0 - 0.5 * ((u - 0.5) * (u - 0.5) + (v - 0.5) * (v - 0.5));
            const auto channel = [&](double base) { return std::clamp(int(base * vignette + grain(random)), 0, 255); };
            line[x] = qRgb(channel(60 + 150 * sky * (1.0 - v) + 40 * hills), channel(90 + 100 * hills * v + 50 * sky),
                channel(170 * sky + 50 * (1.0 - hills)));
        }
    }
}

// A working desktop: a code editor, a web page with a photograph, and a chat with a second one.
QImage realisticScreen()
{
    QImage image(captureWidth, captureHeight, QImage::Format_RGB32);
    std::mt19937 random(2026);
    {
        QPainter painter(&image);
        QLinearGradient desktop(0, 0, captureWidth, captureHeight);
        desktop.setColorAt(0, QColor(40, 60, 90));
        desktop.setColorAt(1, QColor(120, 80, 130));
        painter.fillRect(image.rect(), desktop);

        const QStringList code {
            u"QCoro::Task<QStringList> LLMService::fetchInstalledModelNames()"_s,
            u"{"_s,
            u"    if (m_installedModelsFetchedAt && !m_cachedInstalledModels.isEmpty()) {"_s,
            u"        co_return QStringList(m_cachedInstalledModels);"_s,
            u"    }"_s,
            u"    QNetworkRequest request(url); // time-out of 3 s"_s,
            u"    const QJsonDocument document = QJsonDocument::fromJson(reply->readAll());"_s,
            u"    for (const QJsonValue &entry : document[u\"models\"_s].toArray()) {"_s,
            u"        names.append(entry[u\"name\"_s].toString());"_s,
            u"    }"_s,
            u"}"_s,
            QString(),
        };
        painter.fillRect(0, 0, 1400, 1560, QColor(30, 31, 36));
        painter.fillRect(0, 0, 1400, 36, QColor(55, 57, 64));
        painter.setFont(QFont(u"DejaVu Sans"_s, 11));
        painter.setPen(QColor(220, 220, 220));
        painter.drawText(QRect(12, 0, 1300, 36), Qt::AlignVCenter, u"llmservice.cpp — tamlo — Editor"_s);
        painter.setFont(QFont(u"DejaVu Sans Mono"_s, 10));
        const QList<QColor> ink {
            QColor(200, 200, 190), QColor(120, 180, 250), QColor(230, 160, 90), QColor(140, 200, 120)};
        for (int line = 0; line < 84; ++line) {
            const int y = 50 + line * 18;
            painter.setPen(QColor(110, 110, 120));
            painter.drawText(8, y + 13, QString::number(line + 120).rightJustified(4));
            painter.setPen(ink[(line * 7 + line / 3) % ink.size()]);
            painter.drawText(60 + (line % 5) * 8, y + 13, code[line % code.size()]);
        }

        painter.fillRect(1400, 0, 1160, 1000, Qt::white);
        painter.fillRect(1400, 0, 1160, 70, QColor(236, 236, 240));
        painter.setPen(QColor(60, 60, 60));
        painter.setFont(QFont(u"DejaVu Sans"_s, 10));
        painter.drawText(
            QRect(1420, 20, 1100, 30), Qt::AlignVCenter, u"https://example.org/articles/local-models-on-the-desktop"_s);
        painter.setFont(QFont(u"DejaVu Serif"_s, 20, QFont::Bold));
        painter.drawText(QRect(1460, 90, 1040, 40), Qt::AlignLeft, u"Running vision models on your own machine"_s);
        painter.setFont(QFont(u"DejaVu Serif"_s, 12));
        const QString paragraph = u"A small model that reads a screenshot every half minute needs little memory, "
                                  "but it does need the image in a form it can take in quickly: scaled, encoded "
                                  "without loss, and sent in one request with the prompt. "_s;
        painter.drawText(QRect(1460, 140, 1040, 200), Qt::TextWordWrap, paragraph + paragraph + paragraph);
        painter.end();
    }
    paintPhoto(image, QRect(1460, 360, 1040, 600), random);
    {
        QPainter painter(&image);
        painter.fillRect(1400, 1000, 1160, 600, QColor(245, 246, 250));
        painter.setFont(QFont(u"DejaVu Sans"_s, 11));
        for (int message = 0; message < 6; ++message) {
            const int y = 1020 + message * 46;
            painter.setPen(message % 2 ? QColor(20, 90, 160) : QColor(40, 40, 40));
            painter.drawText(1420, y + 18,
                u"%1 — 09:%2  Could you look at the review of the export before lunch? (#%3)"_s.arg(
                    message % 2 ? u"Sam"_s : u"Alex"_s, QString::number(10 + message),
                    QString::number(4100 + message)));
        }
        painter.end();
    }
    paintPhoto(image, QRect(1420, 1300, 1120, 290), random);
    return image;
}

const QImage &screen()
{
    static const QImage image = realisticScreen();
    return image;
}

// The scaling step of the capture, alone: at most maxImageWidth wide, height in proportion.
QImage scaleForAnalysis(const QImage &image)
{
    const double maxWidth = ScreenCaptureService::maxImageWidth;
    const int height = qRound(image.height() * (maxWidth / image.width()));
    return image.scaled(int(maxWidth), height, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

const QImage &scaled()
{
    static const QImage image = scaleForAnalysis(screen());
    return image;
}

QByteArray encodePng(const QImage &image, int compression)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "png");
    if (compression >= 0) {
        writer.setCompression(compression);
    }
    writer.write(image);
    return bytes;
}

const QByteArray &defaultPng()
{
    static const QByteArray png = encodePng(scaled(), pngDefault);
    return png;
}

QString base64Of(const QByteArray &png)
{
    return QString::fromLatin1(png.toBase64());
}

QByteArray requestBody(const QString &base64)
{
    static const QString prompt = LLMService::analysisPrompt(
        {u"Coding"_s, u"Meetings"_s, u"Writing"_s, u"Browsing"_s, u"Design"_s}, {u"Website"_s, u"Tamlo"_s});
    return QJsonDocument(LLMService::analysisRequestBody(u"qwen3-vl:2b"_s, prompt, base64))
        .toJson(QJsonDocument::Compact);
}

// The whole tick after the grab, through the capture service's own helpers.
QByteArray tick(const QImage &image)
{
    const QByteArray png = ScreenCaptureService::imageToData(image, ScreenCaptureService::maxImageWidth).value();
    benchmark::DoNotOptimize(ScreenCaptureService::sha256Hex(png));
    return requestBody(base64Of(png));
}

// The same road with a chosen PNG encoding, to show what the encoder costs.
QByteArray tickWith(const QImage &image, int compression, qsizetype &pngSize)
{
    const QByteArray png = encodePng(scaleForAnalysis(image), compression);
    pngSize = png.size();
    benchmark::DoNotOptimize(ScreenCaptureService::sha256Hex(png));
    return requestBody(base64Of(png));
}

void setBytes(benchmark::State &state, const char *name, qsizetype bytes)
{
    state.counters[name]
        = benchmark::Counter(double(bytes), benchmark::Counter::kDefaults, benchmark::Counter::kIs1024);
}

void Scale(benchmark::State &state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(scaleForAnalysis(screen()));
    }
}

void PngEncode(benchmark::State &state)
{
    const int compression = int(state.range(0));
    qsizetype size = 0;
    for (auto _ : state) {
        const QByteArray png = compression == pngDefault ? ScreenCaptureService::imageToData(scaled()).value()
                                                         : encodePng(scaled(), compression);
        size = png.size();
    }
    setBytes(state, "png", size);
}

void Sha256(benchmark::State &state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(ScreenCaptureService::sha256Hex(defaultPng()));
    }
}

void Base64(benchmark::State &state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(base64Of(defaultPng()));
    }
}

void Json(benchmark::State &state)
{
    const QString base64 = base64Of(defaultPng());
    qsizetype size = 0;
    for (auto _ : state) {
        size = requestBody(base64).size();
    }
    setBytes(state, "body", size);
}

void TotalDefault(benchmark::State &state)
{
    qsizetype size = 0;
    for (auto _ : state) {
        size = tick(screen()).size();
    }
    setBytes(state, "png", defaultPng().size());
    setBytes(state, "body", size);
}

void TotalWithCompression(benchmark::State &state)
{
    qsizetype size = 0;
    qsizetype pngSize = 0;
    for (auto _ : state) {
        size = tickWith(screen(), int(state.range(0)), pngSize).size();
    }
    setBytes(state, "png", pngSize);
    setBytes(state, "body", size);
}

// Shows that PNG settings fall into the ten zlib levels: equal sizes mean the same level.
void printPngSettings()
{
    std::printf("PNG size of the %dx%d capture scaled to %dx%d, by QImageWriter setting:\n", captureWidth,
        captureHeight, scaled().width(), scaled().height());
    std::printf("  default (-1): %lld bytes\n", qlonglong(defaultPng().size()));
    for (const int compression : {0, 10, 11, 20, 21, 60, 70, 100}) {
        std::printf("  setCompression(%3d) -> zlib level %d: %lld bytes\n", compression, compression * 9 / 91,
            qlonglong(encodePng(scaled(), compression).size()));
    }
    std::printf("  raw pixels: %lld bytes\n\n", qlonglong(scaled().width()) * scaled().height() * 3);
    std::fflush(stdout);
}
} // namespace

BENCHMARK(Scale)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PngEncode)
    ->ArgName("compression")
    ->Arg(pngDefault)
    ->Arg(pngStored)
    ->Arg(pngFastest)
    ->Arg(pngLevel6)
    ->Arg(pngSmallest)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(Sha256)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Base64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Json)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(TotalDefault)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(TotalWithCompression)
    ->ArgName("compression")
    ->Arg(pngStored)
    ->Arg(pngFastest)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

int main(int argc, char **argv)
{
    // Text needs a GUI application; no display is needed to draw into an image.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QGuiApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    printPngSettings();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
