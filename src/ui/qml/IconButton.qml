import QtQuick
import QtQuick.Controls.Basic as Basic
import Tamlo.Ui

// A plain icon button with help text.
Item {
    id: button
    property string symbol
    property string helpText
    property real size: 14
    property color tint: TamloTheme.secondary
    signal clicked()

    implicitWidth: icon.implicitWidth + 4
    implicitHeight: icon.implicitHeight + 4

    SymbolIcon {
        id: icon
        anchors.centerIn: parent
        name: button.symbol
        size: button.size
        color: button.tint
        opacity: area.pressed ? 0.6 : 1.0
    }
    MouseArea {
        id: area
        anchors.fill: parent
        hoverEnabled: true
        cursorShape: Qt.PointingHandCursor
        onClicked: button.clicked()
    }
    Basic.ToolTip.visible: area.containsMouse && helpText !== ""
    Basic.ToolTip.text: helpText
    Accessible.name: helpText
}
