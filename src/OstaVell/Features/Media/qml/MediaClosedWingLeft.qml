import QtQuick
import OstaVell.Media
import OstaVell.Support

// The left wing while something plays: the artwork, small, or the note when there is none.
Item {
    id: root
    property QtObject controller: null

    readonly property bool shown: MusicManager.hasPlayback
    implicitWidth: root.shown ? 18 + 10 : 0
    implicitHeight: 18

    Rectangle {
        objectName: "mediaWingArtwork"
        visible: root.shown
        x: 7
        anchors.verticalCenter: parent.verticalCenter
        width: 18
        height: 18
        radius: 4
        color: Qt.rgba(1, 1, 1, 0.12)
        clip: true
        Image {
            anchors.fill: parent
            source: MusicManager.artworkSource
            sourceSize: Qt.size(36, 36)
            fillMode: Image.PreserveAspectCrop
            asynchronous: true
            visible: status === Image.Ready
        }
        SymbolIcon {
            anchors.centerIn: parent
            visible: MusicManager.artworkSource.toString().length === 0
            name: "music.note"
            size: 12
            color: Qt.rgba(1, 1, 1, 0.7)
        }
    }
}
