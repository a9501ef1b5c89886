import QtQuick
import QtQuick.Controls
import QtQuick.Dialogs
import QtQuick.Layouts
import OstaVell.Support
import OstaVell.Plugins

// Installed native plugins: install or update one after a review, switch it on and off, restart
// it, open its own settings, choose where it shows, restore a saved version or remove it; runs
// waiting for a person; and what each plugin may use of the others.
ScrollView {
    id: pane
    contentWidth: availableWidth
    clip: true

    // The shell's controller, for its displays; the settings window hands it over.
    property var shelf: null
    // As the store holds them; given directly only to look at them.
    property var plugins: NativePluginStore.plugins
    property var reviews: NativePluginStore.reviews
    property var reviewed: NativePluginStore.reviewed
    // The sentence of the last refused review.
    property string failure: ""
    // The plugin the removal dialog asks about.
    property var removing: ({})

    readonly property bool reviewing: Object.keys(pane.reviewed).length > 0
    readonly property var displays: pane.shelf ? pane.shelf.displays : []

    component Heading: Label {
        textFormat: Text.PlainText
        font.bold: true
        font.pixelSize: 13
        opacity: 0.7
        Layout.topMargin: 10
    }
    component Caption: Label {
        textFormat: Text.PlainText
        opacity: 0.6
        font.pixelSize: 12
    }

    function usageLine(usage) {
        return "CPU " + Number(usage.cpuSeconds).toFixed(1) + " s in the last minute \u00B7 "
               + (Number(usage.residentBytes) / 1000000).toFixed(1) + " MB"
    }

    ColumnLayout {
        width: pane.availableWidth - 32
        x: 16
        spacing: 10

        Button {
            objectName: "install"
            Layout.topMargin: 10
            text: "Install or Update Plugin…"
            enabled: !pane.reviewing
            onClicked: chooser.open()
        }

        Label {
            textFormat: Text.PlainText
            visible: pane.failure.length > 0 && !pane.reviewing
            Layout.fillWidth: true
            wrapMode: Text.WordWrap
            text: pane.failure
            color: "#ff9a8a"
        }
        Label {
            textFormat: Text.PlainText
            objectName: "notice"
            visible: NativePluginStore.notice.length > 0 && !pane.reviewing
            Layout.fillWidth: true
            wrapMode: Text.WordWrap
            text: NativePluginStore.notice
            color: "#ffd08a"
        }

        PluginReviewView {
            visible: pane.reviewing
            Layout.fillWidth: true
            reviewed: pane.reviewed
        }

        ColumnLayout {
            visible: !pane.reviewing
            Layout.fillWidth: true
            spacing: 10

            Heading {
                visible: pane.reviews.length > 0
                text: "Waiting for review"
            }
            Repeater {
                model: pane.reviews
                delegate: ActionReviewCard {
                    required property var modelData
                    Layout.fillWidth: true
                    review: modelData
                    accent: SettingsStore.accentHex
                }
            }

            Repeater {
                model: pane.plugins
                delegate: Frame {
                    id: entry
                    required property var modelData
                    readonly property var icon: modelData.icon ?? ({})
                    readonly property var hidden: modelData.hiddenDisplayIDs ?? []
                    objectName: "plugin:" + modelData.id
                    Layout.fillWidth: true

                    ColumnLayout {
                        anchors.fill: parent
                        spacing: 6

                        RowLayout {
                            Layout.fillWidth: true
                            spacing: 10
                            Rectangle {
                                implicitWidth: 32
                                implicitHeight: 32
                                radius: 8
                                color: Qt.rgba(1, 1, 1, 0.08)
                                SymbolIcon {
                                    anchors.centerIn: parent
                                    name: entry.icon.symbol ?? ""
                                    color: entry.icon.color ? "#" + entry.icon.color : Qt.rgba(1, 1, 1, 0.85)
                                    size: 20
                                }
                            }
                            ColumnLayout {
                                Layout.fillWidth: true
                                spacing: 0
                                Label {
                                    textFormat: Text.PlainText
                                    Layout.fillWidth: true
                                    text: entry.modelData.name + "  " + entry.modelData.version
                                    elide: Text.ElideRight
                                    font.bold: true
                                }
                                Caption {
                                    visible: text.length > 0
                                    Layout.fillWidth: true
                                    text: entry.modelData.status ?? ""
                                    elide: Text.ElideRight
                                }
                            }
                            Switch {
                                objectName: "enabled"
                                checked: entry.modelData.enabled
                                onToggled: {
                                    NativePluginStore.setEnabled(entry.modelData.id, checked)
                                    // A refused save leaves the record, and the switch, as they were.
                                    checked = Qt.binding(() => entry.modelData.enabled)
                                }
                            }
                        }

                        Caption {
                            readonly property var usage: NativePluginStore.usage[entry.modelData.id]
                            visible: entry.modelData.running === true && usage !== undefined
                            Layout.fillWidth: true
                            text: visible ? pane.usageLine(usage) : ""
                        }

                        RowLayout {
                            Layout.fillWidth: true
                            Button {
                                text: "Restart"
                                enabled: entry.modelData.enabled
                                onClicked: NativePluginStore.restart(entry.modelData.id)
                            }
                            Button {
                                text: "Plugin Settings…"
                                enabled: entry.modelData.running === true
                                onClicked: NativePluginStore.configure(entry.modelData.id)
                            }
                            Item { Layout.fillWidth: true }
                            Button {
                                objectName: "remove"
                                text: "Remove…"
                                flat: true
                                onClicked: {
                                    pane.removing = entry.modelData
                                    removeDialog.open()
                                }
                            }
                        }

                        // Where it shows.
                        Flow {
                            Layout.fillWidth: true
                            spacing: 12
                            Repeater {
                                model: pane.displays
                                delegate: Row {
                                    id: display
                                    required property var modelData
                                    CheckBox {
                                        objectName: "display:" + display.modelData.appearanceID
                                        anchors.verticalCenter: parent.verticalCenter
                                        checked: entry.hidden.indexOf(display.modelData.appearanceID) < 0
                                        Accessible.name: display.modelData.name
                                        onToggled: {
                                            NativePluginStore.setVisible(entry.modelData.id,
                                                                         display.modelData.appearanceID, checked)
                                            checked = Qt.binding(
                                                () => entry.hidden.indexOf(display.modelData.appearanceID) < 0)
                                        }
                                    }
                                    Label {
                                        textFormat: Text.PlainText
                                        anchors.verticalCenter: parent.verticalCenter
                                        width: Math.min(implicitWidth, 240)
                                        text: display.modelData.name
                                        elide: Text.ElideRight
                                    }
                                }
                            }
                            Row {
                                CheckBox {
                                    anchors.verticalCenter: parent.verticalCenter
                                    checked: entry.modelData.compactActivity
                                    Accessible.name: "Show in closed notch"
                                    onToggled: {
                                        NativePluginStore.setCompact(entry.modelData.id, checked)
                                        checked = Qt.binding(() => entry.modelData.compactActivity)
                                    }
                                }
                                Label {
                                    textFormat: Text.PlainText
                                    anchors.verticalCenter: parent.verticalCenter
                                    text: "Show in closed notch"
                                }
                            }
                        }

                        Caption {
                            visible: (entry.modelData.previousVersions ?? []).length > 0
                            Layout.topMargin: 4
                            text: "Saved versions"
                        }
                        Repeater {
                            model: entry.modelData.previousVersions ?? []
                            delegate: RowLayout {
                                id: saved
                                required property var modelData
                                Layout.fillWidth: true
                                Label {
                                    textFormat: Text.PlainText
                                    Layout.maximumWidth: 160
                                    text: saved.modelData.version
                                    elide: Text.ElideRight
                                }
                                Caption {
                                    Layout.fillWidth: true
                                    text: new Date(saved.modelData.savedAt).toLocaleString(Qt.locale(), Locale.ShortFormat)
                                }
                                Button {
                                    text: "Restore…"
                                    flat: true
                                    onClicked: pane.failure = NativePluginStore.reviewSaved(entry.modelData.id,
                                                                                            saved.modelData.folder)
                                }
                            }
                        }
                    }
                }
            }

            AllowedActionsView {
                Layout.fillWidth: true
            }
        }

        Item { Layout.preferredHeight: 16 }
    }

    FolderDialog {
        id: chooser
        title: "Choose a separately packaged plugin app."
        onAccepted: pane.failure = NativePluginStore.review(selectedFolder)
    }

    Dialog {
        id: removeDialog
        modal: true
        anchors.centerIn: Overlay.overlay
        width: Math.min(pane.width - 40, 460)
        // The style's header would guess rich text from the plugin's name.
        header: Label {
            text: pane.removing.name ?? ""
            textFormat: Text.PlainText
            elide: Text.ElideRight
            font.bold: true
            font.pixelSize: 18
            padding: 24
            bottomPadding: 0
        }
        contentItem: Label {
            textFormat: Text.PlainText
            wrapMode: Text.WordWrap
            text: "The plugin will stop and disappear from OstaVell. Its own settings and credentials are retained for reinstalling; manage them in Plugin Settings."
        }
        footer: DialogButtonBox {
            Button {
                objectName: "cancelRemove"
                text: "Cancel"
                DialogButtonBox.buttonRole: DialogButtonBox.RejectRole
            }
            Button {
                objectName: "confirmRemove"
                text: "Remove"
                DialogButtonBox.buttonRole: DialogButtonBox.DestructiveRole
            }
            onClicked: button => {
                if (button.DialogButtonBox.buttonRole === DialogButtonBox.DestructiveRole)
                    NativePluginStore.remove(pane.removing.id)
                removeDialog.close()
            }
            onRejected: removeDialog.close()
        }
    }
}
