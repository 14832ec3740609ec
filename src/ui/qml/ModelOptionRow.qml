import QtQuick
import Tamlo.Ui

// One model to choose, with its detail line; the whole row takes the click.
Rectangle {
    id: row
    property string modelName
    property bool isRecommended
    property bool isSelected
    property string detail
    signal selected()

    implicitHeight: content.implicitHeight + 12
    radius: 6
    color: isSelected ? TamloTheme.withOpacity(TamloTheme.accent, 0.08) : "transparent"

    Row {
        id: content
        x: 6
        y: 6
        width: row.width - 12
        spacing: 8
        SymbolIcon {
            name: row.isSelected ? "largecircle.fill.circle" : "circle"
            color: row.isSelected ? TamloTheme.accent : TamloTheme.secondary
            size: 13
            anchors.verticalCenter: parent.verticalCenter
        }
        Column {
            spacing: 1
            anchors.verticalCenter: parent.verticalCenter
            Row {
                spacing: 4
                StyledText {
                    text: row.modelName
                    textStyle: "caption2"
                    font.weight: Font.Medium
                    anchors.verticalCenter: parent.verticalCenter
                }
                Badge {
                    visible: row.isRecommended
                    text: "Recommended"
                    horizontalPadding: 4
                    verticalPadding: 1
                    anchors.verticalCenter: parent.verticalCenter
                }
            }
            StyledText {
                visible: row.detail !== ""
                text: row.detail
                font.pixelSize: 9
                color: TamloTheme.secondary
            }
        }
    }
    MouseArea {
        anchors.fill: parent
        cursorShape: Qt.PointingHandCursor
        onClicked: row.selected()
    }
}
