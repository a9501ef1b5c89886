#pragma once

#include "VellPluginSDK/Json/JsonNode.h"
#include "VellPluginSDK/Presentation/PluginAction.h"
#include "VellPluginSDK/Presentation/PluginCollection.h"
#include "VellPluginSDK/Presentation/PluginCustomView.h"
#include "VellPluginSDK/Presentation/PluginDiagram.h"
#include "VellPluginSDK/Presentation/PluginForm.h"
#include "VellPluginSDK/Presentation/PluginSection.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <optional>

namespace vell {

// One tile of a control grid: a light, a scene, a speaker.
struct PluginControlCard {
    static constexpr int maximumTitleCharacters = 80;
    static constexpr int maximumSubtitleCharacters = 100;
    static constexpr int maximumValueCharacters = 100;
    static constexpr int maximumDetailCharacters = 300;
    static constexpr int maximumSymbolCharacters = 80;
    static constexpr int maximumActions = 3;

    QString id;
    QString title;
    // Also the card's group in the grid's group menu.
    QString subtitle;
    QString value;
    QString detail;
    std::optional<QString> symbol;
    // Drawn as active.
    bool highlighted = false;
    QList<PluginAction> actions;

    static PluginControlCard fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;
    // Its own fields and the number of its buttons; the buttons' content is the snapshot's test.
    void validate() const;

    friend bool operator==(const PluginControlCard&, const PluginControlCard&) = default;
};

// One page of a plugin's tab. What it holds decides how it is drawn, and at most one of a custom
// view, a collection, forms and a control grid may stand on a page.
struct PluginPanel {
    static constexpr int maximumTitleCharacters = 40;
    static constexpr int maximumSections = 12;
    static constexpr int maximumForms = 4;
    static constexpr int maximumCards = 96;
    static constexpr int maximumDiagrams = 10;

    QString id;
    QString title;
    // The page wants the video frame area.
    bool usesMedia = false;
    QList<PluginSection> sections;
    std::optional<QList<PluginDiagram>> diagrams;
    std::optional<QList<PluginControlCard>> cards;
    std::optional<QList<PluginForm>> forms;
    std::optional<PluginCollection> collection;
    std::optional<PluginCustomView> customView;

    static PluginPanel fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;

    // What the page holds, exclusive and each valid in itself: its custom view, its collection,
    // its forms, its cards, in that order.
    void validateContents() const;
    // Its diagram pages, if any, and each diagram.
    void validateDiagrams() const;
    // Its own caption and sections, as the page selector shows them.
    bool hasValidPage() const;

    friend bool operator==(const PluginPanel&, const PluginPanel&) = default;
};

} // namespace vell
