import QtQuick
import OstaVell.Support
import OstaVell.Plugins

// The plugins' page of one display's open panel: runs waiting for a person first, then the
// plugins shown on this display to choose from, and the chosen one's cards. The store hears
// which plugin is on screen here, so that a plugin knows when it is looked at.
Item {
    id: root
    // The display's DisplayShelfController; its appearanceID names the display.
    required property QtObject controller

    readonly property string displayID: root.controller ? root.controller.appearanceID : ""
    readonly property color accent: root.controller && root.controller.accentColor !== undefined
                                    ? root.controller.accentColor : "#C7EB87"
    // Asked again whenever the plugins change, which the call alone would not tell.
    readonly property var plugins: NativePluginStore.plugins.length >= 0
                                   ? NativePluginStore.visiblePlugins(root.displayID) : []
    readonly property var chosen: {
        const id = NativePluginStore.selections[root.displayID]
        return root.plugins.find(p => p.id === id) ?? root.plugins[0] ?? null
    }
    // The plugin this view shows on screen now; "" while hidden or with none.
    readonly property string presented: root.visible && root.chosen !== null && cards.wantsMedia
                                        ? root.chosen.id : ""
    property string told: ""

    function tell() {
        if (root.told === root.presented)
            return
        if (root.told.length > 0)
            NativePluginStore.setPresented(root.told, root.displayID, false)
        root.told = root.presented
        if (root.told.length > 0)
            NativePluginStore.setPresented(root.told, root.displayID, true)
    }
    onPresentedChanged: tell()
    Component.onCompleted: tell()
    Component.onDestruction: {
        if (root.told.length > 0)
            NativePluginStore.setPresented(root.told, root.displayID, false)
    }

    Flickable {
        id: scroller
        anchors.fill: parent
        contentWidth: width
        contentHeight: content.implicitHeight
        clip: true
        boundsBehavior: Flickable.StopAtBounds

        Column {
            id: content
            width: scroller.width
            spacing: 12

            Repeater {
                model: NativePluginStore.reviews
                delegate: ActionReviewCard {
                    required property var modelData
                    width: content.width
                    review: modelData
                    accent: root.accent
                }
            }

            // Runs under way between plugins, with the steps a provider reports.
            Repeater {
                model: NativePluginStore.activeRuns
                delegate: Rectangle {
                    required property var modelData
                    readonly property var display: modelData.display ?? null
                    readonly property real fraction: display && display.totalSteps > 0
                                                     ? display.completedSteps / display.totalSteps
                                                     : (modelData.progress ?? -1) / 100
                    width: content.width
                    height: runText.implicitHeight + 20
                    radius: 12
                    color: Qt.rgba(1, 1, 1, 0.06)
                    Column {
                        id: runText
                        x: 12; y: 10
                        width: parent.width - 24
                        spacing: 4
                        Text {
                            width: parent.width
                            textFormat: Text.PlainText
                            elide: Text.ElideRight
                            text: modelData.callerName + " \u2192 " + modelData.providerName + " \u00b7 "
                                  + (display ? display.title : modelData.title)
                            color: Qt.rgba(1, 1, 1, 0.9)
                            font.pixelSize: 12
                        }
                        Text {
                            width: parent.width
                            visible: text.length > 0
                            textFormat: Text.PlainText
                            elide: Text.ElideRight
                            text: display && display.step.length > 0
                                  ? display.step + (display.totalSteps > 0
                                                    ? " (" + display.completedSteps + "/" + display.totalSteps + ")" : "")
                                  : modelData.message
                            color: Qt.rgba(1, 1, 1, 0.6)
                            font.pixelSize: 11
                        }
                        Rectangle {
                            visible: fraction >= 0
                            width: parent.width
                            height: 3
                            radius: 1.5
                            color: Qt.rgba(1, 1, 1, 0.12)
                            Rectangle {
                                width: parent.width * Math.max(0, Math.min(1, fraction))
                                height: parent.height
                                radius: parent.radius
                                color: root.accent
                            }
                        }
                    }
                }
            }

            // The plugins to choose from.
            Flow {
                visible: root.plugins.length > 0
                width: content.width
                spacing: 6
                Repeater {
                    model: root.plugins
                    delegate: PillButton {
                        required property var modelData
                        objectName: "choose:" + modelData.id
                        label: modelData.name
                        symbol: (modelData.icon ?? {}).symbol ?? ""
                        symbolColor: (modelData.icon ?? {}).color ? "#" + modelData.icon.color : null
                        active: root.chosen !== null && root.chosen.id === modelData.id
                        accent: root.accent
                        onClicked: NativePluginStore.select(root.displayID, modelData.id)
                    }
                }
            }

            NativePluginCards {
                id: cards
                visible: root.chosen !== null
                width: content.width
                plugin: root.chosen ?? ({})
                accent: root.accent
            }
        }
    }

    // Nothing to show on this display.
    Rectangle {
        objectName: "empty"
        visible: root.chosen === null && NativePluginStore.reviews.length === 0
        anchors.fill: parent
        radius: 16
        color: Qt.rgba(1, 1, 1, 0.085)
        border.color: Qt.rgba(1, 1, 1, 0.1)
        Text {
            textFormat: Text.PlainText
            anchors.centerIn: parent
            text: "No workspace yet"
            color: Qt.rgba(1, 1, 1, 0.45)
            font.pixelSize: 13
        }
    }
}
