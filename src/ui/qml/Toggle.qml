import QtQuick
import QtQuick.Controls.Basic as Basic
import Tamlo.Ui

// A light switch in the accent colour.
Basic.Switch {
    id: toggle
    padding: 0
    implicitWidth: 32
    implicitHeight: 18
    indicator: Rectangle {
        implicitWidth: 32
        implicitHeight: 18
        x: 0
        y: (toggle.height - height) / 2
        radius: height / 2
        color: toggle.checked ? TamloTheme.green : TamloTheme.withOpacity(TamloTheme.gray, 0.35)
        Rectangle {
            width: 14
            height: 14
            radius: 7
            y: 2
            x: toggle.checked ? parent.width - width - 2 : 2
            color: "white"
            Behavior on x { NumberAnimation { duration: 120 } }
        }
    }
    contentItem: Item { }
}
