import QtQuick
import QtQuick.Controls.Basic as Basic
import Tamlo.Ui

// The Configuration tab: the local model, the label lists and launch at login.
Basic.ScrollView {
    id: view
    required property SettingsViewModel settings

    contentWidth: availableWidth
    clip: true
    background: Rectangle { color: TamloTheme.surfaceWindow }

    onVisibleChanged: if (visible) settings.appear()
    Component.onCompleted: if (visible) settings.appear()

    Column {
        x: 12
        y: 12
        width: view.availableWidth - 24
        spacing: 12

        SurfaceCard {
            width: parent.width
            Column {
                width: parent.width
                spacing: 4
                StyledText {
                    text: "Local AI Model"
                    textStyle: "subheadline"
                    font.weight: Font.DemiBold
                }
                StyledText {
                    text: view.settings.usesText
                    textStyle: "caption2"
                    color: TamloTheme.secondary
                }
                LinkButton {
                    text: "Installation guide"
                    onClicked: view.settings.openInstallationGuide()
                }
            }

            Row {
                width: parent.width
                spacing: 8
                SymbolIcon {
                    name: "brain"
                    size: 12
                    anchors.verticalCenter: parent.verticalCenter
                }
                Basic.ComboBox {
                    id: picker
                    width: parent.width - 12 - 16 - 16
                    height: 24
                    font.pixelSize: Theme.captionSize
                    model: view.settings.modelLabels
                    currentIndex: view.settings.selectedIndex
                    onActivated: index => view.settings.selectedIndex = index
                    Accessible.name: "AI Model"
                    leftPadding: 8
                    rightPadding: 22
                    contentItem: Text {
                        text: picker.displayText
                        font: picker.font
                        color: TamloTheme.primaryText
                        elide: Text.ElideRight
                        verticalAlignment: Text.AlignVCenter
                        renderType: Text.QtRendering
                    }
                    indicator: SymbolIcon {
                        x: picker.width - width - 6
                        y: (picker.height - height) / 2
                        name: "chevron.down"
                        size: 14
                    }
                    background: Rectangle {
                        radius: 5
                        color: TamloTheme.surfaceField
                        border.width: 1
                        border.color: TamloTheme.withOpacity(TamloTheme.brandBtnBorder, 0.25)
                    }
                }
                Item {
                    width: 16
                    height: 16
                    anchors.verticalCenter: parent.verticalCenter
                    Spinner {
                        anchors.centerIn: parent
                        diameter: 12
                        visible: view.settings.isChecking
                    }
                    SymbolIcon {
                        anchors.centerIn: parent
                        visible: !view.settings.isChecking
                        name: view.settings.modelAvailable ? "checkmark.circle.fill" : "exclamationmark.circle.fill"
                        color: view.settings.modelAvailable ? TamloTheme.green : TamloTheme.orange
                        size: 13
                        Basic.ToolTip.visible: statusHover.containsMouse
                        Basic.ToolTip.text: view.settings.statusHelp
                        MouseArea {
                            id: statusHover
                            anchors.fill: parent
                            hoverEnabled: true
                        }
                    }
                }
            }

            Rectangle {
                visible: view.settings.showInstallBox
                width: parent.width
                height: installColumn.implicitHeight + 16
                radius: 4
                color: TamloTheme.surfaceField
                border.width: 1
                border.color: TamloTheme.divider
                Column {
                    id: installColumn
                    x: 8
                    y: 8
                    width: parent.width - 16
                    spacing: 6
                    StyledText {
                        text: "To install the model:"
                        textStyle: "caption2"
                        font.weight: Font.DemiBold
                    }
                    StyledText {
                        text: "1. Install Ollama from ollama.com"
                        textStyle: "caption2"
                    }
                    StyledText {
                        width: parent.width
                        text: view.settings.installCommandText
                        font.family: "monospace"
                        font.pixelSize: Theme.caption2Size
                        wrapMode: Text.WrapAnywhere
                    }
                }
            }
        }

        SurfaceCard {
            width: parent.width
            TrackingPreferencesSection {
                width: parent.width
                preferences: view.settings.tracking
            }
        }

        PrivacySection { width: parent.width; privacy: view.settings.privacy }
        PresenceSection { width: parent.width; model: view.settings.presence }

        SurfaceCard {
            width: parent.width
            LaunchAtLoginToggle {
                width: parent.width
                model: view.settings.launchAtLogin
            }
        }

        Item {
            width: 1
            height: 1
        }
    }
}
