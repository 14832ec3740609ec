#include "platform/traypanel.h"

#include <QImage>
#include <QQuickWindow>
#include <QSignalSpy>

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
    QQuickWindow panel;
    panel.resize(320, 600);
    TrayPanel tray(&panel);
    ASSERT_FALSE(tray.hasTray()) << "the offscreen platform has no tray";
    QSignalSpy shown(&tray, &TrayPanel::panelShown);
    tray.showPanel();
    EXPECT_TRUE(panel.isVisible());
    EXPECT_EQ(shown.count(), 1);
    EXPECT_EQ(panel.size(), QSize(320, 600));

    panel.close();
    EXPECT_FALSE(panel.isVisible());
    tray.togglePanel();
    EXPECT_TRUE(panel.isVisible());
    tray.togglePanel();
    EXPECT_FALSE(panel.isVisible());
}
