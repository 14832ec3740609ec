import QtQuick
import Tamlo.Ui

// A figure whose digits each take the same width, so that numbers side by side line up and a
// changing one does not shift. Qt 6.4 cannot ask the font for its tabular figures, so each digit
// sits centred in a cell as wide as the font's widest digit.
Row {
    id: figure
    property string text
    property string textStyle: "caption"
    property color color: TamloTheme.primaryText
    property font font: Qt.font({ pixelSize: Theme.fontSize(textStyle), weight: Theme.fontWeight(textStyle) })

    FontMetrics {
        id: metrics
        font: figure.font
    }
    readonly property real digitWidth: Math.max(...Array.from("0123456789", digit => metrics.advanceWidth(digit)))

    Repeater {
        model: figure.text.split("")
        Text {
            required property string modelData
            text: modelData
            font: figure.font
            color: figure.color
            renderType: Text.QtRendering
            horizontalAlignment: Text.AlignHCenter
            width: modelData >= "0" && modelData <= "9" ? figure.digitWidth : implicitWidth
        }
    }
}
