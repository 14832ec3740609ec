import QtQuick
import Tamlo.Ui

// The panel of the tray item: 320 by 600, always light.
Rectangle {
    id: panel
    required property MainScreenModel main

    width: Theme.panelWidth
    height: Theme.panelHeight
    color: TamloTheme.surfaceWindow

    ContentView {
        anchors.fill: parent
        main: panel.main
    }
}
