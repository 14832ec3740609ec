import QtQuick
import QtQuick.Shapes
import Tamlo.Ui

// A ring of the projects' shares from the top, clockwise, with its legend beside it.
Row {
    id: chart
    // Entries with name, percentText, color, start and end (fractions of the ring).
    property var shares: []
    property real lineWidth: 16
    property real size: 108

    spacing: 14

    Item {
        width: chart.size
        height: chart.size
        anchors.verticalCenter: parent.verticalCenter

        Shape {
            anchors.fill: parent
            ShapePath {
                strokeColor: TamloTheme.withOpacity(TamloTheme.secondary, 0.12)
                strokeWidth: chart.lineWidth
                fillColor: "transparent"
                capStyle: ShapePath.FlatCap
                PathAngleArc {
                    centerX: chart.size / 2
                    centerY: chart.size / 2
                    radiusX: (chart.size - chart.lineWidth) / 2
                    radiusY: (chart.size - chart.lineWidth) / 2
                    startAngle: 0
                    sweepAngle: 360
                }
            }
        }

        Repeater {
            model: chart.shares
            delegate: Shape {
                required property var modelData
                anchors.fill: parent
                ShapePath {
                    strokeColor: modelData.color
                    strokeWidth: chart.lineWidth
                    fillColor: "transparent"
                    capStyle: ShapePath.FlatCap
                    PathAngleArc {
                        centerX: chart.size / 2
                        centerY: chart.size / 2
                        radiusX: (chart.size - chart.lineWidth) / 2
                        radiusY: (chart.size - chart.lineWidth) / 2
                        // A quarter turn back, so the first slice starts at the top.
                        startAngle: -90 + modelData.start * 360
                        sweepAngle: (modelData.end - modelData.start) * 360
                    }
                }
            }
        }
    }

    Column {
        width: chart.width - chart.size - chart.spacing
        spacing: 6
        anchors.verticalCenter: parent.verticalCenter

        Repeater {
            model: chart.shares
            delegate: Row {
                required property var modelData
                width: parent.width
                spacing: 6
                Rectangle {
                    width: 8
                    height: 8
                    radius: 4
                    color: modelData.color
                    anchors.verticalCenter: parent.verticalCenter
                }
                StyledText {
                    text: modelData.name
                    textStyle: "caption2"
                    font.weight: Font.Medium
                    elide: Text.ElideRight
                    width: parent.width - 14 - percent.width - 6
                    anchors.verticalCenter: parent.verticalCenter
                }
                FigureText {
                    id: percent
                    text: modelData.percentText
                    textStyle: "caption2"
                    color: TamloTheme.secondary
                    anchors.verticalCenter: parent.verticalCenter
                }
            }
        }
    }
}
