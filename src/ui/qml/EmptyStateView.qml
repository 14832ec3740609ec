import QtQuick
import Tamlo.Ui

// An icon, a title and a line of explanation, centred.
Column {
    id: empty
    property string title
    property string systemImage
    property string description

    spacing: 10

    SymbolIcon {
        name: empty.systemImage
        size: 28
        anchors.horizontalCenter: parent.horizontalCenter
    }
    StyledText {
        text: empty.title
        textStyle: "subheadline"
        font.weight: Font.DemiBold
        anchors.horizontalCenter: parent.horizontalCenter
    }
    StyledText {
        text: empty.description
        textStyle: "caption"
        color: TamloTheme.secondary
        width: parent.width
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.WordWrap
    }
}
