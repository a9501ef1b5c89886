#include "VellPluginSDK/Actions/PluginActionAddress.h"

#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>

namespace vell {

PluginActionAddress PluginActionAddress::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.string(u"plugin"), reader.string(u"name")};
}

QByteArray PluginActionAddress::encoded() const {
    return JsonWriter().add(u"plugin", plugin).add(u"name", name).bytes();
}

QJsonObject PluginActionAddress::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginActionAddress::validate() const {
    if (TextMetrics::characterCount(plugin) > maximumPluginCharacters || !Identifiers::isID(plugin) ||
        !Identifiers::isKey(name))
        throw ModuleProblem(QStringLiteral("Invalid action address."));
}

} // namespace vell
