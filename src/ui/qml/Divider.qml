import QtQuick
import Tamlo.Ui

Rectangle {
    implicitHeight: 1
    implicitWidth: 1
    color: TamloTheme.divider
}
