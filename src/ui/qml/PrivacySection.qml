import QtQuick
import QtQuick.Controls.Basic as Basic
import Tamlo.Ui

// What is never captured; on a desktop that cannot tell, why not, and the timed pause instead.
SurfaceCard {
    id: card
    required property PrivacySettingsModel privacy

    Column {
        width: parent.width
        spacing: 2
        StyledText {
            text: "Privacy"
            textStyle: "subheadline"
            font.weight: Font.DemiBold
        }
        StyledText {
            visible: card.privacy.canApply
            width: parent.width
            text: "While a window of these applications, or with one of these words in its title, is on screen, Tamlo takes no screenshot and records \"Private\"."
            textStyle: "caption2"
            color: TamloTheme.secondary
            wrapMode: Text.WordWrap
        }
    }

    Rectangle {
        visible: !card.privacy.canApply
        width: parent.width
        height: cannotColumn.implicitHeight + 16
        radius: 6
        color: TamloTheme.withOpacity(TamloTheme.orange, 0.1)
        Column {
            id: cannotColumn
            x: 8
            y: 8
            width: parent.width - 16
            spacing: 6
            StyledText {
                width: parent.width
                text: card.privacy.explanation
                textStyle: "caption2"
                wrapMode: Text.WordWrap
            }
            Repeater {
                model: card.privacy.pauseChoices
                LinkButton {
                    required property int index
                    required property string modelData
                    symbol: "timer.circle.fill"
                    text: modelData
                    onClicked: card.privacy.pause(index)
                }
            }
        }
    }

    Repeater {
        model: card.privacy.canApply ? [
            { label: "Applications", key: "applications", help: "Application ids, comma-separated: the X11 class, the Wayland app_id or the .desktop name." },
            { label: "Words in window titles", key: "titleWords", help: "Comma-separated. Matched in any case." }
        ] : []
        Column {
            required property var modelData
            width: card.width - 2 * card.padding
            spacing: 4
            StyledText {
                text: modelData.label
                textStyle: "caption2"
                font.weight: Font.DemiBold
            }
            Basic.TextArea {
                width: parent.width
                font.pixelSize: Theme.captionSize
                color: TamloTheme.primaryText
                wrapMode: TextEdit.Wrap
                selectByMouse: true
                padding: 6
                text: card.privacy[modelData.key]
                onTextChanged: if (activeFocus) card.privacy[modelData.key] = text
                Accessible.name: modelData.label
                background: Rectangle {
                    radius: 6
                    color: TamloTheme.surfaceField
                    border.width: 1
                    border.color: TamloTheme.withOpacity(TamloTheme.brandBtnBorder, 0.35)
                }
            }
            StyledText {
                width: parent.width
                text: modelData.help
                font.pixelSize: 9
                color: TamloTheme.secondary
                wrapMode: Text.WordWrap
            }
        }
    }

    LinkButton {
        visible: card.privacy.canApply
        text: "Restore defaults"
        onClicked: card.privacy.restoreDefaults()
    }
}
