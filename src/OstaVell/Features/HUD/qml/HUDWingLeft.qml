import QtQuick
import OstaVell.Support
import OstaVell.HUD

// The HUD's left wing: the symbol of what changed, the sun by brightness, the speaker by level.
Item {
    id: root
    property QtObject controller: null

    readonly property bool brightness: SneakPeekCoordinator.type === "brightness"
    readonly property bool muted: !root.brightness && VolumeTargetManager.showsMutedState

    implicitWidth: 104
    implicitHeight: 22
    Accessible.role: Accessible.Graphic
    Accessible.name: root.brightness ? "Brightness" : VolumeTargetManager.hudLabel

    SymbolIcon {
        objectName: "hudSymbol"
        x: 8 + (96 - width) / 2
        anchors.verticalCenter: parent.verticalCenter
        name: SneakPeekCoordinator.symbol(root.muted)
        size: 16
        color: "white"
    }
}
