import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import OstaVell.Timers

// The "Timers" pane: the sound a completion makes, whether the notch opens for it, the pomodoro's
// lengths and cycle, and a word when no banner can be shown.
ScrollView {
    id: pane
    contentWidth: availableWidth
    clip: true

    Component.onCompleted: TimerManager.refreshNotificationStatus()

    component MinutesRow: RowLayout {
        property alias text: caption.text
        property alias value: box.value
        property alias from: box.from
        property alias to: box.to
        property alias boxName: box.objectName
        signal modified(int value)
        Label { id: caption; textFormat: Text.PlainText; Layout.preferredWidth: 220 }
        SpinBox {
            id: box
            from: 1
            to: 180
            editable: true
            onValueModified: parent.modified(value)
        }
    }

    ColumnLayout {
        width: pane.availableWidth - 32
        x: 16
        spacing: 2

        RowLayout {
            Label { textFormat: Text.PlainText; text: "Completion sound"; Layout.preferredWidth: 220 }
            ComboBox {
                id: sound
                objectName: "completionSound"
                Layout.fillWidth: true
                model: {
                    const choices = TimerManager.soundChoices()
                    // A stored name the theme no longer has stays shown as what is chosen.
                    if (choices.indexOf(TimerManager.completionSound) < 0)
                        choices.push(TimerManager.completionSound)
                    return choices
                }
                currentIndex: Math.max(0, model.indexOf(TimerManager.completionSound))
                onActivated: index => TimerManager.completionSound = model[index]
                // The names are the sound files' own: shown as the plain text they are.
                delegate: ItemDelegate {
                    required property string modelData
                    required property int index
                    width: sound.width
                    highlighted: sound.highlightedIndex === index
                    contentItem: Label { textFormat: Text.PlainText; text: parent.modelData; elide: Text.ElideRight }
                }
            }
        }
        Switch {
            objectName: "autoOpenOnComplete"
            text: "Open the notch when a timer completes"
            checked: TimerManager.autoOpenOnComplete
            onToggled: TimerManager.autoOpenOnComplete = checked
        }

        Label {
            textFormat: Text.PlainText
            text: "Pomodoro"
            font.weight: Font.DemiBold
            Layout.topMargin: 12
        }
        MinutesRow {
            text: "Focus minutes"
            boxName: "focusMinutes"
            value: TimerManager.pomodoroFocusMinutes
            onModified: value => TimerManager.pomodoroFocusMinutes = value
        }
        MinutesRow {
            text: "Short break minutes"
            boxName: "shortBreakMinutes"
            value: TimerManager.pomodoroShortBreakMinutes
            onModified: value => TimerManager.pomodoroShortBreakMinutes = value
        }
        MinutesRow {
            text: "Long break minutes"
            boxName: "longBreakMinutes"
            value: TimerManager.pomodoroLongBreakMinutes
            onModified: value => TimerManager.pomodoroLongBreakMinutes = value
        }
        MinutesRow {
            text: "Sessions before long break: "
            boxName: "sessionsPerCycle"
            to: 12
            value: TimerManager.pomodoroSessionsPerCycle
            onModified: value => TimerManager.pomodoroSessionsPerCycle = value
        }
        Switch {
            objectName: "autoAdvance"
            text: "Start next phase automatically"
            checked: TimerManager.pomodoroAutoAdvance
            onToggled: TimerManager.pomodoroAutoAdvance = checked
        }

        Label {
            objectName: "notificationsDenied"
            visible: TimerManager.notificationAuthStatus === "denied"
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            Layout.fillWidth: true
            Layout.topMargin: 12
            opacity: 0.7
            text: "Allow notifications to get a banner when a timer finishes."
        }
        Label {
            objectName: "timersNotice"
            visible: TimerManager.notice.length > 0
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            Layout.fillWidth: true
            Layout.topMargin: 8
            color: "#FF9F8A"
            text: TimerManager.notice
        }
    }
}
