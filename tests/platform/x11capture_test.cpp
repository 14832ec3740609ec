#include "monitoring/screencaptureservice.h"
#include "platform/qtownwindows.h"
#include "platform/x11idletime.h"
#include "platform/x11screengrabber.h"

#include <QCoroTask>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QLocale>
#include <QPainter>
#include <QProcess>
#include <QRasterWindow>
#include <QStandardPaths>
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

// The X screen's size: 2560x1600 unless TAMLO_TEST_SCREEN names another, as WIDTHxHEIGHT.
QSize screenSize()
{
    const QStringList parts = qEnvironmentVariable("TAMLO_TEST_SCREEN", u"2560x1600"_s).split(u'x');
    return parts.size() == 2 ? QSize(parts.at(0).toInt(), parts.at(1).toInt()) : QSize();
}

// An X server of the test's own, and the application connected to it.
class XvfbEnvironment : public ::testing::Environment
{
public:
    XvfbEnvironment(int argc, char **argv) : m_argc(argc), m_argv(argv) { }

    void SetUp() override
    {
        const QString program = QStandardPaths::findExecutable(u"Xvfb"_s);
        if (program.isEmpty()) {
            s_skipReason = "Xvfb is not installed (Debian package xvfb)";
            return;
        }
        // Xvfb picks a display nobody holds and prints it once it accepts connections, so a test
        // running beside this one can never leave us talking to its display.
        m_server.start(program,
            {u"-displayfd"_s, u"1"_s, u"-noreset"_s, u"-screen"_s, u"0"_s,
                u"%1x%2x24"_s.arg(screenSize().width()).arg(screenSize().height()), u"-nolisten"_s, u"tcp"_s});
        if (m_server.waitForStarted(5000)) {
            while (!m_server.canReadLine() && m_server.waitForReadyRead(10000)) { }
        }
        if (m_server.canReadLine() && m_server.state() == QProcess::Running) {
            const QByteArray display = m_server.readLine().trimmed();
            qputenv("DISPLAY", ":" + display);
            qputenv("QT_QPA_PLATFORM", "xcb");
            s_app = new QGuiApplication(m_argc, m_argv);
            QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
            return;
        }
        m_server.kill();
        m_server.waitForFinished();
        s_startError = "Xvfb could not be started on a free display";
    }

    void TearDown() override
    {
        delete s_app;
        s_app = nullptr;
        if (m_server.state() != QProcess::NotRunning) {
            m_server.terminate();
            m_server.waitForFinished(5000);
        }
    }

    static inline QGuiApplication *s_app = nullptr;
    static inline std::string s_skipReason;
    static inline std::string s_startError;

private:
    int m_argc;
    char **m_argv;
    QProcess m_server;
};

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
