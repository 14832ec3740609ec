import QtQuick
import QtQuick.Controls.Basic as Basic
import Tamlo.Ui

// The Report tab: active time, the project ring and the category bars.
Basic.ScrollView {
    id: view
    required property ReportViewModel report

    contentWidth: availableWidth
    clip: true

    Column {
        x: 12
        y: 12
        width: view.availableWidth - 24
        spacing: 16

        SurfaceCard {
            width: parent.width
            ActiveTimeView {
                formattedDuration: view.report.formattedDuration
                estimatedMinutesText: view.report.estimatedMinutesText
            }
        }

        SurfaceCard {
            width: parent.width
            visible: view.report.showProjects
            StyledText {
                text: "Projects"
                textStyle: "caption"
                font.weight: Font.DemiBold
                color: TamloTheme.secondary
            }
            ProjectDonutChart {
                width: parent.width
                shares: view.report.projects
                lineWidth: 16
                size: 108
            }
        }

        SurfaceCard {
            width: parent.width
            visible: view.report.showCategories
            StyledText {
                text: "Categories"
                textStyle: "caption"
                font.weight: Font.DemiBold
                color: TamloTheme.secondary
            }
            Column {
                width: parent.width
                spacing: 8
                Repeater {
                    model: view.report.categories
                    delegate: PercentageBarRow {
                        required property var modelData
                        width: parent.width
                        label: modelData.name
                        percentText: modelData.percentText
                        fill: modelData.fill
                        barColor: modelData.color
                    }
                }
            }
        }

        Item {
            width: parent.width
            height: emptyState.implicitHeight + 48
            visible: view.report.showEmptyState
            EmptyStateView {
                id: emptyState
                y: 24
                width: parent.width
                title: "No report data yet"
                systemImage: "chart.bar"
                description: "Active time and charts appear after monitoring captures work."
            }
        }

        Item {
            width: 1
            height: 1
        }
    }
}
