import QtQuick
import QtQuick.Controls.Basic as Basic
import Tamlo.Ui

// The product's filled dark button.
Basic.Button {
    id: control
    property string symbol: ""

    font.pixelSize: 12
    font.weight: Font.Normal
    leftPadding: 12
    rightPadding: 12
    topPadding: 6
    bottomPadding: 6
    hoverEnabled: true

    contentItem: Item {
        implicitWidth: inner.implicitWidth
        implicitHeight: inner.implicitHeight
        Row {
            id: inner
            // Centred in the button, whether the button is as wide as its label or wider.
            anchors.centerIn: parent
            spacing: 5
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
    }

    background: Rectangle {
        implicitHeight: 26
        radius: 8
        color: TamloTheme.brandDark
        opacity: TamloTheme.primaryButtonOpacity(control.down, control.enabled)
    }
}
