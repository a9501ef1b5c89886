import QtQuick
import QtQuick.Shapes

// A ring of the fraction left: a faint track and an arc from twelve o'clock, clockwise. It is
// drawn again only when the fraction changes.
Item {
    id: root
    property real progress: 0
    property real lineWidth: 2
    property color color: "#FF9F0A"
    property color trackColor: Qt.rgba(1, 1, 1, 0.18)

    implicitWidth: 14
    implicitHeight: 14

    readonly property real radius: (Math.min(width, height) - lineWidth) / 2

    Shape {
        anchors.fill: parent
        // Smooth edges: the shape's triangles are drawn multisampled into their own layer.
        layer.enabled: true
        layer.samples: 4
        ShapePath {
            strokeColor: root.trackColor
            strokeWidth: root.lineWidth
            fillColor: "transparent"
            PathAngleArc {
                centerX: root.width / 2
                centerY: root.height / 2
                radiusX: root.radius
                radiusY: root.radius
                startAngle: 0
                sweepAngle: 360
            }
        }
        ShapePath {
            strokeColor: root.color
            strokeWidth: root.lineWidth
            fillColor: "transparent"
            capStyle: ShapePath.RoundCap
            PathAngleArc {
                centerX: root.width / 2
                centerY: root.height / 2
                radiusX: root.radius
                radiusY: root.radius
                startAngle: -90
                sweepAngle: 360 * Math.max(0, Math.min(1, root.progress))
            }
        }
    }
}
