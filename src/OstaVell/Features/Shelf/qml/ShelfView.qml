import QtQuick
import QtQuick.Controls
import QtQuick.Dialogs
import OstaVell.Shelf
import OstaVell.Support

// The tray in the open panel: what was dropped, pasted or added, newest first. Files, links and
// text come in by a drop anywhere on it, the clipboard or the file dialog, and go out by drag,
// copy, opening, the file manager or another device.
Item {
    id: root
    property QtObject controller: null

    readonly property color accent: root.controller && root.controller.accentColor !== undefined
                                    ? root.controller.accentColor : "#C7EB87"
    readonly property var items: ShelfStore.items
    readonly property int collapseThreshold: 6
    property bool stackExpanded: false
    readonly property bool collapsed: items.length > collapseThreshold && !stackExpanded
    readonly property var shown: collapsed ? items.slice(0, collapseThreshold - 1) : items

    // Ids of the selected items, and the one a shift-click counts from.
    property var selection: ({})
    property string anchorID: ""

    objectName: "shelfView"

    function ids(list) {
        return list.map(entry => entry.id)
    }
    function selectedIDs() {
        return ids(root.items.filter(entry => root.selection[entry.id] === true))
    }
    // What the actions of a tile act on: the selection when the tile is in it, else the tile.
    function targetIDs(id) {
        return root.selection[id] === true ? selectedIDs() : [id]
    }
    function indexOf(id) {
        return root.items.findIndex(entry => entry.id === id)
    }
    function tileClicked(id, modifiers) {
        const next = {}
        if (modifiers & Qt.ControlModifier) {
            Object.assign(next, root.selection)
            if (next[id])
                delete next[id]
            else
                next[id] = true
            root.anchorID = id
        } else if ((modifiers & Qt.ShiftModifier) && indexOf(root.anchorID) >= 0) {
            const from = indexOf(root.anchorID)
            const to = indexOf(id)
            for (let i = Math.min(from, to); i <= Math.max(from, to); ++i)
                next[root.items[i].id] = true
        } else {
            next[id] = true
            root.anchorID = id
        }
        root.selection = next
    }
    // Items that left the tray leave the selection.
    onItemsChanged: {
        const next = {}
        for (const entry of root.items)
            if (root.selection[entry.id] === true)
                next[entry.id] = true
        root.selection = next
        if (root.items.length <= root.collapseThreshold)
            root.stackExpanded = false
    }

    Item {
        id: header
        width: parent.width
        height: 30

        Text {
            objectName: "caption"
            anchors.left: parent.left
            anchors.verticalCenter: parent.verticalCenter
            textFormat: Text.PlainText
            text: "Your files, links and clippings"
            color: Qt.rgba(1, 1, 1, 0.55)
            font.pixelSize: 13
        }

        Row {
            anchors.right: parent.right
            anchors.verticalCenter: parent.verticalCenter
            spacing: 6
            ShelfHeaderButton {
                objectName: "stackToggle"
                visible: root.items.length > root.collapseThreshold
                label: root.stackExpanded ? "Collapse into stack" : "Show all (" + root.items.length + ")"
                symbol: root.stackExpanded ? "square.stack" : "square.grid.2x2"
                onClicked: root.stackExpanded = !root.stackExpanded
            }
            ShelfHeaderButton {
                objectName: "addFiles"
                label: "Add Files"
                symbol: "plus"
                onClicked: root.openFileDialog()
            }
            ShelfHeaderButton {
                objectName: "paste"
                symbol: "doc.on.clipboard"
                help: "Paste from clipboard"
                onClicked: ShelfStore.pasteFromClipboard()
            }
            ShelfHeaderButton {
                objectName: "clear"
                symbol: "trash"
                help: "Clear shelf"
                enabled: root.items.length > 0
                onClicked: ShelfStore.clear()
            }
        }
    }

    Text {
        id: notice
        objectName: "notice"
        anchors.top: header.bottom
        anchors.topMargin: 6
        width: parent.width
        visible: ShelfStore.notice.length > 0
        height: visible ? implicitHeight : 0
        textFormat: Text.PlainText
        text: ShelfStore.notice
        color: "#FFB340"
        font.pixelSize: 12
        wrapMode: Text.Wrap
    }

    ShelfDropArea {
        id: drop
        objectName: "dropArea"
        anchors.top: notice.bottom
        anchors.topMargin: 10
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom

        Rectangle {
            anchors.fill: parent
            radius: 16
            color: drop.containsDrag ? Qt.rgba(1, 1, 1, 0.10) : Qt.rgba(1, 1, 1, 0.05)
            border.color: drop.containsDrag ? root.accent : Qt.rgba(1, 1, 1, 0.1)
            border.width: drop.containsDrag ? 2 : 1
        }

        // A click on the empty part of the tray clears the selection.
        TapHandler {
            onTapped: root.selection = {}
        }

        Column {
            objectName: "emptyState"
            visible: root.items.length === 0
            anchors.centerIn: parent
            spacing: 6
            SymbolIcon {
                anchors.horizontalCenter: parent.horizontalCenter
                name: "tray.and.arrow.down"
                size: 30
                color: Qt.rgba(1, 1, 1, 0.45)
            }
            Text {
                anchors.horizontalCenter: parent.horizontalCenter
                textFormat: Text.PlainText
                text: "Drop files here"
                color: Qt.rgba(1, 1, 1, 0.8)
                font.pixelSize: 14
                font.weight: Font.DemiBold
            }
            Text {
                anchors.horizontalCenter: parent.horizontalCenter
                textFormat: Text.PlainText
                text: "Files, links and text land on the shelf."
                color: Qt.rgba(1, 1, 1, 0.5)
                font.pixelSize: 12
            }
        }

        Flickable {
            id: scroller
            anchors.fill: parent
            anchors.margins: 10
            visible: root.items.length > 0
            clip: true
            contentWidth: width
            contentHeight: tiles.implicitHeight
            interactive: contentHeight > height
            boundsBehavior: Flickable.StopAtBounds
            ScrollBar.vertical: ScrollBar { policy: ScrollBar.AsNeeded }

            Flow {
                id: tiles
                width: scroller.width
                spacing: 8

                Repeater {
                    model: root.shown
                    delegate: ShelfTile {
                        required property var modelData
                        item: modelData
                        accent: root.accent
                        selected: root.selection[modelData.id] === true
                        dragIds: root.targetIDs(modelData.id)
                        onClicked: modifiers => root.tileClicked(modelData.id, modifiers)
                        onDoubleClicked: ShelfStore.open([modelData.id])
                        onMenuRequested: (x, y) => root.showMenu(this, x, y, root.targetIDs(modelData.id))
                    }
                }

                // The rest of a long tray, stacked.
                Item {
                    objectName: "stack"
                    visible: root.collapsed
                    width: 96
                    height: 104
                    Accessible.role: Accessible.Button
                    Accessible.name: "Show all"
                    Repeater {
                        model: 3
                        Rectangle {
                            required property int index
                            x: 18 + index * 4
                            y: 8 + (2 - index) * 4
                            width: 52
                            height: 52
                            radius: 12
                            color: Qt.rgba(1, 1, 1, 0.07 + index * 0.04)
                            border.color: Qt.rgba(1, 1, 1, 0.15)
                        }
                    }
                    Text {
                        anchors.horizontalCenter: parent.horizontalCenter
                        y: 74
                        textFormat: Text.PlainText
                        text: "+" + (root.items.length - root.shown.length)
                        color: Qt.rgba(1, 1, 1, 0.8)
                        font.pixelSize: 12
                        font.weight: Font.DemiBold
                    }
                    TapHandler { onTapped: root.stackExpanded = true }
                }
            }
        }
    }

    // The context menu of a tile, for the items it stands for.
    property var menuIDs: []
    function showMenu(tile, x, y, targets) {
        root.menuIDs = targets
        sendItem.offered = ShelfStore.canSendToDevice()
        menu.popup(tile, x, y)
    }
    // Drawn here rather than by the style: dark like the panel, and without a fade, so that
    // nothing animates once it stands.
    component MenuEntry: MenuItem {
        id: entry
        // Not `visible`, which reads false while the menu is closed.
        property bool offered: true
        visible: offered
        implicitHeight: offered ? 30 : 0
        contentItem: Text {
            leftPadding: 10
            verticalAlignment: Text.AlignVCenter
            textFormat: Text.PlainText
            text: entry.text
            color: Qt.rgba(1, 1, 1, 0.9)
            font.pixelSize: 13
        }
        background: Rectangle {
            radius: 6
            color: entry.highlighted ? Qt.rgba(1, 1, 1, 0.12) : "transparent"
        }
    }
    Menu {
        id: menu
        objectName: "tileMenu"
        padding: 4
        enter: null
        exit: null
        onAboutToShow: ShelfStore.holdPanelOpen(true)
        onAboutToHide: ShelfStore.holdPanelOpen(false)
        background: Rectangle {
            implicitWidth: 200
            radius: 10
            color: "#26262b"
            border.color: Qt.rgba(1, 1, 1, 0.12)
        }
        MenuEntry { objectName: "menuOpen"; text: "Open"; onTriggered: ShelfStore.open(root.menuIDs) }
        MenuEntry { objectName: "menuQuickLook"; text: "Quick Look"; onTriggered: ShelfStore.quickLook(root.menuIDs) }
        MenuEntry {
            objectName: "menuReveal"
            text: "Show in File Manager"
            onTriggered: ShelfStore.revealInFinder(root.menuIDs)
        }
        MenuEntry {
            id: sendItem
            objectName: "menuSend"
            text: "Send to device"
            offered: false
            onTriggered: ShelfStore.sendToDevice(root.menuIDs)
        }
        MenuEntry { objectName: "menuCopy"; text: "Copy"; onTriggered: ShelfStore.copyToPasteboard(root.menuIDs) }
        MenuEntry { objectName: "menuRemove"; text: "Remove"; onTriggered: ShelfStore.remove(root.menuIDs) }
    }

    // The dialog exists only while it is open: every panel holds this view, and a dialog is a
    // window of its own.
    Component {
        id: fileDialog
        FileDialog {
            title: "Add Files"
            fileMode: FileDialog.OpenFiles
            onAccepted: ShelfStore.addFiles(selectedFiles)
            // However it goes, the panel is let go once with the dialog.
            Component.onCompleted: ShelfStore.holdPanelOpen(true)
            Component.onDestruction: ShelfStore.holdPanelOpen(false)
        }
    }
    function openFileDialog() {
        const dialog = fileDialog.createObject(root)
        dialog.accepted.connect(() => dialog.destroy())
        dialog.rejected.connect(() => dialog.destroy())
        dialog.open()
    }
}
