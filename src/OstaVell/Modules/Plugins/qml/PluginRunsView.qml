import QtQuick
import OstaVell.Plugins

// Runs between plugins that concern a person: those that wait for a review, with their cards,
// and those under way with the steps their provider reports. With a plugin named, only the runs
// it calls or provides.
Column {
    id: root
    property string pluginID: ""
    property bool reviews: true
    property bool runs: true
    // The plugin whose page is on screen beside this list: its forms review their own runs.
    property string formsShownFor: ""
    function listed(review) {
        return root.concerns(review) && !(review.form && review.caller === root.formsShownFor)
    }
    property color accent: "#C7EB87"

    function concerns(run) {
        return root.pluginID.length === 0 || run.caller === root.pluginID || run.provider === root.pluginID
    }

    spacing: 12

    Repeater {
        model: root.reviews ? NativePluginStore.reviews.filter(root.listed) : []
        delegate: ActionReviewCard {
            required property var modelData
            width: root.width
            review: modelData
            accent: root.accent
        }
    }

    // Runs under way between plugins, with the steps a provider reports.
    Repeater {
        model: root.runs ? NativePluginStore.activeRuns.filter(root.concerns) : []
        delegate: Rectangle {
            required property var modelData
            readonly property var display: modelData.display ?? null
            readonly property real fraction: display && display.totalSteps > 0
                                             ? display.completedSteps / display.totalSteps
                                             : (modelData.progress ?? -1) / 100
            width: root.width
            height: runText.implicitHeight + 20
            radius: 12
            color: Qt.rgba(1, 1, 1, 0.06)
            Column {
                id: runText
                x: 12; y: 10
                width: parent.width - 24
                spacing: 4
                Text {
                    width: parent.width
                    textFormat: Text.PlainText
                    elide: Text.ElideRight
                    text: modelData.callerName + " \u2192 " + modelData.providerName + " \u00b7 "
                          + (display ? display.title : modelData.title)
                    color: Qt.rgba(1, 1, 1, 0.9)
                    font.pixelSize: 12
                }
                Text {
                    width: parent.width
                    visible: text.length > 0
                    textFormat: Text.PlainText
                    elide: Text.ElideRight
                    text: display && display.step.length > 0
                          ? display.step + (display.totalSteps > 0
                                            ? " (" + display.completedSteps + "/" + display.totalSteps + ")" : "")
                          : modelData.message
                    color: Qt.rgba(1, 1, 1, 0.6)
                    font.pixelSize: 11
                }
                Rectangle {
                    visible: fraction >= 0
                    width: parent.width
                    height: 3
                    radius: 1.5
                    color: Qt.rgba(1, 1, 1, 0.12)
                    Rectangle {
                        width: parent.width * Math.max(0, Math.min(1, fraction))
                        height: parent.height
                        radius: parent.radius
                        color: root.accent
                    }
                }
            }
        }
    }

}
