import QtQuick
import QtQuick.Controls
import OstaVell.Support

// A panel's control grid: its cards, narrowed to one group (a card's subtitle is its group) and
// by a search on title and subtitle. Group and search belong to this view and start over with it.
Column {
    id: root
    required property string pluginID
    // [{id, title, subtitle, value, detail, symbol, highlighted, actions}] as the plugin sent them.
    required property var cards
    property color accent: "#C7EB87"
    // The chosen group; "" is "All", since a group is never empty.
    property string group: ""
    property alias search: searchField.text

    // The distinct non-empty subtitles, in ascending order.
    readonly property var groups: {
        const seen = new Set()
        for (const card of root.cards) {
            if ((card.subtitle ?? "").length > 0)
                seen.add(card.subtitle)
        }
        return Array.from(seen).sort()
    }
    // A group that no card names any more shows everything, and comes back with its cards.
    readonly property string shownGroup: root.groups.indexOf(root.group) >= 0 ? root.group : ""
    readonly property var shownCards: {
        const needle = root.search.toLocaleLowerCase()
        const inGroup = card => root.shownGroup.length === 0 || card.subtitle === root.shownGroup
        const matches = card => needle.length === 0
                                || String(card.title ?? "").toLocaleLowerCase().indexOf(needle) >= 0
                                || String(card.subtitle ?? "").toLocaleLowerCase().indexOf(needle) >= 0
        return root.cards.filter(card => inGroup(card) && matches(card))
    }

    readonly property int columns: Math.max(1, Math.floor((width + grid.spacing) / (170 + grid.spacing)))
    readonly property real tileWidth: (width - (columns - 1) * grid.spacing) / columns

    spacing: 10

    Row {
        spacing: 8
        width: root.width

        Text {
            textFormat: Text.PlainText
            anchors.verticalCenter: parent.verticalCenter
            text: "Room or group"
            color: Qt.rgba(1, 1, 1, 0.55)
            font.pixelSize: 12
        }

        ComboBox {
            id: groupMenu
            objectName: "groupMenu"
            anchors.verticalCenter: parent.verticalCenter
            width: Math.min(200, root.width / 3)
            height: 28
            model: ["All"].concat(root.groups)
            currentIndex: root.shownGroup.length === 0 ? 0 : root.groups.indexOf(root.shownGroup) + 1
            onActivated: index => root.group = index === 0 ? "" : root.groups[index - 1]
            Accessible.name: "Room or group"

            background: Rectangle {
                radius: 14
                color: Qt.rgba(1, 1, 1, 0.085)
                border.color: Qt.rgba(1, 1, 1, 0.1)
            }
            contentItem: Text {
                textFormat: Text.PlainText
                leftPadding: 12
                rightPadding: 24
                verticalAlignment: Text.AlignVCenter
                text: groupMenu.displayText
                elide: Text.ElideRight
                color: Qt.rgba(1, 1, 1, 0.88)
                font.pixelSize: 12
            }
            indicator: Text {
                textFormat: Text.PlainText
                x: groupMenu.width - width - 10
                anchors.verticalCenter: parent.verticalCenter
                text: "\u25BE"
                color: Qt.rgba(1, 1, 1, 0.6)
                font.pixelSize: 12
            }
            delegate: ItemDelegate {
                id: choice
                required property var modelData
                required property int index
                width: groupMenu.width
                height: 28
                highlighted: groupMenu.highlightedIndex === index
                background: Rectangle {
                    color: choice.highlighted ? Qt.rgba(1, 1, 1, 0.12) : "transparent"
                    radius: 8
                }
                contentItem: Text {
                    textFormat: Text.PlainText
                    text: choice.modelData
                    elide: Text.ElideRight
                    verticalAlignment: Text.AlignVCenter
                    color: Qt.rgba(1, 1, 1, 0.88)
                    font.pixelSize: 12
                }
            }
            popup: Popup {
                y: groupMenu.height + 4
                width: groupMenu.width
                implicitHeight: Math.min(list.contentHeight + 8, 280)
                padding: 4
                background: Rectangle {
                    radius: 10
                    color: "#26262b"
                    border.color: Qt.rgba(1, 1, 1, 0.12)
                }
                contentItem: ListView {
                    id: list
                    clip: true
                    model: groupMenu.popup.visible ? groupMenu.delegateModel : null
                    currentIndex: groupMenu.highlightedIndex
                }
            }
        }

        TextField {
            id: searchField
            objectName: "search"
            anchors.verticalCenter: parent.verticalCenter
            width: Math.min(240, root.width - groupMenu.width - 120)
            height: 28
            color: Qt.rgba(1, 1, 1, 0.9)
            font.pixelSize: 12
            leftPadding: 12
            rightPadding: 12
            topPadding: 0
            bottomPadding: 0
            verticalAlignment: TextInput.AlignVCenter
            Accessible.name: "Search"
            background: Rectangle {
                radius: 14
                color: Qt.rgba(1, 1, 1, 0.085)
                border.color: searchField.activeFocus ? Qt.rgba(1, 1, 1, 0.3) : Qt.rgba(1, 1, 1, 0.1)
            }
            // Drawn here rather than as the style's placeholder, which guesses the text's format.
            Text {
                textFormat: Text.PlainText
                visible: searchField.text.length === 0
                x: searchField.leftPadding
                anchors.verticalCenter: parent.verticalCenter
                text: "Search"
                color: Qt.rgba(1, 1, 1, 0.4)
                font.pixelSize: 12
            }
        }
    }

    Flow {
        id: grid
        width: root.width
        spacing: 10

        Repeater {
            model: root.shownCards
            delegate: Rectangle {
                id: tile
                required property var modelData
                readonly property bool lit: modelData.highlighted === true
                objectName: "card:" + (modelData.id ?? "")
                width: root.tileWidth
                height: body.implicitHeight + 24
                radius: 14
                color: lit ? Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.16) : Qt.rgba(1, 1, 1, 0.085)
                border.color: lit ? Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.5) : Qt.rgba(1, 1, 1, 0.1)

                Column {
                    id: body
                    x: 12
                    y: 12
                    width: parent.width - 24
                    spacing: 3

                    Row {
                        width: parent.width
                        spacing: 6
                        SymbolIcon {
                            id: cardSymbol
                            visible: (tile.modelData.symbol ?? "").length > 0
                            anchors.verticalCenter: parent.verticalCenter
                            name: tile.modelData.symbol ?? ""
                            color: tile.lit ? root.accent : Qt.rgba(1, 1, 1, 0.75)
                            size: 16
                        }
                        Text {
                            textFormat: Text.PlainText
                            width: parent.width - (cardSymbol.visible ? cardSymbol.width + 6 : 0)
                            text: tile.modelData.title ?? ""
                            elide: Text.ElideRight
                            color: Qt.rgba(1, 1, 1, 0.92)
                            font.pixelSize: 13
                            font.weight: Font.DemiBold
                        }
                    }
                    Text {
                        textFormat: Text.PlainText
                        visible: text.length > 0
                        width: parent.width
                        text: tile.modelData.subtitle ?? ""
                        elide: Text.ElideRight
                        color: Qt.rgba(1, 1, 1, 0.5)
                        font.pixelSize: 11
                    }
                    Text {
                        textFormat: Text.PlainText
                        visible: text.length > 0
                        width: parent.width
                        text: tile.modelData.value ?? ""
                        elide: Text.ElideRight
                        color: tile.lit ? root.accent : Qt.rgba(1, 1, 1, 0.92)
                        font.pixelSize: 17
                        font.weight: Font.Medium
                    }
                    Text {
                        textFormat: Text.PlainText
                        visible: text.length > 0
                        width: parent.width
                        text: tile.modelData.detail ?? ""
                        wrapMode: Text.Wrap
                        maximumLineCount: 4
                        elide: Text.ElideRight
                        color: Qt.rgba(1, 1, 1, 0.6)
                        font.pixelSize: 11
                    }
                    Flow {
                        visible: (tile.modelData.actions ?? []).length > 0
                        width: parent.width
                        topPadding: 4
                        spacing: 6
                        Repeater {
                            model: tile.modelData.actions ?? []
                            delegate: PluginActionButton {
                                required property var modelData
                                pluginID: root.pluginID
                                action: modelData
                                maximumLabelWidth: tile.width - 60
                            }
                        }
                    }
                }
            }
        }
    }
}
