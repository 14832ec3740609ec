import QtQuick
import Tamlo.Ui

// A section box: white, padding 10, corner radius 8, content stacked.
Rectangle {
    id: box
    default property alias content: inner.data
    property int padding: 10
    property int spacing: 10

    implicitHeight: inner.implicitHeight + 2 * padding
    radius: 8
    color: TamloTheme.surfaceControl

    Column {
        id: inner
        x: box.padding
        y: box.padding
        width: box.width - 2 * box.padding
        spacing: box.spacing
    }
}
