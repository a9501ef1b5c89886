import QtQuick
import OstaVell
import OstaVell.Support

// One display's panel: the fill and outline of its appearance, the closed notch or the open
// workspace, and the glow along the edge when the appearance asks for one.
Item {
    id: root
    required property DisplayShelfController controller
    required property ShelfController shelf
    anchors.fill: parent

    readonly property var look: controller.appearance

    Item {
        id: outline
        x: root.controller.outline.x
        y: root.controller.outline.y
        width: root.controller.outline.width
        height: root.controller.outline.height
        clip: true

        VellBackground {
            anchors.fill: parent
            appearance: root.look
            radius: root.controller.outlineRadius
            reduceTransparency: Accessibility.reduceTransparency
        }

        ClosedNotchView {
            anchors.fill: parent
            visible: !root.controller.isExpanded
            controller: root.controller
        }

        // Laid out at the final size, so the content doesn't reflow while the outline moves.
        Item {
            id: open
            visible: root.controller.isExpanded
            width: root.controller.frame.width
            height: root.controller.frame.height
            anchors.horizontalCenter: parent.horizontalCenter
            anchors.top: parent.top

            PanelHeader {
                id: header
                x: 18
                y: root.controller.contentTopInset + 12
                width: parent.width - 36
                controller: root.controller
                shelf: root.shelf
            }

            DashboardView {
                x: 18
                anchors.top: header.bottom
                anchors.topMargin: 10
                anchors.bottom: parent.bottom
                anchors.bottomMargin: 18
                width: parent.width - 36
                controller: root.controller
            }
        }

        VellBorderGlow {
            anchors.fill: parent
            visible: root.controller.isExpanded && root.look.borderGlow === true
            color: root.controller.accentColor
            radius: root.controller.outlineRadius
        }
    }
}
