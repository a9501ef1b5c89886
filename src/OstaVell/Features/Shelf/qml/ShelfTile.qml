import QtQuick
import OstaVell.Shelf
import OstaVell.Support

// One item of the tray: its picture or symbol and its name. A press and a move start a real
// drag of the items the tile stands for; clicks go to the view with their modifier keys.
Item {
    id: tile
    // {id, kind, displayName, filePath, isImage, icon} as the store describes it.
    required property var item
    property bool selected: false
    property color accent: "#C7EB87"
    // The ids a drag from this tile carries.
    property var dragIds: [item.id]

    signal clicked(int modifiers)
    signal doubleClicked()
    signal menuRequested(real x, real y)

    objectName: "tile:" + item.displayName
    width: 96
    height: 104

    Accessible.role: Accessible.ListItem
    Accessible.name: item.displayName
    Accessible.selected: selected

    Rectangle {
        anchors.fill: parent
        radius: 14
        color: tile.selected ? Qt.rgba(1, 1, 1, 0.16) : (area.containsMouse ? Qt.rgba(1, 1, 1, 0.08) : "transparent")
        border.color: tile.selected ? tile.accent : "transparent"
        border.width: 1.5
    }

    Rectangle {
        id: preview
        anchors.horizontalCenter: parent.horizontalCenter
        y: 8
        width: 60
        height: 60
        radius: 12
        color: Qt.rgba(1, 1, 1, 0.07)
        clip: true

        Image {
            id: thumbnail
            objectName: "thumbnail"
            anchors.fill: parent
            visible: status === Image.Ready
            asynchronous: true
            cache: false
            fillMode: Image.PreserveAspectCrop
            sourceSize: Qt.size(120, 120)
            source: tile.item.isImage ? "image://shelf-thumbnail/" + encodeURIComponent(tile.item.filePath) : ""
        }
        SymbolIcon {
            anchors.centerIn: parent
            visible: thumbnail.status !== Image.Ready
            name: tile.item.icon
            size: 28
            color: Qt.rgba(1, 1, 1, 0.8)
        }
    }

    Text {
        objectName: "name"
        anchors.top: preview.bottom
        anchors.topMargin: 6
        anchors.horizontalCenter: parent.horizontalCenter
        width: parent.width - 10
        horizontalAlignment: Text.AlignHCenter
        textFormat: Text.PlainText
        text: tile.item.displayName
        color: Qt.rgba(1, 1, 1, 0.88)
        font.pixelSize: 11
        wrapMode: Text.Wrap
        maximumLineCount: 2
        elide: Text.ElideMiddle
    }

    MouseArea {
        id: area
        anchors.fill: parent
        hoverEnabled: true
        acceptedButtons: Qt.LeftButton | Qt.RightButton
        // A drag out of the tile is the tile's: the tray's scrolling must not take it.
        preventStealing: true
        property point pressedAt
        property bool dragging: false

        onPressed: mouse => {
            pressedAt = Qt.point(mouse.x, mouse.y)
            dragging = false
        }
        onPositionChanged: mouse => {
            if (!(mouse.buttons & Qt.LeftButton) || dragging)
                return
            const dx = mouse.x - pressedAt.x
            const dy = mouse.y - pressedAt.y
            if (Math.sqrt(dx * dx + dy * dy) < Qt.styleHints.startDragDistance)
                return
            dragging = true
            ShelfStore.drag(tile.dragIds, tile)
        }
        onClicked: mouse => {
            if (mouse.button === Qt.RightButton)
                tile.menuRequested(mouse.x, mouse.y)
            else if (!dragging)
                tile.clicked(mouse.modifiers)
        }
        onDoubleClicked: mouse => {
            if (mouse.button === Qt.LeftButton)
                tile.doubleClicked()
        }
    }
}
