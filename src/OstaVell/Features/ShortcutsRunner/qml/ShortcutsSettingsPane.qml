import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import OstaVell.Support
import OstaVell.ShortcutsRunner

// Shortcuts: which shortcuts the widget shows and which come first.
ScrollView {
    id: pane
    contentWidth: availableWidth
    clip: true

    Component.onCompleted: ShortcutsManager.refreshOnAppear()

    readonly property var favorites: ShortcutsManager.favorites
    readonly property var hidden: ShortcutsManager.hidden

    component Heading: Label {
        textFormat: Text.PlainText
        font.bold: true
        font.pixelSize: 13
        opacity: 0.7
        Layout.topMargin: 10
    }
    component Note: Label {
        textFormat: Text.PlainText
        wrapMode: Text.WordWrap
        opacity: 0.7
        Layout.fillWidth: true
    }

    ColumnLayout {
        width: pane.availableWidth - 32
        x: 16
        spacing: 2

        Heading { text: "Shortcuts" }
        Note { text: "Hiding a shortcut only removes it from the notch widget \u2014 it stays available in the Shortcuts app." }
        Note {
            objectName: "loadMessage"
            visible: text.length > 0
            color: "#FFB340"
            text: ShortcutsManager.loadMessage
        }
        Note {
            visible: ShortcutsManager.loadState === "loaded" && ShortcutsManager.allShortcuts.length === 0
            text: "No Shortcuts Yet"
        }
        Repeater {
            model: ShortcutsManager.allShortcuts
            delegate: RowLayout {
                id: entry
                required property string modelData
                objectName: "setting:" + entry.modelData
                Layout.fillWidth: true
                spacing: 8
                Label {
                    textFormat: Text.PlainText
                    text: entry.modelData
                    elide: Text.ElideRight
                    Layout.fillWidth: true
                }
                Switch {
                    objectName: "favorite"
                    text: "Favorite"
                    checked: pane.favorites.indexOf(entry.modelData) >= 0
                    onToggled: ShortcutsManager.toggleFavorite(entry.modelData)
                }
                Switch {
                    objectName: "shown"
                    text: "Show"
                    checked: pane.hidden.indexOf(entry.modelData) < 0
                    onToggled: ShortcutsManager.setHidden(entry.modelData, !checked)
                }
            }
        }
        Button {
            objectName: "refresh"
            text: "Refresh"
            enabled: ShortcutsManager.loadState !== "loading"
            onClicked: ShortcutsManager.refresh()
        }
        Item { Layout.preferredHeight: 16 }
    }
}
