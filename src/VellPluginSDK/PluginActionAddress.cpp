#include "VellPluginSDK/PluginActionAddress.h"

#include "VellPluginSDK/ActionJsonReader.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/PluginIdentifiers.h"
#include "VellPluginSDK/TextMetrics.h"

namespace vell {

PluginActionAddress PluginActionAddress::fromJson(const QJsonValue& json) {
    const ActionJsonReader reader(json);
    return {reader.string(u"plugin"), reader.string(u"name")};
}

QJsonObject PluginActionAddress::toJson() const {
    return {{"plugin", plugin}, {"name", name}};
}

void PluginActionAddress::validate() const {
    if (TextMetrics::characterCount(plugin) > maximumPluginCharacters || !PluginIdentifiers::isPeer(plugin) ||
        !PluginIdentifiers::isName(name))
        throw ModuleProblem(QStringLiteral("Invalid action address."));
}

} // namespace vell
