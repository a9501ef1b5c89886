#include "VellPluginSDK/Actions/PluginRunUpdate.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <cmath>

namespace vell {

PluginRunUpdate PluginRunUpdate::fromJson(const QJsonValue& json) {
    const JsonReader reader(json);
    PluginRunUpdate update;
    update.phase = reader.enumeration(u"phase", pluginRunPhaseFromName);
    update.progress = reader.optionalNumber(u"progress");
    update.message = reader.string(u"message");
    update.values = reader.values(u"values");
    update.display = reader.optionalRecord<PluginRunDisplay>(u"display");
    return update;
}

QJsonObject PluginRunUpdate::toJson() const {
    QJsonObject json{{"phase", pluginRunPhaseName(phase)},
                     {"message", message},
                     {"values", PluginValue::mapToJson(values)}};
    if (progress)
        json.insert(u"progress", *progress);
    if (display)
        json.insert(u"display", display->toJson());
    return json;
}

void PluginRunUpdate::validate() const {
    if ((progress && (!std::isfinite(*progress) || *progress < 0 || *progress > 1)) ||
        TextMetrics::characterCount(message) > maximumMessageCharacters || values.size() > maximumValues)
        throw ModuleProblem(QStringLiteral("Invalid execution update."));
    if (display)
        display->validate();
}

} // namespace vell
