import QtQuick
import QtQuick.Layouts
import OstaVell.Support
import OstaVell.Timers

// The "Timers" tool: a countdown set by hours, minutes and seconds, a stopwatch with laps, and
// the pomodoro cycle, one at a time by the mode kept in "timers.selectedMode". Every number
// shown comes from the manager, which moves it twice a second while a timer runs and not at all
// otherwise.
Item {
    id: root
    property QtObject controller: null
    readonly property color accent: controller && controller.accentColor ? controller.accentColor : "#FF9F0A"
    readonly property string mode: TimerManager.selectedMode

    // The configured duration as its three steppers show it.
    readonly property int configured: Math.round(TimerManager.configuredDuration)
    readonly property int hours: Math.floor(configured / 3600)
    readonly property int minutes: Math.floor(configured / 60) % 60
    readonly property int seconds: configured % 60
    function configure(h, m, s) {
        TimerManager.configuredDuration = Math.max(0, Math.min(86399, h * 3600 + m * 60 + s))
    }
    function wrap(value, modulo) {
        return ((value % modulo) + modulo) % modulo
    }
    function pad(value) {
        return (value < 10 ? "0" : "") + value
    }

    component TimerButton: Rectangle {
        id: button
        property string label
        property bool prominent: false
        signal clicked()
        implicitWidth: Math.max(72, caption.implicitWidth + 28)
        implicitHeight: 30
        radius: height / 2
        color: prominent ? Qt.rgba(root.accent.r, root.accent.g, root.accent.b, hover.hovered && enabled ? 0.42 : 0.3)
                         : (hover.hovered && enabled ? Qt.rgba(1, 1, 1, 0.14) : Qt.rgba(1, 1, 1, 0.085))
        border.color: Qt.rgba(1, 1, 1, 0.1)
        opacity: enabled ? 1 : 0.4
        Accessible.role: Accessible.Button
        Accessible.name: label
        Accessible.onPressAction: if (button.enabled) button.clicked()
        Text {
            id: caption
            anchors.centerIn: parent
            textFormat: Text.PlainText
            text: button.label
            color: Qt.rgba(1, 1, 1, 0.92)
            font.pixelSize: 13
            font.weight: Font.Medium
        }
        HoverHandler { id: hover }
        TapHandler {
            enabled: button.enabled
            onTapped: button.clicked()
        }
    }

    component Stepper: Column {
        id: stepper
        property string unit
        property int value
        signal stepped(int delta)
        spacing: 0
        Repeater {
            model: [1, 0, -1]
            delegate: Item {
                required property int modelData
                objectName: stepper.unit + (modelData > 0 ? "Up" : modelData < 0 ? "Down" : "Value")
                width: 54
                height: modelData === 0 ? 40 : 22
                Text {
                    visible: parent.modelData === 0
                    anchors.centerIn: parent
                    textFormat: Text.PlainText
                    text: root.pad(stepper.value)
                    color: "white"
                    font.pixelSize: 32
                    font.weight: Font.Light
                }
                SymbolIcon {
                    visible: parent.modelData !== 0
                    anchors.centerIn: parent
                    name: parent.modelData > 0 ? "chevron.up" : "chevron.down"
                    size: 18
                    color: Qt.rgba(1, 1, 1, arrowHover.hovered ? 0.95 : 0.55)
                }
                HoverHandler { id: arrowHover; enabled: parent.modelData !== 0 }
                TapHandler {
                    enabled: parent.modelData !== 0
                    onTapped: stepper.stepped(parent.modelData)
                }
                Accessible.role: parent.modelData === 0 ? Accessible.StaticText : Accessible.Button
                Accessible.name: parent.modelData === 0 ? stepper.value + " " + stepper.unit
                                                        : (parent.modelData > 0 ? "More " : "Fewer ") + stepper.unit
                Accessible.onPressAction: if (parent.modelData !== 0) stepper.stepped(parent.modelData)
            }
        }
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 10

        // The three modes.
        Row {
            Layout.alignment: Qt.AlignHCenter
            spacing: 4
            Repeater {
                model: [{ mode: "timer", label: "Timer" }, { mode: "stopwatch", label: "Stopwatch" },
                        { mode: "pomodoro", label: "Pomodoro" }]
                delegate: Rectangle {
                    required property var modelData
                    readonly property bool selected: root.mode === modelData.mode
                    objectName: "mode:" + modelData.mode
                    width: modeLabel.implicitWidth + 22
                    height: 24
                    radius: 12
                    color: selected ? Qt.rgba(1, 1, 1, 0.14) : (modeHover.hovered ? Qt.rgba(1, 1, 1, 0.07) : "transparent")
                    Accessible.role: Accessible.PageTab
                    Accessible.name: modelData.label
                    Accessible.onPressAction: TimerManager.selectedMode = modelData.mode
                    Text {
                        id: modeLabel
                        anchors.centerIn: parent
                        textFormat: Text.PlainText
                        text: parent.modelData.label
                        color: parent.selected ? root.accent : Qt.rgba(1, 1, 1, 0.7)
                        font.pixelSize: 12
                        font.weight: parent.selected ? Font.DemiBold : Font.Normal
                    }
                    HoverHandler { id: modeHover }
                    TapHandler { onTapped: TimerManager.selectedMode = parent.modelData.mode }
                }
            }
        }

        Loader {
            Layout.fillWidth: true
            Layout.fillHeight: true
            sourceComponent: root.mode === "stopwatch" ? stopwatchMode
                           : root.mode === "pomodoro" ? pomodoroMode : timerMode
        }

        Text {
            objectName: "timersNotice"
            visible: TimerManager.notice.length > 0
            Layout.fillWidth: true
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            horizontalAlignment: Text.AlignHCenter
            text: TimerManager.notice
            color: "#FF9F8A"
            font.pixelSize: 11
        }
    }

    Component {
        id: timerMode
        Item {
            readonly property string phase: TimerManager.countdownPhase
            // Setting the time, while nothing runs.
            Column {
                visible: parent.phase === "idle"
                anchors.centerIn: parent
                spacing: 10
                Row {
                    anchors.horizontalCenter: parent.horizontalCenter
                    spacing: 2
                    Stepper {
                        unit: "hours"
                        value: root.hours
                        onStepped: delta => root.configure(root.wrap(root.hours + delta, 24), root.minutes, root.seconds)
                    }
                    Text { textFormat: Text.PlainText; text: ":"; color: Qt.rgba(1, 1, 1, 0.5); font.pixelSize: 28; anchors.verticalCenter: parent.verticalCenter }
                    Stepper {
                        unit: "minutes"
                        value: root.minutes
                        onStepped: delta => root.configure(root.hours, root.wrap(root.minutes + delta, 60), root.seconds)
                    }
                    Text { textFormat: Text.PlainText; text: ":"; color: Qt.rgba(1, 1, 1, 0.5); font.pixelSize: 28; anchors.verticalCenter: parent.verticalCenter }
                    Stepper {
                        unit: "seconds"
                        value: root.seconds
                        onStepped: delta => root.configure(root.hours, root.minutes, root.wrap(root.seconds + delta, 60))
                    }
                }
                Row {
                    anchors.horizontalCenter: parent.horizontalCenter
                    spacing: 6
                    Repeater {
                        model: [1, 5, 10, 25]
                        delegate: Rectangle {
                            required property int modelData
                            readonly property bool chosen: root.configured === modelData * 60
                            objectName: "preset" + modelData
                            width: presetLabel.implicitWidth + 18
                            height: 22
                            radius: 11
                            color: chosen ? Qt.rgba(1, 1, 1, 0.16) : (presetHover.hovered ? Qt.rgba(1, 1, 1, 0.12) : Qt.rgba(1, 1, 1, 0.06))
                            Accessible.role: Accessible.Button
                            Accessible.name: modelData + " min"
                            Accessible.onPressAction: root.configure(0, modelData, 0)
                            Text {
                                id: presetLabel
                                anchors.centerIn: parent
                                textFormat: Text.PlainText
                                text: parent.modelData + " min"
                                color: parent.chosen ? root.accent : Qt.rgba(1, 1, 1, 0.8)
                                font.pixelSize: 11
                            }
                            HoverHandler { id: presetHover }
                            TapHandler { onTapped: root.configure(0, parent.modelData, 0) }
                        }
                    }
                }
                TimerButton {
                    objectName: "start"
                    anchors.horizontalCenter: parent.horizontalCenter
                    label: "Start"
                    prominent: true
                    enabled: root.configured >= 1
                    onClicked: TimerManager.startCountdown()
                }
            }
            // A countdown under way, paused or just finished.
            RowLayout {
                visible: parent.phase !== "idle"
                anchors.centerIn: parent
                spacing: 24
                Item {
                    implicitWidth: 132
                    implicitHeight: 132
                    TimerRing {
                        anchors.fill: parent
                        lineWidth: 6
                        progress: TimerManager.countdownProgress
                        color: root.accent
                    }
                    Text {
                        objectName: "countdownTime"
                        anchors.centerIn: parent
                        textFormat: Text.PlainText
                        text: TimersFormatting.countdown(TimerManager.countdownRemaining)
                        color: "white"
                        font.pixelSize: TimerManager.countdownRemaining >= 3600 ? 22 : 28
                        font.weight: Font.Light
                    }
                }
                Column {
                    spacing: 8
                    Text {
                        textFormat: Text.PlainText
                        text: "of " + TimersFormatting.spoken(TimerManager.countdownTotal)
                        color: Qt.rgba(1, 1, 1, 0.55)
                        font.pixelSize: 12
                    }
                    TimerButton {
                        objectName: TimerManager.countdownPhase === "running" ? "pause"
                                  : TimerManager.countdownPhase === "paused" ? "resume" : "startAgain"
                        prominent: true
                        label: TimerManager.countdownPhase === "running" ? "Pause"
                             : TimerManager.countdownPhase === "paused" ? "Resume" : "Start"
                        enabled: TimerManager.countdownPhase !== "finished" || root.configured >= 1
                        onClicked: {
                            if (TimerManager.countdownPhase === "running")
                                TimerManager.pauseCountdown()
                            else if (TimerManager.countdownPhase === "paused")
                                TimerManager.resumeCountdown()
                            else
                                TimerManager.startCountdown()
                        }
                    }
                    TimerButton {
                        objectName: "reset"
                        label: "Reset"
                        onClicked: TimerManager.cancelCountdown()
                    }
                }
            }
        }
    }

    Component {
        id: stopwatchMode
        Item {
            RowLayout {
                anchors.centerIn: parent
                height: parent.height
                spacing: 32
                Column {
                    Layout.alignment: Qt.AlignVCenter
                    spacing: 12
                    Text {
                        objectName: "stopwatchTime"
                        textFormat: Text.PlainText
                        text: TimersFormatting.stopwatch(TimerManager.stopwatchElapsed)
                        color: "white"
                        font.pixelSize: 34
                        font.weight: Font.Light
                    }
                    Row {
                        spacing: 8
                        TimerButton {
                            objectName: TimerManager.stopwatchRunning ? "pause" : (TimerManager.stopwatchElapsed > 0 ? "resume" : "start")
                            prominent: true
                            label: TimerManager.stopwatchRunning ? "Pause" : (TimerManager.stopwatchElapsed > 0 ? "Resume" : "Start")
                            onClicked: TimerManager.stopwatchRunning ? TimerManager.pauseStopwatch() : TimerManager.startStopwatch()
                        }
                        TimerButton {
                            objectName: "lap"
                            label: "Lap"
                            enabled: TimerManager.stopwatchRunning
                            onClicked: TimerManager.recordLap()
                        }
                        TimerButton {
                            objectName: "reset"
                            label: "Reset"
                            enabled: TimerManager.stopwatchRunning || TimerManager.stopwatchElapsed > 0
                            onClicked: TimerManager.resetStopwatch()
                        }
                    }
                }
                ListView {
                    objectName: "laps"
                    visible: count > 0
                    Layout.preferredWidth: 230
                    Layout.fillHeight: true
                    clip: true
                    model: TimerManager.laps
                    delegate: Item {
                        required property var modelData
                        width: ListView.view.width
                        height: 22
                        Text {
                            anchors.left: parent.left
                            anchors.verticalCenter: parent.verticalCenter
                            textFormat: Text.PlainText
                            text: "Lap " + parent.modelData.index
                            color: Qt.rgba(1, 1, 1, 0.6)
                            font.pixelSize: 12
                        }
                        Text {
                            anchors.right: lapTotal.left
                            anchors.rightMargin: 16
                            anchors.verticalCenter: parent.verticalCenter
                            textFormat: Text.PlainText
                            text: TimersFormatting.stopwatch(parent.modelData.delta)
                            color: "white"
                            font.pixelSize: 12
                        }
                        Text {
                            id: lapTotal
                            anchors.right: parent.right
                            anchors.verticalCenter: parent.verticalCenter
                            textFormat: Text.PlainText
                            text: TimersFormatting.stopwatch(parent.modelData.total)
                            color: Qt.rgba(1, 1, 1, 0.45)
                            font.pixelSize: 12
                        }
                    }
                }
            }
        }
    }

    Component {
        id: pomodoroMode
        Item {
            RowLayout {
                id: pomodoroRow
                anchors.centerIn: parent
                readonly property string phase: TimerManager.pomodoroPhase
                readonly property bool focusing: phase === "focus"
                readonly property color tint: phase === "idle" ? root.accent : (focusing ? "#FF6B5E" : "#5FD38A")
                spacing: 24
                Item {
                    Layout.alignment: Qt.AlignVCenter
                    implicitWidth: 132
                    implicitHeight: 132
                    TimerRing {
                        anchors.fill: parent
                        lineWidth: 6
                        color: pomodoroRow.tint
                        progress: TimerManager.pomodoroTotal > 0 ? TimerManager.pomodoroRemaining / TimerManager.pomodoroTotal : 1
                    }
                    Column {
                        anchors.centerIn: parent
                        spacing: 2
                        Text {
                            objectName: "pomodoroTime"
                            anchors.horizontalCenter: parent.horizontalCenter
                            textFormat: Text.PlainText
                            text: TimersFormatting.countdown(TimerManager.pomodoroPhase === "idle"
                                                             ? TimerManager.pomodoroFocusMinutes * 60
                                                             : TimerManager.pomodoroRemaining)
                            color: "white"
                            font.pixelSize: 28
                            font.weight: Font.Light
                        }
                        Text {
                            objectName: "pomodoroPhaseLabel"
                            anchors.horizontalCenter: parent.horizontalCenter
                            textFormat: Text.PlainText
                            text: TimerManager.pomodoroPhase === "longBreak" ? "Long Break"
                                : TimerManager.pomodoroPhase === "shortBreak" ? "Break" : "Focus"
                            color: pomodoroRow.tint
                            font.pixelSize: 12
                            font.weight: Font.DemiBold
                        }
                    }
                }
                Column {
                    Layout.alignment: Qt.AlignVCenter
                    spacing: 10
                    // One dot per session of the cycle, filled for the focus sessions done.
                    Row {
                        objectName: "pomodoroSessions"
                        spacing: 5
                        Repeater {
                            model: Math.max(1, TimerManager.pomodoroSessionsPerCycle)
                            delegate: Rectangle {
                                required property int index
                                width: 8
                                height: 8
                                radius: 4
                                color: index < TimerManager.pomodoroCompletedFocus ? "#FF6B5E" : Qt.rgba(1, 1, 1, 0.18)
                            }
                        }
                    }
                    Row {
                        spacing: 8
                        TimerButton {
                            objectName: TimerManager.isPomodoroRunning ? "pause" : (TimerManager.pomodoroPaused ? "resume" : "start")
                            prominent: true
                            label: TimerManager.isPomodoroRunning ? "Pause" : (TimerManager.pomodoroPaused ? "Resume" : "Start")
                            onClicked: TimerManager.isPomodoroRunning ? TimerManager.pausePomodoro() : TimerManager.startPomodoro()
                        }
                        TimerButton {
                            objectName: "skip"
                            label: "Skip"
                            enabled: TimerManager.pomodoroPhase !== "idle"
                            onClicked: TimerManager.skipPomodoroPhase()
                        }
                        TimerButton {
                            objectName: "reset"
                            label: "Reset"
                            enabled: TimerManager.pomodoroPhase !== "idle"
                            onClicked: TimerManager.resetPomodoro()
                        }
                    }
                }
            }
        }
    }
}
