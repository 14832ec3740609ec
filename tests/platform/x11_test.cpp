#include "monitoring/screencaptureservice.h"
#include "platform/dbusscreenevents.h"
#include "platform/qtownwindows.h"
#include "platform/x11screengrabber.h"
#include "platform/x11visiblewindows.h"

#include "monitorrig.h"

#include <QGuiApplication>
#include <QPainter>
#include <QRasterWindow>
#include <QStandardPaths>
#include <QThread>

#include <list>

using namespace Qt::StringLiterals;

namespace {
// Xvfb on a display it picks and prints once it accepts connections, so a test running beside this
// one never leaves us on its display; openbox on it. TAMLO_TEST_SCREEN may give the size, as WxH.
struct XDisplay
{
    const QStringList size = qEnvironmentVariable("TAMLO_TEST_SCREEN", u"2560x1600"_s).split(u'x');
    const QSize screen = QSize(size.value(0).toInt(), size.value(1).toInt());
    QProcess server;
    QProcess windowManager;
    std::string problem; // why there is no display
    bool missingPackage = false;

    bool start()
    {
        for (const char *program : {"Xvfb", "openbox", "xprop", "xdotool", "xlogo"}) {
            if (QStandardPaths::findExecutable(QString::fromLatin1(program)).isEmpty()) {
                missingPackage = true;
                problem = program + std::string(" is not installed: run scripts/install-deps.sh");
                return false;
            }
        }
        server.start(u"Xvfb"_s,
            {u"-displayfd"_s, u"1"_s, u"-noreset"_s, u"-nolisten"_s, u"tcp"_s, u"-screen"_s, u"0"_s,
                u"%1x%2x24"_s.arg(screen.width()).arg(screen.height())});
        while (server.waitForStarted(5000) && !server.canReadLine() && server.waitForReadyRead(10000)) { }
        if (!server.canReadLine()) {
            problem = "Xvfb could not be started on a free display";
            return false;
        }
        qputenv("DISPLAY", ":" + server.readLine().trimmed());
        windowManager.start(u"openbox"_s, {u"--sm-disable"_s});
        for (int attempt = 0; attempt < 150; ++attempt) {
            QProcess probe;
            probe.start(u"xprop"_s, {u"-root"_s, u"_NET_SUPPORTING_WM_CHECK"_s});
            if (probe.waitForFinished(5000) && probe.readAllStandardOutput().contains("window id")) {
                return true;
            }
            QThread::msleep(100);
        }
        problem = "openbox did not claim the screen";
        return false;
    }

    ~XDisplay()
    {
        for (QProcess *process : {&windowManager, &server}) {
            process->terminate();
            process->waitForFinished(5000);
        }
    }
};

XDisplay *display = nullptr;

class PatternWindow : public QRasterWindow
{
protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        for (int block = 0; block < 16; ++block) {
            painter.fillRect(block / 4 * width() / 4, block % 4 * height() / 4, width() / 4, height() / 4,
                blockColor(block / 4, block % 4));
        }
    }
};

// The monitor grabbing the X server's screen; xlogo windows with the WM_CLASS instance and title given.
class X11Test : public MonitorRig
{
protected:
    X11Test() : MonitorRig(u"Writing notes"_s, u"A day."_s) { }

    void SetUp() override
    {
        if (display->missingPackage) {
            GTEST_SKIP() << display->problem;
        }
        ASSERT_TRUE(display->problem.empty()) << display->problem;
        MonitorRig::SetUp();
        settings->setBoolean(SettingsKey::skipUnchangedScreens, false);
        buildParts();
        visibleWindows = &source;
        buildMonitor(&x11Capture, static_cast<DBusScreenEvents *>(nullptr));
    }

    void TearDown() override
    {
        for (QProcess &window : windows) {
            window.kill();
            window.waitForFinished();
        }
        MonitorRig::TearDown();
    }

    static QString xdotool(const QStringList &arguments)
    {
        QProcess tool;
        tool.start(u"xdotool"_s, arguments);
        tool.waitForFinished(10000);
        return QString::fromUtf8(tool.readAllStandardOutput()).trimmed();
    }

    QString open(const QString &instance, const QString &title, const QString &geometry)
    {
        windows.emplace_back();
        windows.back().start(u"xlogo"_s, {u"-name"_s, instance, u"-title"_s, title, u"-geometry"_s, geometry});
        return xdotool({u"search"_s, u"--sync"_s, u"--name"_s, u"^"_s + title + u"$"_s}).section(u'\n', 0, 0);
    }

