#include "monitoring/screencaptureservice.h"
#include "platform/qtownwindows.h"
#include "platform/x11screengrabber.h"

#include "xvfbenvironment.h"

#include <QCoroTask>
#include <QPainter>
#include <QRasterWindow>
#include <QTest>

namespace {
QColor blockColor(int column, int row)
{
    return QColor::fromHsv((column * 4 + row) * 360 / 16, 200, 220);
}

// Covers the whole screen with four by four blocks of known colours.
class PatternWindow : public QRasterWindow
{
protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        for (int column = 0; column < 4; ++column) {
            for (int row = 0; row < 4; ++row) {
                painter.fillRect(
                    column * width() / 4, row * height() / 4, width() / 4, height() / 4, blockColor(column, row));
            }
        }
    }
};

// A screen wider than 1200 comes out 1200 wide with its height in proportion; one of 1200 or
// less comes out as it is.
TEST(X11CaptureTest, GrabsTheWholeScreenAndScalesOnlyWhatIsWiderThanTwelveHundred)
{
    if (!XvfbEnvironment::s_skipReason.empty()) {
        GTEST_SKIP() << XvfbEnvironment::s_skipReason;
    }
    ASSERT_NE(XvfbEnvironment::s_app, nullptr) << XvfbEnvironment::s_startError;
    const QSize screen = screenSize();
    const QSize scaled
        = screen.width() > 1200 ? QSize(1200, qRound(screen.height() * 1200.0 / screen.width())) : screen;
    PatternWindow window;
    window.setFlags(Qt::FramelessWindowHint | Qt::X11BypassWindowManagerHint);
    window.setGeometry(QRect(QPoint(), screen));
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    QTest::qWait(300);
    EXPECT_EQ(QtOwnWindows().ownWindowAreas(), QList<QRect> {QRect(QPoint(), screen)});

    X11ScreenGrabber x11;
    ScreenCaptureService service(nullptr, &x11, ScreenCaptureService::SessionType::X11);
    const ScreenGrab grab = QCoro::waitFor(service.captureScreen());
    ASSERT_TRUE(grab.ok()) << grab.error->description().toStdString();
    ASSERT_EQ(grab.image.size(), screen);
    const std::optional<QByteArray> data
        = ScreenCaptureService::imageToData(grab.image, ScreenCaptureService::maxImageWidth);
    ASSERT_TRUE(data.has_value());
    const QImage png = QImage::fromData(*data, "PNG");
    ASSERT_EQ(png.size(), scaled);

    // The middle of every block shows its colour, on the screen and in the scaled picture.
    for (int column = 0; column < 4; ++column) {
        for (int row = 0; row < 4; ++row) {
            const auto middle = [&](QSize size) {
                return QPoint((column * 2 + 1) * size.width() / 8, (row * 2 + 1) * size.height() / 8);
            };
            EXPECT_EQ(grab.image.pixelColor(middle(screen)).rgb(), blockColor(column, row).rgb()) << column << row;
            EXPECT_EQ(png.pixelColor(middle(scaled)).rgb(), blockColor(column, row).rgb()) << column << row;
        }
    }
}
} // namespace

int main(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::AddGlobalTestEnvironment(new XvfbEnvironment(argc, argv));
    return RUN_ALL_TESTS();
}
