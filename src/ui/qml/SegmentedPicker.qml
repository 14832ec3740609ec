import QtQuick
import Tamlo.Ui

// A row of equal segments, one of them selected.
Rectangle {
    id: picker
    // Entries with label and symbol.
    property var segments: []
    property int currentIndex: 0
    signal activated(int index)

    implicitHeight: 24
    radius: 7
    color: TamloTheme.withOpacity(TamloTheme.gray, 0.16)

    Row {
        anchors.fill: parent
        anchors.margins: 2
        Repeater {
            model: picker.segments
            delegate: Rectangle {
                required property var modelData
                required property int index
                width: (picker.width - 4) / picker.segments.length
                height: parent.height
                radius: 5
                color: index === picker.currentIndex ? TamloTheme.surfaceControl : "transparent"
                border.width: index === picker.currentIndex ? 1 : 0
                border.color: TamloTheme.divider
                Row {
                    anchors.centerIn: parent
                    spacing: 4
                    SymbolIcon {
                        name: modelData.symbol
                        size: 12
                        color: index === picker.currentIndex ? TamloTheme.primaryText : TamloTheme.secondary
                        anchors.verticalCenter: parent.verticalCenter
                    }
                    StyledText {
                        text: modelData.label
                        font.pixelSize: 10
                        font.weight: index === picker.currentIndex ? Font.DemiBold : Font.Normal
                        color: index === picker.currentIndex ? TamloTheme.primaryText : TamloTheme.secondary
                        anchors.verticalCenter: parent.verticalCenter
                    }
                }
                MouseArea {
                    anchors.fill: parent
                    onClicked: picker.activated(index)
                }
            }
        }
    }
}