    X11VisibleWindows source;
    X11ScreenGrabber x11;
    CountingGrabber grabs {x11};
    ScreenCaptureService x11Capture {nullptr, &grabs, ScreenCaptureService::SessionType::X11};
    std::list<QProcess> windows;
};

TEST_F(X11Test, GrabsTheWholeScreenAndScalesOnlyWhatIsWiderThanTwelveHundred)
{
    const QSize screen = display->screen;
    const QSize scaled
        = screen.width() > 1200 ? QSize(1200, qRound(screen.height() * 1200.0 / screen.width())) : screen;
    PatternWindow window;
    window.setFlags(Qt::FramelessWindowHint | Qt::X11BypassWindowManagerHint);
    window.setGeometry(QRect(QPoint(), screen));
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    QTest::qWait(300);
    EXPECT_EQ(QtOwnWindows().ownWindowAreas(), QList<QRect> {QRect(QPoint(), screen)});

    const ScreenGrab grab = QCoro::waitFor(x11Capture.captureScreen());
    ASSERT_TRUE(grab.ok()) << grab.error->description().toStdString();
    ASSERT_EQ(grab.image.size(), screen);
    const std::optional<QByteArray> data
        = ScreenCaptureService::imageToData(grab.image, ScreenCaptureService::maxImageWidth);
    ASSERT_TRUE(data.has_value());
    const QImage png = QImage::fromData(*data, "PNG");
    ASSERT_EQ(png.size(), scaled);

    for (int block = 0; block < 16; ++block) {
        const auto middle = [&](QSize size) {
            return QPoint((block / 4 * 2 + 1) * size.width() / 8, (block % 4 * 2 + 1) * size.height() / 8);
        };
        EXPECT_EQ(grab.image.pixelColor(middle(screen)).rgb(), blockColor(block / 4, block % 4).rgb()) << block;
        EXPECT_EQ(png.pixelColor(middle(scaled)).rgb(), blockColor(block / 4, block % 4).rgb()) << block;
    }
}

TEST_F(X11Test, AnExcludedWindowAnywhereOnTheCurrentWorkspaceStopsTheGrab)
{
    const QString notes = open(u"editor"_s, u"Notes"_s, u"600x400+0+0"_s);
    waitUntilListed(u"Notes"_s, true);
    EXPECT_FALSE(tickWasPrivate(grabs));

    // KeePassXC (by its class) beside the focused editor, then focused itself.
    const QString vault = open(u"keepassxc"_s, u"Passwords"_s, u"500x400+650+0"_s);
    xdotool({u"windowactivate"_s, u"--sync"_s, notes});
    waitUntilListed(u"Passwords"_s, true);
    EXPECT_TRUE(tickWasPrivate(grabs)) << "visible but not focused";
    xdotool({u"windowactivate"_s, u"--sync"_s, vault});
    EXPECT_TRUE(tickWasPrivate(grabs)) << "focused";
    EXPECT_EQ(messages().count(u"🙈 Tick skipped as private"_s), 2);
    EXPECT_FALSE(messages().join(u'\n').contains(u"Passwords"_s)) << "the log never names it";

    xdotool({u"windowminimize"_s, u"--sync"_s, vault});
    waitUntilListed(u"Passwords"_s, false);
    EXPECT_FALSE(tickWasPrivate(grabs)) << "minimised";
    xdotool({u"windowactivate"_s, u"--sync"_s, vault});
    waitUntilListed(u"Passwords"_s, true);
    xdotool({u"set_num_desktops"_s, u"2"_s});
    xdotool({u"set_desktop_for_window"_s, vault, u"1"_s});
    waitUntilListed(u"Passwords"_s, false);
    EXPECT_FALSE(tickWasPrivate(grabs)) << "on another workspace";

    xdotool({u"set_desktop_for_window"_s, vault, u"0"_s});
    waitUntilListed(u"Passwords"_s, true);
    EXPECT_TRUE(tickWasPrivate(grabs));
    // Title words and their case: the exclusions' own table; here an edited list counts from the next tick.
    settings->setString(SettingsKey::excludedApplications, QString());
    EXPECT_FALSE(tickWasPrivate(grabs)) << "an emptied list skips nothing";
}
} // namespace

int main(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    XDisplay x;
    display = &x;
    if (GTEST_FLAG_GET(list_tests) || !x.start()) {
        qputenv("QT_QPA_PLATFORM", "offscreen"); // the tests only report why there is no display
    } else {
        qputenv("QT_QPA_PLATFORM", "xcb");
    }
    QGuiApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
