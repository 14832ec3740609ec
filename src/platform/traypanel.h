#pragma once

#include "monitoring/timedpause.h"

#include <QElapsedTimer>
#include <QIcon>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>

class QAction;
class QMenu;
class QSystemTrayIcon;
class QWindow;

// The tray item and its panel: a click on the icon toggles a frameless panel next to it, which
// hides again when it loses focus. Without a tray the panel is an ordinary window that only hides
// when closed.
//
// The panel is built on first show and let go once it has stayed hidden for `releaseAfter`: a
// scene and its engine cost more memory than the rest of Tamlo, for a window seen a few times a day.
class TrayPanel : public QObject
{
    Q_OBJECT
public:
    using PanelFactory = std::function<std::unique_ptr<QWindow>()>;

    TrayPanel(PanelFactory buildPanel, std::chrono::milliseconds releaseAfter, QObject *parent = nullptr);
    ~TrayPanel() override;

    // The built panel, or null while there is none.
    [[nodiscard]] QWindow *panel() const { return m_panel.get(); }

    // Filled circle while signed in, dotted circle while not.
    [[nodiscard]] static QIcon icon(bool signedIn);

    [[nodiscard]] bool hasTray() const { return m_tray != nullptr; }
    void setSignedIn(bool signedIn);
    // The menu offers the timed pauses while monitoring, and Resume while not.
    void setMonitoring(bool monitoring);

    void showPanel();
    void hidePanel();
    void togglePanel();

Q_SIGNALS:
    void panelShown();
    // The hidden panel was destroyed; its memory is free to go back to the system.
    void panelReleased();
    void quitRequested();
    void pauseRequested(TimedPause::Length length);
    void resumeRequested();

private:
    void buildPanel();
    void releasePanel();
    void placePanel();
    [[nodiscard]] bool eventFilter(QObject *watched, QEvent *event) override;

    PanelFactory m_buildPanel;
    std::unique_ptr<QWindow> m_panel;
    QTimer m_release;
    QSystemTrayIcon *m_tray = nullptr;
    QMenu *m_menu = nullptr;
    QList<QAction *> m_pauseActions;
    QAction *m_resumeAction = nullptr;
    // A click on the icon first takes the focus from the panel, which hides it; that click must
    // not show the panel again at once.
    QElapsedTimer m_sinceFocusHide;
};
