import QtQuick
import OstaVell.Support

// A symbol by its protocol name ("music.note", "lightbulb.fill") in the icon font, or a small
// neutral dot when the name has no glyph: the name itself is never shown.
Item {
    id: root
    property string name
    property color color: "white"
    property real size: 16

    readonly property string glyph: SymbolGlyphs.glyph(root.name)

    implicitWidth: size
    implicitHeight: size

    Text {
        objectName: "glyph"
        anchors.centerIn: parent
        visible: root.glyph.length > 0
        text: root.glyph
        textFormat: Text.PlainText
        font.family: SymbolGlyphs.fontFamily
        font.pixelSize: root.size
        color: root.color
    }

    Rectangle {
        objectName: "dot"
        anchors.centerIn: parent
        visible: root.glyph.length === 0
        width: Math.max(2, Math.round(root.size / 3))
        height: width
        radius: width / 2
        color: root.color
        opacity: 0.6
    }
}
