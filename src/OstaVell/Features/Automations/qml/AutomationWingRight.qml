import QtQuick
import OstaVell.Automations

// The right wing while a workflow runs: the step under way, or the workflow's name before the
// first step.
Item {
    id: root
    property QtObject controller: null

    readonly property var run: AutomationStore.activeRun
    readonly property var steps: root.run.steps ?? []
    readonly property string line: root.steps.length > 0 ? root.steps[root.steps.length - 1].title : (root.run.title ?? "")

    implicitWidth: Math.min(label.implicitWidth, 220) + 16
    implicitHeight: label.implicitHeight
    Text {
        id: label
        objectName: "automationStep"
        textFormat: Text.PlainText
        x: 8
        width: Math.min(implicitWidth, 220)
        anchors.verticalCenter: parent.verticalCenter
        text: root.line
        elide: Text.ElideRight
        color: Qt.rgba(1, 1, 1, 0.8)
        font.pixelSize: 10
        font.weight: Font.Medium
    }
}
