import QtQuick
import OstaVell
import OstaVell.Support

// The closed notch and its two wings. A tap opens the panel with focus.
Item {
    id: root
    required property DisplayShelfController controller

    Accessible.role: Accessible.Button
    Accessible.name: "Open OstaVell on " + controller.displayName
    Accessible.onPressAction: controller.expand(true)

    TapHandler {
        onTapped: root.controller.expand(true)
    }
}
