// The client-side cost of one capture tick, from a full-size screen image to the /api/chat body
// ready to send, on a screen of text, a web page and a photograph. Each tick is set beside its
// floor measured in the same run: the same smooth scaling plus a level-1 deflate of the scaled
// pixels as they are, the plainest lossless encoding. Tamlo's PNG encoder is set beside
// QImageWriter's at the same zlib level; hashing, Base64 and JSON are measured on the web page.
//
//   scripts/run-benchmarks.sh build            (all benchmark programs)
//   build/bench/programs/tamlo_bench_capture_to_request
#include "ai/llmservice.h"
#include "monitoring/pngencoder.h"
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

#include <zlib.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <random>
#include <string>

using namespace Qt::StringLiterals;

namespace {
constexpr int captureWidth = 2560;
constexpr int captureHeight = 1600;

// Wall time is what counts: smooth scaling spreads over Qt's thread pool, so the main thread's
// CPU time would miss most of it.
//
// QImageWriter's PNG "compression" 11 is zlib level 1 (it maps c to c * 9 / 91); its writer tries
// every row filter on every row.
constexpr int qtPngFastest = 11;

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

void paintDesktop(QPainter &painter)
{
    QLinearGradient desktop(0, 0, captureWidth, captureHeight);
    desktop.setColorAt(0, QColor(40, 60, 90));
    desktop.setColorAt(1, QColor(120, 80, 130));
    painter.fillRect(QRect(0, 0, captureWidth, captureHeight), desktop);
}

void paintEditor(QPainter &painter, const QRect &area)
{
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
    painter.fillRect(area, QColor(30, 31, 36));
    painter.fillRect(area.x(), area.y(), area.width(), 36, QColor(55, 57, 64));
    painter.setFont(QFont(u"DejaVu Sans"_s, 11));
    painter.setPen(QColor(220, 220, 220));
    painter.drawText(
        QRect(area.x() + 12, area.y(), area.width() - 24, 36), Qt::AlignVCenter, u"llmservice.cpp — tamlo — Editor"_s);
    painter.setFont(QFont(u"DejaVu Sans Mono"_s, 10));
    const QList<QColor> ink {QColor(200, 200, 190), QColor(120, 180, 250), QColor(230, 160, 90), QColor(140, 200, 120)};
    for (int line = 0; 50 + line * 18 + 18 < area.height(); ++line) {
        const int y = area.y() + 50 + line * 18;
        painter.setPen(QColor(110, 110, 120));
        painter.drawText(area.x() + 8, y + 13, QString::number(line + 120).rightJustified(4));
        painter.setPen(ink[(line * 7 + line / 3) % ink.size()]);
        painter.drawText(area.x() + 60 + (line % 5) * 8, y + 13, code[line % code.size()]);
    }
}

// Text: an editor beside a terminal and a chat.
QImage textScreen()
{
    QImage image(captureWidth, captureHeight, QImage::Format_RGB32);
    QPainter painter(&image);
    paintDesktop(painter);
    paintEditor(painter, QRect(0, 0, 1500, 1600));
    painter.fillRect(1500, 0, 1060, 1000, QColor(12, 12, 12));
    painter.setFont(QFont(u"DejaVu Sans Mono"_s, 10));
    for (int line = 0; line < 54; ++line) {
        painter.setPen(line % 4 ? QColor(200, 200, 200) : QColor(120, 220, 120));
        painter.drawText(1512, 22 + line * 18,
            line % 4 ? u"[%1/292] Building CXX object src/monitoring/CMakeFiles/activitymonitor.cpp.o"_s.arg(line * 5)
                     : u"$ ctest --output-on-failure -j2 -R Monitor"_s);
    }
    painter.fillRect(1500, 1000, 1060, 600, QColor(245, 246, 250));
    painter.setFont(QFont(u"DejaVu Sans"_s, 11));
    for (int message = 0; message < 12; ++message) {
        painter.setPen(message % 2 ? QColor(20, 90, 160) : QColor(40, 40, 40));
        painter.drawText(1520, 1030 + message * 46,
            u"%1 — 09:%2  Could you look at the review of the export before lunch? (#%3)"_s.arg(
                message % 2 ? u"Sam"_s : u"Alex"_s, QString::number(10 + message), QString::number(4100 + message)));
    }
    return image;
}

// A web page: browser chrome, an article in a serif face and the photographs that go with it.
QImage webScreen()
{
    QImage image(captureWidth, captureHeight, QImage::Format_RGB32);
    std::mt19937 random(2026);
    {
        QPainter painter(&image);
        painter.fillRect(image.rect(), Qt::white);
        painter.fillRect(0, 0, captureWidth, 80, QColor(236, 236, 240));
        painter.setPen(QColor(60, 60, 60));
        painter.setFont(QFont(u"DejaVu Sans"_s, 10));
        painter.drawText(
            QRect(40, 30, 1600, 30), Qt::AlignVCenter, u"https://example.org/articles/local-models-on-the-desktop"_s);
        painter.setFont(QFont(u"DejaVu Serif"_s, 24, QFont::Bold));
        painter.drawText(QRect(480, 120, 1600, 50), Qt::AlignLeft, u"Running vision models on your own machine"_s);
        painter.setFont(QFont(u"DejaVu Serif"_s, 13));
        const QString paragraph = u"A small model that reads a screenshot every half minute needs little memory, "
                                  "but it does need the image in a form it can take in quickly: scaled, encoded "
                                  "without loss, and sent in one request with the prompt. "_s;
        painter.drawText(QRect(480, 190, 1600, 260), Qt::TextWordWrap, paragraph + paragraph + paragraph);
        painter.drawText(
            QRect(480, 1180, 1600, 400), Qt::TextWordWrap, paragraph + paragraph + paragraph + paragraph + paragraph);
        painter.fillRect(2140, 120, 360, 1400, QColor(248, 248, 250));
        painter.setFont(QFont(u"DejaVu Sans"_s, 11));
        for (int link = 0; link < 20; ++link) {
            painter.setPen(QColor(20, 90, 160));
            painter.drawText(2160, 160 + link * 60, u"Related: tracking time by project, part %1"_s.arg(link + 1));
        }
    }
    paintPhoto(image, QRect(480, 470, 1000, 680), random);
    paintPhoto(image, QRect(1500, 470, 580, 680), random);
    return image;
}

// A photograph on the whole screen, as in a viewer or an editing program.
QImage photoScreen()
{
    QImage image(captureWidth, captureHeight, QImage::Format_RGB32);
    std::mt19937 random(1999);
    paintPhoto(image, image.rect(), random);
    return image;
}

enum Content { Text, WebPage, Photo };

const QImage &screenOf(int content)
{
    static const QImage screens[] = {textScreen(), webScreen(), photoScreen()};
    return screens[content];
}

// The scaling step of the capture, alone: at most maxImageWidth wide, height in proportion.
QImage scaleForAnalysis(const QImage &image)
{
    const double maxWidth = ScreenCaptureService::maxImageWidth;
    const int height = qRound(image.height() * (maxWidth / image.width()));
    return image.scaled(int(maxWidth), height, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

QByteArray qtPng(const QImage &image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "png");
    writer.setCompression(qtPngFastest);
    writer.write(image);
    return bytes;
}

const QImage &scaledOf(int content)
{
    static const QImage images[]
        = {scaleForAnalysis(screenOf(Text)), scaleForAnalysis(screenOf(WebPage)), scaleForAnalysis(screenOf(Photo))};
    return images[content];
}

const QByteArray &webPagePng()
{
    static const QByteArray png = ScreenCaptureService::imageToData(scaledOf(WebPage)).value();
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

void setBytes(benchmark::State &state, const char *name, qsizetype bytes)
{
    state.counters[name]
        = benchmark::Counter(double(bytes), benchmark::Counter::kDefaults, benchmark::Counter::kIs1024);
}

void Scale(benchmark::State &state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(scaleForAnalysis(screenOf(WebPage)));
    }
}

const char *contentName(int content)
{
    static const char *const names[] = {"text", "web page", "photo"};
    return names[content];
}

// Tamlo's encoder on the scaled screen.
void Png(benchmark::State &state)
{
    const QImage &image = scaledOf(int(state.range(0)));
    qsizetype size = 0;
    for (auto _ : state) {
        size = PngEncoder::encode(image).value().size();
    }
    setBytes(state, "png", size);
    state.SetLabel(contentName(int(state.range(0))));
}

// QImageWriter at the same zlib level, for comparison.
void QtPng(benchmark::State &state)
{
    const QImage &image = scaledOf(int(state.range(0)));
    qsizetype size = 0;
    for (auto _ : state) {
        size = qtPng(image).size();
    }
    setBytes(state, "png", size);
    state.SetLabel(contentName(int(state.range(0))));
}

void Sha256(benchmark::State &state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(ScreenCaptureService::sha256Hex(webPagePng()));
    }
}

void Base64(benchmark::State &state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(base64Of(webPagePng()));
    }
}

