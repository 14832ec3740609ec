#include "platform/qtownwindows.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWindow>

using namespace Qt::StringLiterals;

QList<QRect> QtOwnWindows::ownWindowAreas() const
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    if (!screen || QGuiApplication::platformName() == u"wayland"_s) {
        return {};
    }
    const qreal ratio = screen->devicePixelRatio();
    QList<QRect> areas;
    const QList<QWindow *> windows = QGuiApplication::topLevelWindows();
    for (const QWindow *window : windows) {
        if (!window->isVisible() || window->screen() != screen) {
            continue;
        }
        const QRectF local = window->frameGeometry().translated(-screen->geometry().topLeft());
        areas.append(QRectF(local.topLeft() * ratio, local.size() * ratio).toAlignedRect());
    }
    return areas;
}
