import QtQuick
import QtQuick.Controls
import OstaVell.Support

// A small round button of the tray's header: a symbol, and its help text as tooltip and name.
Rectangle {
    id: root
    property string symbol
    property string help
    property string label
    signal clicked()

    implicitWidth: label.length > 0 ? caption.implicitWidth + (symbol.length > 0 ? 42 : 24) : 28
    implicitHeight: 28
    radius: 14
    color: hover.hovered ? Qt.rgba(1, 1, 1, 0.14) : Qt.rgba(1, 1, 1, 0.06)
    opacity: enabled ? 1 : 0.4

    Accessible.role: Accessible.Button
    Accessible.name: help.length > 0 ? help : label
    Accessible.onPressAction: root.clicked()

    HoverHandler { id: hover }
    TapHandler { onTapped: root.clicked() }
    ToolTip.visible: hover.hovered && root.help.length > 0
    ToolTip.text: root.help
    ToolTip.delay: 600

    Row {
        anchors.centerIn: parent
        spacing: 6
        SymbolIcon {
            visible: root.symbol.length > 0
            anchors.verticalCenter: parent.verticalCenter
            name: root.symbol
            size: 15
            color: Qt.rgba(1, 1, 1, 0.85)
        }
        Text {
            id: caption
            visible: root.label.length > 0
            anchors.verticalCenter: parent.verticalCenter
            textFormat: Text.PlainText
            text: root.label
            color: Qt.rgba(1, 1, 1, 0.85)
            font.pixelSize: 12
        }
    }
}
