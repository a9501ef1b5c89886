import QtQuick
import OstaVell.Plugins
import "ActionWords.js" as ActionWords

// One run waiting for a person: who asks, for what, with which arguments and what it may change.
// Nothing runs until "Allow Once", and that allows this one run only.
Rectangle {
    id: root
    // {id, caller, callerName, provider, providerName, title, effect, arguments: [{name, value}], expires}
    required property var review
    property color accent: "#C7EB87"
    // The sentence of the last refusal, from approve or decline.
    property string failure: ""

    objectName: "review:" + (root.review.id ?? "")
    implicitHeight: body.implicitHeight + 28
    radius: 14
    color: Qt.rgba(1, 1, 1, 0.085)
    border.color: Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.45)

    Column {
        id: body
        x: 14
        y: 14
        width: parent.width - 28
        spacing: 8

        Text {
            textFormat: Text.PlainText
            width: parent.width
            text: (root.review.callerName ?? "") + " asks to run \u201C" + (root.review.title ?? "")
                  + "\u201D of " + (root.review.providerName ?? "")
            wrapMode: Text.Wrap
            color: Qt.rgba(1, 1, 1, 0.95)
            font.pixelSize: 13
            font.weight: Font.DemiBold
        }

        Text {
            textFormat: Text.PlainText
            width: parent.width
            text: ActionWords.effect(root.review.effect ?? "")
            color: Qt.rgba(1, 1, 1, 0.6)
            font.pixelSize: 12
        }

        Column {
            visible: (root.review.arguments ?? []).length > 0
            width: parent.width
            spacing: 3
            Repeater {
                model: root.review.arguments ?? []
                delegate: Row {
                    id: argument
                    required property var modelData
                    width: body.width
                    spacing: 8
                    Text {
                        id: argumentName
                        textFormat: Text.PlainText
                        width: Math.min(implicitWidth, body.width * 0.4)
                        text: argument.modelData.name ?? ""
                        elide: Text.ElideRight
                        color: Qt.rgba(1, 1, 1, 0.55)
                        font.pixelSize: 12
                    }
                    Text {
                        textFormat: Text.PlainText
                        width: body.width - argumentName.width - 8
                        text: argument.modelData.value ?? ""
                        wrapMode: Text.Wrap
                        maximumLineCount: 4
                        elide: Text.ElideRight
                        color: Qt.rgba(1, 1, 1, 0.9)
                        font.pixelSize: 12
                    }
                }
            }
        }

        Text {
            textFormat: Text.PlainText
            visible: root.failure.length > 0
            width: parent.width
            text: root.failure
            wrapMode: Text.Wrap
            color: "#ff9a8a"
            font.pixelSize: 12
        }

        Row {
            anchors.right: parent.right
            spacing: 8
            PillButton {
                objectName: "decline"
                label: "Decline"
                onClicked: root.failure = NativePluginStore.decline(root.review.id)
            }
            PillButton {
                objectName: "approve"
                label: "Allow Once"
                active: true
                accent: root.accent
                onClicked: root.failure = NativePluginStore.approve(root.review.id)
            }
        }
    }
}
