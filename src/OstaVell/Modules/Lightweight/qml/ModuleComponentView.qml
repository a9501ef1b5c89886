import QtQuick
import QtQuick.Controls
import OstaVell.Support
import OstaVell.Lightweight

// One declared component of a module, drawn from the module's state: text, heading, badge,
// progress or button. The module itself draws nothing.
Item {
    id: root
    required property string moduleID
    required property var component
    property bool running: false

    // Any change to the modules re-renders the text from the new state.
    readonly property string shown: { ModuleStore.modules; return ModuleStore.text(moduleID, component.text) }

    implicitWidth: loader.implicitWidth
    implicitHeight: loader.implicitHeight

    Loader {
        id: loader
        width: root.width
        sourceComponent: ({ text: body, heading: heading, badge: badge, progress: bar, button: button })[root.component.kind] ?? body
    }

    Component {
        id: body
        TextEdit {
            textFormat: TextEdit.PlainText
            width: root.width
            text: root.shown
            readOnly: true
            selectByMouse: true
            wrapMode: TextEdit.Wrap
            color: Qt.rgba(1, 1, 1, 0.6)
            font.pixelSize: 13
        }
    }
    Component {
        id: heading
        TextEdit {
            textFormat: TextEdit.PlainText
            width: root.width
            text: root.shown
            readOnly: true
            selectByMouse: true
            wrapMode: TextEdit.Wrap
            color: "white"
            font.pixelSize: 17
            font.bold: true
        }
    }
    Component {
        id: badge
        Item {
            implicitWidth: badgeText.implicitWidth + 16
            implicitHeight: badgeText.implicitHeight + 8
            Rectangle {
                width: parent.implicitWidth
                height: parent.implicitHeight
                radius: height / 2
                color: Qt.rgba(1, 1, 1, 0.1)
                Text {
                    textFormat: Text.PlainText
                    id: badgeText
                    anchors.centerIn: parent
                    text: root.shown
                    color: "white"
                    font.bold: true
                    font.pixelSize: 12
                }
            }
        }
    }
    Component {
        id: bar
        Column {
            width: root.width
            spacing: 4
            Text { text: root.shown; textFormat: Text.PlainText; color: Qt.rgba(1, 1, 1, 0.8); font.pixelSize: 12 }
            ProgressBar {
                width: parent.width
                from: 0
                to: 100
                value: { ModuleStore.modules; return ModuleStore.progress(root.moduleID, root.component.valueKey ?? "") }
            }
        }
    }
    Component {
        id: button
        Button {
            id: press
            text: root.shown
            enabled: !root.running
            // The style's own label would guess rich text from the module's title.
            contentItem: Text {
                text: press.text
                textFormat: Text.PlainText
                font: press.font
                color: press.enabled ? "white" : Qt.rgba(1, 1, 1, 0.4)
                horizontalAlignment: Text.AlignHCenter
                verticalAlignment: Text.AlignVCenter
                elide: Text.ElideRight
            }
            onClicked: ModuleStore.press(root.moduleID, root.component.action)
        }
    }
}
