import QtQuick
import QtQuick.Controls.Basic as Basic
import QtQuick.Dialogs
import QtCore
import Tamlo.Ui

// The main screen: header, setup or tabs, the error banner and the control row.
Rectangle {
    id: view
    required property MainScreenModel main

    color: TamloTheme.surfaceWindow

    // The main screen coming on screen is when the model choice is loaded. An export that
    // finished while no panel existed opens its dialog in the panel built for it.
    Component.onCompleted: {
        main.panelShown()
        if (main.pendingSaveFileName !== "")
            Qt.callLater(view.openSaveDialog, main.pendingSaveFileName)
    }

    function openSaveDialog(suggestedFileName) {
        if (saveDialog.visible)
            return
        // The dialog was made before the panel had a window; it opens over the panel.
        saveDialog.parentWindow = view.Window.window
        saveDialog.currentFolder = StandardPaths.writableLocation(StandardPaths.DocumentsLocation)
        saveDialog.selectedFile = saveDialog.currentFolder + "/" + suggestedFileName
        saveDialog.open()
    }

    Column {
        id: header
        width: parent.width

        Item {
            width: parent.width
            height: titleColumn.implicitHeight + 20

            Column {
                id: titleColumn
                x: 16
                y: 10
                spacing: 2
                Row {
                    spacing: 6
                    StyledText {
                        text: "Tamlo"
                        textStyle: "headline"
                        color: TamloTheme.brandDark
                        anchors.verticalCenter: parent.verticalCenter
                    }
                    Badge {
                        visible: !view.main.didCompleteInitialSetup
                        text: "Step 2 — Set up"
                        textSize: 9
                        anchors.verticalCenter: parent.verticalCenter
                    }
                }
                Row {
                    spacing: 4
                    Rectangle {
                        width: 6
                        height: 6
                        radius: 3
                        color: view.main.statusColor
                        anchors.verticalCenter: parent.verticalCenter
                    }
                    StyledText {
                        text: view.main.statusText
                        textStyle: "caption2"
                        color: TamloTheme.secondary
                        anchors.verticalCenter: parent.verticalCenter
                    }
                }
            }
            Row {
                anchors.right: parent.right
                anchors.rightMargin: 16
                anchors.verticalCenter: parent.verticalCenter
                spacing: 10
                IconButton {
                    symbol: "info.circle"
                    helpText: "About Tamlo"
                    onClicked: view.main.showingAbout = true
                }
                IconButton {
                    symbol: "power"
                    helpText: "Quit Tamlo"
                    onClicked: view.main.quit()
                }
            }
        }
    }

    Item {
        id: body
        anchors.top: header.bottom
        anchors.bottom: banner.top
        width: parent.width

        Loader {
            anchors.fill: parent
            active: !view.main.didCompleteInitialSetup
            sourceComponent: FirstLaunchSetupContent {
                setup: view.main.setup
            }
        }

        Item {
            anchors.fill: parent
            visible: view.main.didCompleteInitialSetup

            SegmentedPicker {
                id: tabs
                x: 12
                y: 8
                width: parent.width - 24
                segments: [
                    { label: "Report", symbol: "chart.bar" },
                    { label: "Activity", symbol: "list.bullet" },
                    { label: "Configuration", symbol: "gear" }
                ]
                currentIndex: view.main.selectedTab
                onActivated: index => view.main.selectedTab = index
            }
            Divider {
                id: tabsDivider
                anchors.top: tabs.bottom
                anchors.topMargin: 8
                width: parent.width
            }
            Item {
                anchors.top: tabsDivider.bottom
                anchors.bottom: parent.bottom
                width: parent.width

                ReportView {
                    anchors.fill: parent
                    visible: view.main.selectedTab === 0
                    report: view.main.report
                }
                ActivityView {
                    anchors.fill: parent
                    visible: view.main.selectedTab === 1
                    main: view.main
                }
                Loader {
                    anchors.fill: parent
                    active: view.main.selectedTab === 2 && view.main.didCompleteInitialSetup
                    sourceComponent: SettingsView {
                        settings: view.main.settingsView
                    }
                }
            }
        }
    }

    Item {
        id: banner
        anchors.bottom: controlDivider.top
        width: parent.width
        height: view.main.showBanner ? bannerBox.height + 8 : 0
        visible: view.main.showBanner

        Rectangle {
            id: bannerBox
            x: 12
            width: parent.width - 24
            height: bannerColumn.implicitHeight + 16
            radius: 6
            color: TamloTheme.withOpacity(TamloTheme.orange, 0.1)

            Column {
                id: bannerColumn
                x: 12
                y: 8
                width: parent.width - 24
                spacing: 8
                Row {
                    width: parent.width
                    spacing: 8
                    SymbolIcon {
                        name: "exclamationmark.triangle.fill"
                        size: 12
                        color: TamloTheme.orange
                        anchors.verticalCenter: parent.verticalCenter
                    }
                    StyledText {
                        width: parent.width - 20
                        text: view.main.bannerText
                        textStyle: "caption2"
                        color: TamloTheme.secondary
                        wrapMode: Text.Wrap
                        maximumLineCount: 4
                        elide: Text.ElideRight
                    }
                }
                Basic.Button {
                    id: settingsButton
                    visible: view.main.showSettingsButton
                    text: "Open Settings"
                    font.pixelSize: Theme.captionSize
                    topPadding: 3
                    bottomPadding: 3
                    leftPadding: 8
                    rightPadding: 8
                    onClicked: view.main.openPrivacySettings()
                    contentItem: Text {
                        text: settingsButton.text
                        font: settingsButton.font
                        color: "white"
                        renderType: Text.QtRendering
                    }
                    background: Rectangle {
                        radius: 5
                        color: TamloTheme.accent
                        opacity: settingsButton.down ? 0.85 : 1.0
                    }
                }
                StyledText {
                    visible: view.main.showBannerHint
                    width: parent.width
                    text: "Try switching to an installed model in Configuration, or pull the model in a terminal."
                    textStyle: "caption2"
                    color: TamloTheme.secondary
                    wrapMode: Text.WordWrap
                }
            }
        }
    }

    Divider {
        id: controlDivider
        anchors.bottom: controlRow.top
        width: parent.width
    }

    Item {
        id: controlRow
        anchors.bottom: parent.bottom
        width: parent.width
        height: control.implicitHeight + 24
        TamloPrimaryButton {
            id: control
            x: 12
            y: 12
            width: parent.width - 24 - (pauseChoices.visible ? pauseChoices.width + 8 : 0)
            text: view.main.controlLabel
            symbol: view.main.controlIcon
            onClicked: view.main.triggerControl()
        }
        // Pauses that end by themselves.
        TamloPrimaryButton {
            id: pauseChoices
            visible: view.main.showPauseChoices
            anchors.right: parent.right
            anchors.rightMargin: 12
            y: 12
            height: control.height
            symbol: "timer.circle.fill"
            Accessible.name: "Pause for a while"
            onClicked: pauseMenu.popup(pauseChoices, 0, -pauseMenu.implicitHeight - 4)
            Basic.Menu {
                id: pauseMenu
                Basic.MenuItem {
                    text: view.main.pauseChoices[0]
                    onTriggered: view.main.pauseFor(0)
                }
                Basic.MenuItem {
                    text: view.main.pauseChoices[1]
                    onTriggered: view.main.pauseFor(1)
                }
                Basic.MenuItem {
                    text: view.main.pauseChoices[2]
                    onTriggered: view.main.pauseFor(2)
                }
            }
        }
    }

    AboutView {
        id: aboutSheet
        about: view.main.about
        transientParent: view.Window.window
        // Goes with the panel when the panel hides.
        visible: view.main.showingAbout && view.Window.window !== null && view.Window.window.visible
        onDismissed: {
            view.main.showingAbout = false
            if (view.Window.window)
                view.Window.window.requestActivate()
        }
    }

    FileDialog {
        id: saveDialog
        objectName: "saveDialog"
        fileMode: FileDialog.SaveFile
        nameFilters: ["CSV files (*.csv)"]
        defaultSuffix: "csv"
        title: "Export"
        acceptLabel: "Save"
        onAccepted: view.main.completeExport(selectedFile)
        onRejected: view.main.cancelExport()
    }

    Connections {
        target: view.main
        function onSaveFileRequested(suggestedFileName) {
            view.openSaveDialog(suggestedFileName)
        }
    }
}
