import QtQuick
import QtQuick.Controls.Basic as Basic
import Tamlo.Ui

// The guided first launch: a model, the labels and launch at login.
Basic.ScrollView {
    id: view
    required property SetupModel setup

    contentWidth: availableWidth
    clip: true
    background: Rectangle { color: TamloTheme.surfaceWindow }

    Component.onCompleted: setup.appear()

    Column {
        x: 12
        y: 10
        width: view.availableWidth - 24
        spacing: 14

        Column {
            width: parent.width
            spacing: 4
            Row {
                spacing: 5
                SymbolIcon {
                    name: "sparkles"
                    size: 13
                    color: TamloTheme.primaryText
                    anchors.verticalCenter: parent.verticalCenter
                }
                StyledText {
                    text: "Set up Tamlo"
                    textStyle: "subheadline"
                    font.weight: Font.DemiBold
                    anchors.verticalCenter: parent.verticalCenter
                }
            }
            StyledText {
                width: parent.width
                text: "Choose a local AI model and tell Tamlo how to label your work. Install Ollama first if you haven't yet."
                textStyle: "caption2"
                color: TamloTheme.secondary
                wrapMode: Text.WordWrap
            }
            LinkButton {
                text: "Installation guide"
                symbol: "book"
                onClicked: view.setup.openInstallationGuide()
            }
            Item {
                width: 1
                height: 2
            }
        }

        SetupSection {
            width: parent.width
            number: 1
            title: "Local AI model"
            symbol: "brain"

            StyledText {
                width: parent.width
                text: "Tamlo uses Ollama on this computer to analyze screenshots. Pick a model, then pull it in a terminal."
                textStyle: "caption2"
                color: TamloTheme.secondary
                wrapMode: Text.WordWrap
            }
            Column {
                width: parent.width
                spacing: 4
                Repeater {
                    model: view.setup.modelOptions
                    delegate: ModelOptionRow {
                        required property var modelData
                        width: parent.width
                        modelName: modelData.modelName
                        isRecommended: modelData.isRecommended
                        isSelected: modelData.isSelected
                        detail: modelData.detail
                        onSelected: view.setup.selectModel(modelData.modelName)
                    }
                }
            }
            Row {
                width: parent.width
                spacing: 6
                Rectangle {
                    width: parent.width - copyButton.width - 6
                    height: command.implicitHeight + 12
                    radius: 4
                    color: TamloTheme.surfaceField
                    border.width: 1
                    border.color: TamloTheme.divider
                    TextEdit {
                        id: command
                        x: 6
                        y: 6
                        width: parent.width - 12
                        text: view.setup.pullCommand
                        readOnly: true
                        selectByMouse: true
                        font.family: "monospace"
                        font.pixelSize: 10
                        color: TamloTheme.primaryText
                    }
                }
                SymbolIcon {
                    id: copyButton
                    name: view.setup.didCopyPullCommand ? "checkmark" : "doc.on.doc"
                    size: 13
                    width: 18
                    anchors.verticalCenter: parent.verticalCenter
                    Basic.ToolTip.visible: copyArea.containsMouse
                    Basic.ToolTip.text: "Copy pull command"
                    MouseArea {
                        id: copyArea
                        anchors.fill: parent
                        hoverEnabled: true
                        cursorShape: Qt.PointingHandCursor
                        onClicked: view.setup.copyPullCommand()
                    }
                }
            }
            Item {
                width: parent.width
                height: Math.max(statusRow.implicitHeight, checkButton.implicitHeight)
                Row {
                    id: statusRow
                    spacing: 6
                    anchors.verticalCenter: parent.verticalCenter
                    Item {
                        width: 12
                        height: 12
                        anchors.verticalCenter: parent.verticalCenter
                        Spinner {
                            anchors.centerIn: parent
                            diameter: 11
                            visible: view.setup.isCheckingModel
                        }
                        SymbolIcon {
                            anchors.centerIn: parent
                            visible: !view.setup.isCheckingModel
                            name: view.setup.modelAvailable ? "checkmark.circle.fill" : "circle.dashed"
                            color: view.setup.modelAvailable ? TamloTheme.green : TamloTheme.secondary
                            size: 12
                        }
                    }
                    StyledText {
                        text: view.setup.statusText
                        textStyle: "caption2"
                        color: view.setup.modelAvailable ? TamloTheme.green : TamloTheme.secondary
                        anchors.verticalCenter: parent.verticalCenter
                    }
                }
                Basic.Button {
                    id: checkButton
                    anchors.right: parent.right
                    text: "Check"
                    font.pixelSize: Theme.caption2Size
                    enabled: !view.setup.isCheckingModel
                    topPadding: 3
                    bottomPadding: 3
                    leftPadding: 10
                    rightPadding: 10
                    onClicked: view.setup.checkModel()
                    background: Rectangle {
                        radius: 5
                        color: checkButton.down ? TamloTheme.surfaceWindow : TamloTheme.surfaceControl
                        border.width: 1
                        border.color: TamloTheme.withOpacity(TamloTheme.brandBtnBorder, 0.25)
                    }
                }
            }
        }

        Rectangle {
            width: parent.width
            height: prefs.implicitHeight + 20
            radius: 8
            color: TamloTheme.surfaceControl
            TrackingPreferencesSection {
                id: prefs
                x: 10
                y: 10
                width: parent.width - 20
                preferences: view.setup.tracking
            }
        }

        SetupSection {
            width: parent.width
            number: 2
            title: "Preferences"
            symbol: "gearshape"
            LaunchAtLoginToggle {
                width: parent.width
                model: view.setup.launchAtLogin
            }
        }

        Item {
            width: 1
            height: 1
        }
    }
}
