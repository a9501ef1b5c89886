#pragma once

#include "VellPluginSDK/Json/JsonNode.h"
#include "VellPluginSDK/Protocol/PluginVolumeEndpoint.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QUuid>

#include <optional>

namespace vell {

// A plugin's answer to one PluginVolumeCommand: the endpoint as it stands after the change, or
// why the change was not made. Never both: a confirmation that also reports an error would
// leave the host guessing whether the level moved.
struct PluginVolumeResult {
    static constexpr int maximumErrorCharacters = 500;

    QUuid requestID;
    QString endpointID;
    std::optional<PluginVolumeEndpoint> state;
    std::optional<QString> error;

    static PluginVolumeResult fromJson(const JsonNode& json);
    // Declared field order, absent optionals left out.
    QByteArray encoded() const;
    QJsonObject toJson() const;
    void validate() const;

    friend bool operator==(const PluginVolumeResult&, const PluginVolumeResult&) = default;
};

} // namespace vell
