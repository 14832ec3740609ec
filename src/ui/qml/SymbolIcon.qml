import QtQuick
import Tamlo.Ui

// A named symbol drawn from the icon font.
Text {
    property string name
    property real size: 14

    font.family: Theme.iconFamily
    font.pixelSize: size
    text: Theme.icon(name)
    color: TamloTheme.secondary
    verticalAlignment: Text.AlignVCenter
    horizontalAlignment: Text.AlignHCenter
    renderType: Text.QtRendering
}
