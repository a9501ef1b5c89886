import QtQuick
import OstaVell.Support

// A rounded button in the panel's look: an optional symbol and a caption. The caption may be a
// plugin's text, so it is drawn as plain text and never by a style's label.
Rectangle {
    id: root
    property string label
    property string symbol
    // The symbol's own colour; the caption's when null.
    property var symbolColor: null
    // Drawn as the chosen one of a row.
    property bool active: false
    property color accent: "#C7EB87"
    property real maximumLabelWidth: 220
    signal clicked()

    implicitHeight: 28
    implicitWidth: content.implicitWidth + 24
    radius: height / 2
    color: active ? Qt.rgba(1, 1, 1, 0.16)
                  : (hover.hovered && enabled ? Qt.rgba(1, 1, 1, 0.14) : Qt.rgba(1, 1, 1, 0.085))
    border.color: Qt.rgba(1, 1, 1, 0.1)
    opacity: enabled ? 1 : 0.4

    Accessible.role: Accessible.Button
    Accessible.name: label
    Accessible.onPressAction: if (root.enabled) root.clicked()

    Row {
        id: content
        anchors.centerIn: parent
        spacing: 6
        SymbolIcon {
            visible: root.symbol.length > 0
            anchors.verticalCenter: parent.verticalCenter
            name: root.symbol
            color: root.symbolColor ?? caption.color
            size: 14
        }
        Text {
            id: caption
            textFormat: Text.PlainText
            anchors.verticalCenter: parent.verticalCenter
            width: Math.min(implicitWidth, root.maximumLabelWidth)
            text: root.label
            elide: Text.ElideRight
            color: root.active ? root.accent : Qt.rgba(1, 1, 1, 0.88)
            font.pixelSize: 12
            font.weight: root.active ? Font.DemiBold : Font.Normal
        }
    }

    HoverHandler { id: hover }
    TapHandler {
        enabled: root.enabled
        onTapped: root.clicked()
    }
}
