import QtQuick
import OstaVell.Plugins

// The forms of one page of a plugin, each with its inputs and the run it started. The page's
// sections follow in the plugin's cards, as on every page.
Column {
    id: root
    required property string pluginID
    required property string panelID
    // [{id, title, revision, action, inputs, enabled}] as the plugin sent them.
    required property var forms
    property color accent: "#C7EB87"

    spacing: 12

    // Counted rather than the forms themselves: a new snapshot with the same forms keeps each
    // form's typed values and its run; a form whose identity changes starts over by itself.
    Repeater {
        model: root.forms.length
        delegate: PluginFormView {
            required property int index
            width: root.width
            pluginID: root.pluginID
            panelID: root.panelID
            form: root.forms[index] ?? ({})
            accent: root.accent
        }
    }
}
