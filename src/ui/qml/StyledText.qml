import QtQuick

// Text in one of the theme's styles.
Text {
    enum Style { Title2, Headline, Subheadline, Caption, Caption2 }
    property int textStyle: StyledText.Style.Caption

    color: TamloTheme.primaryText
    font.pixelSize: {
        switch (textStyle) {
        case StyledText.Style.Title2: return Theme.title2Size
        case StyledText.Style.Headline: return Theme.headlineSize
        case StyledText.Style.Subheadline: return Theme.subheadlineSize
        case StyledText.Style.Caption2: return Theme.caption2Size
        default: return Theme.captionSize
        }
    }
    font.weight: {
        switch (textStyle) {
        case StyledText.Style.Title2: return Font.Bold
        case StyledText.Style.Headline: return Font.DemiBold
        default: return Font.Normal
        }
    }
    renderType: Text.QtRendering
}
