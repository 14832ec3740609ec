#pragma once

#include <QElapsedTimer>
#include <QIcon>
#include <QObject>
#include <QPointer>

class QMenu;
class QSystemTrayIcon;
class QWindow;

// The tray item and its panel: a click on the icon toggles a frameless panel next to it, which
// hides again when it loses focus. Without a tray the panel is an ordinary window, shown at
// start-up, that only hides when closed.
class TrayPanel : public QObject
{
    Q_OBJECT
public:
    explicit TrayPanel(QWindow *panel, QObject *parent = nullptr);
    ~TrayPanel() override;

    // Filled circle while signed in, dotted circle while not.
    [[nodiscard]] static QIcon icon(bool signedIn);

    [[nodiscard]] bool hasTray() const { return m_tray != nullptr; }
    void setSignedIn(bool signedIn);

    void showPanel();
    void hidePanel();
    void togglePanel();

Q_SIGNALS:
    void panelShown();
    void quitRequested();

private:
    void placePanel();
    [[nodiscard]] bool eventFilter(QObject *watched, QEvent *event) override;

    QPointer<QWindow> m_panel;
    QSystemTrayIcon *m_tray = nullptr;
    QMenu *m_menu = nullptr;
    // A click on the icon first takes the focus from the panel, which hides it; that click must
    // not show the panel again at once.
    QElapsedTimer m_sinceFocusHide;
};
