import QtQuick
import QtQuick.Controls
import QtQuick.Dialogs
import QtQuick.Layouts
import OstaVell.Support
import OstaVell.Lightweight

// Installed modules: install from a file or an example after a review, use each one's card,
// change its settings, switch it off or remove it.
ScrollView {
    id: pane
    contentWidth: availableWidth
    clip: true

    property string reviewError: ""
    property string removing: ""

    ColumnLayout {
        width: pane.availableWidth - 32
        x: 16
        spacing: 10

        RowLayout {
            Layout.topMargin: 10
            Button {
                text: "Install Module…"
                onClicked: chooser.open()
            }
            Button {
                id: examples
                text: "Examples"
                onClicked: exampleMenu.popup(examples, 0, examples.height)
                Menu {
                    id: exampleMenu
                    MenuItem {
                        text: "Hello Vell"
                        onTriggered: pane.reviewError = ModuleStore.reviewExample("HelloVell")
                    }
                }
            }
        }

        Label {
            textFormat: Text.PlainText
            visible: ModuleStore.notice.length > 0
            Layout.fillWidth: true
            wrapMode: Text.WordWrap
            text: ModuleStore.notice
            color: "#ff9a8a"
        }
        Label {
            textFormat: Text.PlainText
            visible: ModuleStore.modules.length === 0
            Layout.fillWidth: true
            wrapMode: Text.WordWrap
            text: "No modules installed. Try Hello Vell to see how modules work."
            opacity: 0.7
        }

        Repeater {
            model: ModuleStore.modules
            delegate: Frame {
                id: entry
                required property var modelData
                Layout.fillWidth: true
                ColumnLayout {
                    anchors.fill: parent
                    spacing: 8
                    RowLayout {
                        Layout.fillWidth: true
                        Label {
                            textFormat: Text.PlainText
                            Layout.fillWidth: true
                            text: entry.modelData.name + "  " + entry.modelData.version
                            font.bold: true
                            elide: Text.ElideRight
                        }
                        Switch {
                            checked: entry.modelData.enabled
                            onToggled: ModuleStore.setEnabled(entry.modelData.id, checked)
                        }
                        Button {
                            text: "Remove…"
                            flat: true
                            onClicked: { pane.removing = entry.modelData.id; removeDialog.open() }
                        }
                    }
                    ModuleCardView {
                        Layout.fillWidth: true
                        module: entry.modelData
                    }
                    Label {
                        textFormat: Text.PlainText
                        visible: entry.modelData.legacy === true
                        Layout.fillWidth: true
                        wrapMode: Text.WordWrap
                        text: "This legacy device module needs its separately installed plugin. Saved settings have been kept."
                        opacity: 0.7
                    }
                    Repeater {
                        model: entry.modelData.settings
                        delegate: RowLayout {
                            required property var modelData
                            Layout.fillWidth: true
                            Label { textFormat: Text.PlainText; text: modelData.label; Layout.preferredWidth: 140; elide: Text.ElideRight }
                            TextField {
                                Layout.fillWidth: true
                                text: entry.modelData.configuration[modelData.id] ?? modelData.defaultValue
                                // Sent on Return and when the field loses focus.
                                onEditingFinished: {
                                    if (text !== (entry.modelData.configuration[modelData.id] ?? ""))
                                        ModuleStore.configure(entry.modelData.id, modelData.id, text)
                                }
                            }
                        }
                    }
                }
            }
        }
        Item { Layout.preferredHeight: 16 }
    }

    FileDialog {
        id: chooser
        title: "Choose a .ostavellmodule JSON package."
        nameFilters: ["OstaVell modules (*.ostavellmodule)"]
        onAccepted: pane.reviewError = ModuleStore.review(selectedFile)
    }

    // The review screen: nothing is installed until the user says so.
    Dialog {
        id: review
        modal: true
        anchors.centerIn: Overlay.overlay
        width: Math.min(pane.width - 40, 460)
        visible: Object.keys(ModuleStore.reviewed).length > 0 || pane.reviewError.length > 0
        closePolicy: Popup.NoAutoClose
        title: ModuleStore.reviewed.name ?? "Module"
        // The style's header would guess rich text from the package's name.
        header: Label {
            text: review.title
            textFormat: Text.PlainText
            elide: Text.ElideRight
            font.bold: true
            font.pixelSize: 18
            padding: 24
            bottomPadding: 0
        }
        ColumnLayout {
            width: review.availableWidth
            spacing: 8
            Label {
                textFormat: Text.PlainText
                visible: ModuleStore.reviewed.version !== undefined
                text: (ModuleStore.reviewed.version ?? "") + " · " + (ModuleStore.reviewed.author ?? "")
                opacity: 0.7
            }
            Label {
                textFormat: Text.PlainText
                Layout.fillWidth: true
                visible: (ModuleStore.reviewed.summary ?? "").length > 0
                text: ModuleStore.reviewed.summary ?? ""
                wrapMode: Text.WordWrap
            }
            Label {
                textFormat: Text.PlainText
                Layout.fillWidth: true
                visible: ModuleStore.reviewed.publisher !== undefined
                text: ModuleStore.reviewed.publisher ?? ""
                wrapMode: Text.WordWrap
                opacity: 0.8
            }
            Label {
                textFormat: Text.PlainText
                Layout.fillWidth: true
                visible: ModuleStore.reviewed.access !== undefined
                text: ModuleStore.reviewed.access ?? ""
                wrapMode: Text.WordWrap
            }
            Label {
                textFormat: Text.PlainText
                Layout.fillWidth: true
                visible: pane.reviewError.length > 0
                text: pane.reviewError
                wrapMode: Text.WordWrap
                color: "#ff9a8a"
            }
        }
        footer: DialogButtonBox {
            Button {
                text: "Cancel"
                DialogButtonBox.buttonRole: DialogButtonBox.RejectRole
            }
            Button {
                text: "Install"
                enabled: Object.keys(ModuleStore.reviewed).length > 0
                DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole
            }
            onAccepted: pane.reviewError = ModuleStore.installReviewed()
            onRejected: { pane.reviewError = ""; ModuleStore.cancelReview() }
        }
    }

    Dialog {
        id: removeDialog
        modal: true
        anchors.centerIn: Overlay.overlay
        width: Math.min(pane.width - 40, 460)
        title: "Remove module and its saved data?"
        contentItem: Label {
            textFormat: Text.PlainText
            wrapMode: Text.WordWrap
            text: "Only this module's local state and settings will be removed. Your other tools and original package are kept."
        }
        footer: DialogButtonBox {
            Button { text: "Cancel"; DialogButtonBox.buttonRole: DialogButtonBox.RejectRole }
            Button { text: "Remove"; DialogButtonBox.buttonRole: DialogButtonBox.DestructiveRole }
            onClicked: button => {
                if (button.DialogButtonBox.buttonRole === DialogButtonBox.DestructiveRole)
                    ModuleStore.remove(pane.removing)
                removeDialog.close()
            }
            onRejected: removeDialog.close()
        }
    }
}
