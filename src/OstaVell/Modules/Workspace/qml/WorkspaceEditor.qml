import QtQuick
import QtQuick.Window
import OstaVell.Support
import OstaVell.Plugins
import OstaVell.Workspace

// "Customize Workspace": what stands on one display's workspace, in its order, and what could.
// Tiles are dragged before one another, to the end, or out; every change is saved at once.
Window {
    id: window
    property QtObject controller: null

    readonly property string displayID: window.controller ? window.controller.appearanceID : ""
    readonly property color accent: window.controller && window.controller.accentColor !== undefined
                                    ? window.controller.accentColor : "#C7EB87"
    readonly property var onScreen: ModuleStageStore.revision >= 0 ? ModuleStageStore.choicesFor(window.displayID) : []
    readonly property var addable: ModuleStageStore.revision >= 0 ? ModuleStageStore.addableFor(window.displayID) : []

    objectName: "workspace-editor"
    title: "Customize Workspace — " + (window.controller ? window.controller.displayName : "")
    width: 720
    height: 640
    minimumWidth: 520
    minimumHeight: 420
    color: "#1c1c1f"

    // The drop zones by key, in window coordinates.
    function frames() {
        const result = { "viewport:tiles": viewport.mapToItem(null, 0, 0, viewport.width, viewport.height) }
        const zone = item => item.mapToItem(null, 0, 0, item.width, item.height)
        for (let i = 0; i < placed.count; ++i)
            result["tile:" + placed.itemAt(i).choice.id] = zone(placed.itemAt(i))
        result["last"] = zone(lastZone)
        result["remove"] = zone(removeZone)
        return result
    }
    function drop(id, point) {
        const target = ModuleStageStore.dropTarget(point, window.frames())
        if (target === "remove")
            ModuleStageStore.show(id, window.displayID, false)
        else if (target === "last")
            ModuleStageStore.placeBefore(id, "", window.displayID)
        else if (target.startsWith("tile:") && target !== "tile:" + id)
            ModuleStageStore.placeBefore(id, target.substring(5), window.displayID)
    }

    component Heading: Text {
        textFormat: Text.PlainText
        color: Qt.rgba(1, 1, 1, 0.5)
        font.pixelSize: 11
        font.weight: Font.DemiBold
        font.letterSpacing: 0.8
    }
    component DropZone: Rectangle {
        property string text
        property string caption
        property bool target: false
        height: 44
        radius: 10
        color: target ? Qt.rgba(1, 1, 1, 0.1) : "transparent"
        border.color: Qt.rgba(1, 1, 1, 0.22)
        border.width: 1
        Column {
            anchors.centerIn: parent
            Text {
                textFormat: Text.PlainText
                anchors.horizontalCenter: parent.horizontalCenter
                text: parent.parent.text
                color: Qt.rgba(1, 1, 1, 0.6)
                font.pixelSize: 12
            }
            Text {
                textFormat: Text.PlainText
                visible: text.length > 0
                anchors.horizontalCenter: parent.horizontalCenter
                text: parent.parent.caption
                color: Qt.rgba(1, 1, 1, 0.4)
                font.pixelSize: 10
            }
        }
    }

    Flickable {
        id: viewport
        anchors.fill: parent
        anchors.margins: 20
        contentHeight: column.implicitHeight
        boundsBehavior: Flickable.StopAtBounds
        clip: true

        Column {
            id: column
            width: viewport.width
            spacing: 12

            Item {
                width: parent.width
                height: 28
                Text {
                    textFormat: Text.PlainText
                    anchors.verticalCenter: parent.verticalCenter
                    text: "Drag to arrange. Changes save automatically for this display."
                    color: Qt.rgba(1, 1, 1, 0.7)
                    font.pixelSize: 12
                }
                PillButton {
                    objectName: "manageModules"
                    anchors.right: parent.right
                    anchors.verticalCenter: parent.verticalCenter
                    label: "Manage modules"
                    symbol: "puzzlepiece.extension"
                    accent: window.accent
                    onClicked: if (window.controller) window.controller.requestSettings("Modules")
                }
            }

            Heading { text: "ON THIS SCREEN" }
            Text {
                textFormat: Text.PlainText
                visible: window.onScreen.length === 0
                text: "Drop a widget here, or add one below."
                color: Qt.rgba(1, 1, 1, 0.5)
                font.pixelSize: 12
            }
            Flow {
                width: parent.width
                spacing: 10
                Repeater {
                    id: placed
                    model: window.onScreen
                    delegate: WorkspaceTile {
                        required property var modelData
                        choice: modelData
                        onScreen: true
                        accent: window.accent
                        onToggled: ModuleStageStore.show(choice.id, window.displayID, false)
                        onMoved: by => ModuleStageStore.moveBy(choice.id, by, window.displayID)
                        onDropped: at => window.drop(choice.id, at)
                    }
                }
            }
            DropZone {
                id: lastZone
                objectName: "last"
                width: parent.width
                text: "Drop here to place last"
            }

            Heading { text: "ADD TO WORKSPACE" }
            Text {
                textFormat: Text.PlainText
                visible: window.addable.length === 0
                text: "All available widgets are on this screen."
                color: Qt.rgba(1, 1, 1, 0.5)
                font.pixelSize: 12
            }
            Flow {
                width: parent.width
                spacing: 10
                Repeater {
                    model: window.addable
                    delegate: WorkspaceTile {
                        required property var modelData
                        choice: modelData
                        onScreen: false
                        accent: window.accent
                        onToggled: ModuleStageStore.placeBefore(choice.id, "", window.displayID)
                        onDropped: at => window.drop(choice.id, at)
                    }
                }
            }
            DropZone {
                id: removeZone
                objectName: "removeZone"
                width: parent.width
                text: "Drop here to remove"
                caption: "Keeps the module installed"
            }
        }
    }
}
