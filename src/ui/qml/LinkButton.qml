import QtQuick

// Text in the accent colour that opens something when clicked.
Row {
    id: link
    property string text
    property string symbol: ""
    property int textSize: Theme.caption2Size
    signal clicked()

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
    MouseArea {
        id: area
        width: link.width
        height: link.height
        hoverEnabled: true
        cursorShape: Qt.PointingHandCursor
        onClicked: link.clicked()
    }
}
