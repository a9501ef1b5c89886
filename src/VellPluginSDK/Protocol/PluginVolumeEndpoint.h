#pragma once

#include "VellPluginSDK/Json/JsonNode.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <optional>

namespace vell {

// One volume control a plugin offers in its snapshot (a monitor's speakers, an amplifier), as
// last observed by the plugin. The host routes volume keys to it and waits for confirmation.
struct PluginVolumeEndpoint {
    static constexpr qsizetype maximumIDBytes = 200;
    static constexpr int maximumNameCharacters = 80;

    QString id;
    QString name;
    bool available = false;
    // 0 to 1.
    std::optional<double> volume;
    std::optional<bool> muted;
    bool canSetVolume = false;
    bool canMute = false;
    // Seconds since 1970, unlike the protocol's other instants: the plugin's own clock reading.
    double observedAt = 0;

    static PluginVolumeEndpoint fromJson(const JsonNode& json);
    QByteArray encoded() const;
    QJsonObject toJson() const;
    void validate() const;

    friend bool operator==(const PluginVolumeEndpoint&, const PluginVolumeEndpoint&) = default;
};

} // namespace vell
