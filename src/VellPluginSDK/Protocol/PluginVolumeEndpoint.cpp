#include "VellPluginSDK/Protocol/PluginVolumeEndpoint.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>

#include <cmath>

namespace vell {

PluginVolumeEndpoint PluginVolumeEndpoint::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginVolumeEndpoint endpoint;
    endpoint.id = reader.string(u"id");
    endpoint.name = reader.string(u"name");
    endpoint.available = reader.boolean(u"available");
    endpoint.volume = reader.optionalNumber(u"volume");
    endpoint.muted = reader.optionalBoolean(u"muted");
    endpoint.canSetVolume = reader.boolean(u"canSetVolume");
    endpoint.canMute = reader.boolean(u"canMute");
    endpoint.observedAt = reader.number(u"observedAt");
    return endpoint;
}

QByteArray PluginVolumeEndpoint::encoded() const {
    return JsonWriter()
        .add(u"id", id)
        .add(u"name", name)
        .add(u"available", available)
        .addIfPresent(u"volume", volume)
        .addIfPresent(u"muted", muted)
        .add(u"canSetVolume", canSetVolume)
        .add(u"canMute", canMute)
        .add(u"observedAt", observedAt)
        .bytes();
}

QJsonObject PluginVolumeEndpoint::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginVolumeEndpoint::validate() const {
    const qsizetype idBytes = TextMetrics::utf8Size(id);
    const int nameLength = TextMetrics::characterCount(name);
    const bool volumeValid = !volume || (std::isfinite(*volume) && *volume >= 0 && *volume <= 1);
    if (idBytes < 1 || idBytes > maximumIDBytes || nameLength < 1 || nameLength > maximumNameCharacters ||
        !volumeValid || (canSetVolume && !volume) || (canMute && !muted) || !std::isfinite(observedAt) ||
        observedAt < 0)
        throw ModuleProblem(QStringLiteral("Invalid volume endpoint."));
}

} // namespace vell
