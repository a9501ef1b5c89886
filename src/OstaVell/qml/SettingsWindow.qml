import QtQuick
import QtQuick.Controls
import QtQuick.Controls.Material
import QtQuick.Layouts
import OstaVell
import OstaVell.Support

// The "workbench" window: the settings panes, dark and tinted with the accent colour.
ApplicationWindow {
    id: window
    function showPane(title) { panes.show(title) }
    required property ShelfController shelf
    title: "OstaVell Settings"
    width: 700
    height: 520
    visible: false
    Material.theme: Material.Dark
    Material.accent: SettingsStore.accentHex
    color: "#1c1c20"
    // The style shouts button labels; ours are shown as they are written.
    font.capitalization: Font.MixedCase

    menuBar: MenuBar {
        Menu {
            title: "Vell"
            Action { text: "Open Vell Here"; shortcut: "Ctrl+Shift+N"; onTriggered: window.shelf.openAtPointer("", true) }
            Action { text: "Open on All Displays"; onTriggered: window.shelf.openAll() }
            Action { text: "Collapse All"; onTriggered: window.shelf.collapse() }
        }
    }

    Shortcut { sequence: "Ctrl+Q"; onActivated: Qt.quit() }

    RowLayout {
        anchors.fill: parent
        spacing: 0

        ListView {
            id: panes
            // Opened at one pane by its title, as "Manage modules" does.
            function show(title) {
                const index = model.indexOf(title)
                if (index >= 0)
                    currentIndex = index
            }
            Layout.preferredWidth: 210
            Layout.fillHeight: true
            // The shell's own panes, then those the features offer.
            model: ["General", "Appearance"].concat(ShellContributions.settingsPanes.map(pane => pane.title))
            currentIndex: 0
            delegate: ItemDelegate {
                required property string modelData
                required property int index
                width: ListView.view.width
                text: modelData
                highlighted: ListView.isCurrentItem
                onClicked: panes.currentIndex = index
            }
        }

        Rectangle { Layout.fillHeight: true; width: 1; color: Qt.rgba(1, 1, 1, 0.08) }

        StackLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: panes.currentIndex
            GeneralPane { shelf: window.shelf }
            AppearancePane { shelf: window.shelf }
            Repeater {
                model: ShellContributions.settingsPanes
                Loader {
                    required property var modelData
                    source: modelData.view
                    // A pane that lists displays asks the shell for them.
                    onLoaded: if (item.hasOwnProperty("shelf")) item.shelf = window.shelf
                }
            }
        }
    }
}
