import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import OstaVell.Support
import OstaVell.Plugins

// The review screen: what a chosen bundle or a saved version says of itself, and the
// fingerprint that install will hold it to. Nothing is installed until the person says so.
ColumnLayout {
    id: root
    // As NativePluginStore.reviewed; given directly only to look at one.
    property var reviewed: NativePluginStore.reviewed
    // The sentence of the last refused install.
    property string failure: ""

    readonly property bool restoring: !!root.reviewed.restore
    readonly property bool updating: !root.restoring && !!root.reviewed.update
    readonly property var icon: root.reviewed.icon ?? ({})

    spacing: 10

    component Detail: RowLayout {
        property string name
        property string value
        Layout.fillWidth: true
        Label {
            textFormat: Text.PlainText
            Layout.preferredWidth: 110
            Layout.alignment: Qt.AlignTop
            text: parent.name
            opacity: 0.6
        }
        Label {
            textFormat: Text.PlainText
            Layout.fillWidth: true
            text: parent.value
            wrapMode: Text.WrapAnywhere
        }
    }

    RowLayout {
        Layout.fillWidth: true
        Layout.topMargin: 6
        spacing: 12
        Rectangle {
            implicitWidth: 40
            implicitHeight: 40
            radius: 10
            color: Qt.rgba(1, 1, 1, 0.08)
            SymbolIcon {
                anchors.centerIn: parent
                name: root.icon.symbol ?? ""
                color: root.icon.color ? "#" + root.icon.color : Qt.rgba(1, 1, 1, 0.85)
                size: 24
            }
        }
        ColumnLayout {
            Layout.fillWidth: true
            spacing: 0
            Label {
                textFormat: Text.PlainText
                Layout.fillWidth: true
                text: root.reviewed.name ?? ""
                elide: Text.ElideRight
                font.bold: true
                font.pixelSize: 18
            }
            Label {
                textFormat: Text.PlainText
                Layout.fillWidth: true
                text: root.reviewed.version ?? ""
                elide: Text.ElideRight
                opacity: 0.7
            }
        }
    }

    Label {
        textFormat: Text.PlainText
        Layout.fillWidth: true
        visible: text.length > 0
        text: root.reviewed.summary ?? ""
        wrapMode: Text.WordWrap
    }

    Detail { name: "Identifier"; value: root.reviewed.id ?? "" }
    Detail {
        name: "Runs as"
        value: root.reviewed.launchMode === "application" ? "Its own application" : "A process OstaVell starts"
    }
    RowLayout {
        Layout.fillWidth: true
        Label {
            textFormat: Text.PlainText
            Layout.preferredWidth: 110
            Layout.alignment: Qt.AlignTop
            text: "Fingerprint"
            opacity: 0.6
        }
        TextEdit {
            objectName: "fingerprint"
            Layout.fillWidth: true
            textFormat: TextEdit.PlainText
            readOnly: true
            selectByMouse: true
            wrapMode: TextEdit.WrapAnywhere
            text: root.reviewed.fingerprint ?? ""
            font.family: "monospace"
            font.pixelSize: 12
            color: Qt.rgba(1, 1, 1, 0.85)
            selectionColor: Qt.rgba(1, 1, 1, 0.3)
        }
    }

    Label {
        textFormat: Text.PlainText
        Layout.fillWidth: true
        Layout.topMargin: 6
        wrapMode: Text.WordWrap
        text: root.reviewed.warning || "This plugin runs its own application code on your computer. It is not confined by the lightweight module sandbox. Its declared capabilities are:"
    }
    Repeater {
        model: root.reviewed.capabilities ?? []
        delegate: Label {
            required property var modelData
            textFormat: Text.PlainText
            Layout.fillWidth: true
            Layout.leftMargin: 12
            wrapMode: Text.WordWrap
            text: "\u2022  " + modelData
        }
    }
    Label {
        textFormat: Text.PlainText
        Layout.fillWidth: true
        Layout.topMargin: 6
        wrapMode: Text.WordWrap
        opacity: 0.7
        text: root.reviewed.trust || "The package signature and contents are checked. This preview does not establish publisher trust or notarization; install plugins you trust."
    }

    Label {
        textFormat: Text.PlainText
        Layout.fillWidth: true
        Layout.topMargin: 6
        visible: root.restoring
        wrapMode: Text.WordWrap
        text: root.reviewed.restoreWarning ?? ""
        color: "#ffd08a"
    }
    Label {
        textFormat: Text.PlainText
        Layout.fillWidth: true
        visible: root.failure.length > 0
        wrapMode: Text.WordWrap
        text: root.failure
        color: "#ff9a8a"
    }

    RowLayout {
        Layout.alignment: Qt.AlignRight
        Layout.topMargin: 6
        Button {
            objectName: "cancelReview"
            text: "Cancel"
            onClicked: {
                root.failure = ""
                NativePluginStore.cancelReview()
            }
        }
        Button {
            objectName: "installReviewed"
            text: root.restoring ? "Restore" : (root.updating ? "Update" : "Install")
            highlighted: true
            onClicked: root.failure = NativePluginStore.installReviewed()
        }
    }
}
