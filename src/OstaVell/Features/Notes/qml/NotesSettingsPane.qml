import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import OstaVell.Notes

// Notes: where the file is, the editor's text size and the list's order.
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
        spacing: 4

        Heading { text: "Notes" }
        Note {
            objectName: "filePath"
            text: NotesStore.filePath
        }
        Button {
            objectName: "reveal"
            text: "Show Notes File in File Manager"
            onClicked: NotesStore.revealInFileManager()
        }
        RowLayout {
            Label { textFormat: Text.PlainText; text: "Font size"; Layout.preferredWidth: 180 }
            SpinBox {
                objectName: "fontSize"
                from: 9
                to: 32
                value: NotesStore.fontSize
                onValueModified: NotesStore.fontSize = value
            }
        }
        RowLayout {
            Label { textFormat: Text.PlainText; text: "Sort notes by"; Layout.preferredWidth: 180 }
            ComboBox {
                id: order
                objectName: "sortOrder"
                Layout.fillWidth: true
                model: NotesStore.sortOrders
                textRole: "label"
                valueRole: "raw"
                currentIndex: NotesStore.sortOrders.findIndex(o => o.raw === NotesStore.sortOrder)
                onActivated: NotesStore.sortOrder = currentValue
                contentItem: Text {
                    textFormat: Text.PlainText
                    leftPadding: 12
                    verticalAlignment: Text.AlignVCenter
                    text: order.displayText
                    elide: Text.ElideRight
                    color: "white"
                }
                delegate: ItemDelegate {
                    id: choice
                    required property var modelData
                    required property int index
                    width: order.width
                    highlighted: order.highlightedIndex === index
                    contentItem: Text {
                        textFormat: Text.PlainText
                        text: choice.modelData.label
                        verticalAlignment: Text.AlignVCenter
                        color: "white"
                    }
                }
            }
        }
        Note {
            objectName: "notice"
            visible: text.length > 0
            color: "#FFB340"
            text: NotesStore.notice
        }
        Item { Layout.preferredHeight: 16 }
    }
}
