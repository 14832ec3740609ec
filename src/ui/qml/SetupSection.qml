import QtQuick
import Tamlo.Ui

// A numbered step of the setup.
Rectangle {
    id: section
    default property alias content: inner.data
    property int number: 1
    property string title
    property string symbol

    implicitHeight: column.implicitHeight + 20
    radius: 8
    color: TamloTheme.surfaceControl

    Column {
        id: column
        x: 10
        y: 10
        width: section.width - 20
        spacing: 8

        Row {
            spacing: 6
            Rectangle {
                width: 18
                height: 18
                radius: 9
                color: TamloTheme.accent
                anchors.verticalCenter: parent.verticalCenter
                StyledText {
                    anchors.centerIn: parent
                    text: section.number
                    font.pixelSize: 10
                    font.weight: Font.Bold
                    color: "white"
                }
            }
            SymbolIcon {
                name: section.symbol
                size: 11
                anchors.verticalCenter: parent.verticalCenter
            }
            StyledText {
                text: section.title
                textStyle: "caption"
                font.weight: Font.DemiBold
                anchors.verticalCenter: parent.verticalCenter
            }
        }
        Column {
            id: inner
            width: parent.width
            spacing: 8
        }
    }
}
