import QtQuick
import QtQuick.Controls.Basic as Basic

// The product's filled dark button.
Basic.Button {
    id: control
    property string symbol: ""
    property bool fillWidth: false

    font.pixelSize: 12
    font.weight: Font.Normal
    leftPadding: 12
    rightPadding: 12
    topPadding: 6
    bottomPadding: 6
    hoverEnabled: true

    contentItem: Row {
        spacing: 5
        Item {
            width: Math.max(0, (control.availableWidth - label.implicitWidth - (icon.visible ? icon.width + 5 : 0)) / 2)
            height: 1
            visible: control.fillWidth
        }
        SymbolIcon {
            id: icon
            visible: control.symbol !== ""
            name: control.symbol !== "" ? control.symbol : "circle"
            size: 13
            color: "white"
            anchors.verticalCenter: parent.verticalCenter
        }
        Text {
            id: label
            text: control.text
            font: control.font
            color: "white"
            renderType: Text.QtRendering
            anchors.verticalCenter: parent.verticalCenter
        }
    }

    background: Rectangle {
        implicitHeight: 26
        radius: 8
        color: TamloTheme.brandDark
        opacity: TamloTheme.primaryButtonOpacity(control.down, control.enabled)
    }
}
