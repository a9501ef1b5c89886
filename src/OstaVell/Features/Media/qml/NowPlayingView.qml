import QtQuick
import QtQuick.Controls
import OstaVell.Media
import OstaVell.Support

// "Now playing" on the stage: the artwork, the track, its time, the controls, and the players
// to choose from when more than one is on the bus. Everything a player says is plain text.
Item {
    id: root
    property QtObject controller: null
    property string workflowID
    property color accent: "#C7EB87"
    // The overview's half: the same player without the list of players.
    property bool compact: false

    readonly property var playback: MusicManager.playback
    readonly property bool playing: root.playback.isPlaying === true
    // The time shown, moved on once a second while the view is on screen and the track plays.
    property double elapsed: MusicManager.elapsedNow()

    Connections {
        target: MusicManager
        function onPlaybackChanged() { root.elapsed = MusicManager.elapsedNow() }
    }
    Timer {
        interval: 1000
        repeat: true
        running: root.visible && root.playing
        onTriggered: root.elapsed = MusicManager.elapsedNow()
    }

    function clock(seconds) {
        const whole = Math.max(0, Math.floor(seconds))
        const minutes = Math.floor(whole / 60)
        const rest = whole % 60
        return minutes + ":" + (rest < 10 ? "0" : "") + rest
    }

    component ControlButton: AbstractButton {
        id: button
        property string symbol
        property bool lit: false
        property real glyphSize: 18
        implicitWidth: glyphSize + 16
        implicitHeight: glyphSize + 16
        Accessible.name: button.text
        background: Rectangle {
            radius: height / 2
            color: button.hovered ? Qt.rgba(1, 1, 1, 0.12) : "transparent"
        }
        contentItem: SymbolIcon {
            name: button.symbol
            size: button.glyphSize
            color: button.lit ? root.accent : Qt.rgba(1, 1, 1, button.enabled ? 0.9 : 0.35)
        }
    }

    Column {
        objectName: "nothingPlaying"
        visible: !MusicManager.hasPlayback
        anchors.centerIn: parent
        spacing: 6
        SymbolIcon {
            anchors.horizontalCenter: parent.horizontalCenter
            name: "music.note"
            size: 22
            color: Qt.rgba(1, 1, 1, 0.45)
        }
        Text {
            anchors.horizontalCenter: parent.horizontalCenter
            textFormat: Text.PlainText
            text: "Now playing"
            color: Qt.rgba(1, 1, 1, 0.75)
            font.pixelSize: 14
            font.weight: Font.DemiBold
        }
    }

    Row {
        id: player
        objectName: "nowPlaying"
        visible: MusicManager.hasPlayback
        anchors.centerIn: parent
        width: Math.min(parent.width - 32, root.compact ? 320 : 560)
        spacing: 18

        Rectangle {
            id: art
            readonly property real side: root.compact ? 96 : Math.min(150, root.height - 60)
            width: side
            height: side
            anchors.verticalCenter: parent.verticalCenter
            radius: 10
            clip: true
            color: MusicManager.artworkTint.valid ? Qt.darker(MusicManager.artworkTint, 1.4) : Qt.rgba(1, 1, 1, 0.08)
            Image {
                objectName: "artwork"
                anchors.fill: parent
                source: MusicManager.artworkSource
                sourceSize: Qt.size(300, 300)
                fillMode: Image.PreserveAspectCrop
                asynchronous: true
                visible: status === Image.Ready
            }
            SymbolIcon {
                anchors.centerIn: parent
                visible: MusicManager.artworkSource.toString().length === 0
                name: "music.note"
                size: art.side / 3
                color: Qt.rgba(1, 1, 1, 0.5)
            }
        }

        Column {
            width: player.width - art.width - player.spacing
            anchors.verticalCenter: parent.verticalCenter
            spacing: 4
            Row {
                spacing: 6
                Image {
                    visible: MusicManager.sourceAppIcon.toString().length > 0
                    source: MusicManager.sourceAppIcon
                    sourceSize: Qt.size(16, 16)
                    width: 14
                    height: 14
                    anchors.verticalCenter: parent.verticalCenter
                }
                Text {
                    objectName: "appName"
                    textFormat: Text.PlainText
                    text: root.playback.appName ?? ""
                    color: Qt.rgba(1, 1, 1, 0.55)
                    font.pixelSize: 11
                }
            }
            Text {
                objectName: "title"
                width: parent.width
                textFormat: Text.PlainText
                elide: Text.ElideRight
                text: root.playback.title ?? ""
                color: "white"
                font.pixelSize: root.compact ? 15 : 18
                font.weight: Font.DemiBold
            }
            Text {
                objectName: "artist"
                width: parent.width
                textFormat: Text.PlainText
                elide: Text.ElideRight
                text: [root.playback.artist, root.playback.album].filter(t => t && t.length > 0).join(" — ")
                color: Qt.rgba(1, 1, 1, 0.7)
                font.pixelSize: 12
            }
            Item {
                width: parent.width
                height: 26
                visible: (root.playback.duration ?? 0) > 0
                Slider {
                    id: progress
                    objectName: "progress"
                    anchors.left: parent.left
                    anchors.right: parent.right
                    anchors.verticalCenter: parent.verticalCenter
                    from: 0
                    to: Math.max(root.playback.duration ?? 1, 1)
                    value: pressed ? value : root.elapsed
                    Accessible.name: "Playback position"
                    onMoved: {}
                    onPressedChanged: if (!pressed) MusicManager.seek(value)
                }
            }
            Row {
                width: parent.width
                visible: (root.playback.duration ?? 0) > 0
                Text {
                    width: parent.width / 2
                    textFormat: Text.PlainText
                    text: root.clock(progress.pressed ? progress.value : root.elapsed)
                    color: Qt.rgba(1, 1, 1, 0.5)
                    font.pixelSize: 10
                }
                Text {
                    width: parent.width / 2
                    horizontalAlignment: Text.AlignRight
                    textFormat: Text.PlainText
                    text: "-" + root.clock((root.playback.duration ?? 0) - root.elapsed)
                    color: Qt.rgba(1, 1, 1, 0.5)
                    font.pixelSize: 10
                }
            }
            Row {
                spacing: 4
                ControlButton {
                    objectName: "shuffle"
                    text: "Shuffle"
                    symbol: "shuffle"
                    glyphSize: 15
                    lit: root.playback.shuffleMode !== "off"
                    anchors.verticalCenter: parent.verticalCenter
                    onClicked: MusicManager.toggleShuffle()
                }
                ControlButton {
                    objectName: "previous"
                    text: "Previous track"
                    symbol: "backward.end.fill"
                    anchors.verticalCenter: parent.verticalCenter
                    onClicked: MusicManager.previousTrack()
                }
                ControlButton {
                    objectName: "playPause"
                    text: root.playing ? "Pause" : "Play"
                    symbol: root.playing ? "pause.fill" : "play.fill"
                    glyphSize: 24
                    anchors.verticalCenter: parent.verticalCenter
                    onClicked: MusicManager.togglePlayPause()
                }
                ControlButton {
                    objectName: "next"
                    text: "Next track"
                    symbol: "forward.end.fill"
                    anchors.verticalCenter: parent.verticalCenter
                    onClicked: MusicManager.nextTrack()
                }
                ControlButton {
                    objectName: "repeat"
                    text: "Repeat"
                    symbol: root.playback.repeatMode === "one" ? "repeat.1" : "repeat"
                    glyphSize: 15
                    lit: root.playback.repeatMode !== "off"
                    anchors.verticalCenter: parent.verticalCenter
                    onClicked: MusicManager.cycleRepeatMode()
                }
                // The system's output level; only the drag's last value is written.
                Row {
                    visible: !root.compact
                    spacing: 2
                    leftPadding: 12
                    anchors.verticalCenter: parent.verticalCenter
                    SymbolIcon {
                        name: MusicManager.systemVolume < 0.01 ? "speaker.fill" : "speaker.wave.2.fill"
                        size: 13
                        color: Qt.rgba(1, 1, 1, 0.6)
                        anchors.verticalCenter: parent.verticalCenter
                    }
                    Slider {
                        objectName: "systemVolume"
                        width: 110
                        from: 0
                        to: 1
                        value: MusicManager.systemVolume
                        Accessible.name: "Volume"
                        anchors.verticalCenter: parent.verticalCenter
                        onMoved: MusicManager.systemVolume = value
                    }
                }
            }
        }
    }

    // The players to follow: the usual choice, or one pinned by hand.
    Flow {
        objectName: "players"
        visible: !root.compact && MusicManager.players.length > 1
        anchors.bottom: parent.bottom
        anchors.bottomMargin: 10
        anchors.horizontalCenter: parent.horizontalCenter
        width: Math.min(parent.width - 32, 560)
        spacing: 6
        Repeater {
            model: [{ player: "", name: "Follow what plays", title: "" }].concat(MusicManager.players)
            delegate: AbstractButton {
                id: chip
                required property var modelData
                readonly property bool chosen: MusicManager.pinnedPlayer === chip.modelData.player
                objectName: "player:" + chip.modelData.player
                text: chip.modelData.name + (chip.modelData.title ? " · " + chip.modelData.title : "")
                Accessible.name: chip.text
                implicitWidth: Math.min(label.implicitWidth + 20, 220)
                implicitHeight: 22
                onClicked: MusicManager.pinnedPlayer = chip.modelData.player
                background: Rectangle {
                    radius: 11
                    color: chip.chosen ? Qt.rgba(1, 1, 1, 0.18) : Qt.rgba(1, 1, 1, chip.hovered ? 0.1 : 0.05)
                    border.width: chip.chosen ? 1 : 0
                    border.color: root.accent
                }
                contentItem: Text {
                    id: label
                    textFormat: Text.PlainText
                    text: chip.text
                    elide: Text.ElideRight
                    horizontalAlignment: Text.AlignHCenter
                    verticalAlignment: Text.AlignVCenter
                    color: Qt.rgba(1, 1, 1, 0.85)
                    font.pixelSize: 10
                }
            }
        }
    }
}
