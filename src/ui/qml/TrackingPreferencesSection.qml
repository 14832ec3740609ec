import QtQuick
import QtQuick.Controls.Basic as Basic
import Tamlo.Ui

// The user's projects and categories; every edit is stored at once.
Column {
    id: section
    required property TrackingPreferencesModel preferences

    spacing: preferences.compact ? 8 : 10

    Column {
        width: parent.width
        spacing: 2
        StyledText {
            text: "Activity context"
            textStyle: section.preferences.compact ? "caption" : "subheadline"
            font.weight: Font.DemiBold
        }
        StyledText {
            width: parent.width
            text: "Activities are labeled only with your categories and projects, or \"Other\"."
            textStyle: "caption2"
            color: TamloTheme.secondary
            wrapMode: Text.WordWrap
        }
    }

    Column {
        width: parent.width
        spacing: 4
        StyledText {
            text: "Projects"
            textStyle: "caption2"
            font.weight: Font.DemiBold
        }
        Basic.TextField {
            width: parent.width
            font.pixelSize: Theme.captionSize
            placeholderText: "Acme project"
            placeholderTextColor: TamloTheme.tertiary
            color: TamloTheme.primaryText
            selectByMouse: true
            leftPadding: 6
            rightPadding: 6
            topPadding: 4
            bottomPadding: 4
            text: section.preferences.projects
            onTextEdited: section.preferences.projects = text
            background: Rectangle {
                radius: 5
                color: TamloTheme.surfaceField
                border.width: 1
                border.color: TamloTheme.withOpacity(TamloTheme.brandBtnBorder, 0.35)
            }
        }
        StyledText {
            width: parent.width
            text: "Comma-separated project names. Unmatched work is labeled Other."
            font.pixelSize: 9
            color: TamloTheme.secondary
            wrapMode: Text.WordWrap
        }
    }

    Column {
        width: parent.width
        spacing: 4
        StyledText {
            text: "Categorize by"
            textStyle: "caption2"
            font.weight: Font.DemiBold
        }
        Basic.TextArea {
            id: categories
            width: parent.width
            height: Math.max(section.preferences.compact ? 44 : 52, implicitHeight)
            font.pixelSize: Theme.captionSize
            color: TamloTheme.primaryText
            wrapMode: TextEdit.Wrap
            selectByMouse: true
            padding: 6
            text: section.preferences.categorizeBy
            onTextChanged: if (activeFocus) section.preferences.categorizeBy = text
            background: Rectangle {
                radius: 6
                color: TamloTheme.surfaceField
                border.width: 1
                border.color: TamloTheme.withOpacity(TamloTheme.brandBtnBorder, 0.35)
            }
        }
        StyledText {
            width: parent.width
            text: "Comma-separated categories. The AI must pick one of these or Other."
            font.pixelSize: 9
            color: TamloTheme.secondary
            wrapMode: Text.WordWrap
        }
    }

    StyledText {
        visible: text.length > 0
        width: parent.width
        text: section.preferences.labelLimitText
        font.pixelSize: 9
        color: TamloTheme.secondary
        wrapMode: Text.WordWrap
    }
}
