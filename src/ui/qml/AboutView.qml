import QtQuick
import QtQuick.Window
import Tamlo.Ui

// The About sheet: icon, version, what the program does, five facts and "Done". A window of its
// own over the panel, since it is wider than the panel itself.
Window {
    id: sheet
    required property AboutModel about
    // "Done", Return, Escape or the window's close button.
    signal dismissed()

    objectName: "aboutSheet"
    title: "About Tamlo"
    flags: Qt.Dialog
    modality: Qt.WindowModal
    color: TamloTheme.surfaceWindow
    width: 340
    height: content.implicitHeight + 48
    minimumWidth: width
    maximumWidth: width
    minimumHeight: height
    maximumHeight: height
    x: transientParent ? transientParent.x + Math.round((transientParent.width - width) / 2) : 0
    y: transientParent ? transientParent.y + Math.max(8, Math.round((transientParent.height - height) / 2)) : 0
    onClosing: sheet.dismissed()

    Column {
        id: content
        x: 24
        y: 24
        width: sheet.width - 48
        spacing: 16
        Keys.onReturnPressed: sheet.dismissed()
        Keys.onEnterPressed: sheet.dismissed()
        Keys.onEscapePressed: sheet.dismissed()
        focus: true

        Image {
            source: "qrc:/Tamlo/Ui/qml/tamlo.svg"
            sourceSize.width: 72
            sourceSize.height: 72
            width: 72
            height: 72
            fillMode: Image.PreserveAspectFit
            anchors.horizontalCenter: parent.horizontalCenter
        }
        Column {
            spacing: 4
            anchors.horizontalCenter: parent.horizontalCenter
            StyledText {
                text: "Tamlo"
                textStyle: "title2"
                anchors.horizontalCenter: parent.horizontalCenter
            }
            StyledText {
                text: sheet.about.versionText
                textStyle: "caption"
                color: TamloTheme.secondary
                anchors.horizontalCenter: parent.horizontalCenter
            }
        }
        StyledText {
            width: parent.width
            text: "AI-powered activity tracker that analyzes screenshots locally with Ollama. Your data stays on this computer."
            textStyle: "caption"
            color: TamloTheme.secondary
            wrapMode: Text.WordWrap
            horizontalAlignment: Text.AlignHCenter
        }
        SurfaceCard {
            width: parent.width
            padding: 12
            spacing: 10
            Repeater {
                model: [
                    { icon: "desktopcomputer", title: "Requires", value: "Linux with X11 or Wayland" },
                    { icon: "folder", title: "Work logs", value: "~/Documents/Tamlo/WorkLogs/" },
                    { icon: "chart.bar.doc.horizontal", title: "Daily reports", value: "~/Documents/Tamlo/Daily-Reports.csv" },
                    { icon: "cpu", title: "Supported models", value: "qwen3-vl:2b (recommended), qwen3-vl:4b (16 GB+ RAM)" },
                    { icon: "lock.shield", title: "Privacy", value: "Local processing only" }
                ]
                delegate: Row {
                    required property var modelData
                    width: parent.width
                    spacing: 10
                    SymbolIcon {
                        name: modelData.icon
                        size: 12
                        width: 14
                    }
                    Column {
                        width: parent.width - 24
                        spacing: 2
                        StyledText {
                            text: modelData.title
                            textStyle: "caption"
                            font.weight: Font.DemiBold
                        }
                        StyledText {
                            width: parent.width
                            text: modelData.value
                            textStyle: "caption2"
                            color: TamloTheme.secondary
                            wrapMode: Text.WordWrap
                        }
                    }
                }
            }
        }
        TamloPrimaryButton {
            text: "Done"
            anchors.horizontalCenter: parent.horizontalCenter
            onClicked: sheet.dismissed()
        }
    }
}
