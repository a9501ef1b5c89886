import QtQuick

// A small round button of the panel's header. `glyph` picks one of the drawn icons.
Rectangle {
    id: root
    property string glyph
    property string help
    property bool active: false
    property color accent: "#C7EB87"
    signal clicked()

    implicitWidth: 28
    implicitHeight: 28
    radius: 14
    color: hover.hovered ? Qt.rgba(1, 1, 1, 0.14) : Qt.rgba(1, 1, 1, active ? 0.12 : 0.06)

    Accessible.role: Accessible.Button
    Accessible.name: help
    Accessible.onPressAction: root.clicked()

    HoverHandler { id: hover }
    TapHandler { onTapped: root.clicked() }

    readonly property color ink: active ? accent : Qt.rgba(1, 1, 1, 0.85)

    // Pin: a round head on a short needle.
    Item {
        visible: root.glyph === "pin"
        anchors.centerIn: parent
        width: 12; height: 14
        Rectangle { width: 9; height: 9; radius: 4.5; x: 1.5; color: root.ink }
        Rectangle { width: 2; height: 7; x: 5; y: 7; radius: 1; color: root.ink }
    }
    // Settings: a gear from the font every desktop ships.
    Text {
        textFormat: Text.PlainText
        visible: root.glyph === "gear"
        anchors.centerIn: parent
        text: "\u2699"
        color: root.ink
        font.pixelSize: 17
    }
    // Collapse: a chevron pointing up.
    Item {
        visible: root.glyph === "chevronUp"
        anchors.centerIn: parent
        width: 12; height: 8
        Rectangle { width: 8; height: 2; radius: 1; x: -0.5; y: 3; rotation: -40; color: root.ink }
        Rectangle { width: 8; height: 2; radius: 1; x: 4.5; y: 3; rotation: 40; color: root.ink }
    }
}
