import QtQuick
import OstaVell.Support
import OstaVell.Plugins
import OstaVell.Lightweight
import OstaVell.Workspace

// The stage: the one chosen thing of this display. A plugin's cards, a module's page, a built-in
// view or a pinned workflow's run, each as its owner draws it; a built-in whose feature isn't
// there shows its empty state. Runs that wait for a person lie over whatever is chosen.
Rectangle {
    id: stage
    required property QtObject controller
    // A choice as the store describes it; empty for none.
    property var choice: ({})
    property color accent: "#C7EB87"

    readonly property string displayID: stage.controller ? stage.controller.appearanceID : ""
    readonly property string kind: stage.choice.nativeID !== undefined ? "native"
                                   : stage.choice.localID !== undefined ? "local"
                                   : stage.choice.builtin !== undefined ? "builtin"
                                   : stage.choice.workflow !== undefined ? "workflow" : ""
    // What a feature offers for this choice, if anything.
    readonly property url offered: stage.kind === "builtin" ? ShellContributions.stageView(stage.choice.id)
                                   : stage.kind === "workflow" ? ShellContributions.stageView("workflow") : ""

    radius: 16
    color: Qt.rgba(1, 1, 1, 0.06)
    border.color: Qt.rgba(1, 1, 1, 0.1)
    clip: true

    // A plugin's cards; the plugin hears that it is on screen here while it wants frames.
    Component {
        id: pluginStage
        Flickable {
            id: scroller
            objectName: "pluginStage"
            readonly property var plugin: NativePluginStore.plugins.find(p => p.id === stage.choice.nativeID) ?? ({})
            readonly property string presented: cards.wantsMedia ? stage.choice.nativeID : ""
            property string told: ""
            function tell() {
                if (scroller.told === scroller.presented)
                    return
                if (scroller.told.length > 0)
                    NativePluginStore.setPresented(scroller.told, stage.displayID, false)
                scroller.told = scroller.presented
                if (scroller.told.length > 0)
                    NativePluginStore.setPresented(scroller.told, stage.displayID, true)
            }
            onPresentedChanged: tell()
            Component.onCompleted: tell()
            Component.onDestruction: if (scroller.told.length > 0) NativePluginStore.setPresented(scroller.told, stage.displayID, false)
            contentHeight: column.implicitHeight + 28
            boundsBehavior: Flickable.StopAtBounds
            clip: true
            Column {
                id: column
                x: 14
                y: 14
                width: scroller.width - 28
                spacing: 12
                // The runs it calls or provides, under way now.
                PluginRunsView {
                    width: parent.width
                    pluginID: stage.choice.nativeID
                    reviews: false
                    accent: stage.accent
                }
                NativePluginCards {
                    id: cards
                    width: parent.width
                    plugin: scroller.plugin
                    accent: stage.accent
                }
            }
        }
    }

    // A module's page.
    Component {
        id: moduleStage
        Flickable {
            id: scroller
            readonly property var module: ModuleStore.modules.find(m => m.id === stage.choice.localID) ?? null
            contentHeight: page.implicitHeight + 28
            boundsBehavior: Flickable.StopAtBounds
            clip: true
            ModuleCardView {
                id: page
                x: 14
                y: 14
                width: scroller.width - 28
                visible: scroller.module !== null
                objectName: "moduleCard"
                module: scroller.module ?? ({ id: "" })
                expanded: true
            }
        }
    }

    Loader {
        id: content
        anchors.fill: parent
        sourceComponent: stage.kind === "native" ? pluginStage : stage.kind === "local" ? moduleStage : null
        active: sourceComponent !== null
    }
    Loader {
        id: offeredView
        anchors.fill: parent
        active: stage.offered.toString().length > 0
        function load() {
            if (active)
                setSource(stage.offered, { controller: stage.controller, workflowID: stage.choice.workflow ?? "" })
        }
        onActiveChanged: load()
        Component.onCompleted: load()
        Connections {
            target: stage
            function onOfferedChanged() { offeredView.load() }
            function onChoiceChanged() { if (offeredView.item && offeredView.item.workflowID !== undefined) offeredView.item.workflowID = stage.choice.workflow ?? "" }
        }
    }
    WorkspaceEmptyView {
        anchors.fill: parent
        visible: !content.active && !offeredView.active
        builtin: stage.choice.builtin ?? ""
        accent: stage.accent
    }

    // Runs that wait for a person: they have a deadline, so they come before anything chosen.
    Rectangle {
        anchors.fill: parent
        visible: NativePluginStore.reviews.some(reviews.listed)
        color: Qt.rgba(0.07, 0.07, 0.08, 0.92)
        radius: stage.radius
        Flickable {
            anchors.fill: parent
            anchors.margins: 14
            contentHeight: reviews.implicitHeight
            boundsBehavior: Flickable.StopAtBounds
            clip: true
            PluginRunsView {
                id: reviews
                objectName: "reviews"
                width: parent.width
                runs: false
                formsShownFor: stage.choice.nativeID ?? ""
                accent: stage.accent
            }
        }
    }
}
