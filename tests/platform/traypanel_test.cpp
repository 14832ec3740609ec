#include "platform/linuxdesktopactions.h"
#include "platform/traypanel.h"

#include <QFile>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(TrayPanelTest, SignedInIconIsFilledAndSignedOutIconIsAnOutline)
{
    const auto opaqueAt = [](bool signedIn, int x) {
        return qAlpha(TrayPanel::icon(signedIn).pixmap(32, 32).toImage().pixel(x, 16)) > 128;
    };
    EXPECT_TRUE(opaqueAt(true, 16) && opaqueAt(true, 10));
    EXPECT_FALSE(opaqueAt(false, 16) || opaqueAt(false, 10));
}

// Without a tray the panel is a window of its own, built when first shown; closed, it only hides,
// and hidden for the delay it is released, to be built afresh when shown again.
TEST(TrayPanelTest, WithoutATrayThePanelIsAWindowThatHidesAndIsReleasedAfterTheDelay)
{
    int built = 0;
    TrayPanel tray(
        [&built] {
            ++built;
            return std::make_unique<QQuickWindow>();
        },
        std::chrono::milliseconds(300));
    ASSERT_FALSE(tray.hasTray()) << "the offscreen platform has no tray";
    EXPECT_EQ(tray.panel(), nullptr) << "nothing is built before it is first shown";
    QSignalSpy shown(&tray, &TrayPanel::panelShown);
    QSignalSpy released(&tray, &TrayPanel::panelReleased);
    tray.showPanel();
    QWindow *panel = tray.panel();
    ASSERT_NE(panel, nullptr);
    EXPECT_TRUE(panel->isVisible());

    // Shown again within the delay: the same panel, and the pending release is called off.
    panel->close();
    EXPECT_FALSE(panel->isVisible());
    tray.togglePanel();
    EXPECT_TRUE(panel->isVisible());
    QTest::qWait(500);
    tray.togglePanel();
    EXPECT_EQ(std::pair(tray.panel(), panel->isVisible()), std::pair(panel, false)) << "hidden, not destroyed";
    ASSERT_TRUE(released.wait(2000));
    EXPECT_EQ(tray.panel(), nullptr);
    tray.togglePanel();
    EXPECT_TRUE(tray.panel() && tray.panel()->isVisible());
    EXPECT_EQ(std::pair(built, int(shown.count())), std::pair(2, 3));
}

// "Open Settings" opens the privacy page of the desktop in use, and is offered nowhere else.
TEST(DesktopActionsTest, PrivacySettingsOpenTheDesktopsOwnPage)
{
    QTemporaryDir bin;
    const QString opened = bin.filePath(u"opened"_s);
    for (const char *program : {"gnome-control-center", "systemsettings"}) {
        QFile script(bin.filePath(QString::fromLatin1(program)));
        ASSERT_TRUE(script.open(QIODevice::WriteOnly));
        script.write(QByteArray("#!/bin/sh\necho \"") + program + " $*\" > '" + opened.toUtf8() + "'\n");
        script.setPermissions(script.permissions() | QFile::ExeOwner);
    }
    // The desktops, the PATH (the scripts' when empty) and the command run; none: not offered.
    const std::tuple<QString, QString, QByteArray> rows[]
        = {{u"ubuntu:GNOME"_s, {}, "gnome-control-center privacy"}, {u"KDE"_s, {}, "systemsettings"},
            {u"XFCE"_s, {}, {}}, {QString(), {}, {}}, {u"GNOME"_s, u"/nonexistent"_s, {}}};
    for (const auto &[desktops, path, command] : rows) {
        SCOPED_TRACE(desktops.toStdString());
        QProcessEnvironment environment;
        environment.insert(u"XDG_CURRENT_DESKTOP"_s, desktops);
        environment.insert(u"PATH"_s, path.isEmpty() ? bin.path() : path);
        LinuxDesktopActions desktop(environment);
        QFile::remove(opened);
        EXPECT_EQ(desktop.canOpenPrivacySettings(), !command.isEmpty());
        desktop.openPrivacySettings();
        if (!command.isEmpty()) {
            QFile output(opened);
            ASSERT_TRUE(QTest::qWaitFor([&] { return output.size() > 0; }, 5000));
            ASSERT_TRUE(output.open(QIODevice::ReadOnly));
            EXPECT_EQ(output.readAll().trimmed(), command);
        }
    }
}
