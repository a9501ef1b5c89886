#include "VellPluginSDK/Presentation/PluginAction.h"

#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>

namespace vell {

PluginAction PluginAction::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginAction action;
    action.id = reader.string(u"id");
    action.label = reader.string(u"label");
    action.enabled = reader.boolean(u"enabled");
    action.symbol = reader.optionalString(u"symbol");
    action.confirmation = reader.optionalString(u"confirmation");
    return action;
}

QByteArray PluginAction::encoded() const {
    return JsonWriter()
        .add(u"id", id)
        .add(u"label", label)
        .add(u"enabled", enabled)
        .addIfPresent(u"symbol", symbol)
        .addIfPresent(u"confirmation", confirmation)
        .bytes();
}

QJsonObject PluginAction::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

bool PluginAction::hasValidContent() const {
    const int labelLength = TextMetrics::characterCount(label);
    return Identifiers::isKey(id) && labelLength > 0 && labelLength <= maximumLabelCharacters &&
           (!symbol || TextMetrics::characterCount(*symbol) <= maximumSymbolCharacters) &&
           (!confirmation || TextMetrics::characterCount(*confirmation) <= maximumConfirmationCharacters);
}

} // namespace vell
