#pragma once

#include <QFont>
#include <QImage>
#include <QList>
#include <QPainter>
#include <QString>
#include <QStringList>

// Pairs of desktop screens, before and after an everyday event, painted the way a desktop draws
// them: a top bar with a clock, an editor of code, a web article. Each pair says whether the
// second screen tells the model anything the first did not.
namespace ScreenPairs {

struct Desktop
{
    QSize size {1920, 1080};
    QString clock = QStringLiteral("10:41");
    bool cursorShown = true;
    int firstCodeLine = 0;
    int firstArticleLine = 0;
    bool notification = false;
    bool darkTheme = false; // of the notification
    bool terminal = false;
};

inline void paintCode(QPainter &painter, const QRect &area, int firstLine, bool cursorShown)
{
    static const QStringList code {
        QStringLiteral("QCoro::Task<> ActivityMonitor::performCapture()"),
        QStringLiteral("{"),
        QStringLiteral("    if (m_screenState == ScreenState::Locked) {"),
        QStringLiteral("        co_await recordScreenStateSnapshot();"),
        QStringLiteral("        co_return;"),
        QStringLiteral("    }"),
        QStringLiteral("    const auto screenshot = co_await captureScreenshot();"),
        QStringLiteral("    if (!screenshot) {"),
        QStringLiteral("        co_return;"),
        QStringLiteral("    }"),
        QStringLiteral("    setScreenshotCount(m_screenshotCount + 1); // one more"),
        QStringLiteral("    co_await analyzeWithAI(screenshot->data, screenshot->hash);"),
        QStringLiteral("}"),
        QString(),
        QStringLiteral("// Clears a flag when the scope ends, also when a frame is destroyed early."),
        QStringLiteral("class FlagGuard"),
    };
    painter.fillRect(area, QColor(250, 250, 248));
    painter.setFont(QFont(QStringLiteral("DejaVu Sans Mono"), 10));
    const int lineHeight = 18;
    for (int row = 0; (row + 1) * lineHeight < area.height(); ++row) {
        const int line = firstLine + row;
        const int baseline = area.y() + row * lineHeight + 14;
        painter.setPen(QColor(150, 150, 160));
        painter.drawText(area.x() + 8, baseline, QString::number(line + 200).rightJustified(4));
        painter.setPen(line % 3 ? QColor(40, 40, 40) : QColor(20, 80, 170));
        painter.drawText(area.x() + 60, baseline, code.at(line % code.size()));
    }
    if (cursorShown) {
        painter.fillRect(area.x() + 60 + 8 * 31, area.y() + 6 * lineHeight + 2, 2, 16, QColor(20, 20, 20));
    }
}

inline void paintArticle(QPainter &painter, const QRect &area, int firstLine)
{
    static const QStringList words
        = QStringLiteral("Running vision models on your own machine keeps every picture of the screen where it was "
                         "taken. The model reads the screen once, answers in a sentence and forgets it, and nothing "
                         "of it is written anywhere. A small model on a laptop takes a few seconds for each picture.")
              .split(QLatin1Char(' '));
    painter.fillRect(area, Qt::white);
    painter.setFont(QFont(QStringLiteral("DejaVu Serif"), 12));
    painter.setPen(QColor(30, 30, 30));
    const int lineHeight = 24;
    for (int row = 0; (row + 1) * lineHeight < area.height(); ++row) {
        const int line = firstLine + row;
        // Paragraphs of five lines, the last one short, with a blank line between them.
        if (line % 6 == 5) {
            continue;
        }
        const int count = line % 6 == 4 ? 4 + line % 5 : 11 + line % 3;
        QStringList text;
        for (int i = 0; i < count; ++i) {
            text.append(words.at((line * 7 + i) % words.size()));
        }
        painter.drawText(area.x() + 30, area.y() + row * lineHeight + 18, text.join(QLatin1Char(' ')));
    }
}

inline QImage paint(const Desktop &desktop)
{
    QImage image(desktop.size, QImage::Format_RGB32);
    QPainter painter(&image);
    const int width = desktop.size.width();
    const int height = desktop.size.height();
    painter.fillRect(image.rect(), QColor(60, 80, 110));
    painter.fillRect(0, 0, width, 28, QColor(30, 30, 34));
    painter.setPen(QColor(235, 235, 235));
    painter.setFont(QFont(QStringLiteral("DejaVu Sans"), 10));
    painter.drawText(QRect(12, 0, 300, 28), Qt::AlignVCenter, QStringLiteral("Activities    Editor"));
    painter.drawText(QRect(width / 2 - 60, 0, 120, 28), Qt::AlignCenter, QStringLiteral("Mon ") + desktop.clock);

    const QRect editor(0, 28, width * 55 / 100, height - 28);
    painter.fillRect(editor.x(), editor.y(), editor.width(), 34, QColor(228, 228, 232));
    painter.setPen(QColor(40, 40, 40));
    painter.drawText(
        QRect(editor.x() + 12, editor.y(), 600, 34), Qt::AlignVCenter, QStringLiteral("activitymonitor.cpp — tamlo"));
    paintCode(painter, editor.adjusted(0, 34, 0, 0), desktop.firstCodeLine, desktop.cursorShown);

    const QRect browser(editor.right() + 1, 28, width - editor.width(), height - 28);
    painter.fillRect(browser.x(), browser.y(), browser.width(), 40, QColor(236, 236, 240));
    painter.drawText(QRect(browser.x() + 16, browser.y(), browser.width() - 32, 40), Qt::AlignVCenter,
        QStringLiteral("https://example.org/articles/local-models"));
    paintArticle(painter, browser.adjusted(0, 40, 0, 0), desktop.firstArticleLine);

    if (desktop.terminal) {
        const QRect terminal(width / 5, height / 4, width * 2 / 5, height * 2 / 5);
        painter.fillRect(terminal, QColor(16, 16, 16));
        painter.setFont(QFont(QStringLiteral("DejaVu Sans Mono"), 10));
        painter.setPen(QColor(200, 220, 200));
        for (int line = 0; (line + 2) * 18 < terminal.height(); ++line) {
            painter.drawText(terminal.x() + 10, terminal.y() + 20 + line * 18,
                QStringLiteral("[%1/292] Building CXX object src/monitoring/activitymonitor.cpp.o").arg(line * 7));
        }
    }
    if (desktop.notification) {
        const QRect bubble(width - 400, 40, 380, 96);
        painter.setPen(Qt::NoPen);
        painter.setBrush(desktop.darkTheme ? QColor(40, 40, 44) : QColor(245, 245, 247));
        painter.drawRoundedRect(bubble, 10, 10);
        painter.setPen(desktop.darkTheme ? QColor(240, 240, 240) : QColor(20, 20, 20));
        painter.setFont(QFont(QStringLiteral("DejaVu Sans"), 10, QFont::Bold));
        painter.drawText(bubble.adjusted(16, 12, -16, -60), QStringLiteral("Sam"));
        painter.setFont(QFont(QStringLiteral("DejaVu Sans"), 10));
        painter.drawText(bubble.adjusted(16, 40, -16, -8), Qt::TextWordWrap,
            QStringLiteral("Could you look at the review of the export before lunch?"));
    }
    return image;
}

struct Pair
{
    const char *name;
    QImage before;
    QImage after;
    bool unchanged; // the verdict expected
};

// The screen in the order a day meets them; the verdicts are what a user would say.
inline QList<Pair> corpus()
{
    const Desktop base;
    const auto with = [&base](auto change) {
        Desktop desktop = base;
        change(desktop);
        return paint(desktop);
    };
    const QImage screen = paint(base);
    Desktop laptop = base;
    laptop.size = QSize(1366, 768);
    Desktop laptopNotified = laptop;
    laptopNotified.notification = true;
    laptopNotified.darkTheme = true;
    return {
        {"the same screen", screen, paint(base), true},
        {"the clock turns a minute", screen, with([](Desktop &d) { d.clock = QStringLiteral("10:42"); }), true},
        {"the text cursor blinks", screen, with([](Desktop &d) { d.cursorShown = false; }), true},
        {"a notification pops up", screen, with([](Desktop &d) { d.notification = true; }), true},
        {"a dark notification on a small laptop screen", paint(laptop), paint(laptopNotified), true},
        {"the code scrolls by one line", screen, with([](Desktop &d) { d.firstCodeLine = 1; }), false},
        {"the article scrolls by one line", screen, with([](Desktop &d) { d.firstArticleLine = 1; }), false},
        {"a new window opens", screen, with([](Desktop &d) { d.terminal = true; }), false},
    };
}
} // namespace ScreenPairs
