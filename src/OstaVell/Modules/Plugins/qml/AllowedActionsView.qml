import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import OstaVell.Plugins
import "ActionWords.js" as ActionWords

// Where grants are managed: per caller, what it may use of the others, each with its switch;
// then what ran lately. A switch shows the router's answer, never the click that asked for it.
ColumnLayout {
    id: root
    // As NativePluginStore.allowedActions and .history; given directly only to look at them.
    property var entries: NativePluginStore.allowedActions
    property var history: NativePluginStore.history
    property string error: NativePluginStore.actionsError
    // The sentence of the last refused change.
    property string failure: ""

    // [{caller, callerName, entries}] in the order the callers first appear.
    readonly property var callers: {
        const list = []
        const byCaller = new Map()
        for (const entry of root.entries) {
            if (!byCaller.has(entry.caller)) {
                byCaller.set(entry.caller, { caller: entry.caller, callerName: entry.callerName, entries: [] })
                list.push(byCaller.get(entry.caller))
            }
            byCaller.get(entry.caller).entries.push(entry)
        }
        return list
    }

    spacing: 8

    component Heading: Label {
        textFormat: Text.PlainText
        font.bold: true
        font.pixelSize: 13
        opacity: 0.7
        Layout.topMargin: 10
    }

    Heading { text: "Allowed actions" }

    Label {
        textFormat: Text.PlainText
        visible: root.error.length > 0
        Layout.fillWidth: true
        wrapMode: Text.WordWrap
        text: root.error
        color: "#ff9a8a"
    }
    Label {
        objectName: "failure"
        textFormat: Text.PlainText
        visible: root.failure.length > 0
        Layout.fillWidth: true
        wrapMode: Text.WordWrap
        text: root.failure
        color: "#ff9a8a"
    }

    Repeater {
        model: root.callers
        delegate: ColumnLayout {
            id: group
            required property var modelData
            Layout.fillWidth: true
            spacing: 2

            Label {
                textFormat: Text.PlainText
                Layout.fillWidth: true
                Layout.topMargin: 4
                text: group.modelData.callerName + " may use"
                elide: Text.ElideRight
                font.bold: true
            }
            Repeater {
                model: group.modelData.entries
                delegate: RowLayout {
                    id: entry
                    required property var modelData
                    Layout.fillWidth: true
                    ColumnLayout {
                        Layout.fillWidth: true
                        spacing: 0
                        Label {
                            textFormat: Text.PlainText
                            Layout.fillWidth: true
                            text: entry.modelData.title
                            elide: Text.ElideRight
                        }
                        Label {
                            textFormat: Text.PlainText
                            Layout.fillWidth: true
                            text: entry.modelData.providerName + " · " + ActionWords.effect(entry.modelData.effect)
                            elide: Text.ElideRight
                            opacity: 0.6
                            font.pixelSize: 12
                        }
                    }
                    Switch {
                        objectName: "allow:" + entry.modelData.caller + ":" + entry.modelData.provider + "/"
                                    + entry.modelData.name + (entry.modelData.channel ? ":channel" : ":action")
                        checked: entry.modelData.allowed
                        Accessible.name: entry.modelData.title
                        onToggled: {
                            const e = entry.modelData
                            root.failure = NativePluginStore.setAllowed(e.caller, e.provider, e.name, e.channel, checked)
                            // On success the store's answer replaces this row; on failure it
                            // stays, and the switch goes back to what the router holds.
                            checked = Qt.binding(() => entry.modelData.allowed)
                        }
                    }
                }
            }
        }
    }

    Heading { text: "Recent actions" }

    Repeater {
        model: root.history
        delegate: RowLayout {
            id: run
            required property var modelData
            Layout.fillWidth: true
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 0
                Label {
                    textFormat: Text.PlainText
                    Layout.fillWidth: true
                    text: run.modelData.title
                    elide: Text.ElideRight
                }
                Label {
                    textFormat: Text.PlainText
                    Layout.fillWidth: true
                    text: run.modelData.callerName + " \u2192 " + run.modelData.providerName
                    elide: Text.ElideRight
                    opacity: 0.6
                    font.pixelSize: 12
                }
            }
            Label {
                textFormat: Text.PlainText
                Layout.maximumWidth: 140
                text: ActionWords.phase(run.modelData.phase)
                elide: Text.ElideRight
                opacity: 0.8
                font.pixelSize: 12
            }
            Label {
                textFormat: Text.PlainText
                text: new Date(run.modelData.date).toLocaleString(Qt.locale(), Locale.ShortFormat)
                opacity: 0.6
                font.pixelSize: 12
            }
        }
    }

    Label {
        textFormat: Text.PlainText
        Layout.fillWidth: true
        wrapMode: Text.WordWrap
        text: "History stores action identity and outcome, without arguments or returned values."
        opacity: 0.6
        font.pixelSize: 12
    }
}
