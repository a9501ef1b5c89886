pragma Singleton
import QtQuick

// The one "Customize Workspace" window: made when first asked for, then shown for whichever
// display asked last.
QtObject {
    id: windows
    property var editor: null

    function openEditor(controller) {
        if (!windows.editor) {
            const component = Qt.createComponent("WorkspaceEditor.qml")
            windows.editor = component.createObject(null, { controller: controller })
            if (!windows.editor) {
                console.warn("OstaVell Workspace: editor failed:", component.errorString())
                return
            }
        }
        windows.editor.controller = controller
        windows.editor.show()
        windows.editor.raise()
        windows.editor.requestActivate()
    }
}
