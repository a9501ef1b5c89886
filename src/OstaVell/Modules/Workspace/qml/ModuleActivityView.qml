import QtQuick
import OstaVell.Plugins
import OstaVell.Workspace

// The closed-notch line of the module or plugin chosen on this display's stage, when it asks to
// be shown compact and has something to say.
Item {
    id: root
    property QtObject controller: null

    readonly property string displayID: root.controller ? root.controller.appearanceID : ""
    readonly property string chosen: ModuleStageStore.revision >= 0 ? ModuleStageStore.selectionFor(root.displayID) : ""
    readonly property string line: {
        if (root.chosen.startsWith("local:") && ModuleStore.modules) {
            const id = root.chosen.substring(6)
            const module = ModuleStore.visibleModules(root.displayID).find(m => m.id === id)
            return module && module.compactActivity && module.activity !== undefined ? ModuleStore.activityText(id) : ""
        }
        if (root.chosen.startsWith("native:")) {
            const id = root.chosen.substring(7)
            const plugin = NativePluginStore.visiblePlugins(root.displayID).find(p => p.id === id)
            const shot = NativePluginStore.snapshots[id]
            return plugin && plugin.compactActivity && plugin.enabled && shot ? (shot.activity ?? "") : ""
        }
        return ""
    }

    implicitWidth: root.line.length > 0 ? Math.min(label.implicitWidth, 140) : 0
    implicitHeight: label.implicitHeight
    Text {
        id: label
        objectName: "moduleActivity"
        textFormat: Text.PlainText
        anchors.verticalCenter: parent.verticalCenter
        width: root.implicitWidth
        text: root.line
        elide: Text.ElideRight
        color: Qt.rgba(1, 1, 1, 0.9)
        font.pixelSize: 10
        font.weight: Font.Medium
    }
}
