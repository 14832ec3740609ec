import QtQuick
import Tamlo.Ui

// One recorded activity: chips, time, description and note.
TamloCard {
    id: card
    required property string categoryText
    required property color categoryColor
    required property bool showCategoryChip
    required property string projectText
    required property bool showProjectChip
    required property bool showNoteBadge
    required property string timeText
    required property string descriptionText
    required property string noteText

    highlighted: false
    spacing: 5

    Item {
        width: parent.width
        height: Math.max(chips.implicitHeight, time.implicitHeight)
        Row {
            id: chips
            spacing: 4
            width: parent.width - time.width - 6
            clip: true
            Badge {
                visible: card.showCategoryChip
                text: card.categoryText
                tint: card.categoryColor
            }
            Badge {
                visible: card.showProjectChip
                text: card.projectText
                tint: TamloTheme.indigo
            }
            Badge {
                visible: card.showNoteBadge
                text: "Note"
                symbol: "note.text"
                tint: TamloTheme.orange
            }
        }
        StyledText {
            id: time
            anchors.right: parent.right
            text: card.timeText
            textStyle: "caption2"
            color: TamloTheme.secondary
        }
    }
    StyledText {
        visible: card.descriptionText !== ""
        width: parent.width
        text: card.descriptionText
        textStyle: "caption"
        color: TamloTheme.brandText
        wrapMode: Text.Wrap
        maximumLineCount: 3
        elide: Text.ElideRight
    }
    StyledText {
        visible: card.noteText !== ""
        width: parent.width
        text: card.noteText
        textStyle: "caption2"
        color: TamloTheme.withOpacity(TamloTheme.brandText, 0.85)
        wrapMode: Text.Wrap
        maximumLineCount: 3
        elide: Text.ElideRight
    }
}
