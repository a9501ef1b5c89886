import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import OstaVell.Support
import OstaVell.HUD

// Volume and brightness: whether the notch takes over the keys, when it shows, and where the
// volume keys of this output go.
ScrollView {
    id: pane
    contentWidth: availableWidth
    clip: true

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

        Heading { text: "Volume and brightness" }
        Switch {
            objectName: "replaceSystemHUD"
            Layout.fillWidth: true
            text: "Replace the system volume and brightness display"
            checked: SettingsStore.replaceSystemHUD
            onToggled: SettingsStore.replaceSystemHUD = checked
        }
        Note {
            objectName: "grabState"
            visible: SettingsStore.replaceSystemHUD && (MediaKeyInterceptor.keysUnavailable || !MediaKeyInterceptor.grabAvailable)
            text: MediaKeyInterceptor.keysUnavailable
                  ? "This session doesn't let OstaVell take the keys. Changes still show in the notch."
                  : "Another program holds the volume or brightness keys, so they stay with it until it lets them go."
        }
        Switch {
            Layout.fillWidth: true
            text: "Show when the volume is changed elsewhere"
            checked: HUDSettings.showOnExternalChange
            onToggled: HUDSettings.showOnExternalChange = checked
        }
        Switch {
            Layout.fillWidth: true
            text: "Play feedback when the volume is changed"
            checked: HUDSettings.volumeFeedback
            onToggled: HUDSettings.volumeFeedback = checked
        }

        Heading { text: "Output" }
        RowLayout {
            Label { textFormat: Text.PlainText; text: "Selected output volume"; Layout.preferredWidth: 180 }
            ComboBox {
                id: picker
                objectName: "volumeRoute"
                Layout.fillWidth: true
                model: VolumeTargetManager.choices
                textRole: "name"
                valueRole: "id"
                currentIndex: model.findIndex(choice => choice.id === VolumeTargetManager.selectionID)
                onActivated: VolumeTargetManager.select(currentValue)
                // Names come from plugins: never read as markup.
                contentItem: Text {
                    textFormat: Text.PlainText
                    leftPadding: 12
                    verticalAlignment: Text.AlignVCenter
                    text: picker.displayText
                    elide: Text.ElideRight
                    color: "white"
                }
                delegate: ItemDelegate {
                    id: choice
                    required property var modelData
                    required property int index
                    width: picker.width
                    highlighted: picker.highlightedIndex === index
                    contentItem: Text {
                        textFormat: Text.PlainText
                        text: choice.modelData.name
                        elide: Text.ElideRight
                        verticalAlignment: Text.AlignVCenter
                        color: "white"
                    }
                }
            }
        }
        Note {
            objectName: "volumeStatus"
            visible: text.length > 0
            text: VolumeTargetManager.status
        }
        Item { Layout.preferredHeight: 16 }
    }
}
