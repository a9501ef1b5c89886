import QtQuick
import OstaVell.Support
import OstaVell.Workspace
import OstaVell.Automations

// The left wing while a workflow runs: whether it waits for a person. Pressing it puts the
// run's workflow on this display's stage and opens the panel there.
Item {
    id: root
    property QtObject controller: null

    readonly property var run: AutomationStore.activeRun
    readonly property var step: (root.run.steps ?? []).length > 0 ? root.run.steps[root.run.steps.length - 1] : null
    readonly property bool waiting: root.run.phase === "waitingReview" || (root.step !== null && root.step.phase === "waitingReview")

    implicitWidth: row.implicitWidth + 16
    implicitHeight: 22
    Accessible.role: Accessible.Button
    Accessible.name: root.waiting ? "Needs review" : "Running"
    Accessible.description: "Show automation progress"

    Row {
        id: row
        x: 8
        anchors.verticalCenter: parent.verticalCenter
        spacing: 5
        SymbolIcon {
            anchors.verticalCenter: parent.verticalCenter
            name: "point.3.connected.trianglepath.dotted"
            size: 11
            color: root.waiting ? "#64B5FF" : (root.controller ? root.controller.accentColor : "#C7EB87")
        }
        Text {
            objectName: "automationState"
            textFormat: Text.PlainText
            anchors.verticalCenter: parent.verticalCenter
            text: root.waiting ? "Needs review" : "Running"
            color: Qt.rgba(1, 1, 1, 0.92)
            font.pixelSize: 11
            font.weight: Font.Medium
        }
    }
    TapHandler {
        onTapped: {
            if (!root.controller || root.run.workflowID === undefined)
                return
            const choice = "workflow:" + root.run.workflowID
            ModuleStageStore.show(choice, root.controller.appearanceID, true)
            ModuleStageStore.choose(choice, root.controller.appearanceID)
            root.controller.tab = "Vell"
            root.controller.expand(true)
        }
    }
}
