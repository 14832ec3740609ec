import QtQuick
import Tamlo.Ui

// A capsule chip: tinted text on the same colour at low opacity.
Rectangle {
    id: badge
    property string text
    property color tint: TamloTheme.accent
    property int textSize: 8
    property int horizontalPadding: 5
    property int verticalPadding: 2
    property string symbol: ""

    implicitWidth: row.implicitWidth + 2 * horizontalPadding
    implicitHeight: row.implicitHeight + 2 * verticalPadding
    radius: height / 2
    color: TamloTheme.withOpacity(tint, 0.15)

    Row {
        id: row
        anchors.centerIn: parent
        spacing: 3
        SymbolIcon {
            visible: badge.symbol !== ""
            name: badge.symbol !== "" ? badge.symbol : "circle"
            size: badge.textSize - 1
            color: badge.tint
            anchors.verticalCenter: parent.verticalCenter
        }
        Text {
            text: badge.text
            color: badge.tint
            font.pixelSize: badge.textSize
            font.weight: Font.DemiBold
            renderType: Text.QtRendering
            anchors.verticalCenter: parent.verticalCenter
        }
    }
}
