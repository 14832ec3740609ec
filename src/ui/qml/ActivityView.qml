import QtQuick
import QtQuick.Controls.Basic as Basic
import Tamlo.Ui

// The Activity tab: the two exports, the note field and today's cards.
Item {
    id: view
    required property MainScreenModel main

    Column {
        id: top
        width: parent.width

        Rectangle {
            width: parent.width
            height: exportRow.implicitHeight + 20
            color: TamloTheme.surfaceControl
            // The buttons at their natural widths, the row centred in the bar.
            Row {
                id: exportRow
                anchors.horizontalCenter: parent.horizontalCenter
                y: 10
                spacing: 8
                TamloPrimaryButton {
                    id: exportLogs
                    text: "Export logs"
                    symbol: "arrow.down.doc.fill"
                    enabled: view.main.exportLogsEnabled
                    onClicked: view.main.exportTodayLogs()
                }
                TamloPrimaryButton {
                    id: exportReport
                    text: view.main.exportReportLabel
                    symbol: "chart.bar.doc.horizontal"
                    enabled: view.main.exportReportEnabled
                    onClicked: view.main.exportTodayDailyReport()
                }
            }
        }
        Divider { width: parent.width }

        Rectangle {
            width: parent.width
            height: noteColumn.implicitHeight + 20
            color: TamloTheme.withOpacity(TamloTheme.brandBlue, 0.35)
            Column {
                id: noteColumn
                x: 14
                y: 10
                width: parent.width - 28
                spacing: 8
                StyledText {
                    text: "Add note"
                    font.pixelSize: 10
                    font.weight: Font.DemiBold
                    color: TamloTheme.withOpacity(TamloTheme.brandText, 0.65)
                }
                Row {
                    width: parent.width
                    spacing: 8
                    TamloTextField {
                        id: noteField
                        width: parent.width - addButton.width - 8
                        placeholderText: "Note for current log…"
                        enabled: view.main.noteFieldEnabled
                        text: view.main.pendingNote
                        onTextEdited: view.main.pendingNote = text
                        onAccepted: view.main.addNote()
                    }
                    TamloPrimaryButton {
                        id: addButton
                        text: "Add"
                        enabled: view.main.addNoteEnabled
                        anchors.verticalCenter: noteField.verticalCenter
                        onClicked: view.main.addNote()
                    }
                }
                StyledText {
                    visible: text.length > 0
                    width: parent.width
                    text: view.main.noteLimitText
                    textStyle: "caption2"
                    color: TamloTheme.secondary
                    wrapMode: Text.WordWrap
                }
                StyledText {
                    visible: view.main.showNoteHint
                    width: parent.width
                    text: "Notes attach to the latest activity once monitoring captures work."
                    textStyle: "caption2"
                    color: TamloTheme.secondary
                    wrapMode: Text.WordWrap
                }
            }
        }
        Divider { width: parent.width }
    }

    ListView {
        id: list
        anchors.top: top.bottom
        anchors.bottom: parent.bottom
        width: parent.width
        clip: true
        spacing: 10
        topMargin: 12
        bottomMargin: 12
        leftMargin: 12
        rightMargin: 12
        model: view.main.activities
        visible: count > 0
        boundsBehavior: Flickable.StopAtBounds
        Basic.ScrollBar.vertical: Basic.ScrollBar { }
        delegate: ActivityCard {
            width: list.width - 24
        }
    }

    EmptyStateView {
        visible: list.count === 0
        anchors.top: top.bottom
        anchors.topMargin: 40 + 12
        x: 12
        width: parent.width - 24
        title: "No activity yet"
        systemImage: "camera.metering.unknown"
        description: "Monitoring will begin shortly"
    }
}
