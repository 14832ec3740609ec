#include "monitoring/screencaptureservice.h"
#include "platform/qtownwindows.h"
#include "platform/x11idletime.h"
#include "platform/x11screengrabber.h"

#include "xvfbenvironment.h"

#include <QCoroTask>
#include <QPainter>
#include <QRasterWindow>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {
constexpr int columns = 4;
constexpr int rows = 4;

QColor blockColor(int column, int row)
{
    return QColor::fromHsv((column * rows + row) * 360 / (columns * rows), 200, 220);
}

// Covers the whole screen with a grid of known colours.
class PatternWindow : public QRasterWindow
{
protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        const int blockWidth = width() / columns;
        const int blockHeight = height() / rows;
        for (int column = 0; column < columns; ++column) {
            for (int row = 0; row < rows; ++row) {
                painter.fillRect(
                    column * blockWidth, row * blockHeight, blockWidth, blockHeight, blockColor(column, row));
            }
        }
    }
};

class X11CaptureTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!XvfbEnvironment::s_skipReason.empty()) {
            GTEST_SKIP() << XvfbEnvironment::s_skipReason;
        }
        ASSERT_NE(XvfbEnvironment::s_app, nullptr) << XvfbEnvironment::s_startError;
    }
};

// A screen wider than 1200 comes out 1200 wide with its height in proportion; one of 1200 or
// less comes out as it is.
TEST_F(X11CaptureTest, GrabsTheWholeScreenAndScalesOnlyWhatIsWiderThanTwelveHundred)
{
    const int screenWidth = screenSize().width();
    const int screenHeight = screenSize().height();
    const QSize expectedSize
        = screenWidth > 1200 ? QSize(1200, qRound(screenHeight * 1200.0 / screenWidth)) : screenSize();
    PatternWindow window;
    window.setFlags(Qt::FramelessWindowHint | Qt::X11BypassWindowManagerHint);
    window.setGeometry(0, 0, screenWidth, screenHeight);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    QTest::qWait(300);
    EXPECT_EQ(QtOwnWindows().ownWindowAreas(), QList<QRect> {QRect(0, 0, screenWidth, screenHeight)});

    X11ScreenGrabber x11;
    ScreenCaptureService service(nullptr, &x11, ScreenCaptureService::SessionType::X11);
    const ScreenGrab grab = QCoro::waitFor(service.captureScreen());
    ASSERT_TRUE(grab.ok()) << grab.error->description().toStdString();
    ASSERT_EQ(grab.image.size(), QSize(screenWidth, screenHeight));

    const std::optional<QByteArray> data
        = ScreenCaptureService::imageToData(grab.image, ScreenCaptureService::maxImageWidth);
    ASSERT_TRUE(data.has_value());
    const QImage png = QImage::fromData(*data, "PNG");
    ASSERT_EQ(png.size(), expectedSize);

    // The middle of every block shows its colour, on the screen and in the scaled picture.
    for (int column = 0; column < columns; ++column) {
        for (int row = 0; row < rows; ++row) {
            const QColor expected = blockColor(column, row);
            const QPoint onScreen(
                (column * 2 + 1) * screenWidth / (columns * 2), (row * 2 + 1) * screenHeight / (rows * 2));
            const QPoint scaled((column * 2 + 1) * expectedSize.width() / (columns * 2),
                (row * 2 + 1) * expectedSize.height() / (rows * 2));
            EXPECT_EQ(grab.image.pixelColor(onScreen).rgb(), expected.rgb()) << column << "," << row;
            EXPECT_EQ(png.pixelColor(scaled).rgb(), expected.rgb()) << column << "," << row;
        }
    }
}
// The server's own count of the time since the last input, which input through XTEST resets;
// no server, no answer.
TEST_F(X11CaptureTest, IdleTimeGrowsUntilInputComes)
{
    const auto idle = [](const QByteArray &display) {
        return QCoro::waitFor(X11IdleTime(display).idleTime(std::chrono::minutes(1))).value_or(-1ms);
    };
    const auto input = [] { return QProcess::execute(u"xdotool"_s, {u"mousemove_relative"_s, u"5"_s, u"5"_s}); };
    ASSERT_EQ(input(), 0);
    QTest::qWait(1200);
    EXPECT_GE(idle(qgetenv("DISPLAY")), 1000ms);
    ASSERT_EQ(input(), 0);
    EXPECT_LT(idle(qgetenv("DISPLAY")), 1000ms);
    EXPECT_GE(idle(qgetenv("DISPLAY")), 0ms);
    EXPECT_EQ(idle(QByteArray()), -1ms);
    EXPECT_EQ(idle(":4093"), -1ms);
}
} // namespace

int main(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::AddGlobalTestEnvironment(new XvfbEnvironment(argc, argv));
    return RUN_ALL_TESTS();
}
