import QtQuick
import QtQuick.Controls
import OstaVell.Plugins

// One button of a plugin. A press goes to the plugin as the action's id; an action with a
// confirmation asks first, and only "Confirm" lets the press count. The store judges the press
// again against the plugin's own snapshot, so this view is never the only gate.
PillButton {
    id: root
    required property string pluginID
    // {id, label, enabled, symbol, confirmation} as the plugin sent it.
    required property var action

    readonly property bool asks: root.action.confirmation !== undefined && root.action.confirmation !== null

    objectName: "action:" + (root.action.id ?? "")
    label: root.action.label ?? ""
    symbol: root.action.symbol ?? ""
    enabled: root.action.enabled === true

    onClicked: {
        if (root.asks)
            confirmation.open()
        else
            NativePluginStore.press(root.pluginID, root.action.id)
    }

    Popup {
        id: confirmation
        objectName: "confirmation"
        parent: Overlay.overlay
        anchors.centerIn: parent
        width: Math.min(parent ? parent.width - 40 : 360, 360)
        modal: true
        focus: true
        padding: 18
        closePolicy: Popup.CloseOnEscape

        background: Rectangle {
            radius: 16
            color: "#26262b"
            border.color: Qt.rgba(1, 1, 1, 0.12)
        }

        contentItem: Column {
            spacing: 14
            Text {
                textFormat: Text.PlainText
                width: confirmation.availableWidth
                text: root.asks ? String(root.action.confirmation) : ""
                wrapMode: Text.Wrap
                color: Qt.rgba(1, 1, 1, 0.9)
                font.pixelSize: 13
            }
            Row {
                anchors.right: parent.right
                spacing: 8
                PillButton {
                    objectName: "cancel"
                    label: "Cancel"
                    onClicked: confirmation.close()
                }
                PillButton {
                    objectName: "confirm"
                    label: "Confirm"
                    active: true
                    onClicked: {
                        confirmation.close()
                        // A snapshot that came while asking may have disabled it.
                        if (root.enabled)
                            NativePluginStore.press(root.pluginID, root.action.id)
                    }
                }
            }
        }
    }
}
