import QtQuick
import OstaVell.Support
import OstaVell.Plugins
import OstaVell.Lightweight
import OstaVell.Workspace

// One display's workspace in the open panel: the rail of what stands on this display beside
// the 16:9 stage with the one thing chosen, and the status strip below them. The stage keeps
// its ratio with the rail collapsed; the open rail lies over the stage's edge.
Item {
    id: root
    required property QtObject controller

    readonly property string displayID: root.controller ? root.controller.appearanceID : ""
    readonly property color accent: root.controller && root.controller.accentColor !== undefined
                                    ? root.controller.accentColor : "#C7EB87"
    // Asked again on every change of the tables or of what is installed.
    readonly property var choices: ModuleStageStore.revision >= 0 ? ModuleStageStore.choicesFor(root.displayID) : []
    readonly property var active: ModuleStageStore.revision >= 0 ? ModuleStageStore.activeFor(root.displayID) : ({})
    readonly property string status: ModuleStageStore.revision >= 0 && ModuleStore.modules
                                     ? ModuleStageStore.statusLine(root.displayID) : ""
    readonly property bool railOnRight: SettingsStore.modulePickerSide === "right"

    // A display that has never chosen gets the first thing there is.
    onChoicesChanged: Qt.callLater(root.reconcile)
    function reconcile() {
        if (root.displayID.length > 0)
            ModuleStageStore.reconcileDisplay(root.displayID)
    }

    WorkspaceRail {
        id: rail
        z: 2
        height: parent.height - strip.height
        x: root.railOnRight ? parent.width - width : 0
        onRight: root.railOnRight
        displayID: root.displayID
        choices: root.choices
        activeID: root.active.id ?? ""
        accent: root.accent
    }

    WorkspaceStage {
        id: stage
        x: root.railOnRight ? 0 : rail.collapsedWidth + 12
        width: parent.width - rail.collapsedWidth - 12
        height: parent.height - strip.height
        controller: root.controller
        choice: root.active
        accent: root.accent
    }

    // The status strip: the chosen module's activity or what to do, and the way to arrange.
    Item {
        id: strip
        anchors.bottom: parent.bottom
        width: parent.width
        height: 30
        Text {
            objectName: "status"
            textFormat: Text.PlainText
            anchors.verticalCenter: parent.verticalCenter
            x: stage.x + 4
            width: parent.width - x - customize.width - 8
            text: root.status
            elide: Text.ElideRight
            color: Qt.rgba(1, 1, 1, 0.55)
            font.pixelSize: 11
            Accessible.name: "Module status: " + root.status
        }
        PillButton {
            id: customize
            objectName: "customize"
            anchors.right: parent.right
            anchors.verticalCenter: parent.verticalCenter
            implicitHeight: 24
            label: "Customize"
            symbol: "slider.horizontal.3"
            accent: root.accent
            onClicked: WorkspaceWindows.openEditor(root.controller)
        }
    }
}
