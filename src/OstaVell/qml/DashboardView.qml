import QtQuick
import OstaVell
import OstaVell.Support

// What the open panel shows under its header, by tab.
Item {
    id: root
    required property DisplayShelfController controller

    readonly property string tab: controller.tab
    // A feature's view for this tab, when one is offered; the shell's own otherwise.
    readonly property url offered: isTools ? "" : ShellContributions.tabView(tab)

    // Built the first time the panel opens and kept: a closed panel shows no tab, so a display
    // that is added builds only its notch.
    property bool opened: root.controller.isExpanded
    Connections {
        target: root.controller
        function onIsExpandedChanged() {
            if (root.controller.isExpanded)
                root.opened = true
        }
    }

    // A tab's view belongs to one display: it is given that display's controller.
    Loader {
        id: offeredView
        anchors.fill: parent
        active: root.opened && root.offered.toString().length > 0
        function load() {
            setSource(root.offered, { controller: root.controller })
        }
        Component.onCompleted: load()
    }
    onOfferedChanged: offeredView.load()
    onOpenedChanged: offeredView.load()
    readonly property bool isTray: tab === "Tray"
    readonly property bool isTools: tab === "Tools" || tab === "Automations"

    // The tray.
    Column {
        visible: root.isTray && !root.offered.toString()
        anchors.centerIn: parent
        spacing: 10
        Text {
            textFormat: Text.PlainText
            anchors.horizontalCenter: parent.horizontalCenter
            text: "Your files, links and clippings"
            color: Qt.rgba(1, 1, 1, 0.55)
            font.pixelSize: 13
        }
        Rectangle {
            anchors.horizontalCenter: parent.horizontalCenter
            width: addLabel.implicitWidth + 28
            height: 28
            radius: 14
            color: Qt.rgba(1, 1, 1, 0.085)
            border.color: Qt.rgba(1, 1, 1, 0.1)
            Text {
                textFormat: Text.PlainText
                id: addLabel
                anchors.centerIn: parent
                text: "Add Files"
                color: Qt.rgba(1, 1, 1, 0.85)
                font.pixelSize: 13
            }
        }
    }

    // The tools, each the view of its feature.
    Loader {
        anchors.fill: parent
        active: root.opened && root.isTools
        sourceComponent: Component {
            ToolsView { controller: root.controller }
        }
    }

    // The workspace stage: 16:9, empty until modules or plugins are placed on it.
    Rectangle {
        visible: !root.isTray && !root.isTools && !root.offered.toString()
        anchors.fill: parent
        radius: 16
        color: Qt.rgba(1, 1, 1, 0.085)
        border.color: Qt.rgba(1, 1, 1, 0.1)
        Text {
            textFormat: Text.PlainText
            anchors.centerIn: parent
            text: "No workspace yet"
            color: Qt.rgba(1, 1, 1, 0.45)
            font.pixelSize: 13
        }
    }
}
