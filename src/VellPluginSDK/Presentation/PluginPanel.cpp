#include "VellPluginSDK/Presentation/PluginPanel.h"

#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Modules/ModulePackage.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>

#include <algorithm>

namespace vell {

namespace {

[[noreturn]] void fail(const char* message) {
    throw ModuleProblem(QString::fromLatin1(message));
}

bool atMost(const QString& text, int maximum) {
    return TextMetrics::characterCount(text) <= maximum;
}

bool captionWithin(const QString& text, int maximum) {
    const int length = TextMetrics::characterCount(text);
    return length > 0 && length <= maximum;
}

} // namespace

PluginControlCard PluginControlCard::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginControlCard card;
    card.id = reader.string(u"id");
    card.title = reader.string(u"title");
    card.subtitle = reader.string(u"subtitle");
    card.value = reader.string(u"value");
    card.detail = reader.string(u"detail");
    card.symbol = reader.optionalString(u"symbol");
    card.highlighted = reader.boolean(u"highlighted");
    card.actions = reader.records<PluginAction>(u"actions");
    return card;
}

QByteArray PluginControlCard::encoded() const {
    return JsonWriter()
        .add(u"id", id)
        .add(u"title", title)
        .add(u"subtitle", subtitle)
        .add(u"value", value)
        .add(u"detail", detail)
        .addIfPresent(u"symbol", symbol)
        .add(u"highlighted", highlighted)
        .addRecords(u"actions", actions)
        .bytes();
}

QJsonObject PluginControlCard::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginControlCard::validate() const {
    if (!ModulePackage::validKey(id) || !captionWithin(title, maximumTitleCharacters) ||
        !atMost(subtitle, maximumSubtitleCharacters) || !atMost(value, maximumValueCharacters) ||
        !atMost(detail, maximumDetailCharacters) || (symbol && !atMost(*symbol, maximumSymbolCharacters)) ||
        actions.size() > maximumActions || !Identifiers::distinct(actions, &PluginAction::id))
        fail("Invalid control card.");
}

PluginPanel PluginPanel::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginPanel panel;
    panel.id = reader.string(u"id");
    panel.title = reader.string(u"title");
    panel.usesMedia = reader.boolean(u"usesMedia");
    panel.sections = reader.records<PluginSection>(u"sections");
    panel.diagrams = reader.optionalRecords<PluginDiagram>(u"diagrams");
    panel.cards = reader.optionalRecords<PluginControlCard>(u"cards");
    panel.forms = reader.optionalRecords<PluginForm>(u"forms");
    panel.collection = reader.optionalRecord<PluginCollection>(u"collection");
    panel.customView = reader.optionalRecord<PluginCustomView>(u"customView");
    return panel;
}

QByteArray PluginPanel::encoded() const {
    return JsonWriter()
        .add(u"id", id)
        .add(u"title", title)
        .add(u"usesMedia", usesMedia)
        .addRecords(u"sections", sections)
        .addRecordsIfPresent(u"diagrams", diagrams)
        .addRecordsIfPresent(u"cards", cards)
        .addRecordsIfPresent(u"forms", forms)
        .addRecordIfPresent(u"collection", collection)
        .addRecordIfPresent(u"customView", customView)
        .bytes();
}

QJsonObject PluginPanel::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginPanel::validateContents() const {
    // The video area and the diagram pages are drawn beside sections only, never beside one of
    // the four exclusive contents.
    if (customView) {
        if (diagrams || cards || forms || collection || usesMedia)
            fail("Conflicting custom view panel.");
        customView->validate();
    }
    if (collection) {
        if (diagrams || cards || forms || usesMedia)
            fail("Conflicting collection panel.");
        collection->validate();
    }
    if (forms) {
        if (forms->isEmpty() || forms->size() > maximumForms || diagrams || cards || usesMedia ||
            !Identifiers::distinct(*forms, &PluginForm::id))
            fail("Invalid form panel.");
        for (const PluginForm& form : *forms)
            form.validate();
    }
    if (cards) {
        if (cards->size() > maximumCards || diagrams || usesMedia ||
            !Identifiers::distinct(*cards, &PluginControlCard::id))
            fail("Invalid control card panel.");
        for (const PluginControlCard& card : *cards)
            card.validate();
    }
}

void PluginPanel::validateDiagrams() const {
    if (!diagrams)
        return;
    if (diagrams->isEmpty() || diagrams->size() > maximumDiagrams || usesMedia ||
        !Identifiers::distinct(*diagrams, &PluginDiagram::id))
        fail("Invalid module diagram pages.");
    for (const PluginDiagram& diagram : *diagrams)
        diagram.validate();
}

bool PluginPanel::hasValidPage() const {
    return Identifiers::isKey(id) && captionWithin(title, maximumTitleCharacters) &&
           sections.size() <= maximumSections &&
           std::all_of(sections.begin(), sections.end(),
                       [](const PluginSection& section) { return section.hasValidText(); });
}

} // namespace vell
