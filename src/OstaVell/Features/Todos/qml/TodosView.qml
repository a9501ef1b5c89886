import QtQuick
import QtQuick.Controls
import QtQuick.Controls.Material
import OstaVell.Support
import OstaVell.Todos

// The to-do list: a field that adds on Return, the items with favourites first, done ones struck
// through until the sweep archives them, and the archive when the setting shows it. Titles are
// the user's own text and are drawn as plain text.
Item {
    id: root
    property QtObject controller: null
    // The panel is dark whatever the style's default: the menus and pickers here follow it.
    Material.theme: Material.Dark

    readonly property color accent: root.controller && root.controller.accentColor !== undefined
                                    ? root.controller.accentColor : "#C7EB87"
    readonly property var items: TodosStore.items
    readonly property var archived: TodosStore.archivedItems
    readonly property bool archiveShown: TodosStore.showArchived && root.archived.length > 0

    component Caption: Text {
        textFormat: Text.PlainText
        color: Qt.rgba(1, 1, 1, 0.55)
        font.pixelSize: 11
    }
    component SmallButton: Rectangle {
        id: button
        property string label
        signal clicked()
        implicitWidth: caption.implicitWidth + 16
        implicitHeight: 22
        radius: 11
        color: hover.hovered ? Qt.rgba(1, 1, 1, 0.14) : Qt.rgba(1, 1, 1, 0.08)
        Accessible.role: Accessible.Button
        Accessible.name: label
        Accessible.onPressAction: button.clicked()
        Text {
            id: caption
            anchors.centerIn: parent
            textFormat: Text.PlainText
            text: button.label
            color: Qt.rgba(1, 1, 1, 0.85)
            font.pixelSize: 11
        }
        HoverHandler { id: hover }
        TapHandler { onTapped: button.clicked() }
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

    // The field.
    Rectangle {
        id: fieldFrame
        x: 12
        y: 4
        width: root.width - 24
        height: 34
        radius: 10
        color: Qt.rgba(1, 1, 1, 0.07)
        border.color: field.activeFocus ? Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.6)
                                        : Qt.rgba(1, 1, 1, 0.08)
        SymbolIcon {
            id: plus
            x: 10
            anchors.verticalCenter: parent.verticalCenter
            name: "plus"
            size: 16
            color: Qt.rgba(1, 1, 1, 0.6)
        }
        TextInput {
            id: field
            objectName: "addField"
            anchors.left: plus.right
            anchors.leftMargin: 8
            anchors.right: parent.right
            anchors.rightMargin: 10
            anchors.verticalCenter: parent.verticalCenter
            enabled: !TodosStore.storageUnavailable
            color: "white"
            selectionColor: Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.45)
            font.pixelSize: 13
            clip: true
            Accessible.role: Accessible.EditableText
            Accessible.name: "Add a to-do"
            // A title of blanks adds nothing and is cleared as well.
            onAccepted: {
                if (TodosStore.add(text) || text.trim().length === 0)
                    text = ""
            }
            Text {
                textFormat: Text.PlainText
                visible: field.text.length === 0
                anchors.verticalCenter: parent.verticalCenter
                text: "Add a to-do"
                color: Qt.rgba(1, 1, 1, 0.4)
                font.pixelSize: 13
            }
        }
    }

    // The counts, or the hint while typing.
    Row {
        id: summary
        x: 14
        anchors.top: fieldFrame.bottom
        anchors.topMargin: 6
        height: 16
        spacing: 10
        Caption {
            objectName: "hint"
            visible: field.activeFocus && field.text.length > 0
            text: "Press Return to add a to-do"
        }
        Caption {
            objectName: "openCount"
            visible: !field.activeFocus || field.text.length === 0
            text: TodosStore.openCount + " open"
        }
        Caption {
            objectName: "doneCount"
            visible: (!field.activeFocus || field.text.length === 0) && TodosStore.doneCount > 0
            text: TodosStore.doneCount + " done"
        }
    }

    Caption {
        objectName: "allClear"
        visible: root.items.length === 0 && !root.archiveShown
        anchors.centerIn: list
        text: "All clear"
        font.pixelSize: 13
    }

    Flickable {
        id: list
        anchors.top: summary.bottom
        anchors.topMargin: 6
        anchors.bottom: noticeLine.top
        anchors.bottomMargin: noticeLine.visible ? 6 : 0
        x: 8
        width: root.width - 16
        clip: true
        contentHeight: column.implicitHeight
        boundsBehavior: Flickable.StopAtBounds

        Column {
            id: column
            width: list.width
            spacing: 2

            // A count, not the list, is the model: an edit refreshes the rows in place instead of
            // building them all again and losing the place the list was scrolled to.
            Repeater {
                model: root.items.length
                delegate: Rectangle {
                    id: row
                    required property int index
                    readonly property var item: root.items[index] ?? ({})
                    objectName: "todo:" + (row.item.title ?? "")
                    width: column.width
                    height: 32
                    radius: 8
                    color: rowHover.hovered ? Qt.rgba(1, 1, 1, 0.06) : "transparent"
                    HoverHandler { id: rowHover }

                    SymbolIcon {
                        id: check
                        objectName: "done"
                        x: 6
                        anchors.verticalCenter: parent.verticalCenter
                        name: row.item.done ? "checkmark.circle.fill" : "circle"
                        size: 18
                        color: row.item.done ? root.accent : Qt.rgba(1, 1, 1, 0.55)
                        Accessible.role: Accessible.CheckBox
                        Accessible.name: row.item.title ?? ""
                        Accessible.checked: row.item.done === true
                        Accessible.onPressAction: TodosStore.toggleDone(row.item.id)
                        TapHandler { onTapped: TodosStore.toggleDone(row.item.id) }
                    }
                    Text {
                        objectName: "title"
                        anchors.left: check.right
                        anchors.leftMargin: 8
                        anchors.right: star.left
                        anchors.rightMargin: 6
                        anchors.verticalCenter: parent.verticalCenter
                        textFormat: Text.PlainText
                        text: row.item.title ?? ""
                        elide: Text.ElideRight
                        maximumLineCount: 1
                        font.pixelSize: 13
                        font.strikeout: row.item.done === true
                        color: row.item.done ? Qt.rgba(1, 1, 1, 0.45) : Qt.rgba(1, 1, 1, 0.92)
                    }
                    SymbolIcon {
                        id: star
                        objectName: "favorite"
                        anchors.right: more.left
                        anchors.rightMargin: 6
                        anchors.verticalCenter: parent.verticalCenter
                        visible: row.item.favorite === true || rowHover.hovered
                        name: row.item.favorite ? "star.fill" : "star"
                        size: 14
                        color: row.item.favorite ? "#FFCC4D" : Qt.rgba(1, 1, 1, 0.45)
                        Accessible.role: Accessible.Button
                        Accessible.name: row.item.favorite ? "Remove Favorite" : "Favorite"
                        Accessible.onPressAction: TodosStore.toggleFavorite(row.item.id)
                        TapHandler { onTapped: TodosStore.toggleFavorite(row.item.id) }
                    }
                    SymbolIcon {
                        id: more
                        objectName: "more"
                        anchors.right: parent.right
                        anchors.rightMargin: 8
                        anchors.verticalCenter: parent.verticalCenter
                        name: "ellipsis"
                        size: 16
                        color: Qt.rgba(1, 1, 1, rowHover.hovered ? 0.75 : 0.35)
                        Accessible.role: Accessible.ButtonMenu
                        Accessible.name: "More"
                        Accessible.onPressAction: menu.popup(more, 0, more.height)
                        TapHandler { onTapped: menu.popup(more, 0, more.height) }
                    }
                    Menu {
                        id: menu
                        Material.theme: Material.Dark
                        PlainMenuItem {
                            objectName: "menuFavorite"
                            text: row.item.favorite ? "Remove Favorite" : "Pin to top"
                            onTriggered: TodosStore.toggleFavorite(row.item.id)
                        }
                        PlainMenuItem {
                            objectName: "menuDelete"
                            text: "Delete"
                            onTriggered: TodosStore.deleteItem(row.item.id)
                        }
                    }
                }
            }

            // The archive, when the setting shows it.
            Item {
                visible: root.archiveShown
                width: column.width
                height: visible ? 30 : 0
                Text {
                    objectName: "archivedHeader"
                    x: 6
                    anchors.bottom: parent.bottom
                    anchors.bottomMargin: 4
                    textFormat: Text.PlainText
                    text: "Archived"
                    color: Qt.rgba(1, 1, 1, 0.6)
                    font.pixelSize: 12
                    font.weight: Font.DemiBold
                }
            }
            Repeater {
                model: root.archiveShown ? root.archived.length : 0
                delegate: Item {
                    id: archivedRow
                    required property int index
                    readonly property var item: root.archived[index] ?? ({})
                    objectName: "archived:" + (archivedRow.item.title ?? "")
                    width: column.width
                    height: 28
                    Text {
                        anchors.left: parent.left
                        anchors.leftMargin: 32
                        anchors.right: buttons.left
                        anchors.rightMargin: 8
                        anchors.verticalCenter: parent.verticalCenter
                        textFormat: Text.PlainText
                        text: archivedRow.item.title ?? ""
                        elide: Text.ElideRight
                        maximumLineCount: 1
                        font.pixelSize: 12
                        color: Qt.rgba(1, 1, 1, 0.5)
                    }
                    Row {
                        id: buttons
                        anchors.right: parent.right
                        anchors.rightMargin: 6
                        anchors.verticalCenter: parent.verticalCenter
                        spacing: 4
                        SmallButton {
                            objectName: "restore"
                            label: "Restore"
                            onClicked: TodosStore.restore(archivedRow.item.id)
                        }
                        SmallButton {
                            objectName: "deletePermanently"
                            label: "Delete permanently"
                            onClicked: TodosStore.deleteArchived(archivedRow.item.id)
                        }
                    }
                }
            }
        }
    }

    Text {
        id: noticeLine
        objectName: "notice"
        visible: TodosStore.notice.length > 0
        x: 14
        width: root.width - 28
        anchors.bottom: parent.bottom
        anchors.bottomMargin: 4
        textFormat: Text.PlainText
        text: TodosStore.notice
        wrapMode: Text.Wrap
        maximumLineCount: 3
        elide: Text.ElideRight
        color: "#FFB340"
        font.pixelSize: 11
    }
}
