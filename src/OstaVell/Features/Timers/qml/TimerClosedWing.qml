import QtQuick
import OstaVell.Timers

// The timer's share of the closed wing: a small ring of what is left and the time, while the
// countdown isn't idle or a pomodoro is under way (the countdown first when both are). In the
// three seconds of a finished countdown it pulses; otherwise nothing here moves by itself.
Item {
    id: root
    property QtObject controller: null

    readonly property bool countdownShown: TimerManager.countdownPhase !== "idle"
    readonly property bool pomodoroShown: TimerManager.pomodoroPhase !== "idle"
    readonly property bool shown: countdownShown || pomodoroShown
    readonly property bool finished: TimerManager.countdownPhase === "finished"
    readonly property bool focusing: TimerManager.pomodoroPhase === "focus"
    readonly property real remaining: countdownShown ? TimerManager.countdownRemaining : TimerManager.pomodoroRemaining
    readonly property real progress: countdownShown
                                     ? TimerManager.countdownProgress
                                     : (TimerManager.pomodoroTotal > 0
                                        ? Math.max(0, Math.min(1, TimerManager.pomodoroRemaining / TimerManager.pomodoroTotal)) : 0)
    readonly property color tint: countdownShown
                                  ? (controller && controller.accentColor ? controller.accentColor : "#FF9F0A")
                                  : (focusing ? "#FF6B5E" : "#5FD38A")

    implicitWidth: shown ? row.implicitWidth : 0
    implicitHeight: 18

    Row {
        id: row
        objectName: "timerWing"
        visible: root.shown
        anchors.verticalCenter: parent.verticalCenter
        spacing: 5

        TimerRing {
            objectName: "timerWingRing"
            anchors.verticalCenter: parent.verticalCenter
            width: 13
            height: 13
            progress: root.progress
            color: root.tint
        }
        Text {
            id: time
            objectName: "timerWingTime"
            anchors.verticalCenter: parent.verticalCenter
            textFormat: Text.PlainText
            text: TimersFormatting.countdown(root.remaining)
            // As wide as its widest digits, so the wing keeps its width while the time runs.
            width: Math.ceil(digits.width(text))
            horizontalAlignment: Text.AlignRight
            color: Qt.rgba(1, 1, 1, 0.92)
            font.pixelSize: 11
            font.weight: Font.Medium
        }
    }

    FontMetrics {
        id: metrics
        font: time.font
    }
    QtObject {
        id: digits
        readonly property real widest: {
            let widest = 0
            for (let digit = 0; digit < 10; ++digit)
                widest = Math.max(widest, metrics.advanceWidth(String(digit)))
            return widest
        }
        function width(text) {
            const count = (text.match(/[0-9]/g) || []).length
            return metrics.advanceWidth(text.replace(/[0-9]/g, "")) + count * widest
        }
    }

    // The pulse of a finished countdown: 0.35 and back, eased, until the phase moves on; then
    // back to full over 0.2 seconds.
    SequentialAnimation {
        id: pulse
        objectName: "timerWingPulse"
        running: root.finished && root.shown
        loops: Animation.Infinite
        NumberAnimation { target: row; property: "opacity"; to: 0.35; duration: 350; easing.type: Easing.InOutQuad }
        NumberAnimation { target: row; property: "opacity"; to: 1; duration: 350; easing.type: Easing.InOutQuad }
        onRunningChanged: if (!running && row.opacity < 1) settle.start()
    }
    NumberAnimation {
        id: settle
        target: row
        property: "opacity"
        to: 1
        duration: 200
        easing.type: Easing.InOutQuad
    }
}
