import QtQuick
import QtQuick.Controls.Basic as Basic
import Tamlo.Ui

// Time away from the desk, and unchanged screens that are not analysed again.
SurfaceCard {
    id: card
    required property PresenceSettingsModel model

    onVisibleChanged: if (visible) model.appear()

    Item {
        width: parent.width
        implicitHeight: Math.max(awayTexts.implicitHeight, awayToggle.implicitHeight)
        Column {
            id: awayTexts
            width: parent.width - awayToggle.width - 10
            spacing: 2
            StyledText {
                text: "Detect time away"
                textStyle: "subheadline"
                font.weight: Font.DemiBold
            }
            StyledText {
                width: parent.width
                text: card.model.awayText
                textStyle: "caption2"
                color: TamloTheme.secondary
                wrapMode: Text.WordWrap
            }
        }
        Toggle {
            id: awayToggle
            anchors.right: parent.right
            anchors.verticalCenter: parent.verticalCenter
            checked: card.model.detectAway
            onToggled: card.model.detectAway = checked
            Accessible.name: "Detect time away"
        }
    }

    Row {
        visible: card.model.detectAway
        spacing: 8
        StyledText {
            text: "Away after"
            textStyle: "caption"
            anchors.verticalCenter: parent.verticalCenter
        }
        Basic.SpinBox {
            id: minutes
            width: 84
            height: 24
            leftPadding: 22
            rightPadding: 22
            from: card.model.minimumMinutes
            to: card.model.maximumMinutes
            value: card.model.awayMinutes
            editable: true
            font.pixelSize: Theme.captionSize
            onValueModified: card.model.awayMinutes = value
            Accessible.name: "Minutes without input before away"
            contentItem: TextInput {
                text: minutes.displayText
                font: minutes.font
                color: TamloTheme.primaryText
                horizontalAlignment: Qt.AlignHCenter
                verticalAlignment: Qt.AlignVCenter
                readOnly: !minutes.editable
                validator: minutes.validator
                inputMethodHints: Qt.ImhDigitsOnly
            }
            down.indicator: StyledText {
                x: 0
                width: 22
                height: minutes.height
                text: "−"
                textStyle: "subheadline"
                horizontalAlignment: Text.AlignHCenter
                verticalAlignment: Text.AlignVCenter
                color: minutes.value > minutes.from ? TamloTheme.primaryText : TamloTheme.secondary
            }
            up.indicator: StyledText {
                x: minutes.width - width
                width: 22
                height: minutes.height
                text: "+"
                textStyle: "subheadline"
                horizontalAlignment: Text.AlignHCenter
                verticalAlignment: Text.AlignVCenter
                color: minutes.value < minutes.to ? TamloTheme.primaryText : TamloTheme.secondary
            }
            background: Rectangle {
                radius: 5
                color: TamloTheme.surfaceField
                border.width: 1
                border.color: TamloTheme.withOpacity(TamloTheme.brandBtnBorder, 0.25)
            }
        }
        StyledText {
            text: "minutes"
            textStyle: "caption"
            anchors.verticalCenter: parent.verticalCenter
        }
    }

    Item {
        width: parent.width
        implicitHeight: Math.max(skipTexts.implicitHeight, skipToggle.implicitHeight)
        Column {
            id: skipTexts
            width: parent.width - skipToggle.width - 10
            spacing: 2
            StyledText {
                text: "Skip unchanged screens"
                textStyle: "subheadline"
                font.weight: Font.DemiBold
            }
            StyledText {
                width: parent.width
                text: "A screen that has not changed keeps the last analysis for up to 10 minutes, without asking the model again."
                textStyle: "caption2"
                color: TamloTheme.secondary
                wrapMode: Text.WordWrap
            }
        }
        Toggle {
            id: skipToggle
            anchors.right: parent.right
            anchors.verticalCenter: parent.verticalCenter
            checked: card.model.skipUnchangedScreens
            onToggled: card.model.skipUnchangedScreens = checked
            Accessible.name: "Skip unchanged screens"
        }
    }
}