void Json(benchmark::State &state)
{
    const QString base64 = base64Of(webPagePng());
    qsizetype size = 0;
    for (auto _ : state) {
        size = requestBody(base64).size();
    }
    setBytes(state, "body", size);
}

// Level-1 deflate of the scaled pixels as they are, with nothing else: what the floor costs
// beyond scaling.
qsizetype deflateFastest(const QImage &image)
{
    const auto *pixels = image.constBits();
    const auto size = uLong(image.sizeInBytes());
    QByteArray out(qsizetype(compressBound(size)), Qt::Uninitialized);
    auto outSize = uLongf(out.size());
    if (compress2(reinterpret_cast<Bytef *>(out.data()), &outSize, pixels, size, 1) != Z_OK) {
        return -1;
    }
    return qsizetype(outSize);
}

void Tick(benchmark::State &state)
{
    const QImage &image = screenOf(int(state.range(0)));
    qsizetype size = 0;
    for (auto _ : state) {
        size = tick(image).size();
    }
    setBytes(state, "body", size);
    state.SetLabel(contentName(int(state.range(0))));
}

void Floor(benchmark::State &state)
{
    const QImage &image = screenOf(int(state.range(0)));
    qsizetype size = 0;
    for (auto _ : state) {
        size = deflateFastest(scaleForAnalysis(image));
    }
    setBytes(state, "deflated", size);
    state.SetLabel(contentName(int(state.range(0))));
}

