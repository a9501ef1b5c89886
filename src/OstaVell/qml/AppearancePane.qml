import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import OstaVell
import OstaVell.Support

// The look of the vells: one shared appearance, and a saved one per display that wants its own.
ScrollView {
    id: pane
    required property ShelfController shelf
    contentWidth: availableWidth
    clip: true

    property int revision: 0
    Connections {
        target: SettingsStore
        function onChanged() { pane.revision++ }
    }

    readonly property var targets: {
        pane.revision
        const list = [{ value: "shared", label: "Shared appearance", name: "", displayID: "" }]
        const attached = {}
        for (const display of pane.shelf.displays) {
            attached[display.appearanceID] = true
            list.push({ value: display.appearanceID, label: display.name, name: display.name, displayID: display.id })
        }
        for (const saved of SettingsStore.savedDisplays()) {
            if (!attached[saved.id])
                list.push({ value: saved.id, label: saved.name + " (disconnected)", name: saved.name, displayID: "" })
        }
        return list
    }
    property string target: "shared"
    readonly property var targetEntry: targets.find(t => t.value === target) ?? targets[0]
    readonly property bool isShared: target === "shared"
    readonly property bool ownAppearance: { pane.revision; return !isShared && SettingsStore.hasOwnAppearance(target) }
    readonly property bool editable: isShared || ownAppearance
    readonly property var look: { pane.revision; return SettingsStore.appearanceMap(target) }

    function set(field, value) {
        SettingsStore.setAppearanceValue(target, targetEntry.name, field, value)
    }

    component Caption: Label {
        Layout.fillWidth: true
        wrapMode: Text.WordWrap
        opacity: 0.6
        font.pixelSize: 12
    }
    component Row2: RowLayout {
        Layout.fillWidth: true
        enabled: pane.editable
    }
    component HexField: TextField {
        property string field
        Layout.preferredWidth: 110
        text: pane.look[field] ?? ""
        onEditingFinished: if (text !== pane.look[field]) pane.set(field, text)
    }

    ColumnLayout {
        width: pane.availableWidth - 32
        x: 16
        spacing: 4

        RowLayout {
            Label { textFormat: Text.PlainText; text: "Appearance for"; Layout.preferredWidth: 120 }
            ComboBox {
                Layout.fillWidth: true
                model: pane.targets
                textRole: "label"
                valueRole: "value"
                currentIndex: Math.max(0, pane.targets.findIndex(t => t.value === pane.target))
                onActivated: pane.target = currentValue
            }
        }
        Switch {
            visible: !pane.isShared
            text: "Use shared appearance"
            checked: !pane.ownAppearance
            onToggled: SettingsStore.setUsesSharedAppearance(pane.target, pane.targetEntry.name, checked)
        }
        Caption {
            text: pane.isShared ? "Applies to displays using shared appearance. Changes appear immediately."
                : pane.ownAppearance ? "This display has its own saved appearance."
                : "Turn off Use shared appearance to customize this display."
        }
        Caption {
            visible: Accessibility.reduceTransparency
            text: "System Reduce Transparency is on, so vell backgrounds stay opaque."
        }

        Row2 {
            Label { textFormat: Text.PlainText; text: "Background"; Layout.preferredWidth: 120 }
            ComboBox {
                textRole: "label"
                valueRole: "value"
                model: [{ label: "Black", value: "black" }, { label: "Solid", value: "solid" },
                        { label: "Gradient", value: "gradient" }, { label: "Artwork", value: "artwork" }]
                currentIndex: Math.max(0, ["black", "solid", "gradient", "artwork"].indexOf(pane.look.backgroundStyle))
                onActivated: pane.set("backgroundStyle", currentValue)
            }
        }
        Row2 {
            Label { textFormat: Text.PlainText; text: "Colours"; Layout.preferredWidth: 120 }
            HexField { field: "startHex" }
            HexField { field: "endHex" }
        }
        Row2 {
            Label { textFormat: Text.PlainText; text: "Direction"; Layout.preferredWidth: 120 }
            ComboBox {
                textRole: "label"
                valueRole: "value"
                model: [{ label: "Vertical", value: "vertical" }, { label: "Horizontal", value: "horizontal" },
                        { label: "Diagonal", value: "diagonal" }]
                currentIndex: Math.max(0, ["vertical", "horizontal", "diagonal"].indexOf(pane.look.direction))
                onActivated: pane.set("direction", currentValue)
            }
        }
        Row2 {
            Label { textFormat: Text.PlainText; text: "Accent"; Layout.preferredWidth: 120 }
            HexField { field: "accentHex" }
        }
        Row2 {
            Label { textFormat: Text.PlainText; text: "Opacity"; Layout.preferredWidth: 120 }
            Slider {
                Layout.fillWidth: true
                from: 0; to: 1; stepSize: 0.01
                value: pane.look.opacity ?? 1
                onMoved: pane.set("opacity", value)
            }
            Label { textFormat: Text.PlainText; text: Math.round((pane.look.opacity ?? 1) * 100) + "%" }
        }
        Caption { text: "Transparency affects the background. The physical camera notch stays black." }
        Switch {
            enabled: pane.editable
            text: "Fade the background"
            checked: pane.look.fades === true
            onToggled: pane.set("fades", checked)
        }
        Row2 {
            visible: pane.look.fades === true
            Label { textFormat: Text.PlainText; text: "Start opacity"; Layout.preferredWidth: 120 }
            Slider {
                Layout.fillWidth: true
                from: 0; to: 1; stepSize: 0.01
                value: pane.look.startOpacity ?? 1
                onMoved: pane.set("startOpacity", value)
            }
        }
        Row2 {
            visible: pane.look.fades === true
            Label { textFormat: Text.PlainText; text: "End opacity"; Layout.preferredWidth: 120 }
            Slider {
                Layout.fillWidth: true
                from: 0; to: 1; stepSize: 0.01
                value: pane.look.endOpacity ?? 0
                onMoved: pane.set("endOpacity", value)
            }
        }
        Caption {
            visible: pane.look.fades === true
            text: "End opacities multiply the background opacity. 0% is clear; 100% is opaque."
        }
        Switch {
            enabled: pane.editable
            text: "Border glow"
            checked: pane.look.borderGlow === true
            onToggled: pane.set("borderGlow", checked)
        }
        Row2 {
            Label { textFormat: Text.PlainText; text: "Width"; Layout.preferredWidth: 120 }
            TextField {
                Layout.preferredWidth: 110
                text: String(pane.look.width ?? 760)
                validator: DoubleValidator { bottom: 0 }
                onAccepted: pane.set("width", Number(text))
            }
        }
        Caption { text: "Enter a width in points and press Return. Each vell fits within its screen; the saved width is kept." }
        Row2 {
            Label { textFormat: Text.PlainText; text: "Height"; Layout.preferredWidth: 120 }
            Slider {
                Layout.fillWidth: true
                from: 300; to: 560; stepSize: 1
                value: pane.look.height ?? 400
                onMoved: pane.set("height", value)
            }
            Label { textFormat: Text.PlainText; text: Math.round(pane.look.height ?? 400) }
        }
        Row2 {
            Label { textFormat: Text.PlainText; text: "Corner radius"; Layout.preferredWidth: 120 }
            Slider {
                Layout.fillWidth: true
                from: 10; to: 40; stepSize: 1
                value: pane.look.cornerRadius ?? 24
                onMoved: pane.set("cornerRadius", value)
            }
            Label { textFormat: Text.PlainText; text: Math.round(pane.look.cornerRadius ?? 24) }
        }
        Button {
            visible: !pane.isShared && pane.targetEntry.displayID !== ""
            text: "Show vell on this display"
            onClicked: pane.shelf.open(pane.targetEntry.displayID)
        }
        Item { Layout.preferredHeight: 16 }
    }
}
