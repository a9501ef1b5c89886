import QtQuick
import OstaVell
import OstaVell.Support

// Tabs on the left; pin, settings and collapse on the right.
Item {
    id: root
    required property DisplayShelfController controller
    required property ShelfController shelf
    implicitHeight: 30
    height: implicitHeight

    readonly property var tabs: {
        const csv = SettingsStore.visibleTabsCSV
        const list = ["Vell"]
        if (csv.indexOf("Tray") >= 0) list.push("Tray")
        if (csv.indexOf("Automations") >= 0) list.push("Automations")
        return list
    }

    Row {
        spacing: 6
        anchors.verticalCenter: parent.verticalCenter
        Repeater {
            model: root.tabs
            delegate: Rectangle {
                required property string modelData
                readonly property bool selected: root.controller.tab === modelData
                height: 28
                width: label.implicitWidth + 24
                radius: 14
                color: selected ? Qt.rgba(1, 1, 1, 0.16) : (tabHover.hovered ? Qt.rgba(1, 1, 1, 0.08) : "transparent")
                Accessible.role: Accessible.PageTab
                Accessible.name: modelData
                Text {
                    textFormat: Text.PlainText
                    id: label
                    anchors.centerIn: parent
                    text: parent.modelData
                    color: parent.selected ? root.controller.accentColor : Qt.rgba(1, 1, 1, 0.8)
                    font.pixelSize: 13
                    font.weight: parent.selected ? Font.DemiBold : Font.Normal
                }
                HoverHandler { id: tabHover }
                TapHandler { onTapped: root.controller.tab = parent.modelData }
            }
        }
    }

    Row {
        spacing: 6
        anchors.right: parent.right
        anchors.verticalCenter: parent.verticalCenter
        HeaderButton {
            glyph: "pin"
            help: "Keep this vell open"
            active: root.controller.isPinned
            accent: root.controller.accentColor
            onClicked: root.controller.isPinned = !root.controller.isPinned
        }
        HeaderButton {
            glyph: "gear"
            help: "Settings"
            onClicked: root.shelf.requestSettings()
        }
        HeaderButton {
            glyph: "chevronUp"
            help: "Collapse vell"
            onClicked: root.controller.collapse()
        }
    }
}
