import QtQuick
import OstaVell.Support
import OstaVell.Todos

// The closed wing's share of the standing row: how many to-dos are open, and nothing at all when
// none are.
Item {
    id: root
    property QtObject controller: null

    readonly property int count: TodosStore.openCount

    implicitWidth: root.count > 0 ? row.implicitWidth : 0
    implicitHeight: 18
    Accessible.role: Accessible.StaticText
    Accessible.name: root.count + " open"

    Row {
        id: row
        objectName: "todoCount"
        visible: root.count > 0
        anchors.verticalCenter: parent.verticalCenter
        spacing: 4
        SymbolIcon {
            anchors.verticalCenter: parent.verticalCenter
            name: "checklist"
            size: 13
            color: Qt.rgba(1, 1, 1, 0.7)
        }
        Text {
            objectName: "todoCountText"
            anchors.verticalCenter: parent.verticalCenter
            textFormat: Text.PlainText
            text: root.count
            color: Qt.rgba(1, 1, 1, 0.9)
            font.pixelSize: 11
            font.weight: Font.Medium
        }
    }
}
