import QtQuick
import Tamlo.Ui

// Text in one of the theme's styles: "title2", "headline", "subheadline", "caption" or "caption2".
Text {
    property string textStyle: "caption"

    color: TamloTheme.primaryText
    font.pixelSize: Theme.fontSize(textStyle)
    font.weight: Theme.fontWeight(textStyle)
    renderType: Text.QtRendering
}
