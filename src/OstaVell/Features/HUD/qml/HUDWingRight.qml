import QtQuick
import OstaVell.HUD

// The HUD's right wing: what it is about, and the level as a bar that can be dragged. While a
// finger is on the bar the peek stays; letting go starts its time again.
Item {
    id: root
    property QtObject controller: null

    readonly property bool brightness: SneakPeekCoordinator.type === "brightness"
    readonly property real level: SneakPeekCoordinator.value
    readonly property bool muted: !root.brightness && VolumeTargetManager.showsMutedState

    implicitWidth: 104
    implicitHeight: 26
    Accessible.role: Accessible.Slider
    Accessible.name: label.text

    Column {
        width: 96
        anchors.verticalCenter: parent.verticalCenter
        spacing: 4
        Text {
            id: label
            objectName: "hudLabel"
            width: parent.width
            textFormat: Text.PlainText
            text: root.brightness ? "Brightness" : VolumeTargetManager.hudLabel
            elide: Text.ElideRight
            color: Qt.rgba(1, 1, 1, 0.8)
            font.pixelSize: 10
            font.weight: Font.Medium
        }
        Item {
            id: track
            objectName: "hudLevel"
            width: parent.width
            height: 6
            Rectangle {
                anchors.fill: parent
                radius: height / 2
                color: Qt.rgba(1, 1, 1, 0.2)
            }
            Rectangle {
                objectName: "hudLevelFill"
                width: Math.max(height, parent.width * (root.muted ? 0 : root.level))
                height: parent.height
                radius: height / 2
                visible: root.muted ? false : root.level > 0
                color: root.controller ? root.controller.accentColor : "white"
            }
            MouseArea {
                // A taller area than the bar, so a finger finds it.
                anchors.fill: parent
                anchors.margins: -8
                preventStealing: true
                function levelAt(x) { return Math.max(0, Math.min(1, (x - 8) / track.width)) }
                function apply(x) {
                    const value = levelAt(x)
                    if (root.brightness) {
                        HUDBrightnessManager.setBrightness(value)
                        SneakPeekCoordinator.showLevel("brightness", value)
                    } else {
                        VolumeTargetManager.setVolume(value)
                    }
                }
                onPressed: mouse => { SneakPeekCoordinator.isInteracting = true; apply(mouse.x) }
                onPositionChanged: mouse => apply(mouse.x)
                onReleased: SneakPeekCoordinator.isInteracting = false
                onCanceled: SneakPeekCoordinator.isInteracting = false
            }
        }
    }
}
