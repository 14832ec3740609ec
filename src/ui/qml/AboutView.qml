import QtQuick
import QtQuick.Controls.Basic as Basic
import QtQuick.Templates as T
import Tamlo.Ui

// The About sheet: icon, version, what the program does, five facts and "Done".
Basic.Popup {
    id: sheet
    required property AboutModel about

    modal: true
    focus: true
    padding: 24
    closePolicy: Basic.Popup.CloseOnEscape
    background: Rectangle {
        color: TamloTheme.surfaceWindow
        radius: 10
        border.width: 1
        border.color: TamloTheme.divider
    }
    T.Overlay.modal: Rectangle { color: Qt.rgba(0, 0, 0, 0.25) }

    contentItem: Column {
        spacing: 16
        Keys.onReturnPressed: sheet.close()
        Keys.onEnterPressed: sheet.close()
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
            text: "AI-powered activity tracker that analyzes screenshots locally with Ollama. Your data stays on your Mac."
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
                    { icon: "desktopcomputer", title: "Requires", value: "macOS 13 or newer" },
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
            onClicked: sheet.close()
        }
    }
}
