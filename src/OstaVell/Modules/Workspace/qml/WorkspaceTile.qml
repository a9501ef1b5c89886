import QtQuick
import OstaVell.Support
import OstaVell.Plugins

// One choice in the editor: its symbol and name, and the button that adds or removes it. It
// can be dragged; where it is let go is the editor's business.
Rectangle {
    id: tile
    required property var choice
    property bool onScreen: true
    property color accent: "#C7EB87"
    property bool dragged: false
    signal toggled()
    // "Move earlier" (-1) and "Move later" (1), for those who arrange without dragging.
    signal moved(int by)
    signal dropped(point at)

    objectName: "tile:" + choice.id
    width: 184
    height: 92
    radius: 12
    color: Qt.rgba(1, 1, 1, tileHover.hovered ? 0.11 : 0.07)
    border.color: Qt.rgba(1, 1, 1, 0.1)
    opacity: tile.dragged ? 0.45 : 1
    Accessible.name: tile.choice.name

    SymbolIcon {
        x: 12
        y: 12
        name: tile.choice.symbol
        size: 18
        color: tile.accent
    }
    Text {
        textFormat: Text.PlainText
        x: 12
        y: 40
        width: parent.width - 24
        text: tile.choice.name
        elide: Text.ElideRight
        color: Qt.rgba(1, 1, 1, 0.9)
        font.pixelSize: 12
        font.weight: Font.DemiBold
    }
    PillButton {
        objectName: tile.onScreen ? "remove" : "add"
        x: 8
        anchors.bottom: parent.bottom
        anchors.bottomMargin: 8
        implicitHeight: 22
        label: tile.onScreen ? "Remove from workspace" : "Add to workspace"
        maximumLabelWidth: 150
        accent: tile.accent
        onClicked: tile.toggled()
    }
    Row {
        visible: tile.onScreen
        anchors.right: parent.right
        anchors.rightMargin: 6
        y: 6
        spacing: 4
        PillButton {
            objectName: "earlier"
            implicitHeight: 22
            implicitWidth: 26
            symbol: "chevron.left"
            accent: tile.accent
            Accessible.name: "Move earlier"
            onClicked: tile.moved(-1)
        }
        PillButton {
            objectName: "later"
            implicitHeight: 22
            implicitWidth: 26
            symbol: "chevron.right"
            accent: tile.accent
            Accessible.name: "Move later"
            onClicked: tile.moved(1)
        }
    }
    HoverHandler { id: tileHover }
    DragHandler {
        target: null
        dragThreshold: 8
        onActiveChanged: {
            tile.dragged = active
            if (!active)
                tile.dropped(tile.mapToItem(null, centroid.position.x, centroid.position.y))
        }
    }
}
