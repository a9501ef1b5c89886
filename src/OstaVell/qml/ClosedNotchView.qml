import QtQuick
import OstaVell
import OstaVell.Support

// The closed notch and its two wings. A tap opens the panel with focus. The wings' content is
// what the features offer, each a view of its own module, in the order offered.
Item {
    id: root
    required property DisplayShelfController controller

    Accessible.role: Accessible.Button
    Accessible.name: "Open OstaVell on " + controller.displayName
    Accessible.onPressAction: controller.expand(true)

    TapHandler {
        onTapped: root.controller.expand(true)
    }

    Row {
        anchors.fill: parent
        Repeater {
            model: ShellContributions.wings
            Loader {
                required property var modelData
                height: root.height
                source: modelData.view
                // Every wing learns which display it stands on.
                onLoaded: if (item.hasOwnProperty("controller")) item.controller = root.controller
            }
        }
    }
}
