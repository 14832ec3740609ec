import QtQuick
import Tamlo.Ui

// Start the program when the user logs in.
Item {
    id: row
    required property LaunchAtLoginModel model

    implicitHeight: Math.max(texts.implicitHeight, toggle.implicitHeight)

    Column {
        id: texts
        width: parent.width - toggle.width - 10
        spacing: 2
        StyledText {
            text: "Launch at Login"
            textStyle: row.model.compact ? "caption" : "subheadline"
            font.weight: Font.DemiBold
        }
        StyledText {
            width: parent.width
            text: "Start Tamlo automatically when you log in"
            textStyle: "caption2"
            color: TamloTheme.secondary
            wrapMode: Text.WordWrap
        }
    }
    Toggle {
        id: toggle
        anchors.right: parent.right
        anchors.verticalCenter: parent.verticalCenter
        checked: row.model.launchAtLogin
        onToggled: row.model.launchAtLogin = checked
    }
}
