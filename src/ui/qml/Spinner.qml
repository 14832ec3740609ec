import QtQuick
import Tamlo.Ui

// A small indeterminate spinner.
Item {
    id: spinner
    property real diameter: 16
    property color tint: TamloTheme.secondary
    implicitWidth: diameter
    implicitHeight: diameter

    Repeater {
        model: 8
        Rectangle {
            required property int index
            width: spinner.diameter * 0.14
            height: spinner.diameter * 0.3
            radius: width / 2
            color: spinner.tint
            opacity: 0.25 + 0.75 * (index / 7)
            x: (spinner.diameter - width) / 2
            y: 0
            transform: Rotation {
                origin.x: width / 2
                origin.y: spinner.diameter / 2
                angle: index * 45
            }
        }
    }
    RotationAnimator on rotation {
        from: 0
        to: 360
        duration: 900
        loops: Animation.Infinite
        running: spinner.visible
    }
}
