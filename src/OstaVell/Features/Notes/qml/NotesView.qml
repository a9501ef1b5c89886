import QtQuick
import QtQuick.Controls
import QtQuick.Controls.Material
import OstaVell.Support
import OstaVell.Notes

// Notes: the list on the left in the chosen order, the selected note's text on the right. Every
// text here is the user's own and is drawn and edited as plain text. Typing changes the note at
// once; the store writes it a moment after the last key.
Item {
    id: root
    property QtObject controller: null
    // The panel is dark whatever the style's default: the menus and pickers here follow it.
    Material.theme: Material.Dark

    readonly property color accent: root.controller && root.controller.accentColor !== undefined
                                    ? root.controller.accentColor : "#C7EB87"
    readonly property var notes: NotesStore.sortedNotes
    readonly property string selectedID: NotesStore.selectedNoteID
    readonly property bool hasSelection: root.notes.some(n => n.id === root.selectedID)

    function select(id) {
        NotesStore.selectedNoteID = id
    }
    function addNote() {
        const id = NotesStore.newNote()
        if (id.length > 0) {
            root.select(id)
            editor.forceActiveFocus()
        }
    }
    function removeNote(id) {
        const at = root.notes.findIndex(n => n.id === id)
        if (!NotesStore.remove(id) || id !== root.selectedID)
            return
        const rest = NotesStore.sortedNotes
        root.select(rest.length > 0 ? rest[Math.min(at, rest.length - 1)].id : "")
    }

    component PlainMenuItem: MenuItem {
        id: entry
        contentItem: Text {
            textFormat: Text.PlainText
            leftPadding: 4
            text: entry.text
            color: "white"
            font.pixelSize: 13
            verticalAlignment: Text.AlignVCenter
        }
    }
    component SmallButton: Rectangle {
        id: button
        property string label
        property string symbol
        signal clicked()
        implicitWidth: row.implicitWidth + 16
        implicitHeight: 24
        radius: 12
        opacity: enabled ? 1 : 0.4
        color: hover.hovered && enabled ? Qt.rgba(1, 1, 1, 0.14) : Qt.rgba(1, 1, 1, 0.08)
        Accessible.role: Accessible.Button
        Accessible.name: label
        Accessible.onPressAction: if (button.enabled) button.clicked()
        Row {
            id: row
            anchors.centerIn: parent
            spacing: 4
            SymbolIcon {
                visible: button.symbol.length > 0
                anchors.verticalCenter: parent.verticalCenter
                name: button.symbol
                size: 13
                color: Qt.rgba(1, 1, 1, 0.85)
            }
            Text {
                anchors.verticalCenter: parent.verticalCenter
                textFormat: Text.PlainText
                text: button.label
                color: Qt.rgba(1, 1, 1, 0.85)
                font.pixelSize: 11
            }
        }
        HoverHandler { id: hover }
        TapHandler { enabled: button.enabled; onTapped: button.clicked() }
    }

    // The list.
    Item {
        id: side
        x: 8
        width: Math.min(230, Math.round(root.width * 0.36))
        height: root.height - (noticeLine.visible ? noticeLine.height + 6 : 0)

        Row {
            id: tools
            width: parent.width
            height: 28
            spacing: 6
            ComboBox {
                id: sortPicker
                objectName: "sortOrder"
                width: parent.width - newButton.width - parent.spacing
                height: 28
                model: NotesStore.sortOrders
                textRole: "label"
                valueRole: "raw"
                font.pixelSize: 11
                currentIndex: NotesStore.sortOrders.findIndex(o => o.raw === NotesStore.sortOrder)
                onActivated: NotesStore.sortOrder = currentValue
                contentItem: Text {
                    textFormat: Text.PlainText
                    leftPadding: 8
                    verticalAlignment: Text.AlignVCenter
                    text: sortPicker.displayText
                    elide: Text.ElideRight
                    color: Qt.rgba(1, 1, 1, 0.85)
                    font.pixelSize: 11
                }
                delegate: ItemDelegate {
                    id: choice
                    required property var modelData
                    required property int index
                    width: sortPicker.width
                    highlighted: sortPicker.highlightedIndex === index
                    contentItem: Text {
                        textFormat: Text.PlainText
                        text: choice.modelData.label
                        verticalAlignment: Text.AlignVCenter
                        color: "white"
                        font.pixelSize: 12
                    }
                }
            }
            SmallButton {
                id: newButton
                objectName: "newNote"
                anchors.verticalCenter: parent.verticalCenter
                symbol: "square.and.pencil"
                label: "New note"
                enabled: !NotesStore.storageUnavailable
                onClicked: root.addNote()
            }
        }

        Column {
            objectName: "noNotes"
            visible: root.notes.length === 0
            anchors.centerIn: list
            spacing: 8
            Text {
                anchors.horizontalCenter: parent.horizontalCenter
                textFormat: Text.PlainText
                text: "No notes yet"
                color: Qt.rgba(1, 1, 1, 0.55)
                font.pixelSize: 13
            }
        }

        ListView {
            id: list
            anchors.top: tools.bottom
            anchors.topMargin: 8
            anchors.bottom: parent.bottom
            width: parent.width
            clip: true
            spacing: 2
            boundsBehavior: Flickable.StopAtBounds
            // A count, not the list, is the model: typing refreshes the rows in place instead of
            // building them all again and losing the place the list was scrolled to.
            model: root.notes.length
            delegate: Rectangle {
                id: entry
                required property int index
                readonly property var note: root.notes[index] ?? ({})
                readonly property bool selected: entry.note.id === root.selectedID
                objectName: "note:" + (entry.note.preview ?? "")
                width: list.width
                height: 42
                radius: 8
                color: entry.selected ? Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.18)
                                      : (entryHover.hovered ? Qt.rgba(1, 1, 1, 0.06) : "transparent")
                Accessible.role: Accessible.ListItem
                Accessible.name: entry.note.preview ?? ""
                Accessible.selected: entry.selected
                Accessible.onPressAction: root.select(entry.note.id)
                HoverHandler { id: entryHover }
                TapHandler { onTapped: root.select(entry.note.id) }
                TapHandler {
                    acceptedButtons: Qt.RightButton
                    onTapped: menu.popup()
                }
                Text {
                    objectName: "preview"
                    x: 10
                    y: 5
                    width: parent.width - 20
                    textFormat: Text.PlainText
                    text: entry.note.preview ?? ""
                    elide: Text.ElideRight
                    maximumLineCount: 1
                    color: Qt.rgba(1, 1, 1, 0.92)
                    font.pixelSize: 12
                    font.weight: Font.DemiBold
                }
                Text {
                    x: 10
                    y: 23
                    width: parent.width - 20
                    textFormat: Text.PlainText
                    text: entry.note.updatedAt ? entry.note.updatedAt.toLocaleString(Qt.locale(), Locale.ShortFormat) : ""
                    elide: Text.ElideRight
                    color: Qt.rgba(1, 1, 1, 0.45)
                    font.pixelSize: 10
                }
                Menu {
                    id: menu
                    Material.theme: Material.Dark
                    PlainMenuItem {
                        objectName: "menuDuplicate"
                        text: "Duplicate"
                        enabled: !NotesStore.storageUnavailable
                        onTriggered: {
                            const copy = NotesStore.duplicate(entry.note.id)
                            if (copy.length > 0)
                                root.select(copy)
                        }
                    }
                    PlainMenuItem {
                        objectName: "menuCopy"
                        text: "Copy Text"
                        onTriggered: NotesStore.copyText(entry.note.id)
                    }
                    PlainMenuItem {
                        objectName: "menuDelete"
                        text: "Delete"
                        enabled: !NotesStore.storageUnavailable
                        onTriggered: root.removeNote(entry.note.id)
                    }
                }
            }
        }
    }

    // The editor.
    Rectangle {
        id: editorFrame
        anchors.left: side.right
        anchors.leftMargin: 10
        anchors.right: parent.right
        anchors.rightMargin: 8
        height: side.height
        radius: 10
        color: Qt.rgba(1, 1, 1, 0.05)
        border.color: editor.activeFocus ? Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.5)
                                         : Qt.rgba(1, 1, 1, 0.06)

        Column {
            objectName: "noSelection"
            visible: !root.hasSelection
            anchors.centerIn: parent
            spacing: 10
            Text {
                anchors.horizontalCenter: parent.horizontalCenter
                textFormat: Text.PlainText
                text: "No note selected"
                color: Qt.rgba(1, 1, 1, 0.55)
                font.pixelSize: 13
            }
            SmallButton {
                anchors.horizontalCenter: parent.horizontalCenter
                visible: root.notes.length === 0
                symbol: "square.and.pencil"
                label: "New note"
                enabled: !NotesStore.storageUnavailable
                onClicked: root.addNote()
            }
        }

        Flickable {
            id: scroller
            visible: root.hasSelection
            anchors.fill: parent
            anchors.margins: 10
            clip: true
            contentWidth: width
            contentHeight: editor.implicitHeight
            boundsBehavior: Flickable.StopAtBounds
            function ensureVisible(r) {
                if (contentY >= r.y)
                    contentY = r.y
                else if (contentY + height <= r.y + r.height)
                    contentY = r.y + r.height - height
            }

            TextEdit {
                id: editor
                objectName: "editor"
                width: scroller.width
                textFormat: TextEdit.PlainText
                wrapMode: TextEdit.Wrap
                readOnly: NotesStore.storageUnavailable
                selectByMouse: true
                color: Qt.rgba(1, 1, 1, 0.92)
                selectionColor: Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.45)
                font.pixelSize: NotesStore.fontSize
                Accessible.role: Accessible.EditableText
                Accessible.name: "Note"
                onCursorRectangleChanged: scroller.ensureVisible(cursorRectangle)

                // The text shown is set here, not bound: a binding would be replaced by the first
                // key, and would put the cursor back at the start on every change from the store.
                property bool loading: false
                function load() {
                    loading = true
                    text = NotesStore.text(root.selectedID)
                    loading = false
                }
                onTextChanged: if (!loading) NotesStore.setText(root.selectedID, text)

                Text {
                    objectName: "placeholder"
                    visible: editor.text.length === 0
                    textFormat: Text.PlainText
                    text: "Jot something down"
                    color: Qt.rgba(1, 1, 1, 0.35)
                    font.pixelSize: NotesStore.fontSize
                }
            }
        }
    }

    onSelectedIDChanged: editor.load()
    Component.onCompleted: editor.load()
    // Another panel may edit the same note: what it typed shows here while this editor is idle.
    Connections {
        target: NotesStore
        function onNotesChanged() {
            if (!editor.activeFocus && editor.text !== NotesStore.text(root.selectedID))
                editor.load()
        }
    }

    Text {
        id: noticeLine
        objectName: "notice"
        visible: NotesStore.notice.length > 0
        x: 10
        width: root.width - 20
        anchors.bottom: parent.bottom
        textFormat: Text.PlainText
        text: NotesStore.notice
        wrapMode: Text.Wrap
        maximumLineCount: 3
        elide: Text.ElideRight
        color: "#FFB340"
        font.pixelSize: 11
    }
}
