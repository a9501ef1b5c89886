import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import OstaVell
import OstaVell.Support

ScrollView {
    id: pane
    // The closed notch's switches are offered with the activities they switch.
    readonly property var offeredWings: ShellContributions.wings.map(wing => wing.id)
    function offers(...ids) { return ids.some(id => pane.offeredWings.indexOf(id) >= 0) }
    required property ShelfController shelf
    contentWidth: availableWidth
    clip: true

    component SettingSwitch: Switch {
        Layout.fillWidth: true
    }
    component Heading: Label {
        font.bold: true
        font.pixelSize: 13
        opacity: 0.7
        Layout.topMargin: 10
    }

    ColumnLayout {
        width: pane.availableWidth - 32
        x: 16
        spacing: 2

        Heading { text: "Opening" }
        SettingSwitch {
            text: "Open when the pointer rests on the notch"
            checked: SettingsStore.openOnHover
            onToggled: SettingsStore.openOnHover = checked
        }
        RowLayout {
            Label { textFormat: Text.PlainText; text: "Hover delay"; Layout.preferredWidth: 120 }
            Slider {
                id: delay
                Layout.fillWidth: true
                from: 0; to: 1; stepSize: 0.05
                value: SettingsStore.hoverDelay
                onMoved: SettingsStore.hoverDelay = value
            }
            Label { textFormat: Text.PlainText; text: Math.max(delay.value, 0.05).toFixed(2) + " s" }
        }
        SettingSwitch {
            text: "Show a vell on every display"
            checked: SettingsStore.showOnAllDisplays
            onToggled: SettingsStore.showOnAllDisplays = checked
        }
        SettingSwitch {
            text: "Drawn notch on external displays"
            checked: SettingsStore.fakeNotchOnExternalDisplays
            onToggled: SettingsStore.fakeNotchOnExternalDisplays = checked
        }
        SettingSwitch {
            text: "Launch at login"
            checked: SettingsStore.launchAtLogin
            onToggled: SettingsStore.launchAtLogin = checked
        }
        RowLayout {
            Label { textFormat: Text.PlainText; text: "Shortcut"; Layout.preferredWidth: 120 }
            Label {
                textFormat: Text.PlainText
                text: pane.shelf.shortcutAvailable ? "Super+Alt+N (system-wide)"
                                              : "Unavailable — Ctrl+Shift+N works inside OstaVell"
                opacity: 0.8
            }
        }

        Heading { text: "Tabs" }
        SettingSwitch {
            text: "Tray"
            checked: SettingsStore.visibleTabsCSV.indexOf("Tray") >= 0
            onToggled: pane.setTabVisible("Tray", checked)
        }
        SettingSwitch {
            text: "Automations"
            checked: SettingsStore.visibleTabsCSV.indexOf("Automations") >= 0
            onToggled: pane.setTabVisible("Automations", checked)
        }
        RowLayout {
            Label { textFormat: Text.PlainText; text: "Default tab"; Layout.preferredWidth: 120 }
            ComboBox {
                model: ["Vell", "Tray", "Automations"]
                currentIndex: Math.max(0, model.indexOf(SettingsStore.defaultTabRaw))
                onActivated: SettingsStore.defaultTabRaw = currentText
            }
        }
        RowLayout {
            Label { textFormat: Text.PlainText; text: "Home layout"; Layout.preferredWidth: 120 }
            ComboBox {
                textRole: "label"
                valueRole: "value"
                model: [{ label: "Media and calendar", value: "mediaCalendar" },
                        { label: "Media only", value: "mediaOnly" },
                        { label: "Calendar only", value: "calendarOnly" }]
                Component.onCompleted: currentIndex = Math.max(0, indexOfValue(SettingsStore.homeLayout))
                onActivated: SettingsStore.homeLayout = currentValue
            }
        }
        RowLayout {
            Label { textFormat: Text.PlainText; text: "Workspace picker"; Layout.preferredWidth: 120 }
            ComboBox {
                model: ["left", "right"]
                currentIndex: Math.max(0, model.indexOf(SettingsStore.modulePickerSide))
                onActivated: SettingsStore.modulePickerSide = currentText
            }
        }

        Heading { text: "Closed notch"; visible: closedNotchSwitches.visibleChildren.length > 0 }
        ColumnLayout {
            id: closedNotchSwitches
            spacing: 0
            SettingSwitch {
                visible: pane.offers("media.left", "media.right")
                text: "Now playing"; checked: SettingsStore.mediaLiveActivity; onToggled: SettingsStore.mediaLiveActivity = checked
            }
            SettingSwitch {
                visible: pane.offers("timer")
                text: "Timers"; checked: SettingsStore.timerLiveActivity; onToggled: SettingsStore.timerLiveActivity = checked
            }
            SettingSwitch {
                visible: pane.offers("battery.event", "battery.status")
                text: "Battery"; checked: SettingsStore.batteryLiveActivity; onToggled: SettingsStore.batteryLiveActivity = checked
            }
            SettingSwitch {
                visible: pane.offers("calendar")
                text: "Next event"; checked: SettingsStore.calendarLiveActivity; onToggled: SettingsStore.calendarLiveActivity = checked
            }
            SettingSwitch {
                visible: pane.offers("todos")
                text: "To-dos"; checked: SettingsStore.todosLiveActivity; onToggled: SettingsStore.todosLiveActivity = checked
            }
        }
        Item { Layout.preferredHeight: 16 }
    }

    function setTabVisible(name, visible) {
        const parts = SettingsStore.visibleTabsCSV.split(",").filter(p => p.length > 0 && p !== name)
        if (visible)
            parts.push(name)
        SettingsStore.visibleTabsCSV = parts.join(",")
    }
}
