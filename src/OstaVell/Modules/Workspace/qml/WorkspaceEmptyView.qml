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

    Component {
        id: mediaPlaceholder
        Placeholder {
            symbol: "music.note"
            title: "Now playing"
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
            visible: parent.layout !== "calendarOnly"
            active: visible
            width: offered.toString().length > 0 ? 340 : implicitWidth
            height: offered.toString().length > 0 ? 180 : implicitHeight
            sourceComponent: offered.toString().length > 0 ? null : mediaPlaceholder
            Component.onCompleted: if (offered.toString().length > 0) setSource(offered, { compact: true, accent: root.accent })
        }
        Placeholder {
            objectName: "calendar"
            visible: parent.layout !== "mediaOnly"
            symbol: "calendar"
            title: "Calendar"
        }
    }
}
