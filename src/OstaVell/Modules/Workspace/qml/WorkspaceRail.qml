import QtQuick
import OstaVell.Support
import OstaVell.Workspace

// The rail beside the stage: one entry per choice on this display, in its order. Collapsed it
// shows the symbols; the pointer on it opens it over the stage's edge with the names. An entry
// dragged onto another takes its place.
Rectangle {
    id: rail
    objectName: "rail"
    property bool onRight: false
    property string displayID
    property var choices: []
    property string activeID
    property color accent: "#C7EB87"

    readonly property real collapsedWidth: 24
    readonly property real openWidth: 156
    readonly property bool open: hover.hovered || dragging !== ""
    property string dragging: ""

    width: open ? openWidth : collapsedWidth
    Behavior on width { enabled: !Accessibility.reduceMotion; NumberAnimation { duration: 180; easing.type: Easing.OutCubic } }
    radius: 12
    color: open ? Qt.rgba(0.11, 0.11, 0.12, 0.96) : "transparent"
    border.color: open ? Qt.rgba(1, 1, 1, 0.1) : "transparent"
    clip: true

    HoverHandler { id: hover }

    // The drop zones by key, in window coordinates, as the store's target test wants them.
    function frames() {
        const result = { "viewport:rail": viewport.mapToItem(null, 0, 0, viewport.width, viewport.height) }
        for (let i = 0; i < entries.count; ++i) {
            const entry = entries.itemAt(i)
            result["rail:" + entry.modelData.id] = entry.mapToItem(null, 0, 0, entry.width, entry.height)
        }
        return result
    }

    Flickable {
        id: viewport
        anchors.fill: parent
        anchors.margins: 2
        contentHeight: column.implicitHeight
        boundsBehavior: Flickable.StopAtBounds
        interactive: contentHeight > height && rail.dragging === ""
        clip: true

        Column {
            id: column
            width: viewport.width
            spacing: 2
            Repeater {
                id: entries
                model: rail.choices
                delegate: Rectangle {
                    id: entry
                    required property var modelData
                    readonly property bool chosen: modelData.id === rail.activeID
                    objectName: "rail:" + modelData.id
                    width: column.width
                    height: 28
                    radius: 8
                    color: chosen ? Qt.rgba(1, 1, 1, 0.14) : (entryHover.hovered ? Qt.rgba(1, 1, 1, 0.07) : "transparent")
                    opacity: rail.dragging === modelData.id ? 0.5 : 1
                    Accessible.role: Accessible.Button
                    Accessible.name: modelData.name
                    SymbolIcon {
                        x: 1
                        anchors.verticalCenter: parent.verticalCenter
                        name: entry.modelData.symbol
                        size: 14
                        color: entry.chosen ? rail.accent : Qt.rgba(1, 1, 1, 0.75)
                    }
                    Text {
                        textFormat: Text.PlainText
                        visible: rail.open
                        x: 26
                        width: parent.width - 30
                        anchors.verticalCenter: parent.verticalCenter
                        text: entry.modelData.name
                        elide: Text.ElideRight
                        color: entry.chosen ? rail.accent : Qt.rgba(1, 1, 1, 0.85)
                        font.pixelSize: 12
                    }
                    HoverHandler { id: entryHover }
                    // A click chooses; a press moved more than 8 points carries the entry to
                    // another's place.
                    MouseArea {
                        anchors.fill: parent
                        preventStealing: rail.dragging !== ""
                        property point pressedAt
                        onPressed: mouse => pressedAt = Qt.point(mouse.x, mouse.y)
                        onPositionChanged: mouse => {
                            if (rail.dragging === "" && Math.hypot(mouse.x - pressedAt.x, mouse.y - pressedAt.y) > 8)
                                rail.dragging = entry.modelData.id
                        }
                        onReleased: mouse => {
                            if (rail.dragging !== entry.modelData.id)
                                return
                            const target = ModuleStageStore.dropTarget(entry.mapToItem(null, mouse.x, mouse.y), rail.frames())
                            if (target.startsWith("rail:") && target !== "rail:" + entry.modelData.id)
                                ModuleStageStore.placeBefore(entry.modelData.id, target.substring(5), rail.displayID)
                            rail.dragging = ""
                        }
                        onCanceled: rail.dragging = ""
                        onClicked: if (rail.dragging === "") ModuleStageStore.choose(entry.modelData.id, rail.displayID)
                    }
                }
            }
        }
    }
}
