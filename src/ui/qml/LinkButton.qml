import QtQuick
import Tamlo.Ui

// Text in the accent colour that opens something when clicked.
Item {
    id: link
    property string text
    property string symbol: ""
    property int textSize: Theme.caption2Size
    signal clicked()

    implicitWidth: row.implicitWidth
    implicitHeight: row.implicitHeight

    Row {
        id: row
        spacing: 3
        SymbolIcon {
            visible: link.symbol !== ""
            name: link.symbol !== "" ? link.symbol : "circle"
            size: link.textSize + 1
            color: TamloTheme.accent
            anchors.verticalCenter: parent.verticalCenter
        }
        StyledText {
            text: link.text
            font.pixelSize: link.textSize
            color: TamloTheme.accent
            font.underline: area.containsMouse
            anchors.verticalCenter: parent.verticalCenter
        }
    }
    MouseArea {
        id: area
        anchors.fill: parent
        hoverEnabled: true
        cursorShape: Qt.PointingHandCursor
        onClicked: link.clicked()
    }
}
