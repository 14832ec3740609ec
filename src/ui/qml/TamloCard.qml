import QtQuick
import Tamlo.Ui

// The card look: padding 10, rounded, white or lime when highlighted.
Rectangle {
    id: card
    default property alias content: inner.data
    property bool highlighted: false
    property int padding: 10
    property int spacing: 5

    implicitHeight: inner.implicitHeight + 2 * padding
    radius: 12
    color: TamloTheme.cardFill(highlighted)
    border.width: 1
    border.color: TamloTheme.cardOutline(highlighted)

    Column {
        id: inner
        x: card.padding
        y: card.padding
        width: card.width - 2 * card.padding
        spacing: card.spacing
    }
}
