#include "VellPluginSDK/Protocol/PluginVolumeResult.h"

#include "VellPluginSDK/Actions/PluginBusMessage.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>

namespace vell {

namespace {

bool isValid(const PluginVolumeEndpoint& endpoint) {
    try {
        endpoint.validate();
    } catch (const ModuleProblem&) {
        return false;
    }
    return true;
}

} // namespace

PluginVolumeResult PluginVolumeResult::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginVolumeResult result;
    result.requestID = reader.uuid(u"requestID");
    result.endpointID = reader.string(u"endpointID");
    result.state = reader.optionalRecord<PluginVolumeEndpoint>(u"state");
    result.error = reader.optionalString(u"error");
    return result;
}

QByteArray PluginVolumeResult::encoded() const {
    return JsonWriter()
        .add(u"requestID", uuidText(requestID))
        .add(u"endpointID", endpointID)
        .addRecordIfPresent(u"state", state)
        .addIfPresent(u"error", error)
        .bytes();
}

QJsonObject PluginVolumeResult::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginVolumeResult::validate() const {
    const qsizetype idBytes = TextMetrics::utf8Size(endpointID);
    const int errorLength = error ? TextMetrics::characterCount(*error) : 0;
    // The state must describe the endpoint that was asked, or a plugin could move one control
    // and report another.
    const bool stateValid = !state || (isValid(*state) && state->id == endpointID);
    if (state.has_value() == error.has_value() || idBytes < 1 ||
        idBytes > PluginVolumeEndpoint::maximumIDBytes || !stateValid ||
        (error && (errorLength < 1 || errorLength > maximumErrorCharacters)))
        throw ModuleProblem(QStringLiteral("Invalid volume result."));
}

} // namespace vell
