pragma Singleton
import QtQuick
import Tamlo.Ui

// Typography, metrics and the icon set: one place for each.
QtObject {
    readonly property string iconFamily: "Material Icons"

    readonly property int title2Size: 17
    readonly property int headlineSize: 13
    readonly property int subheadlineSize: 11
    readonly property int captionSize: 10
    readonly property int caption2Size: 10

    readonly property int panelWidth: 320
    readonly property int panelHeight: 600

    // The screens name their icons with the system symbol names; each maps to a glyph of the
    // Material Icons font.
    readonly property var symbols: ({
        "info.circle": "\ue88f",
        "power": "\ue8ac",
        "pause.fill": "\ue034",
        "play.fill": "\ue037",
        "checkmark.circle.fill": "\ue86c",
        "checkmark": "\ue5ca",
        "exclamationmark.triangle.fill": "\ue002",
        "exclamationmark.circle.fill": "\ue000",
        "chart.bar": "\ue26b",
        "list.bullet": "\ue241",
        "gear": "\ue8b8",
        "gearshape": "\ue8b8",
        "arrow.down.doc.fill": "\ue2c4",
        "chart.bar.doc.horizontal": "\ue85c",
        "note.text": "\ue26c",
        "camera.metering.unknown": "\ue3b5",
        "sparkles": "\ue65f",
        "book": "\uea19",
        "brain": "\uea4a",
        "doc.on.doc": "\ue14d",
        "circle.dashed": "\ueff2",
        "circle": "\ue836",
        "largecircle.fill.circle": "\ue837",
        "desktopcomputer": "\ue30c",
        "folder": "\ue2c7",
        "cpu": "\ue322",
        "lock.shield": "\ue32a",
        "timer.circle.fill": "\ue425",
        "safari": "\ue87a",
        "xmark.circle.fill": "\ue5c9",
        "chevron.down": "\ue5cf"
    })

    function fontSize(textStyle) {
        switch (textStyle) {
        case "title2": return title2Size
        case "headline": return headlineSize
        case "subheadline": return subheadlineSize
        case "caption2": return caption2Size
        default: return captionSize
        }
    }

    function fontWeight(textStyle) {
        switch (textStyle) {
        case "title2": return Font.Bold
        case "headline": return Font.DemiBold
        default: return Font.Normal
        }
    }

    function icon(name) {
        const glyph = symbols[name]
        if (glyph === undefined) {
            console.warn("No glyph for symbol", name)
            return ""
        }
        return glyph
    }
}
