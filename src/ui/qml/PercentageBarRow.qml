import QtQuick
import Tamlo.Ui

// A label with its share, over a bar filled to the share.
Column {
    id: row
    property string label
    property string percentText
    property real fill: 0
    property color barColor: TamloTheme.accent

    spacing: 4

    Item {
        width: row.width
        height: name.implicitHeight
        StyledText {
            id: name
            text: row.label
            textStyle: "caption2"
            font.weight: Font.Medium
            elide: Text.ElideRight
            width: parent.width - percent.width - 6
        }
        FigureText {
            id: percent
            anchors.right: parent.right
            text: row.percentText
            textStyle: "caption2"
            color: TamloTheme.secondary
        }
    }
    Rectangle {
        width: row.width
        height: 8
        radius: 4
        color: TamloTheme.withOpacity(TamloTheme.secondary, 0.12)
        Rectangle {
            width: parent.width * row.fill
            height: parent.height
            radius: 4
            color: row.barColor
        }
    }
}
