import QtQuick
import OstaVell.Support
import OstaVell.Plugins

// One plugin's snapshot as cards. With pages, the chosen page: its forms, collection or control
// grid, then its sections; without, the plugin's numbers, sections, rows and buttons, and the video area when
// it offers one. Every text here came from the plugin and is drawn as plain text.
Column {
    id: root
    // A map like those of NativePluginStore.plugins; id and status are what is read here.
    required property var plugin
    property var snapshot: NativePluginStore.snapshots[root.plugin.id]
    property color accent: "#C7EB87"

    // Plugin id to the id of its chosen page, for as long as this view lives; never saved.
    property var chosenPanels: ({})

    readonly property string pluginID: root.plugin.id ?? ""
    readonly property bool hasSnapshot: root.snapshot !== undefined && root.snapshot !== null
    readonly property var panels: root.hasSnapshot ? (root.snapshot.panels ?? []) : []
    readonly property var panel: {
        const chosen = root.chosenPanels[root.pluginID]
        return root.panels.find(p => p.id === chosen) ?? root.panels[0] ?? null
    }
    // Whether what is shown wants video frames: before any snapshot, yes; on a page, as the page
    // says; otherwise when the plugin offers video.
    readonly property bool wantsMedia: !root.hasSnapshot ? true
                                       : root.panel !== null ? root.panel.usesMedia === true
                                       : root.snapshot.media !== undefined

    function choosePanel(id) {
        const next = Object.assign({}, root.chosenPanels)
        next[root.pluginID] = id
        root.chosenPanels = next
    }

    spacing: 12

    // The plugin's video: its newest frame, or what the area waits for. Frames come only while
    // a view that wants them is on screen, and a stalled stream goes back to waiting.
    component VideoArea: Rectangle {
        id: video
        property var media: ({})
        readonly property bool framed: NativePluginStore.framed.indexOf(root.pluginID) >= 0
        width: Math.min(root.width, 420)
        height: width * 9 / 16
        radius: 14
        color: Qt.rgba(0, 0, 0, 0.35)
        border.color: Qt.rgba(1, 1, 1, 0.1)
        clip: true
        Image {
            anchors.fill: parent
            visible: video.framed
            fillMode: Image.PreserveAspectFit
            asynchronous: false
            cache: false
            source: video.framed ? "image://pluginframe/" + root.pluginID + "/" + NativePluginStore.frameRevision : ""
        }
        Column {
            visible: !video.framed
            anchors.centerIn: parent
            width: parent.width - 32
            spacing: 4
            Text {
                textFormat: Text.PlainText
                width: parent.width
                horizontalAlignment: Text.AlignHCenter
                text: "Waiting for video"
                color: Qt.rgba(1, 1, 1, 0.6)
                font.pixelSize: 13
            }
            Text {
                textFormat: Text.PlainText
                visible: text.length > 0
                width: parent.width
                horizontalAlignment: Text.AlignHCenter
                text: video.media.label ?? ""
                elide: Text.ElideRight
                color: Qt.rgba(1, 1, 1, 0.85)
                font.pixelSize: 12
            }
            Text {
                textFormat: Text.PlainText
                visible: text.length > 0
                width: parent.width
                horizontalAlignment: Text.AlignHCenter
                text: video.media.status ?? ""
                wrapMode: Text.Wrap
                maximumLineCount: 3
                elide: Text.ElideRight
                color: Qt.rgba(1, 1, 1, 0.5)
                font.pixelSize: 11
            }
        }
    }

    component SectionCard: Rectangle {
        id: card
        // {title, detail, imagePNG}
        required property var section
        height: sectionBody.implicitHeight + 24
        radius: 14
        color: Qt.rgba(1, 1, 1, 0.085)
        border.color: Qt.rgba(1, 1, 1, 0.1)
        Row {
            id: sectionBody
            x: 12
            y: 12
            width: parent.width - 24
            spacing: 12
            // Artwork is bounded in bytes only; the size drawn is bounded here, and an image
            // that doesn't decode takes no room at all.
            Image {
                id: artwork
                visible: status === Image.Ready
                width: visible ? Math.min(implicitWidth, 96) : 0
                height: visible ? Math.min(implicitHeight, 96) : 0
                sourceSize.width: 192
                sourceSize.height: 192
                fillMode: Image.PreserveAspectFit
                asynchronous: false
                cache: false
                source: (card.section.imagePNG ?? "").length > 0
                        ? "data:image/png;base64," + card.section.imagePNG : ""
            }
            Column {
                width: parent.width - (artwork.visible ? artwork.width + 12 : 0)
                spacing: 4
                Text {
                    textFormat: Text.PlainText
                    visible: text.length > 0
                    width: parent.width
                    text: card.section.title ?? ""
                    wrapMode: Text.Wrap
                    color: Qt.rgba(1, 1, 1, 0.92)
                    font.pixelSize: 13
                    font.weight: Font.DemiBold
                }
                Text {
                    textFormat: Text.PlainText
                    visible: text.length > 0
                    width: parent.width
                    text: card.section.detail ?? ""
                    wrapMode: Text.Wrap
                    color: Qt.rgba(1, 1, 1, 0.7)
                    font.pixelSize: 12
                }
            }
        }
    }

    // Without a snapshot: where the plugin stands.
    Text {
        textFormat: Text.PlainText
        visible: !root.hasSnapshot
        width: root.width
        text: root.plugin.status ?? ""
        wrapMode: Text.Wrap
        horizontalAlignment: Text.AlignHCenter
        color: Qt.rgba(1, 1, 1, 0.55)
        font.pixelSize: 13
    }

    // The headline and its status line.
    Column {
        visible: root.hasSnapshot
        width: root.width
        spacing: 2
        Row {
            width: parent.width
            spacing: 8
            Text {
                id: headline
                textFormat: Text.PlainText
                visible: text.length > 0
                width: Math.min(implicitWidth, parent.width - (badge.visible ? badge.width + 8 : 0))
                text: root.hasSnapshot ? (root.snapshot.title ?? "") : ""
                elide: Text.ElideRight
                color: Qt.rgba(1, 1, 1, 0.95)
                font.pixelSize: 15
                font.weight: Font.DemiBold
            }
            // The badge belongs to the plugin's own page, not to its pages.
            Rectangle {
                id: badge
                visible: root.hasSnapshot && root.panel === null && (root.snapshot.badge ?? "").length > 0
                anchors.verticalCenter: parent.verticalCenter
                width: badgeText.implicitWidth + 14
                height: 18
                radius: 9
                color: Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.22)
                Text {
                    id: badgeText
                    textFormat: Text.PlainText
                    anchors.centerIn: parent
                    text: root.hasSnapshot ? (root.snapshot.badge ?? "") : ""
                    color: root.accent
                    font.pixelSize: 11
                    font.weight: Font.DemiBold
                }
            }
        }
        Text {
            textFormat: Text.PlainText
            visible: text.length > 0
            width: parent.width
            text: root.hasSnapshot ? (root.snapshot.status ?? "") : ""
            wrapMode: Text.Wrap
            maximumLineCount: 3
            elide: Text.ElideRight
            color: Qt.rgba(1, 1, 1, 0.6)
            font.pixelSize: 12
        }
    }

    // The page selector.
    Flow {
        visible: root.panels.length > 0
        width: root.width
        spacing: 6
        Repeater {
            model: root.panels
            delegate: PillButton {
                required property var modelData
                objectName: "panel:" + (modelData.id ?? "")
                label: modelData.title ?? ""
                active: root.panel !== null && root.panel.id === modelData.id
                accent: root.accent
                onClicked: root.choosePanel(modelData.id)
            }
        }
    }

    // The chosen page: what it holds, then its sections.
    Loader {
        active: root.panel !== null
        visible: active
        width: root.width
        sourceComponent: Column {
            id: chosen
            spacing: 12
            readonly property var page: root.panel
            readonly property bool elsewhere: page.customView !== undefined || page.diagrams !== undefined

            Text {
                textFormat: Text.PlainText
                visible: chosen.elsewhere
                width: root.width
                text: "This page can't be shown here yet."
                color: Qt.rgba(1, 1, 1, 0.5)
                font.pixelSize: 12
            }
            VideoArea {
                visible: chosen.page.usesMedia === true
            }
            PluginFormsView {
                visible: chosen.page.forms !== undefined
                width: root.width
                pluginID: root.pluginID
                panelID: chosen.page.id ?? ""
                forms: chosen.page.forms ?? []
                accent: root.accent
            }
            Loader {
                active: chosen.page.collection !== undefined
                visible: active
                width: root.width
                sourceComponent: PluginCollectionView {
                    width: root.width
                    pluginID: root.pluginID
                    panelID: root.pluginID + "\n" + (chosen.page.id ?? "")
                    collection: chosen.page.collection ?? ({})
                    accent: root.accent
                }
            }
            PluginControlGrid {
                visible: chosen.page.cards !== undefined
                width: root.width
                pluginID: root.pluginID
                cards: chosen.page.cards ?? []
                accent: root.accent
            }
            Repeater {
                model: chosen.page.sections ?? []
                delegate: SectionCard {
                    required property var modelData
                    width: root.width
                    section: modelData
                }
            }
        }
    }

    // The plugin's own page, without pages.
    Loader {
        active: root.hasSnapshot && root.panel === null
        visible: active
        width: root.width
        sourceComponent: Column {
            id: own
            spacing: 12
            readonly property var shot: root.snapshot

            Rectangle {
                visible: own.shot.progress !== undefined
                width: root.width
                height: 6
                radius: 3
                color: Qt.rgba(1, 1, 1, 0.1)
                Rectangle {
                    width: parent.width * Math.max(0, Math.min(100, Number(own.shot.progress ?? 0))) / 100
                    height: parent.height
                    radius: 3
                    color: root.accent
                }
            }

            // Numbers.
            Flow {
                visible: (own.shot.metrics ?? []).length > 0
                width: root.width
                spacing: 10
                Repeater {
                    model: own.shot.metrics ?? []
                    delegate: Rectangle {
                        id: metric
                        required property var modelData
                        width: Math.max(120, Math.min(200, metricBody.implicitWidth + 24))
                        height: metricBody.implicitHeight + 20
                        radius: 14
                        color: Qt.rgba(1, 1, 1, 0.085)
                        border.color: Qt.rgba(1, 1, 1, 0.1)
                        Column {
                            id: metricBody
                            x: 12
                            y: 10
                            width: parent.width - 24
                            spacing: 2
                            Row {
                                spacing: 5
                                SymbolIcon {
                                    visible: (metric.modelData.symbol ?? "").length > 0
                                    anchors.verticalCenter: parent.verticalCenter
                                    name: metric.modelData.symbol ?? ""
                                    color: Qt.rgba(1, 1, 1, 0.55)
                                    size: 12
                                }
                                Text {
                                    textFormat: Text.PlainText
                                    width: Math.min(implicitWidth, 176)
                                    text: metric.modelData.label ?? ""
                                    elide: Text.ElideRight
                                    color: Qt.rgba(1, 1, 1, 0.55)
                                    font.pixelSize: 11
                                }
                            }
                            Text {
                                textFormat: Text.PlainText
                                width: Math.min(implicitWidth, 176)
                                text: metric.modelData.value ?? ""
                                elide: Text.ElideRight
                                color: Qt.rgba(1, 1, 1, 0.95)
                                font.pixelSize: 18
                                font.weight: Font.Medium
                            }
                        }
                    }
                }
            }

            Repeater {
                model: own.shot.sections ?? []
                delegate: SectionCard {
                    required property var modelData
                    width: root.width
                    section: modelData
                }
            }

            // Rows of a label and its value.
            Column {
                visible: (own.shot.fields ?? []).length > 0
                width: root.width
                spacing: 6
                Repeater {
                    model: own.shot.fields ?? []
                    delegate: Row {
                        id: field
                        required property var modelData
                        width: root.width
                        spacing: 10
                        SymbolIcon {
                            id: fieldSymbol
                            visible: (field.modelData.symbol ?? "").length > 0
                            name: field.modelData.symbol ?? ""
                            color: Qt.rgba(1, 1, 1, 0.55)
                            size: 14
                        }
                        Text {
                            id: fieldLabel
                            textFormat: Text.PlainText
                            width: Math.min(implicitWidth, root.width * 0.4)
                            text: field.modelData.label ?? ""
                            elide: Text.ElideRight
                            color: Qt.rgba(1, 1, 1, 0.55)
                            font.pixelSize: 12
                        }
                        Text {
                            textFormat: Text.PlainText
                            width: root.width - fieldLabel.width - 10
                                   - (fieldSymbol.visible ? fieldSymbol.width + 10 : 0)
                            text: field.modelData.value ?? ""
                            wrapMode: Text.Wrap
                            maximumLineCount: 6
                            elide: Text.ElideRight
                            color: Qt.rgba(1, 1, 1, 0.9)
                            font.pixelSize: 12
                        }
                    }
                }
            }

            Flow {
                visible: (own.shot.actions ?? []).length > 0
                width: root.width
                spacing: 8
                Repeater {
                    model: own.shot.actions ?? []
                    delegate: PluginActionButton {
                        required property var modelData
                        pluginID: root.pluginID
                        action: modelData
                    }
                }
            }

            // The video offer.
            VideoArea {
                visible: own.shot.media !== undefined
                media: own.shot.media ?? ({})
            }
        }
    }
}
