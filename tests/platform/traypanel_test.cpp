#include "platform/linuxdesktopactions.h"
#include "platform/traypanel.h"

#include <QFile>
#include <QImage>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

namespace {
// Share of opaque pixels inside the icon's circle.
double filledShare(const QIcon &icon)
{
    const QImage image = icon.pixmap(32, 32).toImage();
    int inside = 0;
    int opaque = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const double dx = x - 15.5;
            const double dy = y - 15.5;
            if (dx * dx + dy * dy < 8.0 * 8.0) {
                ++inside;
                opaque += qAlpha(image.pixel(x, y)) > 128 ? 1 : 0;
            }
        }
    }
    return double(opaque) / inside;
}
} // namespace

TEST(TrayPanelTest, SignedInIconIsFilledAndSignedOutIconIsAnOutline)
{
    EXPECT_GT(filledShare(TrayPanel::icon(true)), 0.95);
    EXPECT_LT(filledShare(TrayPanel::icon(false)), 0.05);
}

TEST(TrayPanelTest, WithoutATrayThePanelIsAWindowThatOnlyHidesWhenClosed)
{
    int built = 0;
    TrayPanel tray(
        [&built] {
            ++built;
            auto panel = std::make_unique<QQuickWindow>();
            panel->resize(320, 600);
            return panel;
        },
        std::chrono::hours(1));
    ASSERT_FALSE(tray.hasTray()) << "the offscreen platform has no tray";
    EXPECT_EQ(tray.panel(), nullptr) << "nothing is built before it is first shown";
    QSignalSpy shown(&tray, &TrayPanel::panelShown);
    tray.showPanel();
    QWindow *panel = tray.panel();
    ASSERT_NE(panel, nullptr);
    EXPECT_TRUE(panel->isVisible());
    EXPECT_EQ(shown.count(), 1);
    EXPECT_EQ(panel->size(), QSize(320, 600));

    panel->close();
    EXPECT_FALSE(panel->isVisible());
    tray.togglePanel();
    EXPECT_TRUE(panel->isVisible());
    tray.togglePanel();
    EXPECT_FALSE(panel->isVisible());
    EXPECT_EQ(tray.panel(), panel) << "hidden, not destroyed";
    EXPECT_EQ(built, 1);
}

TEST(TrayPanelTest, APanelHiddenForTheDelayIsReleasedAndBuiltAfreshWhenShownAgain)
{
    int built = 0;
    TrayPanel tray(
        [&built] {
            ++built;
            return std::make_unique<QQuickWindow>();
        },
        std::chrono::milliseconds(50));
    QSignalSpy released(&tray, &TrayPanel::panelReleased);

    // Shown again within the delay: the same panel, and the pending release is called off.
    tray.showPanel();
    tray.panel()->close();
    tray.showPanel();
    QTest::qWait(150);
    EXPECT_EQ(released.count(), 0);
    EXPECT_NE(tray.panel(), nullptr);

    tray.panel()->close();
    ASSERT_TRUE(released.wait(2000));
    EXPECT_EQ(tray.panel(), nullptr);
    EXPECT_EQ(built, 1);

    tray.togglePanel();
    ASSERT_NE(tray.panel(), nullptr);
    EXPECT_TRUE(tray.panel()->isVisible());
    EXPECT_EQ(built, 2);
}

// "Open Settings" opens the privacy page of the desktop in use, and is offered nowhere else.
TEST(DesktopActionsTest, PrivacySettingsOpenTheDesktopsOwnPage)
{
    QTemporaryDir bin;
    const QString opened = bin.filePath(QStringLiteral("opened"));
    for (const char *program : {"gnome-control-center", "systemsettings"}) {
        QFile script(bin.filePath(QString::fromLatin1(program)));
        ASSERT_TRUE(script.open(QIODevice::WriteOnly));
        script.write(QByteArray("#!/bin/sh\necho \"") + program + " $*\" > '" + opened.toUtf8() + "'\n");
        script.setPermissions(script.permissions() | QFile::ExeOwner);
    }
    struct Row
    {
        const char *desktop;
        const char *path;
        const char *command; // null: not offered
    };
    const Row rows[] = {
        {"ubuntu:GNOME", "", "gnome-control-center privacy"},
        {"KDE", "", "systemsettings "},
        {"XFCE", "", nullptr},
        {"", "", nullptr},
        {"GNOME", "/nonexistent", nullptr},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.desktop);
        QProcessEnvironment environment;
        environment.insert(QStringLiteral("XDG_CURRENT_DESKTOP"), QString::fromLatin1(row.desktop));
        environment.insert(QStringLiteral("PATH"), *row.path ? QString::fromLatin1(row.path) : bin.path());
        LinuxDesktopActions desktop(environment);
        QFile::remove(opened);
        EXPECT_EQ(desktop.canOpenPrivacySettings(), row.command != nullptr);
        desktop.openPrivacySettings();
        if (row.command) {
            QFile output(opened);
            ASSERT_TRUE(QTest::qWaitFor([&] { return output.exists() && output.size() > 0; }, 5000));
            ASSERT_TRUE(output.open(QIODevice::ReadOnly));
            EXPECT_EQ(output.readAll().trimmed(), QByteArray(row.command).trimmed());
        }
    }
}
