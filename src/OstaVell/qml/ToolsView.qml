import QtQuick
import OstaVell
import OstaVell.Support

// The Automations tab: a row of the tools the features offer and the chosen tool's view. The
// choice is the display's own and outlives a restart; a tool that is no longer offered gives
// way to the first one.
Item {
    id: root
    required property DisplayShelfController controller

    readonly property var tools: ShellContributions.tools("Automations")
    readonly property string chosen: tools.indexOf(controller.tool) >= 0 ? controller.tool
                                                                         : (tools.length > 0 ? tools[0] : "")
    readonly property url offered: chosen.length > 0 ? ShellContributions.tabView("Automations", chosen) : ""

    Row {
        id: picker
        visible: root.tools.length > 1
        height: visible ? 24 : 0
        spacing: 4
        Repeater {
            model: root.tools
            delegate: Rectangle {
                required property string modelData
                readonly property bool selected: root.chosen === modelData
                height: 24
                width: label.implicitWidth + 20
                radius: 12
                color: selected ? Qt.rgba(1, 1, 1, 0.14) : (hover.hovered ? Qt.rgba(1, 1, 1, 0.07) : "transparent")
                Accessible.role: Accessible.PageTab
                Accessible.name: modelData
                Accessible.onPressAction: root.controller.tool = modelData
                Text {
                    id: label
                    textFormat: Text.PlainText
                    anchors.centerIn: parent
                    text: parent.modelData
                    color: parent.selected ? root.controller.accentColor : Qt.rgba(1, 1, 1, 0.7)
                    font.pixelSize: 12
                    font.weight: parent.selected ? Font.DemiBold : Font.Normal
                }
                HoverHandler { id: hover }
                TapHandler { onTapped: root.controller.tool = parent.modelData }
            }
        }
    }

    Loader {
        id: toolView
        objectName: "tool:" + root.chosen
        anchors.fill: parent
        anchors.topMargin: picker.height > 0 ? picker.height + 8 : 0
        function load() {
            if (root.offered.toString().length > 0)
                setSource(root.offered, { controller: root.controller })
            else
                source = ""
        }
        Component.onCompleted: load()
    }
    onOfferedChanged: toolView.load()

    Text {
        textFormat: Text.PlainText
        visible: root.tools.length === 0
        anchors.centerIn: parent
        text: "Workflows"
        color: Qt.rgba(1, 1, 1, 0.55)
        font.pixelSize: 13
    }
}
