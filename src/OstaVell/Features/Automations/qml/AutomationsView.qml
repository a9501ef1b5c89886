import QtQuick
import QtQuick.Dialogs
import OstaVell.Support
import OstaVell.Plugins
import OstaVell.Automations

// The Automations tab of an open panel: the library on the left with run, simulate, arm, export
// and delete; on the right the run under way step by step (or the last one), the checkpoint or
// the action that waits for a person, and the last notice; the store's line at the bottom.
// Every text of a workflow or a plugin is drawn as plain text.
Item {
    id: root
    required property QtObject controller
    // On a workspace stage, one pinned workflow: its entry and its runs alone.
    property string workflowID: ""
    readonly property var library: root.workflowID.length > 0
                                   ? AutomationStore.documents.filter(d => d.id === root.workflowID)
                                   : AutomationStore.documents

    readonly property color accent: root.controller && root.controller.accentColor !== undefined
                                    ? root.controller.accentColor : "#C7EB87"
    readonly property var run: {
        const mine = r => root.workflowID.length === 0 || r.workflowID === root.workflowID
        if (AutomationStore.activeRun.id !== undefined && mine(AutomationStore.activeRun))
            return AutomationStore.activeRun
        return AutomationStore.history.find(mine) ?? null
    }
    readonly property var review: {
        const id = AutomationStore.actionReview.id
        return id === undefined ? null : (NativePluginStore.reviews.find(r => r.id === id) ?? null)
    }
    // The sentence of the last refused operation; the store's own line otherwise.
    property string failure: ""

    function phaseColor(phase) {
        switch (phase) {
        case "completed": case "simulated": return root.accent
        case "failed": case "interrupted": return "#FF6B5E"
        case "cancelled": case "cancelling": return "#FFB340"
        case "waitingReview": return "#64B5FF"
        default: return Qt.rgba(1, 1, 1, 0.7)
        }
    }

    // The file dialogs exist only while one is open: every panel holds this view, and a dialog
    // is a whole window of its own.
    Component {
        id: importDialog
        FileDialog {
            title: "Import Workflow"
            currentFolder: AutomationStore.homeFolder
            nameFilters: ["Workflow (*.json)"]
            onAccepted: root.failure = AutomationStore.importWorkflow(selectedFile)
        }
    }
    Component {
        id: exportDialog
        FileDialog {
            property string workflow
            property bool script: false
            title: script ? "Export as Shell Script" : "Export Workflow"
            currentFolder: AutomationStore.homeFolder
            fileMode: FileDialog.SaveFile
            nameFilters: script ? ["Shell script (*.sh)"] : ["Workflow (*.json)"]
            onAccepted: root.failure = script ? AutomationStore.exportScript(workflow, selectedFile)
                                              : AutomationStore.exportWorkflow(workflow, selectedFile)
        }
    }
    function openDialog(component, properties) {
        const dialog = component.createObject(root, properties)
        dialog.accepted.connect(() => dialog.destroy())
        dialog.rejected.connect(() => dialog.destroy())
        dialog.open()
    }

    // The library.
    Item {
        id: library
        x: 16
        y: 8
        width: Math.round(parent.width * 0.48)
        height: parent.height - messageLine.height - 16

        Row {
            id: libraryHeader
            width: parent.width
            height: 28
            Text {
                textFormat: Text.PlainText
                width: parent.width - importButton.width
                anchors.verticalCenter: parent.verticalCenter
                text: "Workflows"
                color: Qt.rgba(1, 1, 1, 0.95)
                font.pixelSize: 14
                font.weight: Font.DemiBold
            }
            PillButton {
                id: importButton
                objectName: "import"
                label: "Import\u2026"
                symbol: "square.and.arrow.down"
                onClicked: root.openDialog(importDialog, {})
            }
        }

        Text {
            textFormat: Text.PlainText
            visible: root.library.length === 0
            anchors.top: libraryHeader.bottom
            anchors.topMargin: 16
            width: parent.width
            text: "No workflows yet. Import one to run it here."
            wrapMode: Text.Wrap
            color: Qt.rgba(1, 1, 1, 0.55)
            font.pixelSize: 12
        }

        ListView {
            id: documents
            anchors.top: libraryHeader.bottom
            anchors.topMargin: 8
            width: parent.width
            height: parent.height - libraryHeader.height - 8
            clip: true
            spacing: 6
            model: root.library
            boundsBehavior: Flickable.StopAtBounds
            delegate: Rectangle {
                id: entry
                required property var modelData
                objectName: "workflow:" + entry.modelData.title
                width: documents.width
                height: 62
                radius: 12
                color: Qt.rgba(1, 1, 1, 0.06)
                border.color: entry.modelData.armed ? Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.5)
                                                    : Qt.rgba(1, 1, 1, 0.06)
                Text {
                    textFormat: Text.PlainText
                    x: 12
                    y: 8
                    width: parent.width - 24
                    text: entry.modelData.title
                    elide: Text.ElideRight
                    color: Qt.rgba(1, 1, 1, 0.92)
                    font.pixelSize: 13
                    font.weight: Font.DemiBold
                }
                Row {
                    x: 12
                    y: 30
                    spacing: 4
                    readonly property bool event: entry.modelData.start === "event"
                    PillButton {
                        objectName: "run"
                        visible: !parent.event
                        enabled: !AutomationStore.busy
                        label: "Run"
                        symbol: "play.fill"
                        implicitHeight: 24
                        onClicked: { root.failure = ""; AutomationStore.runWorkflow(entry.modelData.id, false) }
                    }
                    PillButton {
                        objectName: "arm"
                        visible: parent.event
                        active: entry.modelData.armed
                        accent: root.accent
                        label: entry.modelData.armed ? "Armed" : "Arm"
                        symbol: "bolt.fill"
                        implicitHeight: 24
                        onClicked: root.failure = AutomationStore.arm(entry.modelData.id, !entry.modelData.armed)
                    }
                    PillButton {
                        objectName: "simulate"
                        enabled: !AutomationStore.busy
                        label: "Simulate"
                        implicitHeight: 24
                        onClicked: { root.failure = ""; AutomationStore.runWorkflow(entry.modelData.id, true) }
                    }
                    PillButton {
                        objectName: "export"
                        label: "Export\u2026"
                        implicitHeight: 24
                        onClicked: root.openDialog(exportDialog, { workflow: entry.modelData.id, script: false })
                    }
                    PillButton {
                        objectName: "exportScript"
                        label: "Script\u2026"
                        implicitHeight: 24
                        onClicked: root.openDialog(exportDialog, { workflow: entry.modelData.id, script: true })
                    }
                    PillButton {
                        objectName: "delete"
                        symbol: "trash"
                        implicitHeight: 24
                        implicitWidth: 32
                        onClicked: root.failure = AutomationStore.removeWorkflow(entry.modelData.id)
                    }
                }
            }
        }
    }

    // The run.
    Flickable {
        id: runArea
        x: library.x + library.width + 16
        y: 8
        width: parent.width - x - 16
        height: parent.height - messageLine.height - 16
        contentHeight: runColumn.implicitHeight
        clip: true
        boundsBehavior: Flickable.StopAtBounds

        Column {
            id: runColumn
            width: runArea.width
            spacing: 8

            Rectangle {
                objectName: "notice"
                visible: AutomationStore.notice.length > 0
                width: parent.width
                height: noticeText.implicitHeight + 20
                radius: 12
                color: Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.14)
                Text {
                    id: noticeText
                    textFormat: Text.PlainText
                    x: 12
                    y: 10
                    width: parent.width - 52
                    text: AutomationStore.notice
                    wrapMode: Text.Wrap
                    maximumLineCount: 4
                    elide: Text.ElideRight
                    color: Qt.rgba(1, 1, 1, 0.92)
                    font.pixelSize: 12
                }
                PillButton {
                    objectName: "dismissNotice"
                    anchors.right: parent.right
                    anchors.rightMargin: 8
                    anchors.verticalCenter: parent.verticalCenter
                    symbol: "xmark"
                    implicitHeight: 24
                    implicitWidth: 28
                    onClicked: AutomationStore.dismissNotice()
                }
            }

            Text {
                textFormat: Text.PlainText
                visible: root.run === null
                width: parent.width
                text: "Runs appear here, step by step."
                color: Qt.rgba(1, 1, 1, 0.55)
                font.pixelSize: 12
            }

            Row {
                visible: root.run !== null
                width: parent.width
                height: 28
                Text {
                    id: status
                    objectName: "status"
                    textFormat: Text.PlainText
                    width: parent.width - (stopButton.visible ? stopButton.width : 0)
                    anchors.verticalCenter: parent.verticalCenter
                    text: root.run ? root.run.statusText : ""
                    elide: Text.ElideRight
                    color: Qt.rgba(1, 1, 1, 0.95)
                    font.pixelSize: 13
                    font.weight: Font.DemiBold
                }
                PillButton {
                    id: stopButton
                    objectName: "stop"
                    visible: AutomationStore.busy
                    label: "Stop"
                    symbol: "stop.fill"
                    onClicked: AutomationStore.cancel()
                }
            }

            Repeater {
                model: root.run ? root.run.steps : []
                delegate: Item {
                    id: stepRow
                    required property var modelData
                    width: runColumn.width
                    height: stepTitle.implicitHeight + (stepDetail.visible ? stepDetail.implicitHeight + 2 : 0)
                            + (progress.visible ? 8 : 0) + 4
                    Rectangle {
                        y: 5
                        width: 8
                        height: 8
                        radius: 4
                        color: root.phaseColor(stepRow.modelData.phase)
                    }
                    Text {
                        id: stepTitle
                        textFormat: Text.PlainText
                        x: 16
                        width: parent.width - 16 - phaseLabel.implicitWidth - 8
                        text: stepRow.modelData.title
                        elide: Text.ElideRight
                        color: Qt.rgba(1, 1, 1, 0.88)
                        font.pixelSize: 12
                    }
                    Text {
                        id: phaseLabel
                        textFormat: Text.PlainText
                        anchors.right: parent.right
                        text: stepRow.modelData.phase
                        color: root.phaseColor(stepRow.modelData.phase)
                        font.pixelSize: 11
                    }
                    Text {
                        id: stepDetail
                        textFormat: Text.PlainText
                        visible: text.length > 0
                        x: 16
                        anchors.top: stepTitle.bottom
                        anchors.topMargin: 2
                        width: parent.width - 16
                        text: stepRow.modelData.detail
                        wrapMode: Text.Wrap
                        maximumLineCount: 3
                        elide: Text.ElideRight
                        color: Qt.rgba(1, 1, 1, 0.55)
                        font.pixelSize: 11
                    }
                    Rectangle {
                        id: progress
                        visible: stepRow.modelData.progress !== undefined && stepRow.modelData.progress !== null
                        x: 16
                        anchors.bottom: parent.bottom
                        width: parent.width - 16
                        height: 3
                        radius: 1.5
                        color: Qt.rgba(1, 1, 1, 0.12)
                        Rectangle {
                            width: parent.width * (stepRow.modelData.progress ?? 0)
                            height: parent.height
                            radius: parent.radius
                            color: root.accent
                        }
                    }
                }
            }

            // A review step of the workflow: the person decides whether it goes on.
            Rectangle {
                objectName: "checkpoint"
                visible: AutomationStore.checkpoint.length > 0
                width: parent.width
                height: checkpointColumn.implicitHeight + 24
                radius: 12
                color: Qt.rgba(1, 1, 1, 0.085)
                border.color: Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.45)
                Column {
                    id: checkpointColumn
                    x: 12
                    y: 12
                    width: parent.width - 24
                    spacing: 8
                    Text {
                        textFormat: Text.PlainText
                        width: parent.width
                        text: AutomationStore.checkpoint
                        wrapMode: Text.Wrap
                        color: Qt.rgba(1, 1, 1, 0.95)
                        font.pixelSize: 13
                        font.weight: Font.DemiBold
                    }
                    Row {
                        spacing: 8
                        PillButton {
                            objectName: "cancelCheckpoint"
                            label: "Cancel"
                            onClicked: AutomationStore.cancel()
                        }
                        PillButton {
                            objectName: "continue"
                            label: "Continue"
                            active: true
                            accent: root.accent
                            onClicked: AutomationStore.continueCheckpoint()
                        }
                    }
                }
            }

            // The run's action waiting for a person, as every plugin's review looks.
            Loader {
                active: root.review !== null
                width: parent.width
                sourceComponent: ActionReviewCard {
                    review: root.review
                    accent: root.accent
                }
            }
        }
    }

    Text {
        id: messageLine
        objectName: "message"
        textFormat: Text.PlainText
        x: 16
        anchors.bottom: parent.bottom
        anchors.bottomMargin: 6
        width: parent.width - 32
        text: root.failure.length > 0 ? root.failure : AutomationStore.message
        elide: Text.ElideRight
        color: root.failure.length > 0 ? "#FF6B5E" : Qt.rgba(1, 1, 1, 0.6)
        font.pixelSize: 12
    }
}
