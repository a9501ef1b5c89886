import QtQuick
import OstaVell.Media
import OstaVell.Support

// The right wing's share of the standing row: still bars while a track plays, a pause sign
// while it is paused, and for a moment after the track changes its title and artist. Nothing
// here moves on its own: a closed panel with music playing costs no frames.
Item {
    id: root
    property QtObject controller: null

    readonly property var playback: MusicManager.playback
    readonly property bool shown: MusicManager.hasPlayback
    readonly property bool peeking: MusicManager.showQuickPeek && MusicManager.hasPlayback
    readonly property color tint: MusicManager.artworkTint.valid ? Qt.lighter(MusicManager.artworkTint, 1.6) : "#C7EB87"

    implicitWidth: root.shown ? row.implicitWidth : 0
    implicitHeight: 18

    Row {
        id: row
        visible: root.shown
        anchors.verticalCenter: parent.verticalCenter
        spacing: 6
        Text {
            objectName: "mediaQuickPeek"
            visible: root.peeking
            anchors.verticalCenter: parent.verticalCenter
            width: Math.min(implicitWidth, 160)
            textFormat: Text.PlainText
            elide: Text.ElideRight
            text: {
                const peek = MusicManager.quickPeekPlayback
                return (peek.title ?? "") + (peek.artist ? " — " + peek.artist : "")
            }
            color: Qt.rgba(1, 1, 1, 0.9)
            font.pixelSize: 10
            font.weight: Font.Medium
        }
        Row {
            objectName: "mediaWingBars"
            visible: root.playback.isPlaying === true && MusicManager.showVisualizer
            anchors.verticalCenter: parent.verticalCenter
            spacing: 2
            Repeater {
                model: [0.55, 1.0, 0.7, 0.85]
                Rectangle {
                    anchors.bottom: parent.bottom
                    width: 2
                    height: 12 * modelData
                    radius: 1
                    color: root.tint
                }
            }
        }
        SymbolIcon {
            objectName: "mediaWingPaused"
            visible: root.playback.isPlaying !== true || !MusicManager.showVisualizer
            anchors.verticalCenter: parent.verticalCenter
            name: root.playback.isPlaying === true ? "music.note" : "pause.fill"
            size: 12
            color: Qt.rgba(1, 1, 1, 0.7)
        }
    }
}
