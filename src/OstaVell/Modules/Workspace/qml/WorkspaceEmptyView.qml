import QtQuick
import OstaVell.Support

// What the stage shows when there is nothing to draw: no choice at all, or a built-in view whose
// feature isn't part of the app yet. The overview lays out its two halves by the home layout.
Item {
    id: root
    // "home", "media", "calendar", another built-in, or empty for no choice.
    property string builtin
    property color accent: "#C7EB87"

    component Placeholder: Column {
        property string symbol
        property string title
        spacing: 6
        SymbolIcon {
            anchors.horizontalCenter: parent.horizontalCenter
            name: parent.symbol
            size: 22
            color: Qt.rgba(1, 1, 1, 0.45)
        }
        Text {
            textFormat: Text.PlainText
            anchors.horizontalCenter: parent.horizontalCenter
            text: parent.title
            color: Qt.rgba(1, 1, 1, 0.75)
            font.pixelSize: 14
            font.weight: Font.DemiBold
        }
    }

    Text {
        objectName: "noChoice"
        visible: root.builtin.length === 0
        textFormat: Text.PlainText
        anchors.centerIn: parent
        text: "Install or enable a module for this screen."
        color: Qt.rgba(1, 1, 1, 0.5)
        font.pixelSize: 13
    }

    Row {
        objectName: "home"
        visible: root.builtin === "home" || root.builtin === "media" || root.builtin === "calendar"
        anchors.centerIn: parent
        spacing: 64
        readonly property string layout: root.builtin === "home" ? SettingsStore.homeLayout
                                         : root.builtin === "media" ? "mediaOnly" : "calendarOnly"
        // The media half is the feature's own player when it offers one.
        Loader {
            objectName: "media"
            readonly property url offered: ShellContributions.stageView("builtin:media")
            visible: parent.layout !== "calendarOnly" && offered.toString().length > 0
            active: visible
            width: 360
            height: 180
            source: offered
            onLoaded: {
                item.compact = true
                item.accent = Qt.binding(() => root.accent)
            }
        }
        Placeholder {
            objectName: "mediaPlaceholder"
            visible: parent.layout !== "calendarOnly" && ShellContributions.stageView("builtin:media").toString().length === 0
            symbol: "music.note"
            title: "Now playing"
        }
        Placeholder {
            objectName: "calendar"
            anchors.verticalCenter: parent.verticalCenter
            visible: parent.layout !== "mediaOnly"
            symbol: "calendar"
            title: "Calendar"
        }
    }
}
