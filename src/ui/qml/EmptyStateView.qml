import QtQuick

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
        textStyle: StyledText.Style.Subheadline
        font.weight: Font.DemiBold
        anchors.horizontalCenter: parent.horizontalCenter
    }
    StyledText {
        text: empty.description
        textStyle: StyledText.Style.Caption
        color: TamloTheme.secondary
        width: parent.width
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.WordWrap
    }
}
