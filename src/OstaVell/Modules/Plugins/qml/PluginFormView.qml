import QtQuick
import QtQuick.Controls
import OstaVell.Plugins
import "ActionWords.js" as ActionWords

// One form of a plugin: its inputs, drawn by the host from the form's declaration, and the run a
// submit starts. A submit invokes the plugin's own action through the router, so a change waits
// for "Confirm" here like any other caller's run; what runs is what was shown. Every text from
// the plugin is drawn as plain text.
Rectangle {
    id: root
    required property string pluginID
    required property string panelID
    // {id, title, revision, action, inputs, enabled} as the plugin sent it.
    required property var form
    property color accent: "#C7EB87"

    // Input id to value, starting at the form's initial values.
    property var values: ({})
    // Input id to the text typed in a number field, which must read as a decimal.
    property var numbers: ({})
    property string runID: ""
    property string error: ""

    readonly property var inputs: root.form.inputs ?? []
    readonly property var schema: (root.form.action ?? {}).input ?? {}
    readonly property var run: root.runID.length > 0 ? (NativePluginStore.formRuns[root.runID] ?? null) : null
    readonly property bool busy: root.run !== null && ["waitingReview", "running", "cancelling"].indexOf(root.run.phase) >= 0
    // Which form of which page this is, and which version of it: what was typed belongs to the
    // version it was typed into, the run to the form it came from.
    readonly property string formKey: root.pluginID + "\n" + root.panelID + "\n" + (root.form.id ?? "")
    readonly property string identity: root.formKey + "\n" + (root.form.revision ?? "")

    function defaults() {
        const start = {}
        for (const input of root.inputs)
            start[input.id] = input.value
        return start
    }
    function reset() {
        root.values = root.defaults()
        root.numbers = ({})
        root.error = ""
    }
    function setValue(id, value) {
        const next = Object.assign({}, root.values)
        next[id] = value
        root.values = next
    }
    function setNumber(id, text) {
        const next = Object.assign({}, root.numbers)
        next[id] = text
        root.numbers = next
        if (root.isDecimal(text))
            root.setValue(id, Number(text))
    }
    function isDecimal(text) {
        return /^\s*[+-]?(\d+(\.\d*)?|\.\d+)\s*$/.test(text)
    }
    function field(id) {
        return (root.schema.fields ?? []).find(f => f.name === id) ?? {}
    }
    function labelOf(id) {
        return (root.inputs.find(input => input.id === id) ?? {}).label ?? id
    }
    function submit() {
        root.error = ""
        // A number field whose text is not a decimal has no value: the form's own check says so.
        const values = Object.assign({}, root.values)
        for (const input of root.inputs) {
            const typed = root.numbers[input.id]
            if (input.style === "number" && typed !== undefined && !root.isDecimal(typed))
                delete values[input.id]
        }
        const answer = NativePluginStore.submitForm(root.pluginID, root.panelID, root.form, values)
        if (answer.error !== undefined)
            root.error = answer.error
        else
            root.runID = answer.run
    }

    // A view drawn anew follows the run its form still has under way.
    function follow() {
        root.runID = ""
        const runs = NativePluginStore.formRuns
        for (const id in runs) {
            const known = runs[id]
            if (known.plugin === root.pluginID && known.panel === root.panelID && known.form === root.form.id
                    && ["waitingReview", "running", "cancelling"].indexOf(known.phase) >= 0)
                root.runID = id
        }
    }

    onFormKeyChanged: root.follow()
    onIdentityChanged: root.reset()
    Component.onCompleted: {
        root.reset()
        root.follow()
    }

    objectName: "form:" + (root.form.id ?? "")
    implicitHeight: body.implicitHeight + 28
    radius: 14
    color: Qt.rgba(1, 1, 1, 0.085)
    border.color: root.run !== null && root.run.phase === "waitingReview"
                  ? Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.45) : Qt.rgba(1, 1, 1, 0.1)

    component FieldBackground: Rectangle {
        property bool focused: false
        radius: 14
        color: Qt.rgba(1, 1, 1, 0.085)
        border.color: focused ? Qt.rgba(1, 1, 1, 0.3) : Qt.rgba(1, 1, 1, 0.1)
    }

    Column {
        id: body
        x: 14
        y: 14
        width: parent.width - 28
        spacing: 10

        Text {
            textFormat: Text.PlainText
            width: parent.width
            text: root.form.title ?? ""
            wrapMode: Text.Wrap
            color: Qt.rgba(1, 1, 1, 0.95)
            font.pixelSize: 13
            font.weight: Font.DemiBold
        }

        // Counted, not the inputs themselves, so that a new snapshot of the same form redraws
        // nothing and takes no one's focus away.
        Repeater {
            model: root.inputs.length
            delegate: Row {
                id: row
                required property int index
                readonly property var input: root.inputs[index] ?? {}
                readonly property var value: root.values[row.input.id]
                width: body.width
                spacing: 10

                Text {
                    id: label
                    textFormat: Text.PlainText
                    anchors.verticalCenter: parent.verticalCenter
                    width: Math.min(160, body.width * 0.35)
                    text: row.input.label ?? ""
                    elide: Text.ElideRight
                    color: Qt.rgba(1, 1, 1, 0.6)
                    font.pixelSize: 12
                }

                // While a run is under way the inputs hold still: what goes to review is what
                // was submitted, and the review lists it.
                Loader {
                    anchors.verticalCenter: parent.verticalCenter
                    width: body.width - label.width - 10
                    enabled: !root.busy
                    opacity: enabled ? 1 : 0.5
                    sourceComponent: {
                        switch (row.input.style) {
                        case "number": return numberInput
                        case "slider": return sliderInput
                        case "toggle": return toggleInput
                        case "choice": return choiceInput
                        default: return textInput
                        }
                    }
                }

                Component {
                    id: textInput
                    TextField {
                        objectName: "input:" + row.input.id
                        height: 28
                        text: String(row.value ?? "")
                        onTextEdited: root.setValue(row.input.id, text)
                        color: Qt.rgba(1, 1, 1, 0.9)
                        font.pixelSize: 12
                        leftPadding: 12
                        rightPadding: 12
                        topPadding: 0
                        bottomPadding: 0
                        verticalAlignment: TextInput.AlignVCenter
                        Accessible.name: row.input.label ?? ""
                        background: FieldBackground { focused: parent.activeFocus }
                    }
                }
                Component {
                    id: numberInput
                    TextField {
                        objectName: "input:" + row.input.id
                        height: 28
                        text: root.numbers[row.input.id] ?? String(row.value ?? "")
                        onTextEdited: root.setNumber(row.input.id, text)
                        inputMethodHints: Qt.ImhFormattedNumbersOnly
                        color: root.isDecimal(text) ? Qt.rgba(1, 1, 1, 0.9) : "#ff9a8a"
                        font.pixelSize: 12
                        leftPadding: 12
                        rightPadding: 12
                        topPadding: 0
                        bottomPadding: 0
                        verticalAlignment: TextInput.AlignVCenter
                        Accessible.name: row.input.label ?? ""
                        background: FieldBackground { focused: parent.activeFocus }
                    }
                }
                Component {
                    id: sliderInput
                    Row {
                        spacing: 10
                        readonly property var bounds: root.field(row.input.id)
                        Slider {
                            id: slider
                            objectName: "input:" + row.input.id
                            anchors.verticalCenter: parent.verticalCenter
                            width: Math.max(80, (parent.parent ? parent.parent.width : 200) - 60)
                            height: 24
                            from: parent.bounds.minimum ?? 0
                            to: parent.bounds.maximum ?? 1
                            // Whole steps when both ends are whole and more than one apart.
                            stepSize: Number.isInteger(from) && Number.isInteger(to) && to - from > 1 ? 1 : 0
                            value: Number(row.value ?? from)
                            onMoved: root.setValue(row.input.id, value)
                            Accessible.name: row.input.label ?? ""
                            background: Rectangle {
                                x: slider.leftPadding
                                y: slider.topPadding + slider.availableHeight / 2 - height / 2
                                width: slider.availableWidth
                                height: 4
                                radius: 2
                                color: Qt.rgba(1, 1, 1, 0.12)
                                Rectangle {
                                    width: slider.visualPosition * parent.width
                                    height: parent.height
                                    radius: 2
                                    color: root.accent
                                }
                            }
                            handle: Rectangle {
                                x: slider.leftPadding + slider.visualPosition * (slider.availableWidth - width)
                                y: slider.topPadding + slider.availableHeight / 2 - height / 2
                                width: 16
                                height: 16
                                radius: 8
                                color: slider.pressed ? Qt.rgba(1, 1, 1, 1) : Qt.rgba(1, 1, 1, 0.9)
                            }
                        }
                        Text {
                            textFormat: Text.PlainText
                            anchors.verticalCenter: parent.verticalCenter
                            width: 50
                            text: Number(slider.value).toLocaleString(Qt.locale(), "f", slider.stepSize === 1 ? 0 : 1)
                            color: Qt.rgba(1, 1, 1, 0.9)
                            font.pixelSize: 12
                        }
                    }
                }
                Component {
                    id: toggleInput
                    Item {
                        height: 28
                        Switch {
                            id: toggle
                            objectName: "input:" + row.input.id
                            anchors.verticalCenter: parent.verticalCenter
                            padding: 0
                            implicitWidth: 36
                            implicitHeight: 20
                            checked: row.value === true
                            onToggled: root.setValue(row.input.id, checked)
                            Accessible.name: row.input.label ?? ""
                            indicator: Rectangle {
                                x: toggle.leftPadding
                                y: toggle.topPadding + (toggle.availableHeight - height) / 2
                                implicitWidth: 36
                                implicitHeight: 20
                                radius: 10
                                color: toggle.checked ? Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.8)
                                                      : Qt.rgba(1, 1, 1, 0.14)
                                border.color: Qt.rgba(1, 1, 1, 0.1)
                                Rectangle {
                                    x: toggle.checked ? parent.width - width - 2 : 2
                                    anchors.verticalCenter: parent.verticalCenter
                                    width: 16
                                    height: 16
                                    radius: 8
                                    color: "white"
                                }
                            }
                            contentItem: Item {}
                        }
                    }
                }
                Component {
                    id: choiceInput
                    ComboBox {
                        id: choices
                        objectName: "input:" + row.input.id
                        height: 28
                        topInset: 0
                        bottomInset: 0
                        leftInset: 0
                        rightInset: 0
                        model: row.input.choices ?? []
                        currentIndex: (row.input.choices ?? []).indexOf(row.value)
                        onActivated: index => root.setValue(row.input.id, (row.input.choices ?? [])[index])
                        Accessible.name: row.input.label ?? ""
                        background: FieldBackground {}
                        contentItem: Text {
                            textFormat: Text.PlainText
                            leftPadding: 12
                            rightPadding: 24
                            verticalAlignment: Text.AlignVCenter
                            text: choices.currentIndex >= 0 ? choices.displayText : ""
                            elide: Text.ElideRight
                            color: Qt.rgba(1, 1, 1, 0.88)
                            font.pixelSize: 12
                        }
                        indicator: Text {
                            textFormat: Text.PlainText
                            x: choices.width - width - 10
                            anchors.verticalCenter: parent.verticalCenter
                            text: "\u25BE"
                            color: Qt.rgba(1, 1, 1, 0.6)
                            font.pixelSize: 12
                        }
                        delegate: ItemDelegate {
                            id: choice
                            required property var modelData
                            required property int index
                            objectName: "choice:" + modelData
                            width: choices.width
                            height: 28
                            highlighted: choices.highlightedIndex === index
                            background: Rectangle {
                                color: choice.highlighted ? Qt.rgba(1, 1, 1, 0.12) : "transparent"
                                radius: 8
                            }
                            contentItem: Text {
                                textFormat: Text.PlainText
                                text: choice.modelData
                                elide: Text.ElideRight
                                verticalAlignment: Text.AlignVCenter
                                color: Qt.rgba(1, 1, 1, 0.88)
                                font.pixelSize: 12
                            }
                        }
                        popup: Popup {
                            y: choices.height + 4
                            width: choices.width
                            implicitHeight: Math.min(list.contentHeight + 8, 280)
                            padding: 4
                            background: Rectangle {
                                radius: 10
                                color: "#26262b"
                                border.color: Qt.rgba(1, 1, 1, 0.12)
                            }
                            contentItem: ListView {
                                id: list
                                clip: true
                                model: choices.popup.visible ? choices.delegateModel : null
                                currentIndex: choices.highlightedIndex
                            }
                        }
                    }
                }
            }
        }

        Text {
            objectName: "error"
            textFormat: Text.PlainText
            visible: root.error.length > 0
            width: parent.width
            text: root.error
            wrapMode: Text.Wrap
            color: "#ff9a8a"
            font.pixelSize: 12
        }

        // The run this form started, as the router tells it.
        Loader {
            active: root.run !== null
            visible: active
            width: parent.width
            sourceComponent: root.run !== null && root.run.phase === "waitingReview" ? review : outcome
        }

        Row {
            anchors.right: parent.right
            spacing: 8
            visible: !(root.run !== null && root.run.phase === "waitingReview")
            PillButton {
                objectName: "submit"
                label: (root.form.action ?? {}).title ?? "Submit"
                active: true
                accent: root.accent
                enabled: root.form.enabled === true && !root.busy
                onClicked: root.submit()
            }
        }
    }

    Component {
        id: review
        Column {
            spacing: 8
            Text {
                textFormat: Text.PlainText
                width: parent.width
                text: root.run.title ?? ""
                wrapMode: Text.Wrap
                color: Qt.rgba(1, 1, 1, 0.95)
                font.pixelSize: 12
                font.weight: Font.DemiBold
            }
            Text {
                objectName: "warning"
                textFormat: Text.PlainText
                visible: text.length > 0
                width: parent.width
                text: ActionWords.warning(root.run.effect ?? "")
                wrapMode: Text.Wrap
                color: Qt.rgba(1, 1, 1, 0.85)
                font.pixelSize: 12
            }
            Repeater {
                model: root.run.arguments ?? []
                delegate: Row {
                    id: argument
                    required property var modelData
                    width: parent ? parent.width : 0
                    spacing: 8
                    // In the column of the inputs' labels, so that each value stands under
                    // the input it came from.
                    Text {
                        id: argumentName
                        textFormat: Text.PlainText
                        width: Math.min(160, argument.width * 0.35)
                        text: root.labelOf(argument.modelData.name ?? "")
                        elide: Text.ElideRight
                        color: Qt.rgba(1, 1, 1, 0.55)
                        font.pixelSize: 12
                    }
                    Text {
                        textFormat: Text.PlainText
                        width: argument.width - argumentName.width - 10
                        text: argument.modelData.value ?? ""
                        wrapMode: Text.Wrap
                        maximumLineCount: 4
                        elide: Text.ElideRight
                        color: Qt.rgba(1, 1, 1, 0.9)
                        font.pixelSize: 12
                    }
                }
            }
            Row {
                anchors.right: parent.right
                spacing: 8
                PillButton {
                    objectName: "cancelRun"
                    label: "Cancel"
                    onClicked: root.error = NativePluginStore.cancelForm(root.runID)
                }
                PillButton {
                    objectName: "confirmRun"
                    label: "Confirm"
                    active: true
                    accent: root.accent
                    onClicked: root.error = NativePluginStore.approveForm(root.pluginID, root.panelID,
                                                                          root.form.id ?? "", root.runID)
                }
            }
        }
    }

    Component {
        id: outcome
        Text {
            objectName: "runPhase"
            textFormat: Text.PlainText
            text: ActionWords.phase(root.run.phase ?? "")
                  + ((root.run.message ?? "").length > 0 ? " \u00B7 " + root.run.message : "")
            wrapMode: Text.Wrap
            color: root.run.phase === "succeeded" ? root.accent
                 : ["failed", "interrupted"].indexOf(root.run.phase) >= 0 ? "#ff9a8a" : Qt.rgba(1, 1, 1, 0.7)
            font.pixelSize: 12
        }
    }
}
