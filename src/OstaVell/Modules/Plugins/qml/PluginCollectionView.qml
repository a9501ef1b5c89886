import QtQuick
import QtQuick.Controls
import OstaVell.Support
import OstaVell.Plugins

// A plugin's collection in its layout: a calendar, an inbox, a task list or files. Search,
// filters, the chosen row, the grid and the order are this view's own and never reach the
// plugin; only a pressed button does, and one that asks first only after "Confirm". Every text
// from the plugin is drawn as plain text.
Column {
    id: root
    required property string pluginID
    // The page it stands on: another page starts with a fresh search, filter and selection.
    property string panelID
    // {layout, title, subtitle, emptyText, items, selectedDate, days, actions} as the plugin sent it.
    required property var collection
    property color accent: "#C7EB87"

    property alias query: search.text
    property string filter: "All"
    property string selection: ""
    property bool fileGrid: false
    property bool sortByName: false
    // The day last pressed, until the plugin says which day it shows (seconds since 2001).
    property var chosenDay: null

    readonly property string layout: root.collection.layout ?? "inbox"
    readonly property var items: root.collection.items ?? []
    readonly property var filters: root.layout === "inbox" ? ["All", "Unread", "Today"]
                                 : root.layout === "tasks" ? ["All", "Today", "Overdue"] : []
    readonly property string shownFilter: root.filters.indexOf(root.filter) >= 0 ? root.filter : "All"
    readonly property var selectedDate: root.layout === "calendar" ? (root.collection.selectedDate ?? null) : null
    readonly property var shown: NativePluginStore.collectionItems(
        root.items, root.query, root.shownFilter, root.layout === "files" && root.sortByName,
        root.selectedDate === null ? undefined : root.selectedDate)
    readonly property string searchLabel: "Search " + String(root.collection.title ?? "").toLocaleLowerCase()
    readonly property string heading: root.layout === "inbox" ? "Messages" : root.layout === "tasks" ? "Due date" : ""
    // The plugin's own words first; the host's only when it gave none.
    readonly property string emptyLine: root.shown.length > 0 ? ""
                                      : (root.collection.emptyText ?? "").length > 0 ? root.collection.emptyText
                                      : root.query.length > 0 ? "No matching items"
                                      : "No items to show"

    // Instants on the bus are seconds since 2001-01-01 00:00:00 UTC.
    function dateOf(seconds) {
        return new Date((Number(seconds) + 978307200) * 1000)
    }
    function sameDay(a, b) {
        return a.getFullYear() === b.getFullYear() && a.getMonth() === b.getMonth() && a.getDate() === b.getDate()
    }
    function dateText(seconds) {
        const date = root.dateOf(seconds)
        return root.sameDay(date, new Date()) ? Qt.formatTime(date, "hh:mm") : Qt.formatDate(date, "d MMM")
    }
    function dueText(item) {
        if (item.date === undefined)
            return "No due date"
        const date = root.dateOf(item.date)
        return root.sameDay(date, new Date()) ? "Today " + Qt.formatTime(date, "hh:mm")
                                              : Qt.formatDate(date, "ddd d MMM")
    }
    function overdue(item) {
        const today = new Date()
        today.setHours(0, 0, 0, 0)
        return item.date !== undefined && !item.completed && root.dateOf(item.date) < today
    }

    onSelectedDateChanged: root.chosenDay = null
    onPanelIDChanged: {
        root.query = ""
        root.filter = "All"
        root.selection = ""
        root.fileGrid = false
        root.sortByName = false
        root.chosenDay = null
    }
    spacing: 10

    // The row's button, when the item has one.
    component ItemAction: Loader {
        id: holder
        property string plugin
        property var itemAction
        active: holder.itemAction !== undefined && holder.itemAction !== null
        visible: active
        sourceComponent: Component {
            PluginActionButton {
                pluginID: holder.plugin
                action: holder.itemAction
                maximumLabelWidth: 120
            }
        }
    }

    component Line: Text {
        textFormat: Text.PlainText
        visible: text.length > 0
        elide: Text.ElideRight
        color: Qt.rgba(1, 1, 1, 0.6)
        font.pixelSize: 11
    }

    // Title and subtitle of the collection.
    Column {
        width: root.width
        spacing: 2
        Text {
            textFormat: Text.PlainText
            width: parent.width
            text: root.collection.title ?? ""
            elide: Text.ElideRight
            color: Qt.rgba(1, 1, 1, 0.95)
            font.pixelSize: 14
            font.weight: Font.DemiBold
        }
        Line {
            width: parent.width
            text: root.collection.subtitle ?? ""
            wrapMode: Text.Wrap
            maximumLineCount: 3
            font.pixelSize: 12
        }
    }

    // The toolbar: heading, filters, the files' switches, the search and the plugin's buttons.
    Flow {
        width: root.width
        spacing: 8

        Text {
            objectName: "heading"
            textFormat: Text.PlainText
            visible: text.length > 0
            height: 28
            verticalAlignment: Text.AlignVCenter
            text: root.heading
            color: Qt.rgba(1, 1, 1, 0.55)
            font.pixelSize: 12
            font.weight: Font.DemiBold
        }
        Repeater {
            model: root.filters
            delegate: PillButton {
                required property string modelData
                objectName: "filter:" + modelData
                label: modelData
                active: root.shownFilter === modelData
                accent: root.accent
                onClicked: root.filter = modelData
            }
        }
        PillButton {
            objectName: "fileGrid"
            visible: root.layout === "files"
            label: root.fileGrid ? "List view" : "Grid view"
            symbol: root.fileGrid ? "list.bullet" : "square.grid.2x2"
            onClicked: root.fileGrid = !root.fileGrid
        }
        PillButton {
            objectName: "fileSort"
            visible: root.layout === "files"
            label: "Change file sort order"
            symbol: "arrow.up.arrow.down"
            active: root.sortByName
            accent: root.accent
            onClicked: root.sortByName = !root.sortByName
        }
        Item {
            width: Math.min(220, root.width)
            height: 28
            TextField {
                id: search
                objectName: "search"
                anchors.fill: parent
                color: Qt.rgba(1, 1, 1, 0.9)
                font.pixelSize: 12
                leftPadding: 12
                rightPadding: 12
                topPadding: 0
                bottomPadding: 0
                verticalAlignment: TextInput.AlignVCenter
                Accessible.name: root.searchLabel
                background: Rectangle {
                    radius: 14
                    color: Qt.rgba(1, 1, 1, 0.085)
                    border.color: search.activeFocus ? Qt.rgba(1, 1, 1, 0.3) : Qt.rgba(1, 1, 1, 0.1)
                }
            }
            // The style's own placeholder would guess rich text in the plugin's title.
            Text {
                objectName: "searchHint"
                textFormat: Text.PlainText
                visible: search.text.length === 0
                x: 12
                width: parent.width - 24
                anchors.verticalCenter: parent.verticalCenter
                text: root.searchLabel
                elide: Text.ElideRight
                color: Qt.rgba(1, 1, 1, 0.4)
                font.pixelSize: 12
            }
        }
        Repeater {
            model: root.collection.actions ?? []
            delegate: PluginActionButton {
                required property var modelData
                pluginID: root.pluginID
                action: modelData
            }
        }
    }

    // The calendar's days; a press loads that day's agenda from the plugin.
    Column {
        visible: root.layout === "calendar"
        width: root.width
        spacing: 6
        Flow {
            width: root.width
            spacing: 6
            Repeater {
                model: root.layout === "calendar" ? (root.collection.days ?? []) : []
                delegate: PluginActionButton {
                    required property var modelData
                    readonly property var day: root.chosenDay ?? root.selectedDate
                    objectName: "day:" + (modelData.action.id ?? "")
                    pluginID: root.pluginID
                    action: modelData.action
                    active: day !== null && root.sameDay(root.dateOf(modelData.date), root.dateOf(day))
                    accent: root.accent
                    onClicked: root.chosenDay = modelData.date
                }
            }
        }
        Text {
            objectName: "calendarHint"
            textFormat: Text.PlainText
            text: "Select a day to load its agenda"
            color: Qt.rgba(1, 1, 1, 0.45)
            font.pixelSize: 11
        }
    }

    Text {
        objectName: "emptyText"
        textFormat: Text.PlainText
        visible: root.emptyLine.length > 0
        width: root.width
        topPadding: 8
        bottomPadding: 8
        horizontalAlignment: Text.AlignHCenter
        text: root.emptyLine
        wrapMode: Text.Wrap
        color: Qt.rgba(1, 1, 1, 0.5)
        font.pixelSize: 12
    }

    // Rows: everything but the files' grid.
    Column {
        visible: !(root.layout === "files" && root.fileGrid)
        width: root.width
        spacing: 6
        Repeater {
            model: root.layout === "files" && root.fileGrid ? [] : root.shown
            delegate: Rectangle {
                id: row
                required property var modelData
                readonly property var item: modelData
                readonly property bool done: row.item.completed === true
                objectName: "item:" + (row.item.id ?? "")
                width: root.width
                height: Math.max(44, texts.implicitHeight + 16)
                radius: 12
                color: root.selection === row.item.id ? Qt.rgba(1, 1, 1, 0.13) : Qt.rgba(1, 1, 1, 0.06)
                border.color: Qt.rgba(1, 1, 1, 0.08)

                TapHandler { onTapped: root.selection = row.item.id ?? "" }

                // What leads the row: the unread mark, the task's circle, the event's time or the
                // file's symbol.
                Item {
                    id: lead
                    x: 10
                    y: 10
                    width: root.layout === "calendar" ? 44 : 18
                    height: 18
                    Rectangle {
                        objectName: "unread"
                        visible: root.layout === "inbox" && row.item.unread === true
                        anchors.centerIn: parent
                        width: 8
                        height: 8
                        radius: 4
                        color: root.accent
                    }
                    SymbolIcon {
                        visible: root.layout === "tasks" || root.layout === "files"
                        anchors.centerIn: parent
                        name: root.layout === "tasks" ? (row.done ? "checkmark.circle.fill" : "circle")
                                                      : (row.item.symbol ?? "doc")
                        color: root.layout === "tasks" && row.done ? root.accent : Qt.rgba(1, 1, 1, 0.7)
                        size: 16
                    }
                    Text {
                        textFormat: Text.PlainText
                        visible: root.layout === "calendar"
                        anchors.verticalCenter: parent.verticalCenter
                        text: row.item.date !== undefined ? Qt.formatTime(root.dateOf(row.item.date), "hh:mm") : ""
                        color: root.accent
                        font.pixelSize: 12
                        font.weight: Font.DemiBold
                    }
                }

                Column {
                    id: texts
                    x: lead.x + lead.width + 10
                    y: 8
                    width: row.width - x - trailing.width - 20
                    spacing: 2
                    Text {
                        textFormat: Text.PlainText
                        width: parent.width
                        text: row.item.title ?? ""
                        elide: Text.ElideRight
                        font.strikeout: root.layout === "tasks" && row.done
                        color: row.done ? Qt.rgba(1, 1, 1, 0.5) : Qt.rgba(1, 1, 1, 0.92)
                        font.pixelSize: 13
                        font.weight: root.layout === "inbox" && row.item.unread === true ? Font.DemiBold : Font.Normal
                    }
                    Line {
                        width: parent.width
                        text: row.item.subtitle ?? ""
                    }
                    Line {
                        width: parent.width
                        text: row.item.detail ?? ""
                        wrapMode: Text.Wrap
                        maximumLineCount: 2
                        color: Qt.rgba(1, 1, 1, 0.5)
                    }
                }

                Row {
                    id: trailing
                    anchors.right: parent.right
                    anchors.rightMargin: 10
                    y: 8
                    spacing: 8
                    Text {
                        objectName: "date:" + (row.item.id ?? "")
                        textFormat: Text.PlainText
                        visible: text.length > 0
                        anchors.verticalCenter: parent.verticalCenter
                        text: root.layout === "tasks" ? root.dueText(row.item)
                            : root.layout !== "calendar" && row.item.date !== undefined ? root.dateText(row.item.date) : ""
                        color: root.layout === "tasks" && root.overdue(row.item) ? "#ff9a8a" : Qt.rgba(1, 1, 1, 0.5)
                        font.pixelSize: 11
                    }
                    ItemAction {
                        anchors.verticalCenter: parent.verticalCenter
                        plugin: root.pluginID
                        itemAction: row.item.action
                    }
                }
            }
        }
    }

    // The files as tiles, as many to a row as fit.
    Flow {
        id: tiles
        readonly property int columns: Math.max(1, Math.floor((root.width + spacing) / (132 + spacing)))
        readonly property real tileWidth: (root.width - (columns - 1) * spacing) / columns
        visible: root.layout === "files" && root.fileGrid
        width: root.width
        spacing: 10
        Repeater {
            model: root.layout === "files" && root.fileGrid ? root.shown : []
            delegate: Rectangle {
                id: tile
                required property var modelData
                objectName: "item:" + (modelData.id ?? "")
                width: tiles.tileWidth
                height: tileBody.implicitHeight + 24
                radius: 14
                color: root.selection === modelData.id ? Qt.rgba(1, 1, 1, 0.13) : Qt.rgba(1, 1, 1, 0.06)
                border.color: Qt.rgba(1, 1, 1, 0.08)
                TapHandler { onTapped: root.selection = tile.modelData.id ?? "" }
                Column {
                    id: tileBody
                    x: 10
                    y: 12
                    width: parent.width - 20
                    spacing: 6
                    SymbolIcon {
                        anchors.horizontalCenter: parent.horizontalCenter
                        name: tile.modelData.symbol ?? "doc"
                        color: Qt.rgba(1, 1, 1, 0.75)
                        size: 32
                    }
                    Text {
                        textFormat: Text.PlainText
                        width: parent.width
                        horizontalAlignment: Text.AlignHCenter
                        text: tile.modelData.title ?? ""
                        wrapMode: Text.Wrap
                        maximumLineCount: 2
                        elide: Text.ElideRight
                        color: Qt.rgba(1, 1, 1, 0.9)
                        font.pixelSize: 12
                    }
                    Line {
                        width: parent.width
                        horizontalAlignment: Text.AlignHCenter
                        text: tile.modelData.subtitle ?? ""
                    }
                }
            }
        }
    }
}
