import QtQuick
import OstaVell.Support
import OstaVell.ShortcutsRunner

// The Shortcuts widget: a search field and one chip per shortcut, favourites first. A press runs
// the shortcut; its chip shows that it runs, then for a moment how it ended. Names come from the
// user's files and are drawn as plain text. Opening the widget lists the shortcuts again unless
// that was done a moment ago.
Item {
    id: root
    property QtObject controller: null

    readonly property color accent: root.controller && root.controller.accentColor !== undefined
                                    ? root.controller.accentColor : "#C7EB87"
    readonly property var shortcuts: ShortcutsManager.widgetShortcuts
    readonly property var empty: ShortcutsManager.emptyState
    readonly property var outcomes: ShortcutsManager.recentOutcomes
    readonly property var running: ShortcutsManager.runningNames
    readonly property var favorites: ShortcutsManager.favorites

    Component.onCompleted: if (visible) ShortcutsManager.refreshOnAppear()
    onVisibleChanged: if (visible) ShortcutsManager.refreshOnAppear()

    // The search field.
    Rectangle {
        id: searchFrame
        x: 12
        y: 4
        width: root.width - 24
        height: 30
        radius: 10
        color: Qt.rgba(1, 1, 1, 0.07)
        border.color: search.activeFocus ? Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.6)
                                         : Qt.rgba(1, 1, 1, 0.08)
        SymbolIcon {
            id: glass
            x: 10
            anchors.verticalCenter: parent.verticalCenter
            name: "magnifyingglass"
            size: 15
            color: Qt.rgba(1, 1, 1, 0.55)
        }
        TextInput {
            id: search
            objectName: "search"
            anchors.left: glass.right
            anchors.leftMargin: 8
            anchors.right: parent.right
            anchors.rightMargin: 10
            anchors.verticalCenter: parent.verticalCenter
            color: "white"
            font.pixelSize: 13
            clip: true
            text: ShortcutsManager.searchText
            onTextEdited: ShortcutsManager.searchText = text
            Accessible.role: Accessible.EditableText
            Accessible.name: "Search"
            Text {
                textFormat: Text.PlainText
                visible: search.text.length === 0
                anchors.verticalCenter: parent.verticalCenter
                text: "Search"
                color: Qt.rgba(1, 1, 1, 0.4)
                font.pixelSize: 13
            }
        }
    }

    // What shows instead of the chips.
    Column {
        objectName: "emptyState"
        visible: root.empty.title !== undefined
        anchors.horizontalCenter: parent.horizontalCenter
        anchors.verticalCenter: chips.verticalCenter
        width: Math.min(root.width - 48, 420)
        spacing: 6
        Text {
            objectName: "emptyTitle"
            width: parent.width
            horizontalAlignment: Text.AlignHCenter
            textFormat: Text.PlainText
            text: root.empty.title ?? ""
            color: Qt.rgba(1, 1, 1, 0.8)
            font.pixelSize: 14
            font.weight: Font.DemiBold
        }
        Text {
            objectName: "emptyMessage"
            visible: text.length > 0
            width: parent.width
            horizontalAlignment: Text.AlignHCenter
            textFormat: Text.PlainText
            text: root.empty.message ?? ""
            wrapMode: Text.Wrap
            color: Qt.rgba(1, 1, 1, 0.55)
            font.pixelSize: 12
        }
    }

    Flickable {
        id: chips
        anchors.top: searchFrame.bottom
        anchors.topMargin: 10
        anchors.bottom: parent.bottom
        x: 12
        width: root.width - 24
        clip: true
        contentHeight: flow.implicitHeight
        boundsBehavior: Flickable.StopAtBounds

        Flow {
            id: flow
            width: chips.width
            spacing: 8
            Repeater {
                model: root.shortcuts
                delegate: Rectangle {
                    id: chip
                    required property string modelData
                    readonly property string outcome: root.outcomes[chip.modelData] ?? ""
                    readonly property bool isRunning: root.running.indexOf(chip.modelData) >= 0
                    readonly property bool isFavorite: root.favorites.indexOf(chip.modelData) >= 0
                    readonly property color tint: chip.outcome === "success" ? "#4CD964"
                                                : chip.outcome === "failure" ? "#FF6B5E"
                                                : chip.isRunning ? root.accent : Qt.rgba(1, 1, 1, 0.5)
                    objectName: "shortcut:" + chip.modelData
                    width: Math.min(content.implicitWidth + 24, flow.width)
                    height: 32
                    radius: 16
                    color: chip.outcome.length > 0 || chip.isRunning
                           ? Qt.rgba(chip.tint.r, chip.tint.g, chip.tint.b, 0.2)
                           : (chipHover.hovered ? Qt.rgba(1, 1, 1, 0.14) : Qt.rgba(1, 1, 1, 0.085))
                    border.color: chip.outcome.length > 0 || chip.isRunning
                                  ? Qt.rgba(chip.tint.r, chip.tint.g, chip.tint.b, 0.7) : Qt.rgba(1, 1, 1, 0.1)
                    Accessible.role: Accessible.Button
                    Accessible.name: chip.modelData
                    Accessible.onPressAction: ShortcutsManager.run(chip.modelData)
                    HoverHandler { id: chipHover }
                    TapHandler { onTapped: ShortcutsManager.run(chip.modelData) }
                    Row {
                        id: content
                        anchors.centerIn: parent
                        spacing: 6
                        SymbolIcon {
                            objectName: "state"
                            anchors.verticalCenter: parent.verticalCenter
                            name: chip.outcome === "success" ? "checkmark.circle.fill"
                                : chip.outcome === "failure" ? "exclamationmark.triangle"
                                : chip.isRunning ? "ellipsis" : (chip.isFavorite ? "star.fill" : "play.fill")
                            size: 13
                            color: chip.outcome.length > 0 || chip.isRunning ? chip.tint
                                 : (chip.isFavorite ? "#FFCC4D" : Qt.rgba(1, 1, 1, 0.6))
                        }
                        Text {
                            anchors.verticalCenter: parent.verticalCenter
                            width: Math.min(implicitWidth, flow.width - 60)
                            textFormat: Text.PlainText
                            text: chip.modelData
                            elide: Text.ElideRight
                            color: Qt.rgba(1, 1, 1, 0.92)
                            font.pixelSize: 12
                        }
                    }
                }
            }
        }
    }
}
