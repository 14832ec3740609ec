#include "platform/traypanel.h"

#include <QCloseEvent>
#include <QGuiApplication>
#include <QMenu>
#include <QPainter>
#include <QPixmap>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QWindow>

#include <chrono>

using namespace Qt::StringLiterals;

namespace {
constexpr auto focusHideGrace = std::chrono::milliseconds(300);
constexpr int panelMargin = 8;
} // namespace

TrayPanel::TrayPanel(PanelFactory buildPanel, std::chrono::milliseconds releaseAfter, QObject *parent)
    : QObject(parent), m_buildPanel(std::move(buildPanel))
{
    m_release.setSingleShot(true);
    m_release.setInterval(releaseAfter);
    connect(&m_release, &QTimer::timeout, this, &TrayPanel::releasePanel);
    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        m_tray = new QSystemTrayIcon(icon(false), this);
        m_tray->setToolTip(u"Tamlo"_s);
        m_menu = new QMenu();
        m_menu->addAction(u"Show Tamlo"_s, this, &TrayPanel::showPanel);
        m_menu->addSeparator();
        for (const auto length :
            {TimedPause::Length::ThirtyMinutes, TimedPause::Length::OneHour, TimedPause::Length::UntilTomorrow}) {
            m_pauseActions.append(
                m_menu->addAction(TimedPause::label(length), this, [this, length] { Q_EMIT pauseRequested(length); }));
        }
        m_resumeAction = m_menu->addAction(u"Resume"_s, this, &TrayPanel::resumeRequested);
        m_menu->addSeparator();
        m_menu->addAction(u"Quit Tamlo"_s, this, &TrayPanel::quitRequested);
        setMonitoring(false);
        m_tray->setContextMenu(m_menu);
        connect(m_tray, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
            if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick) {
                togglePanel();
            }
        });
        m_tray->show();
    }
}

TrayPanel::~TrayPanel()
{
    delete m_menu;
}

void TrayPanel::buildPanel()
{
    m_panel = m_buildPanel();
    m_panel->setTitle(u"Tamlo"_s);
    m_panel->installEventFilter(this);
    if (m_tray) {
        m_panel->setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
        connect(m_panel.get(), &QWindow::activeChanged, this, [this] {
            // The panel's own sheet or dialog taking the focus leaves the panel where it is.
            const QWindow *focus = QGuiApplication::focusWindow();
            if (focus && focus->transientParent() == m_panel.get()) {
                return;
            }
            if (m_panel && m_panel->isVisible() && !m_panel->isActive()) {
                m_sinceFocusHide.start();
                hidePanel();
            }
        });
    } else {
        m_panel->setFlags(Qt::Window);
        m_panel->setMinimumSize(m_panel->size());
        m_panel->setMaximumSize(m_panel->size());
    }
}

void TrayPanel::releasePanel()
{
    if (!m_panel || m_panel->isVisible()) {
        return;
    }
    m_panel.reset();
    Q_EMIT panelReleased();
}

QIcon TrayPanel::icon(bool signedIn)
{
    QIcon result;
    for (const int size : {16, 22, 24, 32, 48, 64}) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        const qreal inset = size * 0.18;
        const QRectF circle(inset, inset, size - 2 * inset, size - 2 * inset);
        const QColor ink(40, 40, 40);
        if (signedIn) {
            painter.setPen(Qt::NoPen);
            painter.setBrush(ink);
            painter.drawEllipse(circle);
        } else {
            QPen pen(ink, qMax(1.5, size / 12.0));
            pen.setDashPattern({1.2, 1.6});
            pen.setCapStyle(Qt::RoundCap);
            painter.setPen(pen);
            painter.setBrush(Qt::NoBrush);
            painter.drawEllipse(circle);
        }
        painter.end();
        result.addPixmap(pixmap);
    }
    return result;
}

void TrayPanel::setSignedIn(bool signedIn)
{
    if (m_tray) {
        m_tray->setIcon(icon(signedIn));
    }
}

void TrayPanel::setMonitoring(bool monitoring)
{
    for (QAction *action : std::as_const(m_pauseActions)) {
        action->setVisible(monitoring);
    }
    if (m_resumeAction) {
        m_resumeAction->setVisible(!monitoring);
    }
}

void TrayPanel::showPanel()
{
    m_release.stop();
    if (!m_panel) {
        buildPanel();
    }
    if (m_tray) {
        placePanel();
    }
    m_panel->show();
    m_panel->raise();
    m_panel->requestActivate();
    Q_EMIT panelShown();
}

void TrayPanel::hidePanel()
{
    if (m_panel && m_panel->isVisible()) {
        m_panel->hide();
        m_release.start();
    }
}

void TrayPanel::togglePanel()
{
    if (m_panel && m_panel->isVisible()) {
        hidePanel();
    } else if (!m_sinceFocusHide.isValid() || m_sinceFocusHide.elapsed() > focusHideGrace.count()) {
        showPanel();
    }
}

void TrayPanel::placePanel()
{
    QScreen *screen = QGuiApplication::primaryScreen();
    if (!screen) {
        return;
    }
    const QRect available = screen->availableGeometry();
    const QRect iconRect = m_tray->geometry();
    QPoint position;
    if (iconRect.isValid() && !iconRect.isEmpty()) {
        // Below an icon in a top bar, above one in a bottom bar.
        const bool iconAtTop = iconRect.center().y() < available.center().y();
        position.setX(iconRect.center().x() - m_panel->width() / 2);
        position.setY(iconAtTop ? iconRect.bottom() + panelMargin : iconRect.top() - m_panel->height() - panelMargin);
    } else {
        position = QPoint(available.right() - m_panel->width() - panelMargin, available.top() + panelMargin);
    }
    position.setX(qBound(available.left() + panelMargin, position.x(),
        qMax(available.left() + panelMargin, available.right() - m_panel->width() - panelMargin)));
    position.setY(qBound(available.top(), position.y(), qMax(available.top(), available.bottom() - m_panel->height())));
    m_panel->setPosition(position);
}

bool TrayPanel::eventFilter(QObject *watched, QEvent *event)
{
    // Closing the window only hides it: the program keeps running until the user quits.
    if (watched == m_panel.get() && event->type() == QEvent::Close) {
        event->ignore();
        hidePanel();
        return true;
    }
    return QObject::eventFilter(watched, event);
}
