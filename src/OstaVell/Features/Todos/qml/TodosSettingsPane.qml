import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import OstaVell.Todos

// To-dos: how long a done item stays in the list, and whether the archive shows under it.
ScrollView {
    id: pane
    contentWidth: availableWidth
    clip: true

    // The delays offered, in hours; 0 is never.
    readonly property var delays: [
        { hours: 1, label: "After 1 hour" },
        { hours: 6, label: "After 6 hours" },
        { hours: 12, label: "After 12 hours" },
        { hours: 24, label: "After 24 hours" },
        { hours: 48, label: "After 2 days" },
        { hours: 168, label: "After 1 week" },
        { hours: 0, label: "Never" }
    ]

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

        Heading { text: "To-dos" }
        RowLayout {
            Label { textFormat: Text.PlainText; text: "Archive completed to-dos"; Layout.preferredWidth: 180 }
            ComboBox {
                id: delay
                objectName: "autoArchive"
                Layout.fillWidth: true
                model: pane.delays
                textRole: "label"
                valueRole: "hours"
                currentIndex: pane.delays.findIndex(d => d.hours === TodosStore.autoArchiveHours)
                onActivated: TodosStore.autoArchiveHours = currentValue
                contentItem: Text {
                    textFormat: Text.PlainText
                    leftPadding: 12
                    verticalAlignment: Text.AlignVCenter
                    text: delay.currentIndex >= 0 ? delay.displayText
                                                  : TodosStore.autoArchiveHours + " hours"
                    elide: Text.ElideRight
                    color: "white"
                }
                delegate: ItemDelegate {
                    id: choice
                    required property var modelData
                    required property int index
                    width: delay.width
                    highlighted: delay.highlightedIndex === index
                    contentItem: Text {
                        textFormat: Text.PlainText
                        text: choice.modelData.label
                        verticalAlignment: Text.AlignVCenter
                        color: "white"
                    }
                }
            }
        }
        Note { text: "Completed to-dos stay visible (struck through) until the auto-archive delay passes, then move to the archive." }
        Switch {
            objectName: "showArchived"
            Layout.fillWidth: true
            text: "Show archived to-dos"
            checked: TodosStore.showArchived
            onToggled: TodosStore.showArchived = checked
        }
        Button {
            objectName: "clearArchive"
            text: "Clear Archive"
            enabled: TodosStore.archivedItems.length > 0 && !TodosStore.storageUnavailable
            onClicked: TodosStore.clearArchive()
        }
        Note {
            objectName: "notice"
            visible: text.length > 0
            color: "#FFB340"
            text: TodosStore.notice
        }
        Item { Layout.preferredHeight: 16 }
    }
}
