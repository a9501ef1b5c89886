import QtQuick
import OstaVell
import OstaVell.Support

// The closed notch: the left wing, a clear gap as wide as the notch, the right wing. Which view
// takes each wing is the ladder's answer; the views are the features' own. Both wings take the
// width of the wider one, which keeps the notch in the middle, and the panel follows that
// width. A tap opens the panel with focus.
Item {
    id: root
    required property DisplayShelfController controller

    Accessible.role: Accessible.Button
    Accessible.name: "Open OstaVell on " + controller.displayName
    Accessible.onPressAction: controller.expand(true)

    TapHandler {
        onTapped: root.controller.expand(true)
    }

    ClosedNotchActivities {
        id: activities
        controller: root.controller
    }

    // One wing's view by the id it was offered under; it learns which display it stands on.
    component WingView: Loader {
        property string view
        readonly property url offered: view.length > 0 ? ShellContributions.wingView(view) : ""
        active: offered.toString().length > 0
        source: offered
        anchors.verticalCenter: parent ? parent.verticalCenter : undefined
        onLoaded: if (item.hasOwnProperty("controller")) item.controller = root.controller
    }

    readonly property real measured: Math.max(left.item ? left.item.implicitWidth : 0, right.implicitWidth)
    // Only what is on screen is measured: a hidden row measures nothing, and the width the
    // panel closes to is the one last seen closed, until the wings show again.
    function report() {
        if (root.visible)
            root.controller.wingWidth = root.measured
    }
    onMeasuredChanged: report()
    onVisibleChanged: report()
    Component.onCompleted: report()

    // The wings stand beside the notch, however wide the panel ends up.
    Item {
        id: leftWing
        objectName: "leftWing"
        anchors.right: gap.left
        width: (root.width - gap.width) / 2
        height: root.height
        clip: true
        WingView {
            id: left
            objectName: "left:" + activities.left
            view: activities.left
        }
    }
    Item {
        id: gap
        anchors.horizontalCenter: parent.horizontalCenter
        width: root.controller.notchWidth
        height: root.height
    }
    Item {
        id: rightWing
        objectName: "rightWing"
        anchors.left: gap.right
        width: (root.width - gap.width) / 2
        height: root.height
        clip: true
        WingView {
            id: rightSingle
            objectName: "right:" + activities.right
            visible: activities.right !== "standing"
            view: activities.right === "standing" ? "" : activities.right
        }
        // The standing activities share the wing, each empty when it has nothing to show.
        Row {
            id: standingRow
            visible: activities.right === "standing"
            anchors.verticalCenter: parent.verticalCenter
            x: 3
            spacing: 7
            Repeater {
                model: activities.standing
                delegate: WingView {
                    required property string modelData
                    view: modelData
                    visible: item !== null && item.implicitWidth > 0
                }
            }
        }
    }
    // The right wing's natural width: its one view, or the row with its paddings.
    QtObject {
        id: right
        readonly property real implicitWidth: activities.right === "standing"
                                              ? (standingRow.visibleChildren.length > 1 ? standingRow.implicitWidth + 3 : 0)
                                              : (rightSingle.item ? rightSingle.item.implicitWidth : 0)
    }
}
