import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import OstaVell.Media

// The "Media" pane: whether now playing is read at all, which players it may follow, the bars,
// and what it reads from now.
ScrollView {
    id: pane
    contentWidth: availableWidth
    clip: true

    ColumnLayout {
        width: pane.availableWidth - 32
        x: 16
        spacing: 2

        Switch {
            objectName: "mediaEnabled"
            text: "Show what is playing"
            checked: MusicManager.mediaEnabled
            onToggled: MusicManager.mediaEnabled = checked
        }
        RowLayout {
            enabled: MusicManager.mediaEnabled
            Label { textFormat: Text.PlainText; text: "Follow"; Layout.preferredWidth: 120 }
            ComboBox {
                objectName: "restrictTo"
                Layout.fillWidth: true
                textRole: "text"
                valueRole: "value"
                model: [{ text: "Any player", value: "any" }, { text: "Spotify only", value: "spotify" }]
                currentIndex: Math.max(0, indexOfValue(MusicManager.restrictTo))
                onActivated: MusicManager.restrictTo = currentValue
            }
        }
        Switch {
            enabled: MusicManager.mediaEnabled
            text: "Show level bars while a track plays"
            checked: MusicManager.showVisualizer
            onToggled: MusicManager.showVisualizer = checked
        }
        Label {
            objectName: "mediaSource"
            visible: MusicManager.mediaEnabled
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            Layout.fillWidth: true
            Layout.topMargin: 8
            opacity: 0.6
            text: MusicManager.usingScriptFallback
                  ? "Reading the players directly: the media adapter gave nothing."
                  : "Reading the players through the media adapter."
        }
    }
}
