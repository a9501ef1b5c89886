#include "VellPluginSDK/Actions/PluginRunUpdate.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>

#include <cmath>

namespace vell {

PluginRunUpdate PluginRunUpdate::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginRunUpdate update;
    update.phase = reader.enumeration(u"phase", pluginRunPhaseFromName);
    update.progress = reader.optionalNumber(u"progress");
    update.message = reader.string(u"message");
    update.values = reader.values(u"values");
    update.display = reader.optionalRecord<PluginRunDisplay>(u"display");
    return update;
}

QByteArray PluginRunUpdate::encoded() const {
    return JsonWriter()
        .add(u"phase", pluginRunPhaseName(phase))
        .add(u"message", message)
        .add(u"values", PluginValue::mapToJson(values))
        .addIfPresent(u"progress", progress)
        .addRecordIfPresent(u"display", display)
        .bytes();
}

QJsonObject PluginRunUpdate::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginRunUpdate::validate() const {
    if ((progress && (!std::isfinite(*progress) || *progress < 0 || *progress > 1)) ||
        TextMetrics::characterCount(message) > maximumMessageCharacters || values.size() > maximumValues)
        throw ModuleProblem(QStringLiteral("Invalid execution update."));
    if (display)
        display->validate();
}

} // namespace vell
