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
    FigureText {
        objectName: "activeTime"
        text: parent.formattedDuration
        font: Qt.font({ pixelSize: 22, weight: Font.Bold })
        color: TamloTheme.brandDark
    }
    StyledText {
        text: parent.estimatedMinutesText
        font.pixelSize: 9
        color: TamloTheme.secondary
    }
}
