import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import OstaVell.Support
import OstaVell.Lightweight

// A module's card (or its page when `expanded`), with its last failure and the ways out of it.
ColumnLayout {
    id: root
    required property var module
    property bool expanded: false

    readonly property bool running: ModuleStore.running.indexOf(module.id) >= 0
    readonly property string error: ModuleStore.errors[module.id] ?? ""

    spacing: 8

    Label {
        textFormat: Text.PlainText
        visible: root.module.legacy === true
        Layout.fillWidth: true
        wrapMode: Text.WordWrap
        text: "Legacy device module — install its independent plugin"
        opacity: 0.7
    }

    Repeater {
        model: root.expanded ? root.module.page : root.module.card
        delegate: ModuleComponentView {
            required property var modelData
            Layout.fillWidth: true
            moduleID: root.module.id
            component: modelData
            running: root.running
        }
    }

    RowLayout {
        visible: root.error.length > 0 || root.running
        Layout.fillWidth: true
        Label {
            textFormat: Text.PlainText
            Layout.fillWidth: true
            visible: root.error.length > 0
            text: root.error
            wrapMode: Text.WordWrap
            color: "#ff9a8a"
        }
        Button {
            visible: root.error.length > 0 && !root.running
            text: "Try again"
            onClicked: ModuleStore.retry(root.module.id)
        }
        Button {
            visible: root.running
            text: "Stop"
            onClicked: ModuleStore.cancel(root.module.id)
        }
    }
}
