import QtQuick
import Tamlo.Ui

// Today's estimated active time.
Column {
    property string formattedDuration
    property string estimatedMinutesText

    spacing: 2
    StyledText {
        text: "Today active"
        textStyle: "caption2"
        font.weight: Font.DemiBold
        color: TamloTheme.secondary
    }
    StyledText {
        text: parent.formattedDuration
        font.pixelSize: 22
        font.weight: Font.Bold
        color: TamloTheme.brandDark
    }
    StyledText {
        text: parent.estimatedMinutesText
        font.pixelSize: 9
        color: TamloTheme.secondary
    }
}
