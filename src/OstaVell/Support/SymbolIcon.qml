import QtQuick

// A symbol by its protocol name. Every name draws a neutral dot, never text: a name is
// something a plugin wrote, and the dot is what an unknown name always shows.
Item {
    id: root
    property string name
    property color color: Qt.rgba(1, 1, 1, 0.85)
    property real size: 16

    implicitWidth: size
    implicitHeight: size

    Rectangle {
        anchors.centerIn: parent
        width: Math.round(root.size * 0.45)
        height: width
        radius: width / 2
        color: root.color
    }
}