// Prints as usual, then each tick against its floor from the same run.
class RatioReporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.run_type == Run::RT_Iteration && run.iterations > 0) {
                m_milliseconds[run.benchmark_name()] = run.GetAdjustedRealTime();
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void Finalize() override
    {
        ConsoleReporter::Finalize();
        std::printf("\nA tick against its floor (smooth scaling plus a level-1 deflate of the scaled pixels):\n");
        for (int content = Text; content <= Photo; ++content) {
            const std::string suffix = "/content:" + std::to_string(content) + "/real_time";
            const auto tick = m_milliseconds.find("Tick" + suffix);
            const auto floor = m_milliseconds.find("Floor" + suffix);
            if (tick == m_milliseconds.end() || floor == m_milliseconds.end()) {
                continue;
            }
            const double ratio = tick->second / floor->second;
            std::printf("  %-8s tick %6.1f ms, floor %6.1f ms: %.2f x (target at most 1.5 x) %s\n",
                contentName(content), tick->second, floor->second, ratio, ratio <= 1.5 ? "ok" : "OVER");
        }
        std::fflush(stdout);
    }

private:
    std::map<std::string, double> m_milliseconds;
};
} // namespace

BENCHMARK(Scale)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Png)->ArgName("content")->DenseRange(Text, Photo)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(QtPng)->ArgName("content")->DenseRange(Text, Photo)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Sha256)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Base64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Json)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Tick)->ArgName("content")->DenseRange(Text, Photo)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Floor)->ArgName("content")->DenseRange(Text, Photo)->Unit(benchmark::kMillisecond)->UseRealTime();

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
    // Drawn before timing starts, so no benchmark pays for drawing the screens.
    benchmark::DoNotOptimize(scaledOf(Text));
    benchmark::DoNotOptimize(webPagePng());
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
