import QtQuick
import QtQuick.Controls.Basic as Basic
import Tamlo.Ui

// A single-line field with an outline and no fill.
Basic.TextField {
    id: field
    font.pixelSize: 12
    color: TamloTheme.brandText
    placeholderTextColor: TamloTheme.tertiary
    leftPadding: 10
    rightPadding: 10
    topPadding: 7
    bottomPadding: 7
    selectByMouse: true
    background: Rectangle {
        color: "transparent"
        radius: 8
        border.width: 1
        border.color: TamloTheme.withOpacity(TamloTheme.brandBtnBorder, 0.55)
    }
}
