#include "VellPluginSDK/Actions/PluginActionAddress.h"

#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

namespace vell {

PluginActionAddress PluginActionAddress::fromJson(const QJsonValue& json) {
    const JsonReader reader(json);
    return {reader.string(u"plugin"), reader.string(u"name")};
}

QJsonObject PluginActionAddress::toJson() const {
    return {{"plugin", plugin}, {"name", name}};
}

void PluginActionAddress::validate() const {
    if (TextMetrics::characterCount(plugin) > maximumPluginCharacters || !Identifiers::isID(plugin) ||
        !Identifiers::isKey(name))
        throw ModuleProblem(QStringLiteral("Invalid action address."));
}

} // namespace vell
